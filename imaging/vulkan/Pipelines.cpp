#include "imaging/vulkan/Pipelines.h"

#include "imaging/vulkan/Device.h"
#include "imaging/vulkan/PipelineCache.h"

#include <new>

namespace vorn::imaging::vulkan {
Pipelines::Pipelines(Device& device)
    : device_(device), file_(pipelineCacheFile(device.properties())) {
    std::string known;
    try {
        known = usableCache(readCacheFile(file_), device.properties());
    } catch (const std::bad_alloc&) {
        // It counts as none.
    }
    auto info = typed<VkPipelineCacheCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_CACHE_CREATE_INFO);
    info.initialDataSize = known.size();
    info.pInitialData = known.data();
    const Functions& f = device.functions;
    if (f.CreatePipelineCache(device.handle(), &info, nullptr, &cache_) == VK_SUCCESS) return;
    info.initialDataSize = 0;
    // Pipelines are made without one just as well.
    if (f.CreatePipelineCache(device.handle(), &info, nullptr, &cache_) != VK_SUCCESS)
        cache_ = VK_NULL_HANDLE;
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

const Pipeline& Pipelines::pipelineFor(const LibraryFunction& function, Store store) {
    const std::lock_guard lock(mutex_);
    const auto key = std::tuple(function.module, function.index, store);
    const auto found = pipelines_.find(key);
    if (found != pipelines_.end()) return found->second;
    const Pipeline made = make(function, store);
    try {
        return pipelines_.emplace(key, made).first->second;
    } catch (...) {
        device_.functions.DestroyPipeline(device_.handle(), made.handle, nullptr);
        throw;
    }
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
    device_.check(f.CreateDescriptorSetLayout(device_.handle(), &setInfo, nullptr, &layout.sets),
                  "making a pipeline");
    const VkPushConstantRange range{VK_SHADER_STAGE_COMPUTE_BIT, 0, pushedBytes};
    auto info = typed<VkPipelineLayoutCreateInfo>(VK_STRUCTURE_TYPE_PIPELINE_LAYOUT_CREATE_INFO);
    info.setLayoutCount = 1;
    info.pSetLayouts = &layout.sets;
    info.pushConstantRangeCount = pushesCall ? 1 : 0;
    info.pPushConstantRanges = &range;
    try {
        VkPipelineLayout made = VK_NULL_HANDLE;
        device_.check(f.CreatePipelineLayout(device_.handle(), &info, nullptr, &made),
                      "making a pipeline");
        layout.layout = made;
        return layouts_.emplace(key, layout).first->second;
    } catch (...) {
        f.DestroyPipelineLayout(device_.handle(), layout.layout, nullptr);
        f.DestroyDescriptorSetLayout(device_.handle(), layout.sets, nullptr);
        throw;
    }
}

Pipeline Pipelines::make(const LibraryFunction& function, Store store) {
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
    device_.check(f.CreateShaderModule(device_.handle(), &code, nullptr, &module), doing.c_str());
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
    device_.check(result, doing.c_str());
    isNew_ = true;
    return pipeline;
}

void Pipelines::save() noexcept try {
    const std::lock_guard lock(mutex_);
    if (!isNew_ || !cache_ || device_.isLost()) return;
    const Functions& f = device_.functions;
    size_t size = 0;
    if (f.GetPipelineCacheData(device_.handle(), cache_, &size, nullptr) < 0 || size == 0) return;
    std::string data(size, '\0');
    if (f.GetPipelineCacheData(device_.handle(), cache_, &size, data.data()) < 0) return;
    data.resize(size);
    if (writeCacheFile(file_, wrappedCache(data, device_.properties()))) isNew_ = false;
} catch (...) {
    // The next process makes its pipelines anew.
}

} // namespace vorn::imaging::vulkan
