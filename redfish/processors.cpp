// The GPUs as processors of the system: one per "PCIGPUChip" row, else one per "PCIGPU" row,
// else one for a GPU without AIM data that the controller recognises.
#include "redfish/resources.h"

namespace redfish {
namespace {

using device = model::device;

json processor(const model::processor& p) {
    const device& d = *p.dev;
    auto chip = [&](const char* c) { return p.chip ? p.chip->text(c) : std::nullopt; };
    json j = resource(p.uri, kProcessorType, p.id, chip("GPUChipName").value_or(d.name().value_or("GPU")));
    j["ProcessorType"] = "GPU";
    put(j, "Manufacturer",
        chip("GPUChipManufacturer") ? chip("GPUChipManufacturer") : first_text(d.vpds, "Manufacture"));
    put(j, "Model", chip("GPUChipModel") ? chip("GPUChipModel") : first_text(d.vpds, "Model"));
    put(j, "SerialNumber",
        chip("GPUChipSerialNumber") ? chip("GPUChipSerialNumber") : first_text(d.vpds, "SerialNo"));
    put(j, "PartNumber",
        chip("GPUChipPartNumber") ? chip("GPUChipPartNumber") : first_text(d.vpds, "PartNo"));
    put(j, "UUID",
        uuid(chip("GPUChipUniqueID")) ? uuid(chip("GPUChipUniqueID")) : uuid(first_text(d.vpds, "UUID")));
    put(j, "FirmwareVersion", d.firmware_version());
    if (p.chip) {
        put(j, "MaxSpeedMHz", p.chip->number("GPUChipMaxClockSpeed"));
        put(j, "TotalCores", p.chip->number("GPUChipNumberOfEnabledCores"));
    }
    put(j, "Location", location(d.slot_label(), d.slot(), "Slot"));
    j["Status"] = enabled();
    j["Links"] = json{{"PCIeDevice", link(d.uri)}, {"Chassis", link(kChassisUri)}};
    json rows = json::object();
    if (p.gpu) rows["PCIGPU"] = row_of(*p.gpu);
    if (p.chip) rows["PCIGPUChip"] = row_of(*p.chip);
    put(j, "Oem", oem("Processor", rows));
    return j;
}

}  // namespace

void add_processors(const model& m, routes& out) {
    std::vector<std::string> members;
    for (const auto& p : m.processors) members.push_back(p.uri);
    out.push_back({kSystem + "/Processors", [members] {
                       return found(collection(kSystem + "/Processors",
                                               collection_type("ProcessorCollection"), "Processor Collection",
                                               members));
                   }});
    for (const auto& p : m.processors) out.push_back({p.uri, [&p] { return found(processor(p)); }});
}

}  // namespace redfish
