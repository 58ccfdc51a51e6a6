// Simulated device access layer: controller integers and NVIDIA GPUs (to be written).
#include "host/machine.h"
#include "platform/cio.h"

HOST_MACHINE_SECTION("cio_integers", [](const host::machine&, const nlohmann::json&) {});
HOST_MACHINE_SECTION("nvidia_gpus", [](const host::machine&, const nlohmann::json&) {});

int cio_block_open(const char*, int*) { return -1; }
int cio_get_attrib(int, cio_attr*) { return -1; }
int get_cio_nv_data(int, nv_msg&, bool) { return 0; }
int cio_integer_open(const char*, int*) { return -1; }
int cio_integer_get(int, int*) { return -1; }
const char* get_cio_err_str(int) { return "not available"; }
