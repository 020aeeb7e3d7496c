// What the tests of the Vulkan device share.
#pragma once

#include "support.h"

#include <cstdlib>
#include <string>

namespace vulkan_test {

inline CIImage blurred(const CIImage& image) {
    return filtered("CIGaussianBlur", image, {{"inputRadius", Number(3)}});
}

inline std::string temporaryFolder() {
    std::string folder = testing::TempDir() + "vulkan-XXXXXX";
    return mkdtemp(folder.data()) ? folder : std::string();
}

} // namespace vulkan_test
