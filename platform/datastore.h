// Data store of the controller: named binary data sets.
#pragma once

// A handle above 0, or a value below 1 on failure.
int DSOpen(const char* name, int mode, int size, int flags);
// Negative on failure.
int DSRead(int handle, int offset, int length, void* buffer);
int DSClose(int handle);
