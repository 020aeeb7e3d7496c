#include "render_interrupt.h"

#include <atomic>

namespace vorn::cli {

namespace {

std::atomic<bool> requested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler must not lock");

extern "C" void rememberRequest(int) {
    requested = true;
}

} // namespace

InterruptWatch::InterruptWatch() {
    requested = false;
    struct sigaction action = {};
    action.sa_handler = rememberRequest;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    sigaction(SIGINT, &action, &oldInterrupt_);
    sigaction(SIGTERM, &action, &oldTerminate_);
    action.sa_handler = SIG_IGN;
    action.sa_flags = 0;
    sigaction(SIGPIPE, &action, &oldPipe_);
}

InterruptWatch::~InterruptWatch() {
    sigaction(SIGINT, &oldInterrupt_, nullptr);
    sigaction(SIGTERM, &oldTerminate_, nullptr);
    sigaction(SIGPIPE, &oldPipe_, nullptr);
}

bool InterruptWatch::isRequested() {
    return requested;
}

} // namespace vorn::cli
