#include "interrupt.h"

#include "media/output_file.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>
#include <unistd.h>
#include <vector>

#include <pthread.h>

namespace vorn::hosts::cli {

namespace {

/// Ignored by itself, so a late one does no harm.
constexpr int kProd = SIGURG;

/// Shells and supervisors send a signal to the program and to its group; that is one request.
constexpr double kSameRequestSeconds = 0.2;

media::StopRequest stopRequest;
sem_t wake; ///< posted by the first signal, and at the end of the watch
std::atomic<bool> isOver{false};

struct Watched {
    std::mutex mutex;
    std::vector<pthread_t> threads;
};

Watched& watched() {
    static Watched threads;
    return threads;
}

extern "C" void takeRequest(int signal) {
    const int error = errno;
    if (stopRequest.ask()) {
        sem_post(&wake);
    } else if (stopRequest.secondsSinceAsked() > kSameRequestSeconds) {
        media::removeUnfinishedFiles();
        struct sigaction usual = {};
        usual.sa_handler = SIG_DFL;
        sigaction(signal, &usual, nullptr);
        // Held back until the handler is done.
        kill(getpid(), signal);
    }
    errno = error;
}

extern "C" void takeProd(int) {}

} // namespace

InterruptWatch::Thread::Thread() {
    const std::lock_guard lock(watched().mutex);
    watched().threads.push_back(pthread_self());
}

InterruptWatch::Thread::~Thread() {
    const std::lock_guard lock(watched().mutex);
    std::vector<pthread_t>& threads = watched().threads;
    threads.erase(std::find(threads.begin(), threads.end(), pthread_self()));
}

InterruptWatch::InterruptWatch() {
    sem_init(&wake, 0, 0);
    prodder_ = std::thread([this] { interruptWaits(); });
    struct sigaction action = {};
    const auto replace = [&](size_t place, int signal, void (*handler)(int), int flags) {
        action.sa_handler = handler;
        action.sa_flags = flags;
        replaced_[place].signal = signal;
        sigaction(signal, &action, &replaced_[place].old);
    };
    replace(0, SIGINT, takeRequest, SA_RESTART);
    replace(1, SIGTERM, takeRequest, SA_RESTART);
    replace(2, SIGHUP, takeRequest, SA_RESTART);
    // Whoever wants the program to outlive its terminal says so before starting it.
    if (replaced_[2].old.sa_handler == SIG_IGN) sigaction(SIGHUP, &replaced_[2].old, nullptr);
    replace(3, SIGPIPE, SIG_IGN, 0);
    replace(4, SIGXFSZ, SIG_IGN, 0);
    replace(5, kProd, takeProd, 0); // without SA_RESTART: calls that wait return
}

InterruptWatch::~InterruptWatch() {
    isOver = true;
    sem_post(&wake);
    prodder_.join();
    for (const Replaced& each : replaced_) sigaction(each.signal, &each.old, nullptr);
}

/// A thread may look whether to stop just before it begins to wait, so once is not enough.
void InterruptWatch::interruptWaits() {
    while (sem_wait(&wake) != 0) {
    }
    while (!isOver) {
        {
            const std::lock_guard lock(watched().mutex);
            for (const pthread_t thread : watched().threads) pthread_kill(thread, kProd);
        }
        const timespec pause = {0, 50'000'000};
        nanosleep(&pause, nullptr);
    }
}

bool InterruptWatch::isRequested() {
    return stopRequest.isAsked();
}

const media::StopRequest& InterruptWatch::request() {
    return stopRequest;
}

} // namespace vorn::hosts::cli
