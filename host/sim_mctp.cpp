// Simulated MCTP endpoint table (to be written).
#include "host/machine.h"
#include "platform/mctp.h"
#include "platform/vqm_db.h"

HOST_MACHINE_SECTION("mctp_eids", [](const host::machine&, const nlohmann::json&) {});
HOST_MACHINE_SECTION("pci_seg_bits", [](const host::machine&, const nlohmann::json&) {});

extern "C" int vqmdb_get_pci_seg_bits(int) {
    return 0;
}
mctp_eid_table_t* MctpEidTableGet(int) {
    return nullptr;
}
uint8_t MctpGetEid(mctp_eid_table_t*, int, uint8_t, uint8_t, uint8_t, uint8_t) {
    return 0;
}
void MctpEidTableFree(mctp_eid_table_t*) {}
