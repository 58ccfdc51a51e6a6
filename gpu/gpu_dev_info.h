// Identity queries of one GPU card: NVIDIA cards over the device access layer's post-box
// request, AMD cards through the FRU tool.
#pragma once

#include <stdint.h>

#include "gpu/gpu_info.h"
#include "platform/aim_export.h"
#include "platform/cio.h"

namespace aim_parser {

class AIM_EXPORT gpu_dev_info {
public:
    gpu_dev_info();

    int retry_get_cio_nv_data(nv_msg& msg, bool flag);
    int send_cmd(unsigned char op, unsigned char offset, unsigned char* resp);
    bool is_asic(unsigned char* resp, unsigned long len);
    int check_resp(unsigned char op, unsigned char offset, unsigned char* resp, bool ascii);
    int send_cmd_ex(unsigned char op, unsigned char offset, unsigned char* resp, bool ascii);

    int get_vendor_id(gpu_info& info);
    int get_device_id(gpu_info& info);
    int get_sub_vendor_id(gpu_info& info);
    int get_sub_device_id(gpu_info& info);
    int get_serial_num(gpu_info& info);
    int get_part_num(gpu_info& info);
    int get_fw_version(gpu_info& info);
    int get_build_date(gpu_info& info);
    int get_market_name(gpu_info& info);
    int get_market_name_retry(gpu_info& info);

    bool read_gpu_data(char* cio_name, gpu_info& info, unsigned short vendor, unsigned short device,
                       unsigned short subsystem_vendor, unsigned short subsystem_device);
    bool read_amd_gpu_data(char* cio_name, gpu_info& info);

    int32_t cio_handle = -1;
    cio_attr cio_attr_block{};
};

}  // namespace aim_parser
