// The rows of `vorn bench`, as a table or as JSON.
#pragma once

#include "bench_pictures.h"
#include "catalogue/catalog.h"
#include "json/json.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

namespace vorn::hosts::cli {

/// A device with a number of threads.
struct Machine {
    const char* device;
    int threads;
    std::shared_ptr<Session> session; ///< of its own, so that filters keep frames on that device
    std::unique_ptr<CIContext> context;
};

/// What a GPU's clock says of a frame, beside the clock on the wall. Medians, in seconds.
struct GpuMeasure {
    double kernels = 0, upload = 0, download = 0; ///< on the GPU
    double wall = 0;                              ///< with the source on the GPU already
    double wallWithUpload = 0;
    double copy = 0; ///< on the GPU: a kernel that copies the frame
};

class BenchReport {
public:
    BenchReport(bool json, const std::vector<FilterEntry>& entries);

    /// A row of the CPU: seconds that a frame takes, and that copying it takes.
    void add(const FilterEntry& entry, const CIFilter& filter, std::optional<double> mode,
             const Machine& machine, const Pictures& pictures, double seconds,
             double secondsOfCopy);
    /// A row of a GPU.
    void add(const FilterEntry& entry, const CIFilter& filter, std::optional<double> mode,
             const Machine& machine, const Pictures& pictures, const GpuMeasure& gpu);

private:
    /// Above the first row, and where rows of another kind begin.
    void printHeader(const std::string& columns);
    void printFirstColumns(const FilterEntry& entry, std::optional<double> mode,
                           const Machine& machine, const Pictures& pictures);

    bool json_;
    size_t nameWidth_ = 6;
    std::string header_;
};

} // namespace vorn::hosts::cli
