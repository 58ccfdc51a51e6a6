#!/usr/bin/env python3
"""Writes iscsi-cap-data.bin, the vNIC capability data set of the rack-2u-nic machine.

Layout (little-endian): byte 0 unused, bytes 1-2 total size, bytes 3-8 unused, byte 9 the
device count N, then N 7-byte records (byte 2: PCI device in the high nibble, function in
the low nibble; byte 3: bus; byte 4: flags, bit 7 = vNIC capable), then one 6-byte MAC per
record whose vNIC bit is set, in record order.
"""
import os
import struct

# (bus, device, function, vNIC capable, MAC)
RECORDS = [
    (0x3B, 0, 0, True, "000AF76B2C40"),   # BCM57414 port 1: the AIM file describes it
    (0x4B, 0, 0, True, "3CFDFE9A1B70"),   # OCP X710 port 1
    (0x4B, 0, 1, True, "3CFDFE9A1B71"),   # OCP X710 port 2
    (0x5E, 0, 0, False, None),            # RAID controller: no vNIC
    (0x4C, 0, 0, True, "3CFDFE9A1B72"),   # a function the controller does not list
]

body = b"".join(bytes([0, 0, (d << 4) | f, bus, 0x81 if vnic else 0x01, 0, 0])
                for bus, d, f, vnic, _ in RECORDS)
body += b"".join(bytes.fromhex(mac) for *_, vnic, mac in RECORDS if vnic)
header = bytes([0x01]) + struct.pack("<H", 10 + len(body)) + bytes(6) + bytes([len(RECORDS)])
out = os.path.join(os.path.dirname(os.path.abspath(__file__)), "iscsi-cap-data.bin")
with open(out, "wb") as f:
    f.write(header + body)
