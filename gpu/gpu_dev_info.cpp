// Identity queries of one GPU card. NVIDIA cards answer the SMBus post-box request "get
// system identification data" (opcode 0x05) over the device access layer, four data
// bytes per request; AMD cards are read through the FRU tool's text output.
#include "gpu/gpu_dev_info.h"

#include <stdio.h>
#include <string.h>

#include "platform/kora_log.h"
#include "platform/os.h"
#include "platform/vqm_db.h"

namespace aim_parser {
namespace {

// Post-box selectors of the identification data.
enum : unsigned char {
    sel_serial = 2,
    sel_market_name = 3,
    sel_part_num = 4,
    sel_build_date = 7,
    sel_fw_version = 8,
    sel_vendor_id = 9,
    sel_device_id = 10,
    sel_sub_vendor_id = 11,
    sel_sub_device_id = 12,
};

const unsigned resp_len = 5;    // count byte and four data bytes
const unsigned answer_at = 19;  // where the answer starts in the message
const unsigned request_retries = 5;
const unsigned request_retry_us = 5000;
const unsigned market_name_retry_us = 10000;

void fill_request(nv_msg& msg, unsigned char op, unsigned char offset) {
    memset(msg.data, 0, sizeof msg.data);
    msg.data[0] = 0x00;
    msg.data[1] = 0x01;
    msg.data[2] = 0x5C;  // post-box command register
    msg.data[3] = 0x04;  // length of the command word
    msg.data[4] = 0x05;  // opcode: get system identification data
    msg.data[5] = op;
    msg.data[6] = offset;
    msg.data[7] = 0x80;  // request bit
    msg.data[24] = 0x5C;
    msg.data[25] = 0x5D;  // post-box data register
}

}  // namespace

gpu_dev_info::gpu_dev_info() : cio_handle(-1) { memset(&cio_attr_block, 0, sizeof cio_attr_block); }

int gpu_dev_info::retry_get_cio_nv_data(nv_msg& msg, bool flag) {
    int rc = get_cio_nv_data(cio_handle, msg, flag);
    // A failed answer that still carries a full count is final; anything else is retried.
    for (unsigned retry = 0; rc == 0 && retry < request_retries; ++retry) {
        if (msg.data[answer_at] == 4) break;
        os_usleep(request_retry_us);
        rc = get_cio_nv_data(cio_handle, msg, flag);
    }
    return rc;
}

int gpu_dev_info::send_cmd(unsigned char op, unsigned char offset, unsigned char* resp) {
    if (!resp || cio_handle < 0) return 0;
    nv_msg msg;
    fill_request(msg, op, offset);
    int rc = retry_get_cio_nv_data(msg, true);
    if (rc == 0) {
        kora_log::logInfo(" gpu_dev_info::send_cmd():retry_get_cio_nv_data return failed");
        return 0;
    }
    memcpy(resp, msg.data + answer_at, resp_len);
    return rc;
}

bool gpu_dev_info::is_asic(unsigned char* resp, unsigned long len) {
    if (resp[0] != 4) return false;
    for (unsigned long i = 1; i < len; ++i) {
        unsigned char b = resp[i];
        // 0x1F and 0x7F are admitted on purpose: the devices pad with them.
        if (b != 0 && (b < 0x1F || b > 0x7F)) {
            kora_log::logInfo(" gpu_dev_info::is_asic, Check the response value is not right. ");
            return false;
        }
    }
    return true;
}

int gpu_dev_info::check_resp(unsigned char op, unsigned char offset, unsigned char* resp, bool ascii) {
    unsigned char scratch[8] = {0};
    int rc = send_cmd(op, offset, scratch);
    if (rc == 0) {
        kora_log::logInfo(" gpu_dev_info::check_resp, send_cmd return failed.");
        return 0;
    }
    if (ascii && !is_asic(scratch, resp_len)) return 0;
    memcpy(resp, scratch, resp_len);
    return rc;
}

int gpu_dev_info::send_cmd_ex(unsigned char op, unsigned char offset, unsigned char* resp, bool ascii) {
    int rc = check_resp(op, offset, resp, ascii);
    if (rc == 0) {
        kora_log::logInfo(
            "AIM PARSER: gpu_dev_info::send_cmd_ex, op = %02X, offset = %02X, resp = "
            "%02X,%02X,%02X,%02X,%02X",
            op, offset, resp[0], resp[1], resp[2], resp[3], resp[4]);
    }
    return rc;
}

namespace {

// One 16-bit id (little-endian in data bytes 0 and 1).
int read_id(gpu_dev_info& dev, unsigned char op, uint32_t& field, const char* fn) {
    unsigned char resp[8] = {0};
    int rc = dev.send_cmd_ex(op, 0, resp, false);
    if (rc == 0) {
        kora_log::logInfo(" gpu_dev_info::%s, send_cmd_ex return failed!", fn);
        return rc;
    }
    field = static_cast<uint32_t>(resp[1] | (resp[2] << 8));
    return rc;
}

// A string datum of four chunks; the field changes only when every chunk was read.
int read_text4(gpu_dev_info& dev, unsigned char op, std::string& field, const char* fn) {
    std::string text;
    int rc = 0;
    for (unsigned char chunk = 0; chunk < 4; ++chunk) {
        unsigned char resp[8] = {0};
        rc = dev.send_cmd_ex(op, chunk, resp, true);
        if (rc == 0) {
            kora_log::logInfo(" gpu_dev_info::%s, send_cmd_ex return failed!", fn);
            return rc;
        }
        text.append(reinterpret_cast<const char*>(resp + 1));
    }
    field = text;
    return rc;
}

}  // namespace

int gpu_dev_info::get_vendor_id(gpu_info& info) {
    return read_id(*this, sel_vendor_id, info.vendor_id, "get_vendor_id");
}
int gpu_dev_info::get_device_id(gpu_info& info) {
    return read_id(*this, sel_device_id, info.device_id, "get_device_id");
}
int gpu_dev_info::get_sub_vendor_id(gpu_info& info) {
    return read_id(*this, sel_sub_vendor_id, info.subsystem_vendor_id, "get_sub_vendor_id");
}
int gpu_dev_info::get_sub_device_id(gpu_info& info) {
    return read_id(*this, sel_sub_device_id, info.subsystem_device_id, "get_sub_device_id");
}
int gpu_dev_info::get_serial_num(gpu_info& info) {
    return read_text4(*this, sel_serial, info.serial_num, "get_serial_num");
}
int gpu_dev_info::get_part_num(gpu_info& info) {
    return read_text4(*this, sel_part_num, info.part_num, "get_part_num");
}
int gpu_dev_info::get_fw_version(gpu_info& info) {
    return read_text4(*this, sel_fw_version, info.fw_version, "get_fw_version");
}

// The date is held as packed decimal digits: month, day, then the year's two halves.
int gpu_dev_info::get_build_date(gpu_info& info) {
    unsigned char resp[8] = {0};
    int rc = send_cmd_ex(sel_build_date, 0, resp, false);
    if (rc == 0) {
        kora_log::logInfo(" gpu_dev_info::get_build_date, send_cmd_ex return failed!");
        return rc;
    }
    char date[16];
    snprintf(date, sizeof date, "%02X/%02X/%02X%02X", resp[2], resp[1], resp[4], resp[3]);
    info.build_date = date;
    return rc;
}

// The marketing name has no fixed length: chunks are read until an empty one, at most six.
// A device that answers the same chunk twice in a row is not trusted.
int gpu_dev_info::get_market_name(gpu_info& info) {
    std::string text;
    unsigned char prev[resp_len] = {0};
    int rc = 0;
    for (unsigned char chunk = 0; chunk <= 5; ++chunk) {
        unsigned char resp[8] = {0};
        rc = send_cmd_ex(sel_market_name, chunk, resp, true);
        if (rc == 0) {
            kora_log::logInfo(" gpu_dev_info::get_market_name, send_cmd_ex return failed!");
            return 0;
        }
        if (resp[1] == 0) break;
        if (memcmp(resp, prev, resp_len) == 0) {
            kora_log::logInfo(" gpu_dev_info::get_market_name, send_cmd_ex return failed!");
            return 0;
        }
        text.append(reinterpret_cast<const char*>(resp + 1));
        memcpy(prev, resp, resp_len);
    }
    info.product_name = text;
    return rc;
}

int gpu_dev_info::get_market_name_retry(gpu_info& info) {
    kora_log::logInfo(" gpu_dev_info::get_market_name, entry");
    int counter = 9;
    while (get_market_name(info) == 0 || info.product_name.empty()) {
        kora_log::logInfo(" gpu_dev_info::get_market_name, Get market_name failed![%d]", counter);
        --counter;
        os_usleep(market_name_retry_us);
        if (counter < 0) return 0;
    }
    kora_log::logInfo(" gpu_dev_info::get_market_name, Get market_name success![%d]", counter);
    return 1;
}

bool gpu_dev_info::read_gpu_data(char* cio_name, gpu_info& info, unsigned short vendor, unsigned short device,
                                 unsigned short subsystem_vendor, unsigned short subsystem_device) {
    cio_handle = -1;
    if (!cio_name) {
        kora_log::logInfo(" The input cio_name is not right. ");
        return false;
    }
    int handle = -1;
    if (cio_block_open(cio_name, &handle) != 0) {
        kora_log::logInfo(" gpu_dev_info::gpu_dev_info, cio_block_open failed!");
        return false;
    }
    cio_handle = handle;
    if (cio_handle < 0) {
        kora_log::logInfo(" gpu_dev_info::gpu_dev_info, cio_handle get failed");
        return false;
    }
    if (cio_get_attrib(cio_handle, &cio_attr_block) != 0) {
        kora_log::logInfo(" gpu_dev_info::gpu_dev_info, cio_get_attrib failed");
        return false;
    }

    if (!get_serial_num(info)) kora_log::logInfo(" gpu_dev_info::get_serial_num, Get serial_num failed!");

    // Some cards report no usable marketing name; the platform's table names them.
    bool hard_coded = false;
    unsigned count = vqmdb_get_hc_card_count();
    for (unsigned i = 0; i < count && !hard_coded; ++i) {
        const vqmdb_hc_card_t& e = hc_card_table[i];
        if (e.vendor_id == vendor && e.device_id == device && e.subsystem_vendor_id == subsystem_vendor &&
            e.subsystem_device_id == subsystem_device) {
            kora_log::logInfo(" use gpu name hard code!");
            info.product_name.assign(e.name, strnlen(e.name, sizeof e.name));
            hard_coded = true;
        }
    }
    if (!hard_coded) get_market_name_retry(info);

    if (!get_part_num(info)) kora_log::logInfo(" gpu_dev_info::get_part_num, Get part_num failed!");
    if (!get_build_date(info)) kora_log::logInfo(" gpu_dev_info::get_build_date, Get build_date failed!");
    if (!get_fw_version(info)) kora_log::logInfo(" gpu_dev_info::get_fw_version, Get fw_version failed!");
    if (!get_vendor_id(info)) kora_log::logInfo(" gpu_dev_info::get_vendor_id, Get vendor_id failed!");
    if (!get_device_id(info)) kora_log::logInfo(" gpu_dev_info::get_device_id, Get device_id failed!");
    if (!get_sub_vendor_id(info))
        kora_log::logInfo(" gpu_dev_info::get_sub_vendor_id, Get sub_vendor_id failed!");
    if (!get_sub_device_id(info))
        kora_log::logInfo(" gpu_dev_info::get_sub_device_id, Get sub_device_id failed!");
    return true;
}

bool gpu_dev_info::read_amd_gpu_data(char* cio_name, gpu_info& info) {
    info.uuid = "N/A";
    info.product_name = "N/A";
    info.part_num = "N/A";
    info.serial_num = "N/A";
    info.fru_num = "N/A";
    info.fw_version = "N/A";
    info.build_date = "N/A";

    char cmd[36];
    snprintf(cmd, sizeof cmd, "/bin/fru-tool %s", cio_name ? cio_name : "");
    FILE* pipe = os_popen_read(cmd);
    if (!pipe) {
        kora_log::logInfo("gpu_dev_info::read_amd_gpu_data '%s' failed", cmd);
        return false;
    }
    struct label {
        const char* text;
        std::string* field;
    };
    const label labels[] = {
        {"product name: ", &info.product_name},
        {"product serial number: ", &info.serial_num},
        {"product part number: ", &info.part_num},
        {"FRU ID: ", &info.fru_num},
    };
    char line[80];
    while (fgets(line, sizeof line, pipe)) {
        for (const label& l : labels) {
            const char* at = strstr(line, l.text);
            if (at) {
                // The rest of the line is kept as read, its line feed included.
                *l.field = at + strlen(l.text);
                break;
            }
        }
    }
    os_pclose(pipe);
    return true;
}

}  // namespace aim_parser
