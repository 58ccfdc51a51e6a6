// Identity of one GPU as gathered from its sources; unknown texts are "N/A".
#pragma once

#include <stdint.h>

#include <string>

namespace aim_parser {

struct gpu_info {
    std::string manufacturer;
    std::string serial_num;
    std::string product_name;
    std::string uuid;
    std::string part_num;
    std::string fru_num;
    std::string build_date;
    std::string fw_version;
    uint32_t vendor_id = 0;
    uint32_t device_id = 0;
    uint32_t subsystem_vendor_id = 0;
    uint32_t subsystem_device_id = 0;
};

}  // namespace aim_parser
