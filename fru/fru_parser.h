// Parser of IPMI FRU images: the common header, the product info area and the board info
// area. Never reads beyond the size it is given.
#pragma once

#include <stdint.h>

#include <string>

#include "platform/aim_export.h"

namespace aim_parser {

struct fru_product_info {
    uint8_t version;
    uint8_t language;
    char manufacturer[32];
    char product_name[32];
    char part_number[32];
    char product_version[32];
    char serial_number[32];
    char asset_tag[32];
    char fru_file_id[32];
    uint8_t valid;
};

struct fru_board_info {
    uint8_t version;
    uint8_t language;
    uint8_t mfg_date[3];
    char manufacturer[32];
    char product_name[32];
    char serial_number[32];
    char part_number[32];
    char fru_file_id[32];
    uint8_t valid;
};

class AIM_EXPORT fru_parser {
public:
    fru_parser(unsigned int size, unsigned char* data);

    bool parser();
    bool get_pia();
    bool get_bia();
    unsigned int fru_get_len(unsigned int pos);
    unsigned int fru_cp_typelen_buf(unsigned int pos, unsigned char* dst, unsigned int max,
                                    unsigned int skip);

    uint32_t header_length;
    uint32_t size;
    uint32_t product_area_offset;
    uint32_t board_area_offset;
    uint32_t multirecord_area_offset;
    unsigned char* data;
    fru_product_info product;
    fru_board_info board;
};

// A text built as `first`, `n` in decimal and `second` (e.g. "alveo_slot3_fru_dev").
class AIM_EXPORT seq_str {
public:
    seq_str(const char* first, int n, const char* second);
    const char* c_str() const { return text.c_str(); }

    std::string text;
};

}  // namespace aim_parser
