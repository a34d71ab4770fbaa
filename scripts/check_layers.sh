#!/usr/bin/env bash
# The layer rules of docs/ARCHITECTURE.md, checked. Without arguments: the
# #include "..." lines of every area folder against its rule, and no raw
# stream, directory, pipe or socket calls outside MODULES/COMMON/base/fd_io.h.
# With build folders (build/host ...): the undefined symbols of each object of
# the library against the areas that define them (nm of the folder's tool chain).
# The rules are the "->" lines of the tree that opens docs/ARCHITECTURE.md.
cd "$(dirname "$0")/.." && exec python3 - "$@" <<'EOF'
import glob, os, re, subprocess, sys

PUBLIC = {"COMMON.h": "COMMON", "DEV.h": "DEV", "DNS.h": "DNS", "DVR_I2C.h": "I2C"}
RAW = r"fopen|fopen64|opendir|fdopen|popen|fclose|pclose|closedir|socket"
OWNERS = "MODULES/COMMON/base/fd_io.h"
errors = []


def area_of(path):  # "MODULES/COMMON/text/x.cpp" -> "COMMON/text", "I2C/x" -> "I2C"
    parts = path.split("/")
    if parts[0] == "I2C":
        return "I2C"
    return parts[1] if parts[1] == "DNS" else parts[1] + "/" + parts[2]


def read_rules():
    rules = {}
    for line in open("docs/ARCHITECTURE.md"):
        m = re.match(r"\s+((?:MODULES/[\w/]+|I2C)/)\s+->\s+(.*?)(?:\s{2,}.*)?$", line)
        if not m:
            continue
        own = area_of(m.group(1))
        allowed = set()
        for group in m.group(2).split(","):
            module = own.split("/")[0]
            for word in group.split():
                if word == "nothing":
                    continue
                if "/" in word:
                    module, word = word.split("/")
                allowed.add(word if word in ("DNS", "I2C") else module + "/" + word)
        rules[own] = allowed
    # Rules the rules themselves keep: COMMON never uses DEV, DNS only
    # COMMON's base and text, and only COMMON/http and DEV/storage use DNS.
    for own, allowed in rules.items():
        bad = {a for a in allowed if (own.startswith("COMMON") and not a.startswith("COMMON")
               and a != "DNS") or (a == "DNS" and own not in ("COMMON/http", "DEV/storage"))
               or (own == "DNS" and a not in ("COMMON/base", "COMMON/text"))}
        if bad:
            errors.append(f"docs/ARCHITECTURE.md: rule of {own} breaks the layering: {sorted(bad)}")
    def reaches(start, goal, seen):  # areas reachable through the rules, for loops
        return any(a == goal or (a not in seen and not seen.add(a) and reaches(a, goal, seen))
                   for a in rules.get(start, ()))
    for own in rules:
        if reaches(own, own, set()):
            errors.append(f"docs/ARCHITECTURE.md: the rules make a loop through {own}")
    return rules


def folders():
    found = [d.rstrip("/") for d in glob.glob("MODULES/COMMON/*/") + glob.glob("MODULES/DEV/*/")]
    return sorted(found) + ["MODULES/DNS", "I2C"]


def check_rules_cover(rules):
    for f in glob.glob("MODULES/COMMON/*.*") + glob.glob("MODULES/DEV/*.*"):
        if os.path.basename(f) not in PUBLIC:
            errors.append(f"{f}: sources and private headers belong in an area folder")
    for d in folders():
        if area_of(d + "/x") not in rules:
            errors.append(f"{d}/: no layer rule. Add its line (\"{d}/  -> areas it uses  what it "
                          "holds\") to the tree of docs/ARCHITECTURE.md")


def may_use(rules, own, used):
    if used == own or (own, used) == ("COMMON/base", "COMMON"):
        return True
    if "/" in used:
        return used in rules.get(own, ())
    # A public header counts as its module: some area of it must be allowed.
    return used == own.split("/")[0] or any(a.split("/")[0] == used for a in rules.get(own, ()))


def stripped(text):  # comments and literals blanked, lines kept
    blank = lambda m: re.sub(r"[^\n]", " ", m.group(0))
    return re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'', blank, text,
                  flags=re.S)


def check_sources(rules):
    sources = [f for d in folders() for f in sorted(glob.glob(d + "/*.*"))
               if f.endswith((".cpp", ".h"))]
    private = {}
    for f in sources:
        name = os.path.basename(f)
        if f.endswith(".h") and name not in PUBLIC:
            if name in private:
                errors.append(f"{f}: private header name also used by {private[name]}")
            private[name] = f
    for f in sources:
        own, text = area_of(f), open(f).read()
        for n, line in enumerate(text.splitlines(), 1):
            m = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
            if not m:
                continue
            name = m.group(1)
            used = PUBLIC.get(name) or (area_of(private[name]) if name in private else None)
            if used is None:
                errors.append(f"{f}:{n}: includes {name}, which no area holds")
            elif not may_use(rules, own, used):
                errors.append(f"{f}:{n}: includes {name} of {used}; {own} may use "
                              f"{' '.join(sorted(rules.get(own, ()))) or 'nothing'}")
        if f == OWNERS:
            continue
        for n, line in enumerate(stripped(text).splitlines(), 1):
            for call in re.findall(rf"(?<![\w.>])({RAW})\s*\(", line):
                errors.append(f"{f}:{n}: raw {call}(): use the owners of {OWNERS}")


def check_objects(rules, build):
    nm = "nm"
    for line in open(f"{build}/CMakeCache.txt"):
        if line.startswith("CMAKE_NM:"):
            nm = line.split("=", 1)[1].strip()
    top = f"{build}/CMakeFiles/dvr_objects.dir/"
    objects = sorted(glob.glob(top + "**/*.o", recursive=True))
    if not objects:
        errors.append(f"{top}: no objects; build {build} first")
    defined, undefined = {}, {}
    for obj in objects:
        src = obj[len(top):-2]
        undefined[src] = set()
        out = subprocess.run([nm, "-P", obj], check=True, capture_output=True, text=True).stdout
        for sym in out.splitlines():
            name, kind = sym.split()[:2]
            if kind == "U":
                undefined[src].add(name)
            elif kind.isupper() and kind not in "WV":  # weak copies of inline code don't count
                defined[name] = src
    for src, names in undefined.items():
        own = area_of(src)
        for name in sorted(names):
            used = area_of(defined[name]) if name in defined else None
            if used and not may_use(rules, own, used):
                pretty = subprocess.run(["c++filt", name], capture_output=True, text=True).stdout
                errors.append(f"{src}: uses {pretty.strip()} of {used} ({defined[name]}); {own} "
                              f"may use {' '.join(sorted(rules.get(own, ()))) or 'nothing'}")


rules = read_rules()
check_rules_cover(rules)
if len(sys.argv) == 1:
    check_sources(rules)
for build in sys.argv[1:]:
    check_objects(rules, build)
print("\n".join("check_layers: " + e for e in errors) or "check_layers: all uses follow the rules")
sys.exit(1 if errors else 0)
EOF
