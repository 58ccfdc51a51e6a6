// Known-card table (to be written).
#include "ingest/parser.h"

namespace aim_parser {

int parser::hc_find(unsigned short, unsigned short, unsigned short, unsigned short) { return 0; }
int parser::hc_set_idx(unsigned short, unsigned short, unsigned short, unsigned short) { return 0; }
bool parser::hc_is_aim_not_support_dev() { return false; }
aim_hc_card* parser::hc_get_table() { return nullptr; }
void parser::hc_do_action(_vqm_db_handle_t*, aim_pci_key_unit*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::save_hc_info(parser*, _vqm_db_handle_t*, vqm_db_content_values_t*, aim_pci_key_unit*, aim_hc_card*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::save_young_riser_info(parser*, _vqm_db_handle_t*, vqm_db_content_values_t*, aim_pci_key_unit*, aim_hc_card*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::save_hc_info_with_pldm(parser*, _vqm_db_handle_t*, vqm_db_content_values_t*, aim_pci_key_unit*, aim_hc_card*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::save_aim_not_support_info(parser*, _vqm_db_handle_t*, vqm_db_content_values_t*, aim_pci_key_unit*, aim_hc_card*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::save_hc_alveo_info(parser*, _vqm_db_handle_t*, vqm_db_content_values_t*, aim_pci_key_unit*, aim_hc_card*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::save_hc_intel_info(parser*, _vqm_db_handle_t*, vqm_db_content_values_t*, aim_pci_key_unit*, aim_hc_card*, unsigned int, unsigned int, AdapterInfo*) {  }
void parser::init_hc_cards() {}
void filter_ascii(std::string&) {}
void AdapterInfo::clear() {}
int AdapterInfo::insert(_vqm_db_handle_t*, vqm_db_content_values_t*) { return 0; }

}  // namespace aim_parser
