#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the built library's ELF file against its promises and lists what it found: exported names, needed libraries,
hardening. What a device asks of the file besides: krelvcp doctor.

usage: check_exports.py EXPORTS_MAP LIBRARY
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "android"))
from needed_names import needed_names  # noqa: E402

# Folders whose headers mark names for another library than libkrelvcp.so: for the one whose map lies there.
APART = {"engine"}

# What the platform provides to a vendor library. The dynamic loader counts as part of the C library.
PROVIDED = re.compile(r"^(libc|libm|liblog|ld-linux[-\w]*)\.so(\.\d+)?$")

# All that the library calls: android/needed_names.txt, and what stands for some of it on a desk. None of these starts
# or waits for a thread or sleeps; mVcpLock's mutex is all that the audio thread can wait for, and fopen (debug dumps) the
# only way to a file.
DESK_NAMES = re.compile(
    r"^(__gmon_start__|_ITM_\w+TMCloneTable|__ctype_\w+_loc|getenv|__stack_chk_guard|raise|sin|cos|stderr|fprintf|strchr"
    r"|vsnprintf|__(v?snprintf|fprintf|mem(cpy|move|set)|str\w+)_chk)$"
)

# All that libkrelvoice calls: no file, no lock, no log, no rand(). __tls_get_addr serves create, prepare and release.
ENGINE_NAMES = set(
    "__cxa_finalize __stack_chk_fail __tls_get_addr calloc free malloc memcmp memcpy memmove memset pow realloc sin sincos vsnprintf"
    .split())


def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def declared_names(map_file: str) -> set:
    """Names that the library's headers mark for export: `KREL_EXPORT <declaration>;`."""
    own = pathlib.Path(map_file).resolve().parent.name
    names = set()
    for header in ROOT.glob("[a-z]*/*.h"):
        folder = header.parent.name
        if folder != own if own in APART else folder in APART:
            continue
        for declaration in re.findall(r"KREL_EXPORT\s+([^;{]+);", header.read_text(encoding="utf-8")):
            names.add(re.findall(r"\w+", declaration.split("(")[0])[-1])
    return names


def read_map(map_file: str) -> str:
    return re.sub(r"#.*", "", pathlib.Path(map_file).read_text(encoding="utf-8"))


def promised(map_file: str) -> set:
    body = read_map(map_file).split("global:")[1].split("local:")[0]
    return {name.strip() for name in body.split(";") if name.strip()}


def dynamic_names(library: str, version: str):
    """All exported names, those of functions, and all imported names without their versions. Exported names lose the
    version that the map gives them."""
    names, functions, imported = set(), set(), set()
    for line in output("readelf", "--dyn-syms", "--wide", library).splitlines():
        fields = line.split()  # number, value, size, type, binding, visibility, section, name
        if len(fields) >= 8 and fields[6] == "UND":
            imported.add(fields[7].split("@")[0])
        elif len(fields) == 8 and fields[3] != "SECTION" and fields[6] not in ("Ndx", "ABS"):
            name = fields[7].removesuffix(f"@@{version}") if version else fields[7]
            names.add(name)
            if fields[3] == "FUNC":
                functions.add(name)
    return names, functions, imported


def check_names(map_file: str, library: str):
    version = re.match(r"\s*(\w*)", read_map(map_file))[1]
    exported, functions, imported = dynamic_names(library, version)
    names, declared = promised(map_file), declared_names(map_file)
    errors = [f"declared with KREL_EXPORT but not promised: {name}" for name in sorted(declared - names)]
    errors += [f"promised but not declared with KREL_EXPORT: {name}" for name in sorted(names - declared)]
    # Any other version than the map's reads name@@version: not promised either.
    errors += [f"exported but not promised: {name}" for name in sorted(exported - names)]
    errors += [f"promised but not exported: {name}" for name in sorted(names - exported)]
    yield "exports", f"{len(exported)} of {len(names)} promised names, {version or 'without versions'}", errors

    allowed = ENGINE_NAMES if "libkrelvoice" in library else needed_names()
    unknown = [name for name in sorted(imported - allowed) if not DESK_NAMES.match(name)]
    errors = [f"calls {name}, which it may not: could it wait?" for name in unknown]
    yield "imports", f"{len(imported)} names, {len(unknown)} of them unknown", errors

    relocations = output("readelf", "--relocs", "--wide", library)
    relocated = set(re.findall(r"\s(\w+)(?: \+ 0)?$", relocations, re.MULTILINE))
    through = sorted(functions & relocated)
    errors = [f"calls its own {name} through the dynamic linker (-Bsymbolic-functions)" for name in through]
    yield "own calls", f"{len(through)} through the dynamic linker", errors


def check_dynamic(library: str):
    dynamic = output("readelf", "--dynamic", "--wide", library)
    soname = re.findall(r"\(SONAME\)\s+Library soname: \[([^\]]+)\]", dynamic)
    name = pathlib.Path(library).name
    yield "soname", ", ".join(soname), [] if soname == [name] else [f"soname is not {name}"]
    needed = re.findall(r"\(NEEDED\)\s+Shared library: \[([^\]]+)\]", dynamic)
    foreign = [name for name in needed if not PROVIDED.match(name)]
    yield "needs", ", ".join(needed), [f"needs {name}, which the platform does not provide" for name in foreign]
    now = re.search(r"BIND_NOW|Flags:.*NOW", dynamic)
    yield "binding", "immediate" if now else "lazy", [] if now else ["binds lazily (-z now)"]


def check_segments(library: str):
    rows = [line.split() for line in output("readelf", "--segments", "--wide", library).splitlines()]
    of_type = lambda kind: [row for row in rows if row and row[0] == kind]
    relro = bool(of_type("GNU_RELRO"))
    yield "relocated data", "read-only" if relro else "writable", [] if relro else ["has no RELRO segment (-z relro)"]
    stack = of_type("GNU_STACK")
    executable = not stack or any("E" in row[-2] for row in stack)
    yield "stack", "executable" if executable else "not executable", ["has an executable stack"] if executable else []
    loads = of_type("LOAD")
    writable = [row for row in loads if {"W", "E"} <= set("".join(row[6:-1]))]
    yield "code", "writable" if writable else "not writable", ["has a writable code segment"] if writable else []


def main(map_file: str, library: str) -> int:
    print(library)
    failed = False
    for what, found, errors in [*check_names(map_file, library), *check_dynamic(library), *check_segments(library)]:
        print(f"  {what:16}  {found}")
        for error in errors:
            print(f"{library}: {error}", file=sys.stderr)
        failed |= bool(errors)
    return 1 if failed else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
