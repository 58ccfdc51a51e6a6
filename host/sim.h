// Host-only views of the simulated controller, for tests and aimctl.
#pragma once

#include <stdint.h>

#include <string>
#include <utility>
#include <vector>

namespace host {

// Number of post-box requests (get_cio_nv_data calls) that the simulated NVIDIA GPU `name`
// received since the machine was loaded or the counters were reset.
unsigned nvidia_gpu_calls(const std::string& name);
// The (selector, chunk) of each of those requests, in order.
std::vector<std::pair<uint8_t, uint8_t>> nvidia_gpu_requests(const std::string& name);
void reset_nvidia_gpu_counters();

}  // namespace host
