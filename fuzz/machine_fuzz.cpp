// aimctl machine's parsers: any bytes as lspci and dmidecode output. The input is the lspci
// text, then (after the first NUL byte, when there is one) the dmidecode text. Bad text must
// end in input_error, never in a crash, a read out of bounds or unbounded work.
#include <string.h>

#include <string>

#include "fuzz/harness.h"
#include "tools/machine/pci_machine.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string all(reinterpret_cast<const char*>(data), size);
    size_t nul = all.find('\0');
    std::string lspci = all.substr(0, nul);
    std::string dmidecode = nul == std::string::npos ? std::string() : all.substr(nul + 1);
    machine::detect(all);
    std::vector<machine::pci_function> functions;
    try {
        functions = machine::parse_lspci(lspci, "lspci");
        machine::rows_json(machine::build_rows(functions, "lspci", nullptr)).dump();
    } catch (const machine::input_error&) {
        functions.clear();
    }
    try {
        machine::smbios_info smbios =
            machine::parse_dmidecode(dmidecode.empty() ? all : dmidecode, "dmidecode");
        machine::build_report report;
        machine::rows_json(machine::build_rows(functions, "lspci", &smbios, &report)).dump();
    } catch (const machine::input_error&) {
    }
    return 0;
}
