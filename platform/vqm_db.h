// Inventory database client of the controller. All table access of the library goes
// through these calls. Return codes: 0 is success unless stated otherwise.
#pragma once

#include <stdint.h>

extern "C" {

typedef struct _vqm_db_handle _vqm_db_handle_t;
typedef struct vqm_db_content_values vqm_db_content_values_t;
typedef struct vqm_db_result vqm_db_result_t;

// A value bound to a "?" placeholder of an update condition.
enum { VQM_DB_PARAM_UINT = 3 };
typedef struct {
    int type;  // VQM_DB_PARAM_UINT
    uint32_t value;
} vqm_db_param_t;

// vqm_db_result_step: a row is available.
enum { VQM_DB_ROW = 9 };

// PCI function type codes of the "PCIs" table ("FunType").
typedef uint32_t _VQMDB_PCI_TYPE;

_vqm_db_handle_t* vqm_db_open(const char* server, const char* user, const char* password, const char* name,
                              int flags);
void vqm_db_close(_vqm_db_handle_t* db);

vqm_db_content_values_t* vqm_db_get_content_values(void);
void vqm_db_free_content_values(vqm_db_content_values_t* cv);
void vqm_db_content_clear(vqm_db_content_values_t* cv);
int vqm_db_content_put_text(vqm_db_content_values_t* cv, const char* column, const char* text);
int vqm_db_content_put_uint(vqm_db_content_values_t* cv, const char* column, uint32_t value);
int vqm_db_content_put_int(vqm_db_content_values_t* cv, const char* column, int32_t value);
int vqm_db_content_put_uint64(vqm_db_content_values_t* cv, const char* column, uint64_t value);
int vqm_db_content_put_uchar(vqm_db_content_values_t* cv, const char* column, uint8_t value);

int vqm_db_insert(_vqm_db_handle_t* db, const char* table, vqm_db_content_values_t* cv, int a, int b);
// `where` may hold "?" placeholders bound in order from `params`.
int vqm_db_update(_vqm_db_handle_t* db, const char* table, vqm_db_content_values_t* cv, const char* where,
                  const vqm_db_param_t* params, int param_count, int flags);
// A null `where` deletes every row.
int vqm_db_delete(_vqm_db_handle_t* db, const char* table, const char* where, int a, int b, int c);
// A null `where` selects every row. `*result` may be null even on success.
int vqm_db_query(_vqm_db_handle_t* db, const char* table, const char* const* columns, int column_count,
                 const char* where, void* a, void* b, void* c, vqm_db_result_t** result);
int vqm_db_raw_query(_vqm_db_handle_t* db, const char* sql, int size, vqm_db_result_t** result);

// VQM_DB_ROW while a row is available; anything else at the end or on error.
int vqm_db_result_step(vqm_db_result_t* result);
unsigned vqm_db_result_row_count(vqm_db_result_t* result);
int vqm_db_result_column_uint(vqm_db_result_t* result, int column, uint32_t* value);
int vqm_db_result_column_short_uint(vqm_db_result_t* result, int column, uint16_t* value);
int vqm_db_result_column_int64(vqm_db_result_t* result, int column, int64_t* value);
// Copies the text, cut to the buffer and always terminated.
int vqm_db_result_column_text(vqm_db_result_t* result, int column, char* buffer, unsigned size);
int vqm_db_result_column_blob(vqm_db_result_t* result, int column, void* buffer, unsigned size);
void vqm_db_free_result(vqm_db_result_t* result);
// Copies the named text column of the current row.
int extract_str_column_from_result(vqm_db_result_t* result, const char* column, char* buffer, unsigned size);

// Inventory functions.
int vqmdb_get_pci_seg_bits(int flags);
int vqmdb_merge_aim_ucm_pfa(int previous_result);

// The platform's table of known cards. Entries begin with the four PCI ids and hold the
// card name from their ninth byte on.
typedef struct {
    uint16_t vendor_id;
    uint16_t device_id;
    uint16_t subsystem_vendor_id;
    uint16_t subsystem_device_id;
    char name[128];
} vqmdb_hc_card_t;
extern vqmdb_hc_card_t hc_card_table[];
unsigned vqmdb_get_hc_card_count(void);

}  // extern "C"
