// Kernels as compute pipelines, and the driver's cache of them in a file.
#pragma once

#include "imaging/KernelLibrary.h"
#include "imaging/vulkan/Api.h"

#include <map>
#include <mutex>
#include <string>
#include <tuple>

namespace vorn::imaging::vulkan {

class Device;

/// How a pipeline stores its pixels: `vornOrder` of the shader.
enum class Store : int32_t { AsItIs = 0, RGBA8 = 1, BGRA8 = 2, ARGB8 = 3 };

struct Pipeline {
    VkPipeline handle = VK_NULL_HANDLE;
    VkPipelineLayout layout = VK_NULL_HANDLE;
    VkDescriptorSetLayout sets = VK_NULL_HANDLE;
    uint32_t sources = 0, callBytes = 0;
    bool pushesCall = true; ///< else the call's values come from a uniform buffer
};

class Pipelines {
public:
    explicit Pipelines(Device& device);
    ~Pipelines();

    /// The pipeline of a kernel, made when it is first asked for. Throws a Failure; the next call
    /// tries again.
    const Pipeline& pipelineFor(const LibraryFunction& function, Store store);
    /// Writes the cache file when there is something new in it. Nothing that goes wrong with that
    /// counts.
    void save() noexcept;

private:
    struct Layout {
        VkDescriptorSetLayout sets = VK_NULL_HANDLE;
        VkPipelineLayout layout = VK_NULL_HANDLE;
    };
    const Layout& layoutFor(uint32_t sources, uint32_t pushedBytes, bool pushesCall);
    Pipeline make(const LibraryFunction& function, Store store);

    Device& device_;
    std::mutex mutex_;
    std::map<std::tuple<const KernelModule*, size_t, Store>, Pipeline> pipelines_;
    std::map<std::tuple<uint32_t, uint32_t, bool>, Layout> layouts_;
    VkPipelineCache cache_ = VK_NULL_HANDLE;
    std::string file_;
    bool isNew_ = false;
};

} // namespace vorn::imaging::vulkan
