// Signals: the first one asks for an end, a second one ends the program at once.
#pragma once

#include "media/access.h"

#include <array>
#include <csignal>
#include <semaphore.h>
#include <thread>

namespace vorn::hosts::cli {

/// While it lives, the first SIGINT, SIGTERM or SIGHUP asks for a stop and interrupts whatever the
/// watched threads wait for, again and again; a second one later removes unfinished files and ends
/// the program. Writing to a closed pipe, or more than a file may hold, is an error instead of the
/// end. Watches the thread that makes it. One in the life of the program.
class InterruptWatch {
public:
    InterruptWatch();
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    /// Safe from any thread.
    static bool isRequested();
    /// Lives as long as the program.
    static const media::StopRequest& request();

    /// Watches the calling thread, which waits for files.
    class Thread {
    public:
        Thread();
        ~Thread();
        Thread(const Thread&) = delete;
        Thread& operator=(const Thread&) = delete;
    };

private:
    void interruptWaits();

    struct Replaced {
        int signal;
        struct sigaction old;
    };
    std::array<Replaced, 6> replaced_;
    std::thread prodder_;
    Thread self_;
};

} // namespace vorn::hosts::cli
