#include "platform/Messages.h"

#include "platform/Surroundings.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <new>

namespace vorn {

void report(Severity severity, const char* format, ...) noexcept {
    // Most lines fit. Where there is no memory for a longer one, its beginning is said.
    char text[1024];
    va_list arguments, again;
    va_start(arguments, format);
    va_copy(again, arguments);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    const size_t whole = static_cast<size_t>(std::max(length, 0));
    const std::unique_ptr<char[]> longer(whole >= sizeof text ? new (std::nothrow) char[whole + 1]
                                                              : nullptr);
    if (longer) std::vsnprintf(longer.get(), whole + 1, format, again);
    va_end(again);
    va_end(arguments);
    Surroundings::current().say(severity, {longer ? longer.get() : text,
                                           longer ? whole : std::min(whole, sizeof text - 1)});
}

void reportCaught(std::string_view name) noexcept {
    const int length = static_cast<int>(name.size());
    try {
        throw;
    } catch (const std::bad_alloc&) {
        report(Severity::Warning, "### %.*s: out of memory", length, name.data());
    } catch (const std::exception& error) {
        report(Severity::Warning, "### %.*s: %s", length, name.data(), error.what());
    } catch (...) {
        report(Severity::Warning, "### %.*s: an exception of an unknown kind", length, name.data());
    }
}

} // namespace vorn
