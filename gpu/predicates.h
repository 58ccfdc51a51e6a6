// Exported GPU and platform predicates.
#pragma once

#include "platform/aim_export.h"

AIM_EXPORT bool is_nvidia_vendor(unsigned short id);
AIM_EXPORT bool is_ubb_platform();
AIM_EXPORT bool is_kelpie_platform();
AIM_EXPORT bool is_kelpie_fw(unsigned short id);
AIM_EXPORT bool is_ubb_nvidia_subdevice(unsigned short id);
AIM_EXPORT bool is_ubb_amd_vendor(unsigned short id);
AIM_EXPORT bool is_ubb_amd_subdevice(unsigned short id);
AIM_EXPORT bool is_ubb_software_id(const char* id);
AIM_EXPORT bool is_kelpie_software_id(const char* id);
