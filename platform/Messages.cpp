#include "platform/Messages.h"

#include <cstdarg>
#include <cstdio>

void vorn::report(Severity, const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    flockfile(stdout);
    std::vprintf(format, arguments);
    std::putchar('\n');
    funlockfile(stdout);
    va_end(arguments);
}
