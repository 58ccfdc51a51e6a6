// Operating-system access of the library. Every file that the library opens, creates,
// removes or runs goes through os_path, so that a platform can place the controller's
// fixed paths elsewhere (the host maps them below a sysroot directory).
#pragma once

#include <stdio.h>
#include <string>

// The path at which the controller path `path` is to be opened.
std::string os_path(const char* path);
// Runs `command` (its first word is a controller path) and returns a pipe on its
// standard output, or null. Closed with os_pclose.
FILE* os_popen_read(const char* command);
int os_pclose(FILE* pipe);
// Sleeps between device retries.
void os_usleep(unsigned microseconds);
