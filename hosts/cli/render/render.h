// One render and how it is told of.
#pragma once

#include "pipeline.h"
#include "json/json.h"

#include <string>

namespace vorn::hosts::cli {

/// `runRender`, whose failures are `HostError` with their exit codes.
RenderOutcome renderWithExitCodes(const RenderOptions& options);
Json outcomeJson(const RenderOptions& options, const RenderOutcome& outcome);
/// "1 frame", "25 frames".
std::string countText(std::int64_t frames);

} // namespace vorn::hosts::cli
