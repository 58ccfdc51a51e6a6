// The "VPDs", "PCIMisc" and "Firmwares" rows that the known-card actions write for one
// function of a card without AIM data.
#pragma once

#include "ingest/parser.h"
#include "platform/vqm_db.h"

namespace aim_parser {

// The texts that differ between the actions: the "VPDs" identity columns and the
// firmware version and description of the "Firmwares" row.
struct hc_card_texts {
    const char* product_name;
    const char* manufacturer;
    const char* model;
    const char* serial_no;
    const char* fru_no;
    const char* part_no;
    const char* version;
    const char* description;
};

// Writes the three rows of function `index` of the card (function key `func_key`); each
// insert is independent, a failure is logged with the slot and the index.
void write_hc_rows(_vqm_db_handle_t* db, vqm_db_content_values_t* cv, const aim_pci_key_unit* key,
                   unsigned int index, unsigned int func_key, const hc_card_texts& texts);

}  // namespace aim_parser
