// Entry points and the parser's lifecycle: construction, init, the printable-ASCII
// pre-filter, parse, clear and destruction.
#include "ingest/parser.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "ingest/parse_aim.h"
#include "ingest/walk_index.h"
#include "platform/kora_log.h"
#include "platform/os.h"

namespace aim_parser {

namespace {
// The filtered copy of the AIM file that the reader parses.
const char* const filtered_aim_file = "/tmp/aim_filtered.xml";

// The byte test of isprint() in the "C" locale (0x20 to 0x7E), independent of the
// process's locale.
bool is_printable_ascii(unsigned char c) { return (unsigned char)(c - 0x20) <= 0x7E - 0x20; }

// True when the filter_block bytes at `p` are all printable: each byte less 0x20 must not
// exceed 0x5E. The bytes are compared sixteen at a time as vectors where the processor has
// vector registers (scalar code elsewhere), the failing lanes or-ed together and tested once.
typedef unsigned char byte_vector __attribute__((vector_size(16)));
const size_t filter_block = 64;
bool block_printable(const unsigned char* p) {
    byte_vector outside = {};
    for (size_t i = 0; i < filter_block; i += sizeof(byte_vector)) {
        byte_vector v;
        memcpy(&v, p + i, sizeof v);
        outside |= (byte_vector)((v - 0x20) > 0x5E);  // all ones in each lane that fails
    }
    uint64_t words[2];
    memcpy(words, &outside, sizeof words);
    return (words[0] | words[1]) == 0;
}

// Length of the run of printable bytes that starts `p[0, n)`: whole blocks first, then
// byte by byte.
size_t printable_run(const unsigned char* p, size_t n) {
    size_t i = 0;
    while (n - i >= filter_block && block_printable(p + i)) i += filter_block;
    while (i < n && is_printable_ascii(p[i])) ++i;
    return i;
}
}  // namespace

parser::parser() { init_hc_cards(); }

parser::~parser() {
    clear();
    aim_supported_keys.clear();
    vnic_supported_keys.clear();
    hc_cards.clear();
    hw_vpd_table.clear();
    pldm_firmware_list.clear();
}

bool parser::init() {
    vqm_db_content_values_t* values = vqm_db_get_content_values();
    if (!values) {
        kora_log::logErr("no memory");
        return false;
    }
    cv = values;
    init_hw_vpd_table();
    return true;
}

void parser::clear() {
    if (!cv) return;
    vqm_db_content_clear(cv);
    vqm_db_free_content_values(cv);
    cv = nullptr;
}

// Copies `src` to `dst` keeping only printable ASCII bytes: line ends, tabs and every byte
// of 0x80 and above are dropped, so the copy is one line of plain ASCII. The file is read
// and written through a block buffer, in which the runs of printable bytes are moved
// together.
bool parser::filter_xml(const char* src, const char* dst) {
    if (!src || !dst) return false;
    FILE* in = fopen(os_path(src).c_str(), "r");
    if (!in) return false;
    FILE* out = fopen(os_path(dst).c_str(), "w");
    if (!out) {
        fclose(in);
        return false;
    }
    std::vector<unsigned char> buf(64 * 1024);
    size_t got;
    while ((got = fread(buf.data(), 1, buf.size(), in)) > 0) {
        unsigned char* p = buf.data();
        size_t kept = 0, i = 0;
        while (i < got) {
            size_t run = printable_run(p + i, got - i);
            if (kept != i) memmove(p + kept, p + i, run);
            kept += run;
            i += run;
            while (i < got && !is_printable_ascii(p[i])) ++i;
        }
        fwrite(p, 1, kept, out);
    }
    fclose(in);
    fclose(out);
    return true;
}

bool parser::parse(_vqm_db_handle_t* db, const char* path) {
    if (!init()) {
        kora_log::logErr("AIM PARSER: failed to initialize the parser");
        return false;
    }
    document doc;
    uint32_t rslt = doc.parse(path);
    if (rslt != 0) {
        kora_log::logErr("AIM PARSER: failed to parse the XML file, rslt=%d", (int)rslt);
        return false;
    }
    if (!parse_inventories(db, &doc.inventories)) {
        kora_log::logWarn("AIM PARSER: No AIM data found");
    } else if (path) {
        kora_log::logInfo("AIM PARSER: successfully parsed \"%s\"", path);
    } else {
        kora_log::logInfo("AIM PARSER: successfully parsed customized AIM data");
    }
    return true;
}

}  // namespace aim_parser

extern "C" int parse_aim(_vqm_db_handle_t* db, const char* xml_path) {
    aim_parser::parser p;
    if (!db) return -1;
    // The previous run's rows go first, so that an unreadable file leaves the adapter
    // tables empty rather than stale.
    if (!p.wipe(db)) return -1;
    if (!xml_path) return p.parse(db, nullptr) ? 0 : -1;
    if (!p.filter_xml(xml_path, aim_parser::filtered_aim_file)) {
        kora_log::logErr("AIM PARSER: failed to filter AIM xml file");
        return -1;
    }
    int rc = p.parse(db, aim_parser::filtered_aim_file) ? 0 : -1;
    unlink(os_path(aim_parser::filtered_aim_file).c_str());
    return rc;
}

extern "C" int rebuild_tables_in_memory(_vqm_db_handle_t* db) {
    static const char* const stat_table = "PCIPhysicalPortStat";
    static const char* const columns[] = {"Idx", "PCIFuncKey"};
    vqm_db_result_t* result = nullptr;
    int rc = vqm_db_query(db, stat_table, columns, 2, nullptr, nullptr, nullptr, nullptr, &result);
    if (rc != 0) {
        if (result) vqm_db_free_result(result);
        return rc;
    }
    unsigned existing = result ? vqm_db_result_row_count(result) : 0;
    if (result) vqm_db_free_result(result);
    if (existing > 0) {
        kora_log::logInfo("AIM PARSER: Find %u record in %s, do nothing.", existing, stat_table);
        return 0;
    }

    vqm_db_content_values_t* values = vqm_db_get_content_values();
    if (!values) return 4;
    result = nullptr;
    rc = vqm_db_query(db, "PCIPhysicalPort", columns, 2, nullptr, nullptr, nullptr, nullptr, &result);
    unsigned inserted = 0;
    if (rc == 0 && result) {
        while (vqm_db_result_step(result) == VQM_DB_ROW) {
            uint32_t idx = 0, func_key = 0;
            if (vqm_db_result_column_uint(result, 0, &idx) != 0) idx = 0;
            if (vqm_db_result_column_uint(result, 1, &func_key) != 0) func_key = 0;
            vqm_db_content_clear(values);
            vqm_db_content_put_int(values, "Idx", (int32_t)idx);
            vqm_db_content_put_int(values, "PCIFuncKey", (int32_t)func_key);
            int irc = vqm_db_insert(db, stat_table, values, 0, 0);
            if (irc != 0) {
                kora_log::logErr("AIM PARSER: Failed to insert Physical Port Stat Information, rc=%d", irc);
                rc = irc;
                break;
            }
            ++inserted;
        }
    }
    kora_log::logInfo("AIM PARSER: Rebuild %s, inserted %u records", stat_table, inserted);
    if (result) vqm_db_free_result(result);
    vqm_db_free_content_values(values);
    return rc;
}
