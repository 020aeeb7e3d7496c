#include "imaging/SessionState.h"
#include "imaging/vulkan/Renderer.h"
#include "platform/Messages.h"
#include "platform/NeverDestroyed.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <utility>

namespace vorn {

using imaging::SessionState;
using imaging::SharedGpu;

SessionState& imaging::stateOf(const Session& session) {
    return *session.state_;
}

// ---- GPUs ---------------------------------------------------------------------------------------

SharedGpu::SharedGpu(std::shared_ptr<imaging::vulkan::Device> device)
    : device_(std::move(device)) {}
SharedGpu::~SharedGpu() = default;

std::shared_ptr<imaging::vulkan::Renderer> SharedGpu::borrow() {
    {
        const std::lock_guard lock(mutex_);
        if (!idle_.empty()) {
            auto renderer = std::move(idle_.back());
            idle_.pop_back();
            return renderer;
        }
        idle_.reserve(++made_); // so that nothing can fail when it is given back
    }
    return std::make_shared<imaging::vulkan::Renderer>(device_);
}

void SharedGpu::giveBack(std::shared_ptr<imaging::vulkan::Renderer> renderer) noexcept {
    const std::lock_guard lock(mutex_);
    idle_.push_back(std::move(renderer));
}

SessionState::SessionState() = default;
SessionState::~SessionState() = default;

std::shared_ptr<SharedGpu>
SessionState::share(const std::shared_ptr<imaging::vulkan::Device>& device) {
    const std::lock_guard lock(mutex);
    std::erase_if(gpus, [](const auto& known) { return known.expired(); });
    for (const auto& known : gpus)
        if (auto shared = known.lock(); shared && shared->device() == device) return shared;
    auto shared = std::make_shared<SharedGpu>(device);
    gpus.push_back(shared);
    return shared;
}

std::shared_ptr<SharedGpu> SessionState::gpuForFilters() {
    if (options.device != DeviceKind::Auto && options.device != DeviceKind::Vulkan) return nullptr;
    {
        const std::lock_guard lock(mutex);
        if (gpu && !gpu->device()->isLost()) return gpu;
        if (options.device == DeviceKind::Auto) {
            for (const auto& known : gpus)
                if (auto shared = known.lock(); shared && !shared->device()->isLost())
                    return shared;
            return nullptr;
        }
    }
    std::string problem;
    const auto device = imaging::vulkan::Device::open(options.deviceName, true, problem);
    auto opened = device ? share(device) : nullptr;
    const std::lock_guard lock(mutex);
    return gpu = std::move(opened);
}

void SharedGpu::trim() {
    const std::lock_guard lock(mutex_);
    for (const auto& renderer : idle_) renderer->trim();
}

void SessionState::trim() {
    const std::lock_guard lock(mutex);
    for (const auto& context : idle) context->trim();
    for (const auto& known : gpus)
        if (const auto shared = known.lock()) shared->trim();
}

// ---- Sessions -----------------------------------------------------------------------------------

Session::Session(std::unique_ptr<SessionState> state) : state_(std::move(state)) {
    state_->surroundings->session = this;
}

Session::~Session() = default;

std::shared_ptr<Session> Session::make(SessionOptions options) try {
    auto state = std::make_unique<SessionState>();
    state->own = std::make_unique<Surroundings>(options.randomSeed, options.messages);
    state->surroundings = state->own.get();
    state->options = std::move(options);
    return std::shared_ptr<Session>(new Session(std::move(state)));
} catch (...) {
    reportCaught("Session");
    return nullptr;
}

namespace {

/// Memory for the reference counts of the one object that is given it.
template <class T>
struct StaticAllocator {
    using value_type = T;
    StaticAllocator() = default;
    template <class Other>
    StaticAllocator(const StaticAllocator<Other>&) {}
    bool operator==(const StaticAllocator&) const = default;

    T* allocate(size_t) {
        alignas(T) static std::byte memory[sizeof(T)];
        return reinterpret_cast<T*>(memory);
    }
    void deallocate(T*, size_t) {}
};

} // namespace

const std::shared_ptr<Session>& Session::standard() {
    // Filters may be made until the process ends, and need it where there is no memory for more.
    static NeverDestroyed<std::shared_ptr<Session>> session([] {
        static NeverDestroyed<SessionState> state;
        state.get().surroundings = &Surroundings::standard();
        alignas(Session) static std::byte memory[sizeof(Session)];
        auto* const made = new (memory) Session(std::unique_ptr<SessionState>(&state.get()));
        return std::shared_ptr<Session>(
            made, [](Session*) {}, StaticAllocator<Session>());
    }());
    return session.get();
}

std::shared_ptr<Session> Session::current() {
    Surroundings& surroundings = Surroundings::current();
    return &surroundings == &Surroundings::standard() ? standard()
                                                      : surroundings.session->shared_from_this();
}

Session::Scope::Scope(std::shared_ptr<Session> session)
    : session_(std::move(session)),
      outer_(Surroundings::makeCurrent(session_ ? session_->state_->surroundings : nullptr)) {}

Session::Scope::~Scope() {
    Surroundings::makeCurrent(static_cast<Surroundings*>(outer_));
}

CIFilterRef Session::filterWithName(std::string_view name) {
    const Scope scope(shared_from_this());
    return CIFilter::filterWithName(name);
}

const SessionOptions& Session::options() const {
    return state_->options;
}
uint64_t Session::clock() const {
    return state_->surroundings->clock();
}
void Session::driveClock(uint64_t nanoseconds) {
    state_->surroundings->driveClock(nanoseconds);
}
void Session::releaseClock() {
    state_->surroundings->releaseClock();
}
bool Session::isClockDriven() const {
    return state_->surroundings->isClockDriven();
}
MessageSink Session::setMessages(MessageSink messages) try {
    return state_->surroundings->setSink(std::move(messages));
} catch (...) {
    const CurrentSurroundings here(*state_->surroundings);
    reportCaught("Session");
    return {};
}
uint64_t Session::random() {
    return state_->surroundings->random();
}

} // namespace vorn
