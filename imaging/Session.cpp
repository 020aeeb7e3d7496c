#include "imaging/SessionState.h"
#include "imaging/vulkan/Renderer.h"

#include <algorithm>
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

std::shared_ptr<Session> Session::make(SessionOptions options) {
    auto state = std::make_unique<SessionState>();
    state->own = std::make_unique<Surroundings>(options.randomSeed, options.messages);
    state->surroundings = state->own.get();
    state->options = std::move(options);
    return std::shared_ptr<Session>(new Session(std::move(state)));
}

const std::shared_ptr<Session>& Session::standard() {
    // Never destroyed: filters may be made until the process ends.
    static const auto& session = *new std::shared_ptr<Session>([] {
        auto state = std::make_unique<SessionState>();
        state->surroundings = &Surroundings::standard();
        return new Session(std::move(state));
    }());
    return session;
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
MessageSink Session::setMessages(MessageSink messages) {
    return state_->surroundings->setSink(std::move(messages));
}
uint64_t Session::random() {
    return state_->surroundings->random();
}

} // namespace vorn
