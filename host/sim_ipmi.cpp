// Simulated IPMI request path: the OEM read-VPD command answered from card VPD images.
//
// machine.json:
//   "vpd_devices": {"66": {"image": "vpd/card-1k.bin", "fail_offsets": [10]}, ...}
// keys are VPD device ids in decimal (0 to 255), images are files relative to the machine
// directory; reads at one of the optional "fail_offsets" answer a non-zero completion code. The request 0x20
// 0x3A 0x00 0x0B <offset lo> <offset hi> <device> <length> answers completion code 0 and the image's bytes at
// that offset (zero past its end); any other request, and an unknown device, answers a non-zero completion
// code.
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/machine.h"
#include "platform/ipmi_cmd.h"
#include "platform/kora_log.h"

namespace {

const uint8_t cc_ok = 0x00;
const uint8_t cc_invalid_command = 0xC1;
const uint8_t cc_not_present = 0xCB;  // requested sensor, data or record not present
const uint8_t cc_bad_length = 0xC7;

struct vpd_device {
    std::vector<uint8_t> image;
    std::set<unsigned> fail_offsets;
};

std::map<unsigned, vpd_device>& devices() {
    static std::map<unsigned, vpd_device> d;
    return d;
}

void load_vpd_devices(const host::machine& m, const nlohmann::json& value) {
    std::map<unsigned, vpd_device> loaded;
    if (!value.is_null()) {
        if (!value.is_object())
            throw host::machine_error("must be an object from VPD device id to {\"image\": file}");
        for (auto it = value.begin(); it != value.end(); ++it) {
            const std::string& id = it.key();
            if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos) {
                throw host::machine_error("VPD device id \"" + id + "\" is not a decimal number");
            }
            unsigned device =
                static_cast<unsigned>(host::json_number(nlohmann::json(id), "VPD device id", 0, 255));
            const nlohmann::json& d = it.value();
            std::string what = "VPD device " + id;
            if (!d.is_object() || !d.contains("image"))
                throw host::machine_error(what + " must be {\"image\": file}");
            for (auto k = d.begin(); k != d.end(); ++k) {
                if (k.key() != "image" && k.key() != "fail_offsets") {
                    throw host::machine_error(what + ": unknown key \"" + k.key() + "\"");
                }
            }
            vpd_device& dev = loaded[device];
            if (d.contains("fail_offsets")) {
                const nlohmann::json& f = d["fail_offsets"];
                if (!f.is_array())
                    throw host::machine_error(what + " fail_offsets must be a list of offsets");
                for (const auto& o : f) {
                    dev.fail_offsets.insert(
                        static_cast<unsigned>(host::json_number(o, what + " fail offset", 0, 65535)));
                }
            }
            std::string file = host::json_text(d["image"], "VPD device " + id + " image");
            std::string path = file.size() && file[0] == '/' ? file : m.dir + "/" + file;
            std::ifstream in(path, std::ios::binary);
            if (!in) throw host::machine_error("VPD device " + id + ": cannot open image " + path);
            dev.image.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        }
    }
    devices() = loaded;
}

}  // namespace

HOST_MACHINE_SECTION("vpd_devices", load_vpd_devices);

int send_ipmi_cmd(const uint8_t* request, int request_length, uint8_t* response, int* response_length) {
    if (!request || !response || request_length < 4) return -1;
    std::string bytes;
    for (int i = 0; i < request_length; ++i) {
        char b[4];
        snprintf(b, sizeof(b), " %02X", request[i]);
        bytes += b;
    }
    kora_log::logDbg("sim ipmi: request%s", bytes.c_str());

    uint8_t cc = cc_invalid_command;
    int length = 0;
    if (request[0] == 0x20 && request[1] == 0x3A && request[2] == 0x00 && request[3] == 0x0B) {
        if (request_length != 8) {
            cc = cc_bad_length;
        } else {
            auto it = devices().find(request[6]);
            size_t offset = request[4] | (static_cast<size_t>(request[5]) << 8);
            if (it == devices().end() || it->second.fail_offsets.count(static_cast<unsigned>(offset))) {
                cc = cc_not_present;
            } else {
                length = request[7];
                const std::vector<uint8_t>& image = it->second.image;
                for (int i = 0; i < length; ++i) {
                    size_t at = offset + static_cast<size_t>(i);
                    response[1 + i] = at < image.size() ? image[at] : 0;
                }
                cc = cc_ok;
            }
        }
    }
    response[0] = cc;
    if (response_length) *response_length = 1 + length;
    kora_log::logDbg("sim ipmi: completion code 0x%02X, %d data bytes", static_cast<unsigned>(cc), length);
    return 0;
}
