// Visibility control for the library's exported surface. The library is built with hidden
// visibility; only declarations marked AIM_EXPORT appear in its dynamic symbol table.
#pragma once

#define AIM_EXPORT __attribute__((visibility("default")))
