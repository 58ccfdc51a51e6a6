// Card VPD answers: the first byte picks the layout (even: the 256-byte image of the example
// machine storage-1u, odd: the 1 KB image of storage-1u-1k), the rest is the card's VPD
// image, answered through a whole parse_aim of that machine.
#include <string>

#include "fuzz/harness.h"

namespace {
struct layout {
    std::string machine, image, xml;
};
layout g_layouts[2];
const layout* g_loaded = nullptr;
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::controller();
    const char* names[2] = {"storage-1u", "storage-1u-1k"};
    const char* images[2] = {"/vpd/boot-adapter-256.bin", "/vpd/boot-adapter-1k.bin"};
    for (int i = 0; i < 2; ++i) {
        g_layouts[i].machine = fuzz::machine_copy(names[i]);
        g_layouts[i].image = g_layouts[i].machine + images[i];
        g_layouts[i].xml = fuzz::source_file(std::string("examples/aim/") + names[i] + ".xml");
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const layout& l = g_layouts[data[0] & 1];
    fuzz::write_file(l.image, data + 1, size - 1);
    // The image is read when the machine is loaded; its "PCIs" rows only change with it.
    fuzz::load_machine(l.machine, g_loaded != &l);
    g_loaded = &l;
    fuzz::run_aim(l.xml);
    return 0;
}
