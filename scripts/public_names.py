#!/usr/bin/env python3
"""Prints the function and variable names the public headers declare, one a
line: the headers are preprocessed as C, the lines that come from them kept,
bodies of structs and enums dropped, and each remaining declaration named."""
import re
import subprocess
import sys

HEADERS = ["MODULES/COMMON/COMMON.h", "MODULES/DEV/DEV.h", "MODULES/DNS/DNS.h", "I2C/DVR_I2C.h"]


def declared(header):
    dirs = sum((["-I", h.rsplit("/", 1)[0]] for h in HEADERS), [])
    out = subprocess.run(["cc", "-E", "-x", "c", *dirs, header], check=True,
                         capture_output=True, text=True).stdout
    text, ours = [], False
    for line in out.splitlines():
        marker = re.match(r'# \d+ "([^"]+)"', line)
        if marker:
            ours = any(marker.group(1).endswith(h) for h in HEADERS)
        elif ours and not line.startswith("#"):  # pragmas stay in the output
            text.append(line)
    text = " ".join(text)
    text = re.sub(r"__attribute__\s*\(\((?:[^()]|\([^()]*\))*\)\)", " ", text)
    while re.search(r"\{[^{}]*\}", text):  # struct, union and enum bodies
        text = re.sub(r"\{[^{}]*\}", " ", text)
    for decl in text.split(";"):
        decl = decl.strip()
        if not decl or re.match(r"(typedef|static)\b", decl):
            continue
        pointer = re.search(r"\(\s*\*\s*(\w+)\s*\)", decl)  # a pointer to a function
        if pointer:
            yield pointer.group(1)
        elif "(" in decl:
            yield re.findall(r"(\w+)\s*\(", decl)[0]
        elif re.match(r"(struct|union|enum)(\s+\w+)?$", decl) is None:
            yield re.findall(r"(\w+)\s*(?:\[[^\]]*\]\s*)*(?:=.*)?$", decl)[0]


names = sorted({n for h in (sys.argv[1:] or HEADERS) for n in declared(h)})
print("\n".join(names))
