#include "bench_report.h"

#include "terminal/output.h"

#include <algorithm>
#include <cstdio>

namespace vorn::hosts::cli {

namespace {

Json settingsJson(const FilterEntry& entry, const CIFilter& filter) {
    Json json = Json::object();
    for (const InputInfo& input : entry.info->inputs()) {
        const Json value = valueJson(filter.valueForKey(input.key));
        if (!value.is_null()) json[input.key] = value;
    }
    return json;
}

Json firstFields(const FilterEntry& entry, const CIFilter& filter, const Machine& machine,
                 const Pictures& pictures) {
    return {{"filter", entry.name},
            {"settings", settingsJson(entry, filter)},
            {"device", machine.device},
            {"threads", machine.threads},
            {"width", pictures.size.width},
            {"height", pictures.size.height},
            {"format", formatName(pictures.format)}};
}

} // namespace

BenchReport::BenchReport(bool json, const std::vector<FilterEntry>& entries) : json_(json) {
    for (const FilterEntry& entry : entries) {
        nameWidth_ = std::max(nameWidth_, entry.name.size());
    }
}

void BenchReport::add(const FilterEntry& entry, const CIFilter& filter, std::optional<double> mode,
                      const Machine& machine, const Pictures& pictures, double seconds,
                      double secondsOfCopy) {
    const auto [width, height] = pictures.size;
    const double megapixels = double(width) * height / 1e6;
    const double speed = megapixels / seconds, copySpeed = megapixels / secondsOfCopy;
    if (json_) {
        Json line = firstFields(entry, filter, machine, pictures);
        line["median_ms"] = seconds * 1e3;
        line["mpixel_per_s"] = speed;
        line["copy_mpixel_per_s"] = copySpeed;
        printResult("{}\n", jsonLine(line));
    } else {
        printHeader(fmt::format("{:>9}  {:>9}  {:>9}", "MS", "MPIXEL/S", "COPY"));
        printFirstColumns(entry, mode, machine, pictures);
        printResult("{:>9.3f}  {:>9.1f}  {:>9.1f}\n", seconds * 1e3, speed, copySpeed);
    }
    std::fflush(results()); // a row as soon as it is known, also through a pipe
}

void BenchReport::add(const FilterEntry& entry, const CIFilter& filter, std::optional<double> mode,
                      const Machine& machine, const Pictures& pictures, const GpuMeasure& gpu) {
    const double ratio = gpu.copy > 0 ? gpu.kernels / gpu.copy : 0;
    if (json_) {
        Json line = firstFields(entry, filter, machine, pictures);
        line["device_name"] = machine.context->deviceName();
        line["gpu_kernels_ms"] = gpu.kernels * 1e3;
        line["gpu_upload_ms"] = gpu.upload * 1e3;
        line["gpu_download_ms"] = gpu.download * 1e3;
        line["gpu_copy_ms"] = gpu.copy * 1e3;
        line["kernels_to_copy"] = ratio;
        const double megapixels = double(pictures.size.width) * pictures.size.height / 1e6;
        line["median_ms"] = gpu.wall * 1e3;
        line["mpixel_per_s"] = megapixels / gpu.wall;
        line["copy_mpixel_per_s"] = gpu.copy > 0 ? megapixels / gpu.copy : 0;
        line["with_upload_ms"] = gpu.wallWithUpload * 1e3;
        printResult("{}\n", jsonLine(line));
    } else {
        printHeader(fmt::format("{:>9}  {:>9}  {:>6}  {:>9}  {:>9}  {:>9}  {:>11}", "KERNELS",
                                "COPY", "RATIO", "UPLOAD", "DOWNLOAD", "WALL", "WALL+UPLOAD"));
        printFirstColumns(entry, mode, machine, pictures);
        printResult("{:>9.3f}  {:>9.3f}  {:>6.2f}  {:>9.3f}  {:>9.3f}  {:>9.3f}  {:>11.3f}\n",
                    gpu.kernels * 1e3, gpu.copy * 1e3, ratio, gpu.upload * 1e3, gpu.download * 1e3,
                    gpu.wall * 1e3, gpu.wallWithUpload * 1e3);
    }
    std::fflush(results());
}

void BenchReport::printHeader(const std::string& columns) {
    if (columns == header_) return;
    header_ = columns;
    printResult("{:<{}}  {:>4}  {:<9}  {:>7}  {:>11}  {:<6}  {}\n", "FILTER", nameWidth_, "MODE",
                "DEVICE", "THREADS", "SIZE", "FORMAT", columns);
}

void BenchReport::printFirstColumns(const FilterEntry& entry, std::optional<double> mode,
                                    const Machine& machine, const Pictures& pictures) {
    printResult("{:<{}}  {:>4}  {:<9}  {:>7}  {:>11}  {:<6}  ", entry.name, nameWidth_,
                mode ? fmt::format("{}", *mode) : "", machine.device, machine.threads,
                fmt::format("{}x{}", pictures.size.width, pictures.size.height),
                formatName(pictures.format));
}

} // namespace vorn::hosts::cli
