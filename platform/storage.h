// Storage database helpers: records of storage-controller volumes and drives.
#pragma once

#include <stdint.h>

extern "C" {
// Type of storage controller `index` (0 or 1). 0 on success.
int vqmdb_get_mvl_ctrl_type(uint8_t* type, int index);
// Drops the stored volume records of one controller type.
int dmdb_clear_mv_ctrl_vol_info_by_type(int type);
// Drops the stored drive record of one drive slot of a controller type.
int nvme_remove_drv_db_info(int controller_type, int slot);
}
