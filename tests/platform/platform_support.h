// Files to try the platform layer on.
#pragma once

#include "bundle_copy.h"
#include "vorneffects/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace platform_test {

using namespace vorn;
namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

inline Data dataOf(Bytes bytes) {
    return std::make_shared<Bytes>(std::move(bytes));
}

/// A folder that goes away with the test.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "vorneffects-platform-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make " + pattern);
        path_ = pattern;
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    const fs::path& path() const { return path_; }
    std::string write(const std::string& name, std::string_view contents) const {
        std::ofstream(path_ / name, std::ios::binary) << contents;
        return (path_ / name).string();
    }

private:
    fs::path path_;
};

} // namespace platform_test
