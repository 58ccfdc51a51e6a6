// Hardware VPD (to be written).
#include "ingest/parser.h"

namespace aim_parser {

unsigned parser::insert_aim_vpd_info(_vqm_db_handle_t*, group*, aim_pci_key_unit*) { return 0; }
void parser::init_hw_vpd_table() {  }
bool parser::read_hw_vpd(uint16_t, uint16_t, uint16_t, char*) { return false; }
int parser::update_hw_vpd_256Byte(_vqm_db_handle_t*, aim_pci_key_unit*, uint16_t) { return 0; }
int parser::update_hw_vpd_1KB(_vqm_db_handle_t*, aim_pci_key_unit*, uint16_t) { return 0; }

}  // namespace aim_parser
