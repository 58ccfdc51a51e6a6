// IPMI FRU image parser: common header, product info area and board info area. Every read
// is checked against the buffer size; a field must end strictly inside the buffer.
#include "fru/fru_parser.h"

#include <string.h>

#include "platform/kora_log.h"

namespace aim_parser {

namespace {

// Each area's texts take at most 31 bytes so the 32-byte arrays stay terminated.
const unsigned int fru_text_max = 31;

// Value of a text's first byte, as the area summaries print the asset tag and file id.
int first_char(const char* text) { return static_cast<unsigned char>(text[0]); }
int text_len(const char* text) { return static_cast<int>(strlen(text)); }

}  // namespace

fru_parser::fru_parser(unsigned int size_, unsigned char* data_)
    : header_length(8),
      size(size_),
      product_area_offset(0),
      board_area_offset(0),
      multirecord_area_offset(0),
      data(data_),
      product(),
      board() {}

bool fru_parser::parser() {
    if (size < header_length || data == nullptr) return false;
    product_area_offset = data[4] * 8u;
    board_area_offset = data[3] * 8u;
    multirecord_area_offset = data[5] * 8u;
    bool pia = get_pia();
    bool bia = get_bia();
    return pia || bia;
}

unsigned int fru_parser::fru_get_len(unsigned int pos) {
    if (pos >= size) return 0;
    return data[pos] & 0x3F;
}

unsigned int fru_parser::fru_cp_typelen_buf(unsigned int pos, unsigned char* dst, unsigned int max,
                                            unsigned int skip) {
    if (pos == 0) return 0;
    // Every pass moves pos forward by at least one byte, so the loop ends within `size`
    // passes whatever `skip` is; `len >= size - pos` is `pos + len >= size` without overflow.
    for (;;) {
        if (pos >= size) return 0;
        unsigned int len = fru_get_len(pos);
        if (len >= size - pos) return 0;
        unsigned int end = pos + len;
        if (skip == 0) {
            memcpy(dst, data + pos + 1, len < max ? len : max);
            return end + 1;
        }
        --skip;
        pos = end + 1;
    }
}

bool fru_parser::get_pia() {
    const uint32_t off = product_area_offset;
    if (off == 0) {
        kora_log::logErr("%s, PIA not exsit!", "get_pia");
        return true;
    }
    if (size <= off + 1) {
        kora_log::logErr("%s:%d, fru too long!\n", "get_pia", 99);
        return false;
    }
    if (size <= off + 8u * data[off + 1]) {
        kora_log::logErr("%s:%d, fru too long!\n", "get_pia", 106);
        return false;
    }
    product.version = data[off];
    // An area length byte of 0 lets the area end right after its length byte.
    product.language = off + 2 < size ? data[off + 2] : 0;

    char* texts[] = {product.manufacturer,    product.product_name,  product.part_number,
                     product.product_version, product.serial_number, product.asset_tag,
                     product.fru_file_id};
    unsigned int pos = off + 3;
    for (char* t : texts) pos = fru_cp_typelen_buf(pos, reinterpret_cast<unsigned char*>(t), fru_text_max, 0);

    kora_log::logDbg(
        "%s, version: %d language %d maufactory_name: %s(%d), product_name: %s(%d), product_part_number "
        "%s(%d), product_version %s(%d), product_serial_number %s(%d), asset %d(%d), fru %d(%d)",
        "get_pia", product.version, product.language, product.manufacturer, text_len(product.manufacturer),
        product.product_name, text_len(product.product_name), product.part_number,
        text_len(product.part_number), product.product_version, text_len(product.product_version),
        product.serial_number, text_len(product.serial_number), first_char(product.asset_tag),
        text_len(product.asset_tag), first_char(product.fru_file_id), text_len(product.fru_file_id));
    product.valid = 1;
    return true;
}

bool fru_parser::get_bia() {
    const uint32_t off = board_area_offset;
    if (off == 0) {
        kora_log::logErr("%s, BIA not exsit!\n", "get_bia");
        return true;
    }
    if (size <= off + 1) {
        kora_log::logErr("%s, fru too long!\n", "get_bia");
        return false;
    }
    if (size <= off + 8u * data[off + 1]) {
        kora_log::logErr("%s, fru too long!", "get_bia");
        return false;
    }
    board.version = data[off];
    // With an area length byte of 0 the bytes after it may lie outside the buffer.
    board.language = off + 2 < size ? data[off + 2] : 0;
    for (unsigned int i = 0; i < 3; ++i) board.mfg_date[i] = off + 3 + i < size ? data[off + 3 + i] : 0;

    char* texts[] = {board.manufacturer, board.product_name, board.serial_number, board.part_number,
                     board.fru_file_id};
    unsigned int pos = off + 6;
    for (char* t : texts) pos = fru_cp_typelen_buf(pos, reinterpret_cast<unsigned char*>(t), fru_text_max, 0);

    // The date is minutes since 1996-01-01, least significant byte first.
    int minutes = board.mfg_date[0] | board.mfg_date[1] << 8 | board.mfg_date[2] << 16;
    kora_log::logDbg(
        "%s, version: %d language: %d, manufacturer_date: %d/%d/%d(%d), manufacturer: %s(%d), "
        "board_product_name: %s(%d), board_serial_number %s(%d), board_part_number %s(%d), fruid %d(%d)\n",
        "get_bia", board.version, board.language, board.mfg_date[0], board.mfg_date[1], board.mfg_date[2],
        minutes, board.manufacturer, text_len(board.manufacturer), board.product_name,
        text_len(board.product_name), board.serial_number, text_len(board.serial_number), board.part_number,
        text_len(board.part_number), first_char(board.fru_file_id), text_len(board.fru_file_id));
    board.valid = 1;
    return true;
}

seq_str::seq_str(const char* first, int n, const char* second) {
    text = std::string(first ? first : "") + std::to_string(n) + (second ? second : "");
}

}  // namespace aim_parser
