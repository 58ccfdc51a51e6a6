#!/usr/bin/env python3
"""Writes the example FRU EEPROM images of this folder (IPMI FRU information layout:
common header, board info area, product info area, multirecord area), with checksums."""
import datetime
import os

HERE = os.path.dirname(os.path.abspath(__file__))


def checksum(data):
    return (-sum(data)) & 0xFF


def fields(texts):
    out = bytearray()
    for t in texts:
        b = t.encode("ascii")
        out += bytes([0xC0 | len(b)]) + b  # 8-bit ASCII type, length in the low 6 bits
    return out + b"\xC1"  # end of fields


def area(head, texts):
    body = bytearray(head) + fields(texts)
    body += bytes((-(len(body) + 1)) % 8)  # pad so that the checksum ends the area on 8 bytes
    body[1] = (len(body) + 1) // 8
    return body + bytes([checksum(body)])


def board_area(date, texts):
    minutes = int((date - datetime.datetime(1996, 1, 1)).total_seconds() // 60)
    return area([0x01, 0, 0x19] + list(minutes.to_bytes(3, "little")), texts)


def product_area(texts):
    return area([0x01, 0, 0x19], texts)


def multirecord_area():
    # One DC output record (type 0x01, last in list): output 0, 12.00 V nominal, -/+ 0.60 V,
    # 50 mV ripple, 0 to 6.25 A.
    values = [1200, 60, 60, 5, 0, 6250]
    data = bytes([0x00]) + b"".join(v.to_bytes(2, "little") for v in values)
    header = bytearray([0x01, 0x82, len(data), checksum(data)])
    return header + bytes([checksum(header)]) + data


def fpga_fw_record(version, last=True):
    # The FPGA firmware version record that the card readers look for: the first OEM record
    # type (0xC0) whose data begins with the version's four parts, major first.
    data = bytes(version)
    header = bytearray([0xC0, 0x82 if last else 0x02, len(data), checksum(data)])
    return header + bytes([checksum(header)]) + data


def dc_output_then_fw(version):
    dc = bytearray(multirecord_area())
    dc[1] = 0x02  # no longer the last record
    dc[4] = checksum(dc[:4])
    return dc + fpga_fw_record(version)


def image(board=None, product=None, multirecord=None, size=256):
    header = bytearray([0x01, 0, 0, 0, 0, 0, 0])
    pos = 8
    out = bytearray()
    for index, blob in ((3, board), (4, product), (5, multirecord)):
        if blob is None:
            continue
        header[index] = pos // 8
        out += blob
        pos += len(blob)
        out += bytes((-pos) % 8)
        pos += (-pos) % 8
    result = header + bytes([checksum(header)]) + out
    return result + b"\xFF" * (size - len(result))


def write(name, data):
    with open(os.path.join(HERE, name), "wb") as f:
        f.write(data)


write("alveo_u50.bin", image(
    board=board_area(datetime.datetime(2021, 3, 15, 8, 30),
                     ["Xilinx", "ALVEO U50 PQ", "50121119B0JX", "05080-01", "v1.0"]),
    product=product_area(["Xilinx", "Alveo U50", "A-U50-P00G-PQ-G", "1.0", "XFL1QOQ1ATTY",
                          "", "fru_u50.xml"]),
    multirecord=multirecord_area()))

write("pac_d5005_board_only.bin", image(
    board=board_area(datetime.datetime(2020, 11, 2, 14, 5),
                     ["Intel Corporation", "Intel FPGA PAC D5005", "PCB1U5E00R7W", "BD-ACD-D5005-1.0",
                      "d5005_fru_1.0"]),
    size=512))

# The FPGA cards of the example machine accel-2u, with their firmware version records.
ACCEL = os.path.join(HERE, "..", "machines", "accel-2u", "fru")
os.makedirs(ACCEL, exist_ok=True)
with open(os.path.join(ACCEL, "alveo_u50.bin"), "wb") as f:
    f.write(image(
        board=board_area(datetime.datetime(2021, 3, 15, 8, 30),
                         ["Xilinx", "ALVEO U50 PQ", "50121119B0JX", "05080-01", "v1.0"]),
        product=product_area(["Xilinx", "Alveo U50", "A-U50-P00G-PQ-G", "1.0", "XFL1QOQ1ATTY",
                              "", "fru_u50.xml"]),
        multirecord=dc_output_then_fw([2, 1, 0, 36])))
with open(os.path.join(ACCEL, "pac_n3000.bin"), "wb") as f:
    f.write(image(
        board=board_area(datetime.datetime(2020, 6, 8, 10, 0),
                         ["Intel Corporation", "Intel FPGA PAC N3000", "PCQB21420061", "K61398-001",
                          "n3000_fru_1.1"]),
        product=product_area(["Intel Corporation", "Intel FPGA PAC N3000", "BD-NVV-N3000-1", "1.1",
                              "NZ0125092210", "", "n3000_fru_1.1"]),
        multirecord=fpga_fw_record([1, 3, 8, 0]),
        size=512))
