#include "device.h"

#include "host_error.h"

#include <fmt/format.h>

namespace vorn::hosts {

void readDevice(const std::string& text, ContextOptions& options, const char* choices) {
    const size_t colon = text.find(':');
    const std::string name = text.substr(0, colon);
    if (text == "auto") {
        options.device = DeviceKind::Auto;
    } else if (text == "cpu") {
        options.device = DeviceKind::CPU;
    } else if (text == "reference") {
        options.device = DeviceKind::Reference;
    } else if (name == "vulkan") {
        options.device = DeviceKind::Vulkan;
        options.deviceName = colon == std::string::npos ? "" : text.substr(colon + 1);
    } else {
        throw HostError(ExitCode::Usage, fmt::format("--device {}: {}", text, choices));
    }
}

void requireDevice(const CIContext& context) {
    if (context.deviceProblem().empty()) return;
    throw HostError(ExitCode::DeviceMissing, context.deviceProblem());
}

} // namespace vorn::hosts
