#include "bench/gen.h"

#include <stdio.h>

namespace aimbench {

namespace {

std::string setting(const char* name, const std::string& value, const char* type = "text_data") {
    return std::string("<setting ID=\"") + name + "\"><name>" + name + "</name><" + type + "><value>" +
           value + "</value></" + type + "></setting>";
}

std::string group(const std::string& name, const std::string& content) {
    return "<group><name>" + name + "</name>" + content + "</group>";
}

std::string hex(unsigned value, int digits) {
    char buf[16];
    snprintf(buf, sizeof(buf), "0x%0*X", digits, value);
    return buf;
}

std::string mac(unsigned index, unsigned port) {
    char buf[16];
    snprintf(buf, sizeof(buf), "0090FA%04X%02X", index & 0xFFFF, port & 0xFF);
    return buf;
}

std::string logical_port(unsigned index, unsigned port) {
    return group("Logical Port 1", setting("Logical Port Index", "1", "numeric_data") +
                                       setting("Max Data Size", "9000", "numeric_data") +
                                       setting("Permanent Address", mac(index, port)) +
                                       setting("Network Addresses", mac(index, port)) +
                                       setting("Link Technology", "2", "enumerate_data") +
                                       setting("Max Speed", "25000000000", "numeric_data") +
                                       setting("Current Work Protocol Ethernet", "1", "boolean_data"));
}

std::string physical_port(unsigned index, unsigned port) {
    return group("Physical Port " + std::to_string(port),
                 setting("Physical Port Index", std::to_string(port), "numeric_data") +
                     setting("Physical Port's Connector Layout", "5", "enumerate_data") +
                     setting("Number of Logical Ports", "1", "numeric_data") +
                     setting("Permanent Address", mac(index, port)) + logical_port(index, port));
}

}  // namespace

pci_address config_address(unsigned index) { return {0, 1 + index / 256, (index / 8) % 32, index % 8}; }

unsigned function_key(const pci_address& a) {
    return (a.segment << 24) | (a.bus << 16) | (a.device << 8) | a.function;
}

unsigned device_key(const pci_address& a) { return function_key(a) & ~0xFFu; }

std::string generate_aim(unsigned configs) {
    std::string out =
        "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<inventories ID=\"\" schema-version=\"3.00\">\n"
        "<configset><name>Adapters</name>\n";
    for (unsigned i = 0; i < configs; ++i) {
        pci_address a = config_address(i);
        std::string id = "cfg" + std::to_string(i);
        std::string generic =
            setting("Card Name", "Bench Ethernet 25Gb 2-port Adapter " + std::to_string(i)) +
            setting("Connector Layout", "5", "enumerate_data") +
            setting("Max Data Width", "16", "numeric_data") + setting("Package Type", "9", "enumerate_data") +
            setting("Other Package Type", "N/A") + setting("AIM Spec Version", "2.00") +
            setting("Manufacturer", "Bench") + setting("Serial Number", "SN" + std::to_string(100000 + i)) +
            setting("Part Number", "PN01234") + setting("Model", "BE25") + setting("Card SKU", "SKU77") +
            group("Network Information", setting("Number of Physical Ports", "2", "numeric_data") +
                                             setting("Max Number of Logical Ports", "2", "numeric_data") +
                                             physical_port(i, 1) + physical_port(i, 2)) +
            group("Firmware Information",
                  setting("Firmware Name", "Software Bundle") +
                      setting("Version String", "1.2." + std::to_string(i)) +
                      setting("Description", "Adapter firmware") + setting("Release Date", "2024-01-31") +
                      setting("Manufacturer", "Bench") + setting("Classification", "10") +
                      setting("Software ID", "8086157" + std::to_string(i % 10)));
        out += "<config ID=\"" + id + "\"><name>" + id + "</name><pfa><segment>" + std::to_string(a.segment) +
               "</segment><bus>" + hex(a.bus, 2) + "</bus><device>" + hex(a.device, 2) +
               "</device><function>" + std::to_string(a.function) + "</function></pfa>" +
               group("PCI Generic Information", generic) + "</config>\n";
    }
    out += "</configset>\n</inventories>\n";
    return out;
}

std::string generate_pcis_sql(unsigned configs) {
    std::string out = "BEGIN;\n";
    char row[512];
    for (unsigned i = 0; i < configs; ++i) {
        pci_address a = config_address(i);
        snprintf(
            row, sizeof(row),
            "INSERT INTO PCIs (SegNo,BusNo,DeviceNo,FunctionNo,NodeIndex,SlotNo,DevKey,FunKey,HardwareId,"
            "HardwareTypeId,Location,FunType,VendorId,DeviceId,SubVendorId,SubDeviceId,ClsCode,SlotType,"
            "MaxPCIeType,MaxLanes,SlotDesignation) VALUES "
            "(%u,%u,%u,%u,1,%u,%u,%u,%u,1,0,7,%u,%u,%u,%u,131072,"
            "182,3,16,'Slot %u');\n",
            a.segment, a.bus, a.device, a.function, 1 + i / 8, device_key(a), function_key(a),
            function_key(a), 0x8086u, 0x1572u, 0x8086u, i & 0xFFFF, 1 + i / 8);
        out += row;
    }
    out += "COMMIT;\n";
    return out;
}

}  // namespace aimbench
