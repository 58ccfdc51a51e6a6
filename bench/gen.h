// Generator of large AIM files and of the matching "PCIs" rows, for the benchmarks.
#pragma once

#include <string>

namespace aimbench {

// PCI address of config `index` (0-based): eight functions per device, 32 devices per bus,
// buses from 1 up, segment 0.
struct pci_address {
    unsigned segment, bus, device, function;
};
pci_address config_address(unsigned index);

// Function key as the controller packs it: segment, bus, device and function in the four
// bytes, most significant first. The device key is the same with function 0.
unsigned function_key(const pci_address& a);
unsigned device_key(const pci_address& a);

// An AIM document with `configs` network adapter configs, one per function, each with
// the generic settings, a network group (two physical ports with one logical port each),
// VPD settings and one firmware group.
std::string generate_aim(unsigned configs);

// SQL text inserting one "PCIs" row per config of generate_aim(configs), in one
// transaction (several statements: for the host's script runner).
std::string generate_pcis_sql(unsigned configs);

}  // namespace aimbench
