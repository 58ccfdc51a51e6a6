// aimctl vnic FILE: decodes a vNIC capability data set ("iscsi-cap-data") and prints its
// records the way the library reads them.
#include <stdio.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cards/vnic_data.h"
#include "tools/aimctl/command.h"

namespace {

namespace vnic = aim_parser::vnic;

int run_vnic(const std::vector<std::string>& args) {
    if (args.size() != 1 || args[0].empty() || args[0][0] == '-') {
        return aimctl::usage_error("vnic", args.empty() ? "a FILE is required" : "expected exactly one FILE");
    }
    std::ifstream in(args[0], std::ios::binary);
    if (!in) {
        fprintf(stderr, "aimctl vnic: cannot read %s\n", args[0].c_str());
        return aimctl::exit_failed;
    }
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (data.size() < vnic::header_size) {
        fprintf(stderr, "aimctl vnic: %s: %zu bytes, shorter than the %u-byte header\n", args[0].c_str(),
                data.size(), vnic::header_size);
        return aimctl::exit_failed;
    }
    vnic::header h = vnic::decode_header(data.data());
    unsigned len = vnic::body_length(h.size);
    printf("size: %u (0x%04X)\n", h.size, h.size);
    printf("count: %u\n", h.count);
    if (len == 0) {
        printf("invalid: the size field is below %u\n", vnic::header_size + 1);
        return aimctl::exit_failed;
    }
    // The data set is read whole up to its size; bytes past the end of the file read as 0.
    std::vector<uint8_t> body(len, 0);
    for (size_t i = 0; i < len && vnic::header_size + i < data.size(); ++i)
        body[i] = data[vnic::header_size + i];
    printf("body: %u bytes%s\n", len,
           data.size() < vnic::header_size + len ? " (file shorter, rest read as 0)" : "");

    size_t mac_off = vnic::mac_table_offset(h.count);
    for (unsigned n = 0; n < h.count; ++n) {
        vnic::record r;
        if (!vnic::get_record(body.data(), body.size(), n, r)) {
            printf("record %u: beyond the end of the data\n", n);
            break;
        }
        printf("record %u: bus 0x%02X device 0x%X function 0x%X flags 0x%02X vnic %s", n, r.bus, r.device,
               r.function, r.flags, r.vnic() ? "yes" : "no");
        if (r.vnic()) {
            char mac[13];
            if (vnic::mac_text(body.data(), body.size(), mac_off, mac)) {
                printf(" mac %s", mac);
            } else {
                printf(" mac beyond the end of the data");
            }
            mac_off += vnic::mac_size;
        }
        printf("\n");
    }
    return aimctl::exit_ok;
}

}  // namespace

AIMCTL_COMMAND("vnic", "decode a vNIC capability data set (iscsi-cap-data)",
               "usage: aimctl vnic FILE\n\n"
               "Decodes the binary vNIC capability data set FILE as the library reads it and prints its\n"
               "size and device count, then one line per device record: bus, device, function, flags,\n"
               "whether the vNIC bit (0x80) is set and, for those records, the MAC address.\n",
               run_vnic);
