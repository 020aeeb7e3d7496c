#include "easing.h"

#include "catalogue/suggest.h"
#include "host_error.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace vorn::hosts {

namespace {

/// A ball that falls and springs up three times, to 1/4, 1/16 and 1/64 of its height.
double bounced(double share) {
    // In units of the fall, the springs take 1, 1/2 and 1/4: 2.75 in all.
    const double time = share * 2.75;
    if (time < 1) return time * time;
    const auto spring = [&](double top, double height) {
        return 1 - height + (time - top) * (time - top);
    };
    if (time < 2) return spring(1.5, 1.0 / 4);
    if (time < 2.5) return spring(2.25, 1.0 / 16);
    return std::min(1.0, spring(2.625, 1.0 / 64));
}

} // namespace

const std::vector<std::string>& easingNames() {
    static const std::vector<std::string> names{"linear", "hold", "smooth", "cubic", "bounce"};
    return names;
}

const char* easingName(Easing easing) {
    return easingNames()[static_cast<size_t>(easing)].c_str();
}

Easing parseEasing(std::string_view name, std::string_view where) {
    const std::vector<std::string>& names = easingNames();
    const auto place = std::find(names.begin(), names.end(), name);
    if (place != names.end()) return static_cast<Easing>(place - names.begin());
    const std::string hint = suggestion(name, names);
    throw HostError(
        ExitCode::Usage,
        fmt::format("{}: there is no easing \"{}\"{}", where, name,
                    hint.empty() ? fmt::format("; there is {}", fmt::join(names, ", ")) : hint));
}

double eased(Easing easing, double share) {
    switch (easing) {
    case Easing::Linear:
        return share;
    case Easing::Hold:
        return share < 1 ? 0 : 1;
    case Easing::Smooth:
        return share * share * (3 - 2 * share);
    case Easing::Cubic: {
        const double rest = 1 - share;
        return share < 0.5 ? 4 * share * share * share : 1 - 4 * rest * rest * rest;
    }
    case Easing::Bounce:
        return bounced(share);
    }
    return share;
}

} // namespace vorn::hosts
