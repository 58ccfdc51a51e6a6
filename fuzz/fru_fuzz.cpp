// FRU area parser: any bytes as a FRU image.
#include <string.h>

#include <vector>

#include "fru/fru_parser.h"
#include "fuzz/harness.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The parser takes a writable buffer of exactly the image's size, so that reads past
    // its end are caught.
    std::vector<unsigned char> image(data, data + size);
    aim_parser::fru_parser p(static_cast<unsigned>(image.size()), image.data());
    if (p.parser()) {
        p.get_pia();
        p.get_bia();
    }
    fuzz::drop_log();
    return 0;
}
