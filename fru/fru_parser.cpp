// FRU image parser (to be written).
#include "fru/fru_parser.h"

namespace aim_parser {
fru_parser::fru_parser(unsigned int size_, unsigned char* data_)
    : header_length(8), size(size_), product_area_offset(0), board_area_offset(0), multirecord_area_offset(0),
      data(data_), product(), board() {}
bool fru_parser::parser() { return false; }
seq_str::seq_str(const char* first, int n, const char* second) {
    text = std::string(first ? first : "") + std::to_string(n) + (second ? second : "");
}
}  // namespace aim_parser
