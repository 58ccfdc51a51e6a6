// Simulated MCTP endpoint table and PCI segment bits.
//
// machine.json:
//   "mctp_eids": [{"segment": 0, "bus": 59, "device": 0, "function": 0, "eid": 8}, ...]
//   "pci_seg_bits": 0 to 8 (default 0)
// A lookup compares the low `seg_bits` bits of the segment (none with 0 segment bits: PCI
// addresses then carry no segment) and the bus, device and function exactly.
#include <vector>

#include "host/machine.h"
#include "platform/mctp.h"
#include "platform/vqm_db.h"

namespace {

struct endpoint {
    uint8_t segment;
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint8_t eid;
};

std::vector<endpoint>& endpoints() {
    static std::vector<endpoint> e;
    return e;
}

int& seg_bits() {
    static int bits = 0;
    return bits;
}

uint8_t segment_mask(int bits) {
    return bits <= 0 ? 0 : static_cast<uint8_t>((1u << (bits > 8 ? 8 : bits)) - 1);
}

void load_endpoints(const host::machine&, const nlohmann::json& value) {
    std::vector<endpoint> list;
    if (!value.is_null()) {
        if (!value.is_array()) throw host::machine_error("must be a list of endpoints");
        for (size_t i = 0; i < value.size(); ++i) {
            const nlohmann::json& e = value[i];
            std::string what = "endpoint " + std::to_string(i);
            if (!e.is_object()) throw host::machine_error(what + " must be an object");
            for (auto it = e.begin(); it != e.end(); ++it) {
                static const char* const known[] = {"segment", "bus", "device", "function", "eid"};
                bool ok = false;
                for (const char* k : known) ok = ok || it.key() == k;
                if (!ok) throw host::machine_error(what + ": unknown key \"" + it.key() + "\"");
            }
            auto field = [&](const char* name, unsigned long long lo, unsigned long long hi) {
                if (!e.contains(name)) throw host::machine_error(what + " has no \"" + name + "\"");
                return static_cast<uint8_t>(host::json_number(e[name], what + " " + name, lo, hi));
            };
            endpoint ep;
            ep.segment = field("segment", 0, 255);
            ep.bus = field("bus", 0, 255);
            ep.device = field("device", 0, 31);
            ep.function = field("function", 0, 7);
            ep.eid = field("eid", 1, 255);
            list.push_back(ep);
        }
    }
    endpoints() = list;
}

void load_seg_bits(const host::machine&, const nlohmann::json& value) {
    seg_bits() = value.is_null() ? 0 : static_cast<int>(host::json_number(value, "pci_seg_bits", 0, 8));
}

}  // namespace

HOST_MACHINE_SECTION("mctp_eids", load_endpoints);
HOST_MACHINE_SECTION("pci_seg_bits", load_seg_bits);

// The table handed out: a copy of the machine's endpoints on the heap, so that a table that
// is never freed shows as a leak.
struct mctp_eid_table {
    std::vector<endpoint> entries;
};

extern "C" int vqmdb_get_pci_seg_bits(int) { return seg_bits(); }

mctp_eid_table_t* MctpEidTableGet(int) { return new mctp_eid_table{endpoints()}; }

uint8_t MctpGetEid(mctp_eid_table_t* table, int bits, uint8_t segment, uint8_t bus, uint8_t device,
                   uint8_t function) {
    if (!table) return 0;
    uint8_t mask = segment_mask(bits);
    for (const endpoint& e : table->entries) {
        if ((e.segment & mask) == (segment & mask) && e.bus == bus && e.device == device &&
            e.function == function) {
            return e.eid;
        }
    }
    return 0;
}

void MctpEidTableFree(mctp_eid_table_t* table) { delete table; }
