// Simulated known-card table of the platform (machine.json "hc_card_table": a list of
// {"vendor", "device", "subsystem_vendor", "subsystem_device", "name"}) and the inventory
// merge of AIM and host-reported addresses.
#include <string.h>

#include <string>

#include "host/machine.h"
#include "platform/kora_log.h"
#include "platform/vqm_db.h"

namespace {

const unsigned hc_card_capacity = 64;
unsigned g_count = 0;

void load_cards(const host::machine&, const nlohmann::json& v) {
    memset(hc_card_table, 0, sizeof(vqmdb_hc_card_t) * hc_card_capacity);
    g_count = 0;
    if (v.is_null()) return;
    if (!v.is_array()) throw host::machine_error("must be a list of cards");
    if (v.size() > hc_card_capacity) {
        throw host::machine_error("holds " + std::to_string(v.size()) + " cards, at most " +
                                  std::to_string(hc_card_capacity) + " fit");
    }
    static const char* const id_keys[] = {"vendor", "device", "subsystem_vendor", "subsystem_device"};
    for (size_t i = 0; i < v.size(); ++i) {
        const nlohmann::json& c = v[i];
        std::string what = "card " + std::to_string(i);
        if (!c.is_object()) throw host::machine_error(what + " must be an object");
        for (auto it = c.begin(); it != c.end(); ++it) {
            bool known = it.key() == "name";
            for (const char* k : id_keys) known = known || it.key() == k;
            if (!known) throw host::machine_error(what + ": unknown key \"" + it.key() + "\"");
        }
        uint16_t ids[4];
        for (int k = 0; k < 4; ++k) {
            if (!c.contains(id_keys[k]))
                throw host::machine_error(what + ": \"" + id_keys[k] + "\" is missing");
            ids[k] =
                static_cast<uint16_t>(host::json_number(c[id_keys[k]], what + " " + id_keys[k], 0, 0xFFFF));
        }
        if (!c.contains("name")) throw host::machine_error(what + ": \"name\" is missing");
        std::string name = host::json_text(c["name"], what + " name");
        vqmdb_hc_card_t& e = hc_card_table[i];
        if (name.size() >= sizeof e.name) {
            throw host::machine_error(what + " name is longer than " + std::to_string(sizeof e.name - 1) +
                                      " characters");
        }
        e.vendor_id = ids[0];
        e.device_id = ids[1];
        e.subsystem_vendor_id = ids[2];
        e.subsystem_device_id = ids[3];
        memcpy(e.name, name.c_str(), name.size() + 1);
    }
    g_count = static_cast<unsigned>(v.size());
}

}  // namespace

extern "C" {
vqmdb_hc_card_t hc_card_table[hc_card_capacity];
unsigned vqmdb_get_hc_card_count(void) { return g_count; }

int vqmdb_merge_aim_ucm_pfa(int previous_result) {
    kora_log::logDbg("vqmdb_merge_aim_ucm_pfa: merged AIM and UCM PCI addresses (previous rc=%d)",
                     previous_result);
    return 0;
}
}

HOST_MACHINE_SECTION("hc_card_table", load_cards);
