// Answers of the walk's per-config lookups, read with one query per table when the walk
// starts and kept up to date with the walk's own writes, so that a config costs no
// "PCIs" query and no existence query for its adapter and port-state rows. Each part that
// could not be read stays unloaded, and its lookups then go to the database as before.
#pragma once

#include <stdint.h>

#include <array>
#include <functional>
#include <string>
#include <utility>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ingest/parser.h"

namespace aim_parser {

// Hashes of the index's keys: arrays of integers, and an integer with its texts. Every
// lookup costs the same whatever the number of configs.
struct walk_key_hash {
    template <class T, size_t N>
    size_t operator()(const std::array<T, N>& a) const {
        size_t h = 0;
        for (const T& v : a) h = h * 1000003u ^ std::hash<T>()(v);
        return h;
    }
    template <size_t N>
    size_t operator()(const std::pair<int64_t, std::array<std::string, N>>& row) const {
        return std::hash<int64_t>()(row.first) * 1000003u ^ (*this)(row.second);
    }
};

struct walk_index {
    typedef std::array<std::string, 5> firmware_texts;

    // The first "PCIs" row (lowest row id) of each address that a config can name
    // (segment, bus, device and function each 0 to 255), as get_pci_node_slot_key_by_pfa
    // reads it; `rows` is indexed by the address packed into 32 bits.
    struct pci_row {
        aim_pci_key_unit key;
        bool func_key_known = false;  // "FunKey" held an integer
    };
    bool pcis_loaded = false;
    std::unordered_map<uint32_t, pci_row> pcis;
    // Addresses of the "PCIs" rows by function key, for the walk's "FunType" updates.
    std::unordered_multimap<uint32_t, uint32_t> pcis_by_func_key;

    // Integer addresses of the "PCIAdapter" rows.
    bool adapters_loaded = false;
    std::unordered_set<std::array<int64_t, 4>, walk_key_hash> adapters;

    // "HardwareId" and the identity texts ("Classification", "SoftwareID", "VersionString",
    // "ReleaseDate", "Manufacture") of the "Firmwares" rows that hold all six.
    bool firmwares_loaded = false;
    std::unordered_set<std::pair<int64_t, firmware_texts>, walk_key_hash> firmwares;

    // Integer "PCIFuncKey" values of the "PCIPhysicalPortStat" rows.
    bool port_stats_loaded = false;
    std::unordered_set<int64_t> port_stats;

    // Positions of the parser's PLDM records by ("PCIKey", "SubDeviceId", "PCIFuncKey"), in
    // list order. The walk appends a record per adapter and every firmware group of a
    // config looks its records up, so searching the whole list would cost the walk time
    // quadratic in the number of configs. Records [0, pldm_indexed) are in the index.
    std::unordered_map<std::array<uint32_t, 3>, std::vector<uint32_t>, walk_key_hash> pldm_records;
    size_t pldm_indexed = 0;
};

// Fills the key's node, slot, keys, identifiers and types from columns `first` on of the
// current row of `result`, in the column order of get_pci_node_slot_key_by_pfa; columns
// that do not read keep the unresolved values.
void read_pci_key_columns(vqm_db_result_t* result, int first, aim_pci_key_unit* key);

// The value of a condition literal the way the database reads it, when `text` is a plain
// decimal number or a "0x" hexadecimal one; false for anything else.
bool plain_integer(const char* text, int64_t* value);

}  // namespace aim_parser
