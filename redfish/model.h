// The inventory tables grouped as the Redfish service shows them: one device per adapter (a
// "PCIAdapter" device key) with the rows of every table that belong to it, the GPUs as
// processors, the drives by storage controller, and the firmware entries. Built once from a
// snapshot; every resource of the service is rendered from it. Ids are unique within their
// collection and URIs are fixed here, so that every link the service writes leads to a
// resource it serves.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <vector>

#include "redfish/snapshot.h"

namespace redfish {

extern const std::string kRoot;        // /redfish/v1
extern const std::string kSystem;      // the one computer system
extern const std::string kChassisUri;  // the one chassis
extern const std::string kManagerUri;  // the controller

// The first value of `column` in `rows` that says something.
std::optional<std::string> first_text(const std::vector<rec>& rows, const char* column);

struct model {
    struct device {
        std::string id, uri;
        int64_t key = 0;
        bool present = false;
        std::vector<rec> functions;  // "PCIs", by function number, one per number
        std::vector<rec> adapters, misc, vpds, firmwares, pldm, networks, ports, stats, logical, gpus, chips;
        std::vector<std::string> processors;
        std::string adapter_uri;  // of its NetworkAdapter; empty when it has none
        // Ids of `ports` and `logical`, in their order: the function and index(es) of each row.
        std::vector<std::string> port_ids, logical_ids;

        std::optional<std::string> name() const;
        std::optional<std::string> firmware_version() const;
        std::optional<std::string> slot_label() const;
        std::optional<int64_t> slot() const;
        std::string port_uri(size_t i) const { return adapter_uri + "/Ports/" + port_ids[i]; }
        std::string logical_uri(size_t i) const {
            return adapter_uri + "/NetworkDeviceFunctions/" + logical_ids[i];
        }
        std::string function_uri(int64_t function) const {
            return uri + "/PCIeFunctions/" + std::to_string(function);
        }
        // The URI of function `function` when the device has it ("PCIs" lists it).
        std::optional<std::string> function_link(const std::optional<int64_t>& function) const;
    };
    struct processor {
        std::string id, uri;
        const device* dev;
        std::optional<rec> gpu, chip;  // its "PCIGPU" and "PCIGPUChip" rows, when it has them
    };
    struct drive {
        std::string id, uri;  // below the chassis
        rec row;
    };
    struct storage {
        std::string id, uri;
        const device* dev = nullptr;
        std::vector<drive> drives;
    };
    struct firmware {
        std::string id, uri;
        rec row;
        bool pldm = false;
        const device* dev = nullptr;
    };

    std::vector<device> devices;  // by slot, then address
    std::vector<processor> processors;
    std::vector<storage> storages;
    std::vector<firmware> firmwares;

    explicit model(const snapshot& db);
    const device* device_by_key(int64_t key) const;
    const device* device_by_function_key(int64_t func_key) const;
    const device* device_by_hardware_id(int64_t hardware_id) const;
    std::vector<std::string> device_uris() const;
    std::vector<std::string> drive_uris() const;
    std::vector<const device*> network_adapters() const;
};

}  // namespace redfish
