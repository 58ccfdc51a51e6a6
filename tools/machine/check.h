// An AIM file checked against a machine's "PCIs" rows: does each config find a present
// function at its address (as the library's walk matches them), does its slot agree, do its
// firmware software ids name that function; and which present functions no config describes.
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "aim/document.h"
#include "tools/machine/pci_machine.h"

namespace machine {

struct config_check {
    std::string id;
    pci_address address;            // as the walk converts the pfa texts (the segment in 8 bits)
    int aim_slot = -1;              // slot number that the config's ID or mriName names ("Slot3"), -1 none
    const pcis_row* row = nullptr;  // the machine's function there, null when missing
    bool slot_differs = false;
    bool ids_differ = false;
    std::vector<std::string> software_ids;  // the config's firmware "Software ID"s
};

struct uncovered_function {
    const pcis_row* row = nullptr;
    std::string filled_by;  // what covers it after the walk, or why nothing does
};

struct aim_check {
    std::vector<config_check> configs;
    std::vector<uncovered_function> uncovered;
    unsigned found = 0, missing = 0;
};

// `rows` must outlive the result.
aim_check check_aim(const aim_parser::document& doc, const std::vector<pcis_row>& rows);

std::string check_table(const aim_check& c);
nlohmann::ordered_json check_json(const aim_check& c);

}  // namespace machine
