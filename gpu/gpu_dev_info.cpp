// GPU device queries (to be written).
#include "gpu/gpu_dev_info.h"

namespace aim_parser {
gpu_dev_info::gpu_dev_info() {}
bool gpu_dev_info::read_gpu_data(char*, gpu_info&, unsigned short, unsigned short, unsigned short, unsigned short) {
    return false;
}
bool gpu_dev_info::read_amd_gpu_data(char*, gpu_info&) { return false; }
}  // namespace aim_parser
