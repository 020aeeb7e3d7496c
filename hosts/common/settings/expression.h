// A number that follows from the time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace vorn::hosts {

/// A formula of the time such as "0.5+0.5*sin(2*pi*t)". Copies share what evaluates it, which is
/// for one thread at a time.
class Expression {
public:
    /// A usage error that tells what is wrong with the text, and where.
    Expression(std::string_view text, std::string_view where);

    /// Its value at that time, in seconds; a `HostError` when that is no finite number.
    double at(double seconds) const;
    const std::string& text() const;

    /// Whether a text that is no value may be meant as a formula.
    static bool isLikely(std::string_view text);

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace vorn::hosts
