// GPU and platform predicates (to be written).
#include "gpu/predicates.h"

bool is_nvidia_vendor(unsigned short id) { return id == 0x10DE; }
bool is_ubb_platform() { return false; }
bool is_kelpie_platform() { return false; }
bool is_kelpie_fw(unsigned short) { return false; }
bool is_ubb_nvidia_subdevice(unsigned short) { return false; }
bool is_ubb_amd_vendor(unsigned short id) { return id == 0x1002; }
bool is_ubb_amd_subdevice(unsigned short) { return false; }
bool is_ubb_software_id(const char*) { return false; }
bool is_kelpie_software_id(const char*) { return false; }
