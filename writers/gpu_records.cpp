// GPU records: the "PCIGPU" row of an adapter's GPU group and one "PCIGPUChip" row per
// numbered chip sub-group.
#include "ingest/parser.h"
#include "ingest/rows.h"

namespace aim_parser {
namespace {

const setting_column gpu_columns[] = {
    {"Video Memory Type", "VideoMemoryType", column_kind::text},
    {"Video Memory Size", "VideoMemorySize", column_kind::text},
    {"Total GPU Chip Number", "TotalGPUChipNumber", column_kind::uint32},
};

const setting_column gpu_chip_columns[] = {
    {"GPU Chip Name", "GPUChipName", column_kind::text},
    {"GPU Chip Manufacturer", "GPUChipManufacturer", column_kind::text},
    {"GPU Chip Model", "GPUChipModel", column_kind::text},
    {"GPU Chip Part Number", "GPUChipPartNumber", column_kind::text},
    {"GPU Chip SKU", "GPUChipSKU", column_kind::text},
    {"GPU Chip Serial Number", "GPUChipSerialNumber", column_kind::text},
    {"GPU Chip Form Factor", "GPUChipFormFactor", column_kind::text},
    {"GPU Chip Index", "GPUChipIndex", column_kind::uint32},
    {"External Bus Clock Speed", "ExternalBusClockSpeed", column_kind::uint32},
    {"GPU Chip Family", "GPUChipFamily", column_kind::text},
    {"GPU Chip Max Clock Speed", "GPUChipMaxClockSpeed", column_kind::uint32},
    {"GPU Chip Number Of Enabled Cores", "GPUChipNumberOfEnabledCores", column_kind::uint32},
    {"GPU Chip Address Width", "GPUChipAddressWidth", column_kind::uint32},
    {"GPU Chip Data Width", "GPUChipDataWidth", column_kind::uint32},
    {"GPU Chip Unique ID", "GPUChipUniqueID", column_kind::text},
};

}  // namespace

int parser::parse_gpu_info(_vqm_db_handle_t* db, group* gpu_group, aim_pci_key_unit* key) {
    if (!gpu_group || !key) return 0;
    vqm_db_content_clear(cv);
    put_key_columns(cv, key);
    if (put_settings(cv, gpu_group, gpu_columns) > 0 &&
        insert_row(db, "PCIGPU", cv, "GPU Information") != 0) {
        return 0;
    }
    for_each_numbered_group(gpu_group, "GPU Chip ", [&](group* chip) { parse_gpu_chip(db, chip, key); });
    return 1;
}

int parser::parse_gpu_chip(_vqm_db_handle_t* db, group* chip_group, aim_pci_key_unit* key) {
    if (!chip_group || !key) return 0;
    vqm_db_content_clear(cv);
    put_key_columns(cv, key);
    if (put_settings(cv, chip_group, gpu_chip_columns) == 0) return 1;
    return insert_row(db, "PCIGPUChip", cv, "GPU Chip Information") == 0 ? 1 : 0;
}

}  // namespace aim_parser
