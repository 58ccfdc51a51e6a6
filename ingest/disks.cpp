// Disk drives of drive configs. The drive writer ("AimDisks" rows) and the renaming of
// storage expansion units come later; until then drive groups write nothing.
#include "ingest/parser.h"

namespace aim_parser {

int parser::parse_disk_info(_vqm_db_handle_t*, group*, aim_pci_key_unit*, const char*, bool* hot_swap,
                            bool* second_flag, bool* third_flag) {
    if (hot_swap) *hot_swap = false;
    if (second_flag) *second_flag = false;
    if (third_flag) *third_flag = false;
    return 0;
}

void parser::check_raid_sen(_vqm_db_handle_t*, aim_pci_key_unit*) {}

}  // namespace aim_parser
