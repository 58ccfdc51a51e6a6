#!/usr/bin/env python3
"""Writes the card VPD images of the example machines.

The images are what the simulated controller answers to the OEM read-VPD IPMI command
("vpd_devices" of machine.json). Two layouts exist:

  256 bytes: mark FE 00 at 0, barcode flags at 7 (bits 0-1: serial number present),
             part number at 14, FRU number at 26, serial number at 38 (12 bytes each).
  1 KB:      mark 03 FE at 0, variant mark at 10 (FF EE: extended), UUID at 159 (17 bytes);
             basic variant: model at 14 (8), part number at 60 (13), FRU number at 72 (13),
             serial number at 84 (13), manufacturer at 96 (5), product name at 270 (129);
             extended variant: model at 640, part number at 704, serial number at 736,
             company name at 800 (32 bytes each).

Text fields are ASCII padded with blanks. Run from the repository root:
    python3 examples/machines/make-vpd-images.py
"""
import os

HERE = os.path.dirname(os.path.abspath(__file__))


def image(size, fields):
    data = bytearray(size)
    for offset, value in fields:
        if isinstance(value, str):
            value = value.encode("ascii")
        data[offset:offset + len(value)] = value
    return bytes(data)


def text(value, length):
    """A text field: the value padded with blanks, one byte short of the field so that
    the read stops inside it."""
    assert len(value) < length
    return value.ljust(length - 1)


def write(relative, data):
    path = os.path.join(HERE, relative)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data)
    print("wrote %s (%d bytes)" % (path, len(data)))


# Dual M.2 boot adapter of storage-1u: 256-byte layout, serial number present.
write("storage-1u/vpd/boot-adapter-256.bin", image(256, [
    (0, b"\xFE\x00"),
    (7, b"\x01"),
    (14, text("SR-M2B-0301", 12)),
    (26, text("FRU-0301A", 12)),
    (38, text("M2B2340017", 12)),
]))

# Dual M.2 boot adapter of storage-1u-1k (a later revision of the card): 1 KB layout,
# basic variant.
write("storage-1u-1k/vpd/boot-adapter-1k.bin", image(1024, [
    (0, b"\x03\xFE"),
    (10, b"\x00\x00\x00"),
    (14, text("7Z01", 8)),
    # The basic variant's 13-byte reads at 60, 72 and 84 overlap the next field by one
    # byte, so these texts end in a zero byte inside their 12 bytes.
    (60, "SR-M2B-1K"),
    (72, "FRU-0301B"),
    (84, "M2B1K230088"),
    (96, text("SMKR", 5)),
    (159, bytes(range(0x10, 0x21))),
    (270, text("Dual M.2 SATA Boot Adapter", 129)),
]))
