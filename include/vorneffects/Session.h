// Sessions: what hosts would otherwise share with everybody in their process.
//
// A session is a device and threads, a clock, a place where the library's lines go, and random
// numbers. Filters and contexts belong to the session that they were made in and keep it alive.
// Where a host makes none, everything belongs to the standard one: an Auto device, the system's
// clock, lines on standard output. Two sessions share nothing that shows in a picture.
#pragma once

#include "Language.h"

#if VORN_HAS_LANGUAGE

#include "CIContext.h"
#include "CIFilter.h"
#include "Platform.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace vorn {

namespace imaging {
struct SessionState;
SessionState& stateOf(const Session& session);
} // namespace imaging

struct SessionOptions {
    /// What contexts of the session take where they ask for nothing else, and what filters that
    /// keep frames render with. `Auto` among the latter: the GPU that a context of the session has
    /// opened first, as long as one has it open, and else the CPU.
    DeviceKind device = DeviceKind::Auto;
    int threads = 0;                 ///< of each context; 0: one per core
    std::string instructionSet = {}; ///< as in `ContextOptions`
    std::string deviceName = {};     ///< as in `ContextOptions`
    uint64_t randomSeed = 0;         ///< filters that draw lots draw the same ones from it
    MessageSink messages = {};       ///< gets every line; none: lines go to standard output
};

/// Safe from any thread.
class VORN_EXPORT Session : public std::enable_shared_from_this<Session> {
public:
    /// Null, with a line, where memory runs out. Whatever is given no session takes the standard
    /// one.
    static std::shared_ptr<Session> make(SessionOptions options = {});
    /// Lives as long as the process.
    static const std::shared_ptr<Session>& standard();
    /// The one that is current on this thread: the standard one unless a `Scope` says otherwise.
    static std::shared_ptr<Session> current();
    ~Session();

    /// Makes a session current on this thread for as long as it lives; scopes nest. Filters and
    /// contexts are then made in it, and calls that belong to no filter, as those of the clock and
    /// of the registrar, act on it.
    class VORN_EXPORT Scope {
    public:
        explicit Scope(std::shared_ptr<Session> session);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        std::shared_ptr<Session> session_;
        void* outer_;
    };

    /// `CIFilter::filterWithName` in this session.
    CIFilterRef filterWithName(std::string_view name);

    /// As it was made.
    const SessionOptions& options() const;

    /// The session's clock, as `PlatformClock` has it. Filters read it in `outputImage`.
    uint64_t clock() const;
    void driveClock(uint64_t nanoseconds);
    void releaseClock();
    bool isClockDriven() const;

    /// Hands lines to another sink from now on (none: to standard output); gives the former one.
    /// Where there is no memory for that, the former one stays and gets a line, and none is given.
    MessageSink setMessages(MessageSink messages);

    /// The next one of the session's random numbers, even over all 64 bits.
    uint64_t random();

private:
    friend imaging::SessionState& imaging::stateOf(const Session& session);
    explicit Session(std::unique_ptr<imaging::SessionState> state);
    std::unique_ptr<imaging::SessionState> state_;
};

} // namespace vorn

#endif // VORN_HAS_LANGUAGE
