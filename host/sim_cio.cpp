// Simulated device access layer (cio).
//
// machine.json "cio_integers": object from flag name ("RS_EXIST", "GPU_PROP_V2_EXIST") to
// its integer value. A flag that is absent cannot be opened.
//
// machine.json "nvidia_gpus": object from cio device name to a simulated NVIDIA GPU that
// answers the SMBus post-box request "get system identification data":
//   {"serial", "marketing_name", "part_number", "firmware_version": texts answered four
//    bytes per chunk (zero bytes past the end; an absent text answers as empty),
//    "build_date": [4 bytes] (packed decimal day, month, year low half, year high half),
//    "vendor_id", "device_id", "subsystem_vendor_id", "subsystem_device_id": numbers,
//    "faults": {
//      "open": true            cio_block_open fails,
//      "attrib": true          cio_get_attrib fails,
//      "fail_first": N         the first N requests fail, whatever they ask,
//      "fail_selectors": [s]   every request for these selectors fails,
//      "fail_chunks": [[s, c]] requests for these selector and chunk pairs fail,
//      "fail_count": n         count byte reported in a failed answer (default 0),
//      "repeat_selectors": [s] every chunk of these selectors answers with chunk 0's data}}
// A request whose framing is not the post-box request's fails as well.
//
// machine.json "fru_devices": object from cio device name (the FPGA cards' EEPROMs, such
// as "alveo_slot3_fru_dev" or "pac_slot4_fru_dev") to {"image": file below the machine
// directory}: cio_block_read answers with the file's bytes, as many as it holds.
#include <string.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/machine.h"
#include "host/sim.h"
#include "platform/cio.h"

namespace {

// Error codes of the simulated layer.
enum { cio_ok = 0, cio_eio = -5, cio_enoent = -2, cio_ebadf = -9, cio_einval = -22 };

struct sim_gpu {
    std::string name;
    std::string texts[4];  // serial, marketing name, part number, firmware version
    uint8_t build_date[4] = {0, 0, 0, 0};
    uint16_t ids[4] = {0, 0, 0, 0};  // vendor, device, subsystem vendor, subsystem device
    bool open_fails = false;
    bool attrib_fails = false;
    unsigned fail_first = 0;
    std::set<uint8_t> fail_selectors;
    std::set<std::pair<uint8_t, uint8_t>> fail_chunks;
    uint8_t fail_count = 0;
    std::set<uint8_t> repeat_selectors;
    std::vector<std::pair<uint8_t, uint8_t>> requests;
};

std::map<std::string, int> g_integers;
std::map<int, std::string> g_integer_handles;
std::map<std::string, sim_gpu> g_gpus;
std::map<int, std::string> g_block_handles;
int g_next_block = 100;
std::map<std::string, std::vector<uint8_t>> g_fru_devices;

const char* const text_keys[4] = {"serial", "marketing_name", "part_number", "firmware_version"};
const char* const id_keys[4] = {"vendor_id", "device_id", "subsystem_vendor_id", "subsystem_device_id"};

void load_integers(const host::machine&, const nlohmann::json& v) {
    g_integers.clear();
    g_integer_handles.clear();
    if (v.is_null()) return;
    if (!v.is_object()) throw host::machine_error("must be an object from flag name to number");
    for (auto it = v.begin(); it != v.end(); ++it) {
        const nlohmann::json& n = it.value();
        std::string what = "flag \"" + it.key() + "\"";
        long long value;
        if (n.is_number_integer() && !n.is_number_unsigned()) {
            value = n.get<long long>();
        } else {
            value = static_cast<long long>(host::json_number(n, what, 0, 0x7FFFFFFF));
        }
        if (value < -0x7FFFFFFFLL - 1 || value > 0x7FFFFFFF)
            throw host::machine_error(what + " is out of range");
        g_integers[it.key()] = static_cast<int>(value);
    }
}

uint8_t byte_value(const nlohmann::json& v, const std::string& what) {
    return static_cast<uint8_t>(host::json_number(v, what, 0, 255));
}

std::set<uint8_t> selector_list(const nlohmann::json& v, const std::string& what) {
    if (!v.is_array()) throw host::machine_error(what + " must be a list of selectors");
    std::set<uint8_t> out;
    for (const auto& s : v) out.insert(byte_value(s, what + " entry"));
    return out;
}

void load_faults(sim_gpu& g, const nlohmann::json& f, const std::string& what) {
    if (!f.is_object()) throw host::machine_error(what + " must be an object");
    for (auto it = f.begin(); it != f.end(); ++it) {
        const std::string& k = it.key();
        const nlohmann::json& v = it.value();
        std::string w = what + " \"" + k + "\"";
        if (k == "open" || k == "attrib") {
            if (!v.is_boolean()) throw host::machine_error(w + " must be true or false");
            (k == "open" ? g.open_fails : g.attrib_fails) = v.get<bool>();
        } else if (k == "fail_first") {
            g.fail_first = static_cast<unsigned>(host::json_number(v, w, 0, 1000000));
        } else if (k == "fail_selectors") {
            g.fail_selectors = selector_list(v, w);
        } else if (k == "repeat_selectors") {
            g.repeat_selectors = selector_list(v, w);
        } else if (k == "fail_count") {
            g.fail_count = byte_value(v, w);
        } else if (k == "fail_chunks") {
            if (!v.is_array()) throw host::machine_error(w + " must be a list of [selector, chunk] pairs");
            for (const auto& p : v) {
                if (!p.is_array() || p.size() != 2) {
                    throw host::machine_error(w + " entries must be [selector, chunk] pairs");
                }
                g.fail_chunks.insert({byte_value(p[0], w + " selector"), byte_value(p[1], w + " chunk")});
            }
        } else {
            throw host::machine_error(what + ": unknown fault \"" + k + "\"");
        }
    }
}

void load_gpus(const host::machine&, const nlohmann::json& v) {
    g_gpus.clear();
    g_block_handles.clear();
    g_next_block = 100;
    if (v.is_null()) return;
    if (!v.is_object()) throw host::machine_error("must be an object from cio device name to GPU");
    for (auto it = v.begin(); it != v.end(); ++it) {
        std::string what = "GPU \"" + it.key() + "\"";
        const nlohmann::json& d = it.value();
        if (!d.is_object()) throw host::machine_error(what + " must be an object");
        sim_gpu g;
        g.name = it.key();
        for (auto f = d.begin(); f != d.end(); ++f) {
            const std::string& k = f.key();
            std::string w = what + " " + k;
            bool done = false;
            for (int i = 0; i < 4 && !done; ++i) {
                if (k == text_keys[i]) {
                    g.texts[i] = host::json_text(f.value(), w);
                    done = true;
                } else if (k == id_keys[i]) {
                    g.ids[i] = static_cast<uint16_t>(host::json_number(f.value(), w, 0, 0xFFFF));
                    done = true;
                }
            }
            if (done) continue;
            if (k == "build_date") {
                if (!f.value().is_array() || f.value().size() != 4) {
                    throw host::machine_error(w + " must be a list of 4 bytes");
                }
                for (int i = 0; i < 4; ++i) g.build_date[i] = byte_value(f.value()[i], w);
            } else if (k == "faults") {
                load_faults(g, f.value(), what + " faults");
            } else {
                throw host::machine_error(what + ": unknown key \"" + k + "\"");
            }
        }
        g_gpus[g.name] = g;
    }
}

void load_fru_devices(const host::machine& m, const nlohmann::json& v) {
    g_fru_devices.clear();
    if (v.is_null()) return;
    if (!v.is_object())
        throw host::machine_error("must be an object from cio device name to {\"image\": file}");
    for (auto it = v.begin(); it != v.end(); ++it) {
        std::string what = "FRU device \"" + it.key() + "\"";
        const nlohmann::json& d = it.value();
        if (!d.is_object() || d.size() != 1 || !d.contains("image"))
            throw host::machine_error(what + " must be {\"image\": file}");
        std::string path = m.dir + "/" + host::json_text(d["image"], what + " image");
        std::ifstream in(path, std::ios::binary);
        if (!in) throw host::machine_error(what + ": cannot read " + path);
        g_fru_devices[it.key()].assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
}

sim_gpu* gpu_of(int handle) {
    auto h = g_block_handles.find(handle);
    if (h == g_block_handles.end()) return nullptr;
    auto g = g_gpus.find(h->second);
    return g == g_gpus.end() ? nullptr : &g->second;
}

// True when the message is the post-box request "get system identification data".
bool well_framed(const nv_msg& m) {
    static const uint8_t head[5] = {0x00, 0x01, 0x5C, 0x04, 0x05};
    if (memcmp(m.data, head, sizeof head) != 0 || m.data[7] != 0x80) return false;
    for (int i = 8; i <= 18; ++i) {
        if (m.data[i] != 0) return false;
    }
    return m.data[24] == 0x5C && m.data[25] == 0x5D;
}

// The four data bytes of one answer; false for a selector the GPU does not know.
bool answer(const sim_gpu& g, uint8_t selector, uint8_t chunk, uint8_t out[4]) {
    memset(out, 0, 4);
    if (g.repeat_selectors.count(selector)) chunk = 0;
    int text = -1;
    switch (selector) {
        case 2:
            text = 0;
            break;
        case 3:
            text = 1;
            break;
        case 4:
            text = 2;
            break;
        case 8:
            text = 3;
            break;
        case 7:
            memcpy(out, g.build_date, 4);
            return true;
        case 9:
        case 10:
        case 11:
        case 12:
            out[0] = static_cast<uint8_t>(g.ids[selector - 9] & 0xFF);
            out[1] = static_cast<uint8_t>(g.ids[selector - 9] >> 8);
            return true;
        default:
            return false;
    }
    const std::string& t = g.texts[text];
    for (size_t i = 0; i < 4; ++i) {
        size_t at = static_cast<size_t>(chunk) * 4 + i;
        if (at < t.size()) out[i] = static_cast<uint8_t>(t[at]);
    }
    return true;
}

}  // namespace

HOST_MACHINE_SECTION("cio_integers", load_integers);
HOST_MACHINE_SECTION("nvidia_gpus", load_gpus);
HOST_MACHINE_SECTION("fru_devices", load_fru_devices);

namespace host {

unsigned nvidia_gpu_calls(const std::string& name) {
    auto g = g_gpus.find(name);
    return g == g_gpus.end() ? 0 : static_cast<unsigned>(g->second.requests.size());
}

std::vector<std::pair<uint8_t, uint8_t>> nvidia_gpu_requests(const std::string& name) {
    auto g = g_gpus.find(name);
    return g == g_gpus.end() ? std::vector<std::pair<uint8_t, uint8_t>>() : g->second.requests;
}

void reset_nvidia_gpu_counters() {
    for (auto& g : g_gpus) g.second.requests.clear();
}

}  // namespace host

int cio_block_open(const char* name, int* handle) {
    if (!name || !handle) return cio_einval;
    if (g_fru_devices.count(name)) {
        *handle = g_next_block++;
        g_block_handles[*handle] = name;
        return cio_ok;
    }
    auto g = g_gpus.find(name);
    if (g == g_gpus.end()) return cio_enoent;
    if (g->second.open_fails) return cio_eio;
    *handle = g_next_block++;
    g_block_handles[*handle] = name;
    return cio_ok;
}

int cio_get_attrib(int handle, cio_attr* attr) {
    sim_gpu* g = gpu_of(handle);
    if (!g || !attr) return g ? cio_einval : cio_ebadf;
    if (g->attrib_fails) return cio_eio;
    memset(attr->raw, 0, sizeof attr->raw);
    strncpy(reinterpret_cast<char*>(attr->raw), g->name.c_str(), sizeof attr->raw - 1);
    return cio_ok;
}

int get_cio_nv_data(int handle, nv_msg& msg, bool) {
    sim_gpu* g = gpu_of(handle);
    if (!g) return 0;
    uint8_t selector = msg.data[5];
    uint8_t chunk = msg.data[6];
    g->requests.push_back({selector, chunk});
    uint8_t data[4];
    bool ok = well_framed(msg) && g->requests.size() > g->fail_first && !g->fail_selectors.count(selector) &&
              !g->fail_chunks.count({selector, chunk}) && answer(*g, selector, chunk, data);
    if (!ok) {
        msg.data[19] = g->fail_count;
        memset(msg.data + 20, 0, 4);
        return 0;
    }
    msg.data[19] = 4;
    memcpy(msg.data + 20, data, 4);
    return 1;
}

int cio_block_read(int handle, uint32_t offset, uint8_t* buffer, uint32_t length) {
    auto h = g_block_handles.find(handle);
    if (h == g_block_handles.end()) return cio_ebadf;
    auto d = g_fru_devices.find(h->second);
    if (d == g_fru_devices.end() || !buffer) return cio_einval;
    const std::vector<uint8_t>& image = d->second;
    if (offset >= image.size()) return 0;
    size_t n = std::min<size_t>(length, image.size() - offset);
    memcpy(buffer, image.data() + offset, n);
    return static_cast<int>(n);
}

int cio_integer_open(const char* name, int* handle) {
    if (!name || !handle) return cio_einval;
    auto it = g_integers.find(name);
    if (it == g_integers.end()) return cio_enoent;
    int h = static_cast<int>(std::distance(g_integers.begin(), it)) + 1;
    g_integer_handles[h] = name;
    *handle = h;
    return cio_ok;
}

int cio_integer_get(int handle, int* value) {
    if (!value) return cio_einval;
    auto h = g_integer_handles.find(handle);
    if (h == g_integer_handles.end()) return cio_ebadf;
    *value = g_integers[h->second];
    return cio_ok;
}

const char* get_cio_err_str(int code) {
    switch (code) {
        case cio_ok:
            return "success";
        case cio_enoent:
            return "no such cio object";
        case cio_ebadf:
            return "bad cio handle";
        case cio_einval:
            return "invalid argument";
        case cio_eio:
            return "device input/output error";
    }
    return "unknown cio error";
}
