// GPU and platform predicates: which GPU platform the controller runs on, and whether a
// vendor, subsystem device or software id belongs to the GPUs it handles specially.
#include "gpu/predicates.h"

#include <string.h>

#include "platform/identity.h"

namespace {

template <size_t N>
bool id_in(unsigned short id, const unsigned short (&list)[N]) {
    for (unsigned short v : list) {
        if (v == id) return true;
    }
    return false;
}

template <size_t N>
bool text_in(const char* s, const char* const (&list)[N]) {
    if (!s) return false;
    for (const char* v : list) {
        if (strcmp(v, s) == 0) return true;
    }
    return false;
}

}  // namespace

bool is_nvidia_vendor(unsigned short id) { return id == 0x10DE; }

// Platforms whose GPUs sit on a universal baseboard.
bool is_ubb_platform() {
    return is_dogwood_platform() || is_elmwood_platform() || is_cedar_platform() || is_firwood_platform();
}

// Platforms of the second GPU firmware family.
bool is_kelpie_platform() { return is_ginkgo_platform() || is_alder_platform() || is_birch_platform(); }

bool is_kelpie_fw(unsigned short id) {
    static const unsigned short ids[] = {0x18BF, 0x16C0, 0x2335, 0x2330, 0x17FC};
    return is_kelpie_platform() && id_in(id, ids);
}

bool is_ubb_nvidia_subdevice(unsigned short id) {
    static const unsigned short ids[] = {0x18BE, 0x18BF, 0x16C0, 0x16C1, 0x1999, 0x199B, 0x2335, 0x2330};
    return is_ubb_platform() && id_in(id, ids);
}

bool is_ubb_amd_vendor(unsigned short id) { return id == 0x1002; }

bool is_ubb_amd_subdevice(unsigned short id) { return (id & ~0x0004u) == 0x74A1; }

bool is_ubb_software_id(const char* id) {
    static const char* const ids[] = {"100274A1", "100274A5", "10DE16C1", "10DE16C0", "10DE18BE",
                                      "10DE18BF", "10DE1999", "10DE199B", "10DE2330", "10DE2335"};
    return is_ubb_platform() && text_in(id, ids);
}

bool is_kelpie_software_id(const char* id) {
    static const char* const ids[] = {"10DE16C0", "10DE18BF", "10DE17FC", "10DE2330", "10DE2335"};
    return is_kelpie_platform() && text_in(id, ids);
}
