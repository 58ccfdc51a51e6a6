// MCTP endpoint table of the controller.
#pragma once

#include <stdint.h>

typedef struct mctp_eid_table mctp_eid_table_t;

mctp_eid_table_t* MctpEidTableGet(int seg_bits);
// Endpoint id of a PCI function, 0 when it has none.
uint8_t MctpGetEid(mctp_eid_table_t* table, int seg_bits, uint8_t segment, uint8_t bus, uint8_t device,
                   uint8_t function);
void MctpEidTableFree(mctp_eid_table_t* table);
