// GPU information sources (to be written).
#include "ingest/parser.h"

namespace aim_parser {

int parser::get_gpu_info(aim_pci_key_unit*, gpu_info&) { return 0; }
int parser::get_amd_gpu_info(aim_pci_key_unit*, gpu_info&) { return 0; }
void parser::get_gpu_info_ipmiprop(gpu_info&, unsigned char) {  }
void parser::get_gpu_info_ipmiprop_v2(gpu_info&, unsigned short) {  }
void parser::get_gpu_info_ipmiprop_v2(gpu_info&, unsigned short, const char*) {  }
bool parser::read_gpu_info_from_db(_vqm_db_handle_t*, aim_pci_key_unit*, gpu_info&) { return false; }

}  // namespace aim_parser
