#!/usr/bin/env python3
"""Writes /proc/ide texts in the 2.6 kernel's formats (ide-proc.c): driver,
model, and identify and smart_values as 256 words of "%04x", eight a line.
identify words carry ATA text with the first character in the high byte;
smart_values words are the little-endian words of the SMART data, so each
printed pair has its bytes swapped. Run from this folder."""
import os

def words_text(words):
    out = ""
    for i, w in enumerate(words):
        out += "%04x%s" % (w, "\n" if (i + 1) % 8 == 0 else " ")
    return out

def identify(serial, firmware, model):
    words = [0] * 256
    words[0], words[1], words[3], words[6] = 0x0040, 0x3FFF, 0x0010, 0x003F
    words[49], words[60], words[61], words[83] = 0x0F00, 0x4C40, 0x0950, 0x7C69
    def put(first, text, length):
        text = text.ljust(length)[:length]
        for k in range(length // 2):
            words[first + k] = ord(text[2 * k]) << 8 | ord(text[2 * k + 1])
    put(10, serial, 20)
    put(23, firmware, 8)
    put(27, model, 40)
    return words_text(words)

def smart(attributes):
    """attributes: {slot: (number, first raw byte)}; slots may lie beyond
    the 30 of the table."""
    raw = bytearray(512)
    raw[0:2] = (0x10, 0x00)  # data structure revision
    for slot, (number, value) in attributes.items():
        at = 2 + 12 * slot
        raw[at:at + 12] = bytes([number, 0x33, 0x00, 100, 100, value, 0, 20, 0, 55, 0, 0])
    return words_text([raw[2 * i] | raw[2 * i + 1] << 8 for i in range(256)])

STANDARD = [0x01, 0x03, 0x04, 0x05, 0x07, 0x09, 0x0A, 0x0C]

def table(temperature_slot, temperature):
    attributes = {slot: (n, slot + 1) for slot, n in enumerate(STANDARD)}
    attributes[temperature_slot] = (0xC2, temperature)
    return smart(attributes)

def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w") as f:
        f.write(text)

disk, cdrom = "ide-disk version 1.18\n", "ide-cdrom version 4.61\n"
# hda: temperature in slot 8 of the table.
write("proc_ide/hda/driver", disk)
write("proc_ide/hda/model", "WDC WD800JB-00JJC0\n")
write("proc_ide/hda/identify", identify("     WD-WMAM9ABCD123", "05.01C05", "WDC WD800JB-00JJC0"))
write("proc_ide/hda/smart_values", table(8, 45))
# hdb: a short serial number padded with blanks, temperature in slot 0.
write("proc_ide/hdb/driver", disk)
write("proc_ide/hdb/model", "AB1234  V-1.0\n")
write("proc_ide/hdb/identify", identify("S1234567", "V-1.0", "AB1234  V-1.0"))
write("proc_ide/hdb/smart_values", table(0, 38))
# hdc: an optical drive, which the disk list leaves out.
write("proc_ide/hdc/driver", cdrom)
write("proc_ide/hdc/model", "HL-DT-ST DVDRAM GSA-4163B\n")
write("proc_ide/hdc/identify", identify("K1234567890", "A104", "HL-DT-ST DVDRAM GSA-4163B"))
# hdd: an empty model, identify data cut at 187 digits, no temperature.
write("proc_ide/hdd/driver", disk)
write("proc_ide/hdd/model", "")
write("proc_ide/hdd/identify", identify("X", "Y", "Z").replace(" ", "").replace("\n", "")[:187])
write("proc_ide/hdd/smart_values", smart({slot: (n, 1) for slot, n in enumerate(STANDARD)}))
# hde: slots of number 0 inside the table, the temperature in slot 32, beyond it.
write("proc_ide/hde/driver", disk)
write("proc_ide/hde/model", "Maxtor 6Y120P0 with a model line longer than thirty-nine characters\n")
write("proc_ide/hde/identify", identify("Y3KF8ZQE", "YAR41BW0", "Maxtor 6Y120P0"))
write("proc_ide/hde/smart_values", smart({0: (0x01, 1), 1: (0x03, 2), 32: (0xC2, 50)}))
# Readings for the watchdog, and a byte 0xFF that reads as -1 degree.
for t in (35, 40, 45, 50, 55):
    write("smart/%d" % t, table(8, t))
write("smart/minus1", table(8, 0xFF))
