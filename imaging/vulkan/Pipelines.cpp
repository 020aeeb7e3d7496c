#include "imaging/vulkan/Pipelines.h"

#include "imaging/vulkan/Device.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace vorn::imaging::vulkan {
namespace {

// ---- The cache file -----------------------------------------------------------------------------

/// Drivers are to refuse a cache that is not theirs or damaged, and not all of them do. So the file
/// says itself whose it is, and carries a checksum.
struct CacheHeader {
    char magic[8] = {'V', 'O', 'R', 'N', 'P', 'I', 'P', 'E'};
    uint32_t version = 1, vendor = 0, device = 0, driver = 0;
    uint8_t uuid[VK_UUID_SIZE] = {};
    uint64_t size = 0, checksum = 0;
};

uint64_t checksumOf(std::string_view bytes) {
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char byte : bytes) hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

CacheHeader headerFor(std::string_view data, const VkPhysicalDeviceProperties& properties) {
    CacheHeader header;
    header.vendor = properties.vendorID;
    header.device = properties.deviceID;
    header.driver = properties.driverVersion;
    std::memcpy(header.uuid, properties.pipelineCacheUUID, sizeof header.uuid);
    header.size = data.size();
    header.checksum = checksumOf(data);
    return header;
}

std::string cacheFolder() {
    const char* const folder = std::getenv("XDG_CACHE_HOME");
    if (folder && *folder == '/') return std::string(folder) + "/vorneffects";
    const char* const home = std::getenv("HOME");
    return home && *home == '/' ? std::string(home) + "/.cache/vorneffects" : "";
}

std::string contentsOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return in ? std::string(std::istreambuf_iterator<char>(in), {}) : std::string();
}

} // namespace

std::string pipelineCacheFile(const VkPhysicalDeviceProperties& properties) {
    const std::string folder = cacheFolder();
    if (folder.empty()) return {};
    std::string name = folder + "/vulkan-";
    for (const uint8_t byte : properties.pipelineCacheUUID) {
        constexpr char digits[] = "0123456789abcdef";
        name += digits[byte >> 4];
        name += digits[byte & 15];
    }
    return name + ".pipelines";
}

std::string wrappedCache(const std::string& data, const VkPhysicalDeviceProperties& properties) {
    const CacheHeader header = headerFor(data, properties);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + data;
}

std::string usableCache(const std::string& file, const VkPhysicalDeviceProperties& properties) {
    if (file.size() <= sizeof(CacheHeader)) return {};
    const std::string data = file.substr(sizeof(CacheHeader));
    const CacheHeader wanted = headerFor(data, properties);
    return std::memcmp(file.data(), &wanted, sizeof wanted) == 0 ? data : std::string();
}

// ---- Pipelines ----------------------------------------------------------------------------------

Pipelines::Pipelines(Device& device)
    : device_(device), file_(pipelineCacheFile(device.properties())) {
    const std::string known =
        file_.empty() ? std::string() : usableCache(contentsOf(file_), device.properties());
    auto info = typed<VkPipelineCacheCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_CACHE_CREATE_INFO);
    info.initialDataSize = known.size();
    info.pInitialData = known.data();
    const Functions& f = device.functions;
    if (f.CreatePipelineCache(device.handle(), &info, nullptr, &cache_) < 0) {
        info.initialDataSize = 0;
        check(f.CreatePipelineCache(device.handle(), &info, nullptr, &cache_),
              "making a pipeline cache");
    }
}

Pipelines::~Pipelines() {
    save();
    const Functions& f = device_.functions;
    for (const auto& [key, pipeline] : pipelines_)
        f.DestroyPipeline(device_.handle(), pipeline.handle, nullptr);
    for (const auto& [key, layout] : layouts_) {
        f.DestroyPipelineLayout(device_.handle(), layout.layout, nullptr);
        f.DestroyDescriptorSetLayout(device_.handle(), layout.sets, nullptr);
    }
    f.DestroyPipelineCache(device_.handle(), cache_, nullptr);
}

const Pipeline& Pipelines::pipelineFor(const KernelFunction& function, Store store) {
    const std::lock_guard lock(mutex_);
    const auto key = std::tuple(function.module.get(), function.index, store);
    const auto found = pipelines_.find(key);
    if (found != pipelines_.end()) return found->second;
    return pipelines_.emplace(key, make(function, store)).first->second;
}

const Pipelines::Layout& Pipelines::layoutFor(uint32_t sources, uint32_t pushedBytes,
                                              bool pushesCall) {
    const auto key = std::tuple(sources, pushedBytes, pushesCall);
    const auto found = layouts_.find(key);
    if (found != layouts_.end()) return found->second;
    std::vector<VkDescriptorSetLayoutBinding> bindings;
    const auto bind = [&](uint32_t binding, VkDescriptorType type, uint32_t count) {
        bindings.push_back({binding, type, count, VK_SHADER_STAGE_COMPUTE_BIT, nullptr});
    };
    bind(0, VK_DESCRIPTOR_TYPE_STORAGE_IMAGE, 1);
    if (sources > 0) bind(1, VK_DESCRIPTOR_TYPE_SAMPLED_IMAGE, sources);
    if (!pushesCall) bind(2, VK_DESCRIPTOR_TYPE_UNIFORM_BUFFER, 1);
    auto setInfo =
        typed<VkDescriptorSetLayoutCreateInfo>(VK_STRUCTURE_TYPE_DESCRIPTOR_SET_LAYOUT_CREATE_INFO);
    setInfo.bindingCount = static_cast<uint32_t>(bindings.size());
    setInfo.pBindings = bindings.data();
    const Functions& f = device_.functions;
    Layout layout;
    check(f.CreateDescriptorSetLayout(device_.handle(), &setInfo, nullptr, &layout.sets),
          "making a pipeline");
    const VkPushConstantRange range{VK_SHADER_STAGE_COMPUTE_BIT, 0, pushedBytes};
    auto info = typed<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
    info.setLayoutCount = 1;
    info.pSetLayouts = &layout.sets;
    info.pushConstantRangeCount = pushesCall ? 1 : 0;
    info.pPushConstantRanges = &range;
    const VkResult result =
        f.CreatePipelineLayout(device_.handle(), &info, nullptr, &layout.layout);
    if (result < 0) f.DestroyDescriptorSetLayout(device_.handle(), layout.sets, nullptr);
    check(result, "making a pipeline");
    return layouts_.emplace(key, layout).first->second;
}

Pipeline Pipelines::make(const KernelFunction& function, Store store) {
    const kernelc::Function& declaration = function.declaration();
    const std::string doing = "making the pipeline of kernel '" + declaration.name + "'";
    if (declaration.spirv.empty())
        throw Failure("kernel '" + declaration.name + "' has no code for GPUs");
    Pipeline pipeline;
    pipeline.sources = static_cast<uint32_t>(kernelc::sourceCount(declaration));
    pipeline.callBytes = static_cast<uint32_t>(kernelc::callBytes(declaration));
    pipeline.pushesCall = pipeline.callBytes <= kernelc::kMostPushedBytes;
    const Layout& layout = layoutFor(pipeline.sources, pipeline.pushesCall ? pipeline.callBytes : 0,
                                     pipeline.pushesCall);
    pipeline.layout = layout.layout;
    pipeline.sets = layout.sets;

    const Functions& f = device_.functions;
    auto code = typed<VkShaderModuleCreateInfo>(VK_STRUCTURE_TYPE_SHADER_MODULE_CREATE_INFO);
    code.codeSize = declaration.spirv.size() * sizeof(uint32_t);
    code.pCode = declaration.spirv.data();
    VkShaderModule module = VK_NULL_HANDLE;
    check(f.CreateShaderModule(device_.handle(), &code, nullptr, &module), doing.c_str());
    const auto order = static_cast<int32_t>(store);
    const VkSpecializationMapEntry entry{0, 0, sizeof order};
    const VkSpecializationInfo constants{1, &entry, sizeof order, &order};
    auto info = typed<VkComputePipelineCreateInfo>(VK_STRUCTURE_TYPE_COMPUTE_PIPELINE_CREATE_INFO);
    info.stage.sType = VK_STRUCTURE_TYPE_PIPELINE_SHADER_STAGE_CREATE_INFO;
    info.stage.stage = VK_SHADER_STAGE_COMPUTE_BIT;
    info.stage.module = module;
    info.stage.pName = "main";
    info.stage.pSpecializationInfo = &constants;
    info.layout = pipeline.layout;
    const VkResult result =
        f.CreateComputePipelines(device_.handle(), cache_, 1, &info, nullptr, &pipeline.handle);
    f.DestroyShaderModule(device_.handle(), module, nullptr);
    check(result, doing.c_str());
    isNew_ = true;
    return pipeline;
}

void Pipelines::save() {
    const std::lock_guard lock(mutex_);
    if (!isNew_ || file_.empty() || device_.isLost()) return;
    isNew_ = false;
    const Functions& f = device_.functions;
    size_t size = 0;
    if (f.GetPipelineCacheData(device_.handle(), cache_, &size, nullptr) < 0 || size == 0) return;
    std::string data(size, '\0');
    if (f.GetPipelineCacheData(device_.handle(), cache_, &size, data.data()) < 0) return;
    data.resize(size);
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(file_).parent_path(), error);
    // Other processes may write it at the same time: each its own file, and then all at once.
    const std::string unfinished = file_ + "." + std::to_string(getpid());
    {
        std::ofstream out(unfinished, std::ios::binary);
        const std::string bytes = wrappedCache(data, device_.properties());
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!out.flush()) {
            out.close();
            std::filesystem::remove(unfinished, error);
            return;
        }
    }
    std::filesystem::rename(unfinished, file_, error);
    if (error) std::filesystem::remove(unfinished, error);
}

} // namespace vorn::imaging::vulkan
