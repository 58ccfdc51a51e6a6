// Simulated storage database helpers and the properties database (to be written).
#include "host/machine.h"
#include "platform/storage.h"

HOST_MACHINE_SECTION("pcis", [](const host::machine&, const nlohmann::json&) {});
HOST_MACHINE_SECTION("storage", [](const host::machine&, const nlohmann::json&) {});
HOST_MACHINE_SECTION("properties", [](const host::machine&, const nlohmann::json&) {});

extern "C" {
int vqmdb_get_mvl_ctrl_type(uint8_t*, int) {
    return -1;
}
int dmdb_clear_mv_ctrl_vol_info_by_type(int) {
    return 0;
}
int nvme_remove_drv_db_info(int, int) {
    return 0;
}
}
