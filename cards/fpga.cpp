// FPGA accelerator cards (Xilinx Alveo, Intel PAC): the cards carry no AIM data, so their
// rows are written from the IPMI FRU image in the card's EEPROM, read over the device
// access layer and parsed with fru_parser.
#include <stdio.h>
#include <string.h>

#include <initializer_list>
#include <vector>

#include "cards/hc_rows.h"
#include "fru/fru_parser.h"
#include "ingest/parser.h"
#include "ingest/text.h"
#include "platform/cio.h"
#include "platform/kora_log.h"

namespace aim_parser {
namespace {

// How much of the EEPROM is read: enough for the common header, both info areas and the
// multirecord area of the cards' images (placeholder until the cards' EEPROM sizes are
// confirmed; a smaller EEPROM simply answers with fewer bytes).
const uint32_t fru_eeprom_size = 1024;

// The multirecord that holds the FPGA firmware version: the first record of this type
// (the first OEM record type) whose data has at least four bytes; those four bytes are the
// version's parts, major first (placeholder until the cards' record layout is confirmed).
const uint8_t fpga_fw_record_type = 0xC0;
const uint32_t multirecord_header_size = 5;
const uint8_t multirecord_end_of_list = 0x80;

const char* const fpga_fw_description =
    "Firmware package containing controller firmware, UEFI Driver, and other sub components.";

// What the card's FRU image gave.
struct fpga_fru {
    fru_product_info product;
    fru_board_info board;
    bool has_version = false;
    uint8_t version[4] = {0, 0, 0, 0};
};

// Finds the firmware version record in the multirecord area starting at `offset`. Every
// record header and its data must lie inside the image; the walk stops at the record
// marked last, at the first record that does not fit, or at the end of the image.
bool find_fw_version(const std::vector<uint8_t>& image, uint32_t offset, uint8_t version[4]) {
    if (offset == 0) return false;
    size_t at = offset;
    while (at + multirecord_header_size <= image.size()) {
        uint8_t type = image[at];
        uint8_t flags = image[at + 1];
        size_t length = image[at + 2];
        size_t data = at + multirecord_header_size;
        if (data + length > image.size()) return false;
        if (type == fpga_fw_record_type && length >= 4) {
            memcpy(version, &image[data], 4);
            return true;
        }
        if (flags & multirecord_end_of_list) return false;
        at = data + length;
    }
    return false;
}

// Reads and parses the FRU image of device `name`. False when the device cannot be opened
// or read, or when the image holds neither a product nor a board info area.
bool read_fpga_fru(const char* name, fpga_fru& out) {
    int handle = -1;
    int rc = cio_block_open(name, &handle);
    if (rc != 0) {
        kora_log::logErr("read_fpga_fru: cio_block_open %s failed, %s", name, get_cio_err_str(rc));
        return false;
    }
    std::vector<uint8_t> image(fru_eeprom_size);
    int got = cio_block_read(handle, 0, image.data(), fru_eeprom_size);
    if (got <= 0) {
        kora_log::logErr("read_fpga_fru: cio_block_read %s failed, %s", name, get_cio_err_str(got));
        return false;
    }
    image.resize(static_cast<size_t>(got));
    fru_parser fru(static_cast<unsigned int>(image.size()), image.data());
    if (!fru.parser() || (!fru.product.valid && !fru.board.valid)) return false;
    out.product = fru.product;
    out.board = fru.board;
    out.has_version = find_fw_version(image, fru.multirecord_area_offset, out.version);
    return true;
}

// The first non-empty text of the list, else `fallback`.
const char* first_text(std::initializer_list<const char*> texts, const char* fallback) {
    for (const char* t : texts) {
        if (t[0] != '\0') return t;
    }
    return fallback;
}

// Reads the card's FRU through device "<prefix><slot>_fru_dev" and writes its rows; on
// failure logs "AIM PARSER: <action> get <kind> info failed!" and writes nothing.
//
// Which source fills each column:
// - "ProductName" and the adapter's "CardName": the table row's name. The PCI ids tell
//   which FPGA image is loaded ("XDMA Platform" or "Golden Image"), which the EEPROM
//   cannot know; the EEPROM names only the board.
// - "Manufacture" (both rows): the product area's manufacturer, else the board area's,
//   else the table row's.
// - "Model": the product area's part/model number, else the board product name, else the
//   table row's model.
// - "SerialNo": the product serial number, else the board serial number, else "N/A".
// - "PartNo": the board part number (the part a service engineer orders), else the
//   product part/model number, else "N/A".
// - "FRUNo": "N/A"; the card's EEPROM holds no FRU number of the server maker.
// - "VersionString": the version record of the multirecord area as "%d.%d.%d.%d", else
//   "N/A".
// A failed read leaves the function with the adapter row that the caller writes, named
// after the table row, since the card is present; it gets no row built from guesses.
void save_fpga_info(_vqm_db_handle_t* db, vqm_db_content_values_t* cv, aim_pci_key_unit* key,
                    aim_hc_card* card, unsigned int index, unsigned int func_key, AdapterInfo* info,
                    const char* device_prefix, const char* action, const char* kind) {
    seq_str device(device_prefix, key->slot, "_fru_dev");
    fpga_fru fru;
    if (!read_fpga_fru(device.c_str(), fru)) {
        kora_log::logWarn("AIM PARSER: %s get %s info failed!\n", action, kind);
        return;
    }
    const fru_product_info& p = fru.product;
    const fru_board_info& b = fru.board;
    char version[32] = "N/A";
    if (fru.has_version) {
        snprintf(version, sizeof version, "%d.%d.%d.%d", fru.version[0], fru.version[1], fru.version[2],
                 fru.version[3]);
    }
    info->oob_src = 8;
    copy_text(info->card_name, sizeof info->card_name, card->name);
    write_hc_rows(db, cv, key, index, func_key,
                  {card->name, first_text({p.manufacturer, b.manufacturer}, card->manufacturer),
                   first_text({p.part_number, b.product_name}, card->model),
                   first_text({p.serial_number, b.serial_number}, "N/A"), "N/A",
                   first_text({b.part_number, p.part_number}, "N/A"), version, fpga_fw_description});
}

}  // namespace

void parser::save_hc_alveo_info(parser*, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                unsigned int func_key, AdapterInfo* info) {
    save_fpga_info(db, cv, key, card, index, func_key, info, "alveo_slot", "save_hc_alveo_info", "alveo");
}

void parser::save_hc_intel_info(parser*, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                unsigned int func_key, AdapterInfo* info) {
    save_fpga_info(db, cv, key, card, index, func_key, info, "pac_slot", "save_hc_intel_info", "intel");
}

}  // namespace aim_parser
