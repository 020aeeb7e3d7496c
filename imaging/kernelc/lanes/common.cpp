// The functions that kernels call, compiled once for each level.
#include "kernel.h"

namespace vorn::lanes {
VORN_COMMON()
} // namespace vorn::lanes
