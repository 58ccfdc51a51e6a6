// IPMI request path of the controller.
#pragma once

#include <stdint.h>

// Sends one raw request (responder address, network function, LUN, command, data...).
// The response buffer receives the completion code in byte 0 and the data from byte 1
// on; `*response_length` is set to the number of bytes received. 0 on success.
int send_ipmi_cmd(const uint8_t* request, int request_length, uint8_t* response, int* response_length);
