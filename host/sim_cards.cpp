// Simulated known-card table of the platform and the inventory merge (to be written).
#include "host/machine.h"
#include "platform/vqm_db.h"

HOST_MACHINE_SECTION("hc_card_table", [](const host::machine&, const nlohmann::json&) {});

extern "C" {
vqmdb_hc_card_t hc_card_table[1];
unsigned vqmdb_get_hc_card_count(void) { return 0; }
int vqmdb_merge_aim_ucm_pfa(int) { return 0; }
}
