// The file that a driver's compiled kernels are kept in from one process to the next.
#pragma once

#include "imaging/vulkan/Api.h"

#include <string>

namespace vorn::imaging::vulkan {

/// The file for a device, under the user's cache folder; empty when there is no such folder.
std::string pipelineCacheFile(const VkPhysicalDeviceProperties& properties);

/// What of a cache file's bytes belongs to this device and is whole; otherwise nothing.
std::string usableCache(const std::string& file, const VkPhysicalDeviceProperties& properties);
/// The bytes of a cache file.
std::string wrappedCache(const std::string& data, const VkPhysicalDeviceProperties& properties);

/// Drivers trust what they are given, so the file has to be the user's own: a regular one of a sane
/// size, in a folder that belongs to the user and that nobody else may enter (mode 0700), neither
/// of them a link. Anything else counts as no file, and reads as nothing.
std::string readCacheFile(const std::string& path);
/// Replaces the file as a whole, in such a folder, which is made where it is missing. False when
/// that cannot be done; whatever was there is then still there.
bool writeCacheFile(const std::string& path, const std::string& bytes);

} // namespace vorn::imaging::vulkan
