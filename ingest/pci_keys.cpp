// PCI key resolution (to be written).
#include "ingest/parser.h"

namespace aim_parser {

int parser::get_pci_node_slot_key_by_pfa(_vqm_db_handle_t*, aim_pci_key_unit*) { return 0; }
int parser::get_pci_slot_type_by_pfa(_vqm_db_handle_t*, aim_pci_key_unit*, unsigned short*, char*, unsigned) { return 0; }
unsigned parser::find_pci_func_keys(_vqm_db_handle_t*, unsigned, unsigned, unsigned, unsigned short, unsigned short, unsigned short, unsigned short, std::vector<unsigned>&) { return 0; }

}  // namespace aim_parser
