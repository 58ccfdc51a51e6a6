// The ingestion object: owner of all per-run state of one parse_aim call.
#pragma once

#include <stdint.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "aim/document.h"
#include "gpu/gpu_info.h"
#include "platform/vqm_db.h"

namespace aim_parser {

class parser;
struct walk_index;

// Address, keys, identifiers and types of one present PCI function, as every writer
// receives it. Fields left unresolved keep the values given here.
struct aim_pci_key_unit {
    uint8_t segment = 0;
    uint8_t bus = 0;
    uint8_t device = 0;
    uint8_t function = 0;
    uint16_t node_index = 0;
    uint16_t slot = 0;
    uint32_t dev_key = 0;
    uint32_t func_key = 0;
    uint32_t hardware_id = 0;
    uint8_t untyped_hardware = 0;  // 1 when the "PCIs" row's HardwareTypeId reads 0
    uint8_t location = 0;
    uint32_t function_type = 7;
    // The four identifiers, in the order the known-card lookup takes them.
    uint16_t vendor_id = 0;
    uint16_t device_id = 0;
    uint16_t subsystem_vendor_id = 0;
    uint16_t subsystem_device_id = 0;
    uint8_t hardware_type_id = 1;
};

// The fields of one "PCIAdapter" row of a function without AIM data.
struct AdapterInfo {
    uint8_t segment;
    uint8_t bus;
    uint8_t device;
    uint8_t function;
    uint16_t node;
    uint16_t slot;
    char card_name[128];
    char connector_type[16];
    uint32_t aim_supported;
    uint32_t oob_src;
    uint32_t pci_key;
    uint32_t pci_func_key;
    uint32_t location;

    void clear();
    // Inserts the row into "PCIAdapter".
    int insert(_vqm_db_handle_t* db, vqm_db_content_values_t* cv);
};

struct aim_hc_card;
typedef void (*hc_action_t)(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                            aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                            unsigned int func_key, AdapterInfo* info);

// One known card: its four PCI ids (0xFFFF matches any), texts and the action that writes
// its rows.
struct aim_hc_card {
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t subsystem_vendor_id;
    uint16_t subsystem_device_id;
    char name[128];
    char model[24];
    char manufacturer[32];
    hc_action_t action;
};

// One row of the hardware VPD table: a function whose card VPD is read over IPMI.
struct hw_vpd_info {
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t sub_vendor_id;
    uint16_t sub_device_id;
    uint32_t platform;
    uint16_t vpd_device_id;  // 255: no readable VPD device
};

// One record of the PLDM firmware list.
struct PLDMFirmwareInfo {
    uint32_t DeviceType = 0;
    uint32_t PCIKey = 0;
    uint32_t PCIFuncKey = 0;
    uint8_t Location = 0;
    uint16_t SlotNo = 0;
    uint16_t VendorId = 0;
    uint16_t DeviceId = 0;
    uint16_t SubVendorId = 0;
    uint16_t SubDeviceId = 0;
    uint8_t in_table = 0;  // 0: insert, 1: a matching row exists (update)
    std::string DeviceName;
    std::string Manufacture;
    std::string SoftwareID;
    std::string VersionString;
    std::string ReleaseDate;
    bool aim_matched = false;
};

// Removes every byte of 0x80 or above, keeping the order of the rest.
void filter_ascii(std::string& text);

class parser {
public:
    typedef aim_parser::aim_pci_key_unit aim_pci_key_unit;

    parser();
    ~parser();
    parser(const parser&) = delete;
    parser& operator=(const parser&) = delete;

    // ---- Lifecycle and entry (ingest/parser.cpp) ----
    bool init();
    void clear();
    bool filter_xml(const char* src, const char* dst);
    bool parse(_vqm_db_handle_t* db, const char* path);

    // ---- Database access (ingest/db_access.cpp) ----
    long long find_db_record(_vqm_db_handle_t* db, const char* table, const char* where);
    bool update_pci_function_type(_vqm_db_handle_t* db, aim_pci_key_unit* key, _VQMDB_PCI_TYPE type);

    // ---- Inventory walk (ingest/walk.cpp) ----
    bool parse_inventories(_vqm_db_handle_t* db, inventories* inv);
    // The walk over the configs alone (parse_inventories without the after-walk step).
    bool walk_configs(_vqm_db_handle_t* db, inventories* inv);
    bool parse_configset(_vqm_db_handle_t* db, configset* cs);
    bool parse_config(_vqm_db_handle_t* db, config* cfg);

    // ---- The walk's lookup index (ingest/walk_index.cpp) ----
    // Reads the index when a walk starts; dropped when the walk's configs are done.
    void load_walk_index(_vqm_db_handle_t* db);
    void drop_walk_index();
    // get_pci_node_slot_key_by_pfa from the index: false when the index cannot answer,
    // else the lookup's result in `rc`.
    bool indexed_pci_key(aim_pci_key_unit* key, int* rc) const;
    void indexed_function_type(uint32_t func_key, uint32_t type);
    // find_db_record's answer for a "PCIAdapter" address given as the file's four texts, or
    // for a "PCIPhysicalPortStat" function key: 0 absent, 1 present, -2 when the index
    // cannot answer. The ..._inserted calls add a row that the walk wrote.
    long long indexed_adapter(const char* const (&texts)[4]) const;
    void indexed_adapter_inserted(const aim_pci_key_unit* key);
    long long indexed_port_stat(uint32_t func_key) const;
    // The same for a "Firmwares" row by hardware id and the identity texts "Classification",
    // "SoftwareID", "VersionString", "ReleaseDate" and "Manufacture" (null: not put).
    long long indexed_firmware(uint32_t hardware_id, const char* const (&texts)[5]) const;
    void indexed_firmware_inserted(uint32_t hardware_id, const char* const (&texts)[5]);
    // Rows of "Firmwares" were deleted: the rest of the walk asks the database.
    void indexed_firmwares_changed();
    void indexed_port_stat_inserted(uint32_t func_key);
    // Positions in pldm_firmware_list, first to last, of the records whose "PCIKey",
    // "SubDeviceId" and "PCIFuncKey" are the key's; null when there is no index (outside
    // the walk), and the whole list must be searched.
    const std::vector<uint32_t>* indexed_pldm_records(const aim_pci_key_unit* key);

    // ---- PCI key resolution (ingest/pci_keys.cpp) ----
    int get_pci_node_slot_key_by_pfa(_vqm_db_handle_t* db, aim_pci_key_unit* key);
    int get_pci_slot_type_by_pfa(_vqm_db_handle_t* db, aim_pci_key_unit* key, unsigned short* slot_type,
                                 char* designation, unsigned size);
    unsigned find_pci_func_keys(_vqm_db_handle_t* db, unsigned vendor, unsigned subvendor, unsigned subdevice,
                                unsigned short segment, unsigned short bus, unsigned short device,
                                unsigned short function_type, std::vector<unsigned>& keys);

    // ---- Wipe and stale-record removal (ingest/wipe.cpp) ----
    bool wipe(_vqm_db_handle_t* db);
    int delete_non_exist_gpu(_vqm_db_handle_t* db, std::vector<unsigned>& hardware_ids);
    int get_drive_presence();

    // ---- Disk drives (ingest/disks.cpp) ----
    int parse_disk_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key, const char* serial,
                        bool* hot_swap, bool* second_flag, bool* third_flag);
    void check_raid_sen(_vqm_db_handle_t* db, aim_pci_key_unit* key);

    // ---- Adapters after the walk (ingest/after_walk.cpp) ----
    void handle_adapters_after_walk(_vqm_db_handle_t* db);
    int get_pci_no_aim_supported_node_slot_list(_vqm_db_handle_t* db, std::vector<aim_pci_key_unit>& list);

    // ---- Firmware and PLDM firmware table (writers/firmware.cpp) ----
    unsigned parse_firmware_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key, bool copy_always);
    void handle_pldm_firmware_info_table(_vqm_db_handle_t* db);

    // ---- Network and ports (writers/network.cpp) ----
    int parse_network_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key);
    int parse_physical_port(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key);
    int parse_physical_port_stat(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key);
    int parse_logical_port(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key, int physical_port_index);

    // ---- Hardware VPD (writers/vpd.cpp) ----
    unsigned insert_aim_vpd_info(_vqm_db_handle_t* db, group* grp, aim_pci_key_unit* key);
    void init_hw_vpd_table();
    bool read_hw_vpd(uint16_t vpd_device_id, uint16_t offset, uint16_t length, char* response);
    int update_hw_vpd_256Byte(_vqm_db_handle_t* db, aim_pci_key_unit* key, uint16_t vpd_device_id);
    int update_hw_vpd_1KB(_vqm_db_handle_t* db, aim_pci_key_unit* key, uint16_t vpd_device_id);

    // ---- GPU records (writers/gpu_records.cpp) ----
    int parse_gpu_info(_vqm_db_handle_t* db, group* gpu_group, aim_pci_key_unit* key);
    int parse_gpu_chip(_vqm_db_handle_t* db, group* chip_group, aim_pci_key_unit* key);

    // ---- Known-card table (cards/hc_cards.cpp) ----
    // Fills the known-card list: the platform's table, then the built-in rows.
    void init_hc_cards();
    int hc_find(unsigned short vid, unsigned short did, unsigned short svid, unsigned short sdid);
    int hc_set_idx(unsigned short vid, unsigned short did, unsigned short svid, unsigned short sdid);
    bool hc_is_aim_not_support_dev();
    aim_hc_card* hc_get_table();
    void hc_do_action(_vqm_db_handle_t* db, aim_pci_key_unit* key, unsigned int index, unsigned int func_key,
                      AdapterInfo* info);
    static void save_hc_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                             aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                             unsigned int func_key, AdapterInfo* info);
    static void save_young_riser_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                      aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                      unsigned int func_key, AdapterInfo* info);
    static void save_hc_info_with_pldm(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                       aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                       unsigned int func_key, AdapterInfo* info);
    static void save_aim_not_support_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                          aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                          unsigned int func_key, AdapterInfo* info);
    static void save_hc_alveo_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                   aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                   unsigned int func_key, AdapterInfo* info);
    static void save_hc_intel_info(parser* p, _vqm_db_handle_t* db, vqm_db_content_values_t* cv,
                                   aim_pci_key_unit* key, aim_hc_card* card, unsigned int index,
                                   unsigned int func_key, AdapterInfo* info);

    // ---- vNIC capability data (cards/vnic.cpp) ----
    void get_pci_vnic_supported_info(_vqm_db_handle_t* db);

    // ---- GPU information sources (ingest/gpu_sources.cpp) ----
    int get_gpu_info(aim_pci_key_unit* key, gpu_info& info);
    int get_amd_gpu_info(aim_pci_key_unit* key, gpu_info& info);
    void get_gpu_info_ipmiprop(gpu_info& info, unsigned char busnum);
    void get_gpu_info_ipmiprop_v2(gpu_info& info, unsigned short slot);
    void get_gpu_info_ipmiprop_v2(gpu_info& info, unsigned short index, const char* node);
    // `maybe_stored` (when not null) tells whether rows of the GPU may be in the database
    // even when it reports false: a query failed, or only one table had a row.
    bool read_gpu_info_from_db(_vqm_db_handle_t* db, aim_pci_key_unit* key, gpu_info& info,
                               bool* maybe_stored = nullptr);

    // ---- State ----
    // The one content-values object every row is built in; null until init succeeds.
    vqm_db_content_values_t* cv = nullptr;
    // Device keys of functions that a config of the AIM file covered.
    std::set<uint32_t> aim_supported_keys;
    // Device keys of vNIC-capable functions written from the vNIC data.
    std::set<uint32_t> vnic_supported_keys;
    // Drive presence masks (bit n: drive slot n present) of the two drive controllers.
    uint8_t drive_presence[2] = {0, 0};
    bool drive_presence_known = false;
    // Known cards, and the index of the row last selected (-1: none).
    std::vector<aim_hc_card> hc_cards;
    int hc_idx = -1;
    std::vector<hw_vpd_info> hw_vpd_table;
    std::vector<PLDMFirmwareInfo> pldm_firmware_list;
    // A (function key, product name) pair that overrides the AIM "Card Name" of that
    // function's VPD row; function key 0 means none.
    uint32_t remembered_func_key = 0;
    std::string remembered_product_name;
    // The walk's lookup index; null outside the walk.
    std::unique_ptr<walk_index> walk_cache;
};

}  // namespace aim_parser
