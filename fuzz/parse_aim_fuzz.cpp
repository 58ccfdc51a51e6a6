// A whole parse_aim of any bytes as the AIM file, on the example machine server-2u.
#include <string>

#include "fuzz/harness.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    fuzz::load_machine(fuzz::source_path("examples/machines/server-2u"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::run_aim(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
