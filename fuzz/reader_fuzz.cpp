// AIM reader: any bytes as an AIM file, read into a document and written back out.
#include <sstream>
#include <string>

#include "aim/document.h"
#include "fuzz/harness.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    aim_parser::document doc;
    if (doc.parse(in) == 0) {
        std::ostringstream out;
        doc.dump(out, 2);
    }
    fuzz::drop_log();
    return 0;
}
