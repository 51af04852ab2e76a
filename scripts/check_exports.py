#!/usr/bin/env python3
"""Checks the built library against its promises: exported names, needed libraries, hardening.

usage: check_exports.py EXPORTS_MAP LIBRARY
"""

import pathlib
import re
import subprocess
import sys

# What the platform provides to a vendor library. The dynamic loader counts as part of the C library.
PROVIDED = re.compile(r"^(libc|libm|liblog|ld-linux[-\w]*)\.so(\.\d+)?$")

# Nothing of this is reached from anywhere in the library: starting or waiting for threads, sleeping, files and devices
# other than by fopen (debug dumps). mVcpLock's mutex is all that the audio thread can wait for.
FORBIDDEN = re.compile(
    r"^_*(pthread_(create|join|cond|rwlock|spin|barrier|mutex_(timed|clock))|sem_|sched_|futex|syscall|fork|system|popen"
    r"|\w*sleep|p?select|p?poll|epoll|wait|open|creat|f?reopen|fdopen|p?read|p?write|ioctl|mmap|fsync|fflush|f?printf|puts)"
)


def output(*command: str) -> str:
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def declared_names() -> set:
    """Names that the headers mark for export: `KREL_EXPORT <declaration>;`."""
    root = pathlib.Path(__file__).resolve().parent.parent
    names = set()
    for header in root.glob("[a-z]*/*.h"):
        for declaration in re.findall(r"KREL_EXPORT\s+([^;{]+);", header.read_text(encoding="utf-8")):
            names.add(re.findall(r"\w+", declaration.split("(")[0])[-1])
    return names


def promised(map_file: str) -> set:
    with open(map_file, encoding="utf-8") as file:
        text = re.sub(r"#.*", "", file.read())
    body = text.split("global:")[1].split("local:")[0]
    return {name.strip() for name in body.split(";") if name.strip()}


def dynamic_names(library: str):
    """All exported names, those of functions, and all imported names without their versions."""
    names, functions, imported = set(), set(), set()
    for line in output("readelf", "--dyn-syms", "--wide", library).splitlines():
        fields = line.split()  # number, value, size, type, binding, visibility, section, name
        if len(fields) >= 8 and fields[6] == "UND":
            imported.add(fields[7].split("@")[0])
        elif len(fields) == 8 and fields[3] != "SECTION" and fields[6] != "Ndx":
            names.add(fields[7])
            if fields[3] == "FUNC":
                functions.add(fields[7])
    return names, functions, imported


def main(map_file: str, library: str) -> int:
    errors = []
    exported, functions, imported = dynamic_names(library)
    names = promised(map_file)
    errors += [f"declared with KREL_EXPORT but not promised: {name}" for name in sorted(declared_names() - names)]
    errors += [f"promised but not declared with KREL_EXPORT: {name}" for name in sorted(names - declared_names())]
    errors += [f"exported but not promised: {name}" for name in sorted(exported - names)]
    errors += [f"promised but not exported: {name}" for name in sorted(names - exported)]
    errors += [f"calls {name}, which may wait" for name in sorted(imported) if FORBIDDEN.match(name)]

    dynamic = output("readelf", "--dynamic", "--wide", library)
    needed = re.findall(r"\(NEEDED\)\s+Shared library: \[([^\]]+)\]", dynamic)
    errors += [f"needs {name}, which the platform does not provide" for name in needed if not PROVIDED.match(name)]
    for what, pattern in {
        "a soname of libkrelvcp.so": r"\(SONAME\)\s+Library soname: \[libkrelvcp\.so\]",
        "immediate binding (-z now)": r"BIND_NOW|Flags:.*NOW",
    }.items():
        if not re.search(pattern, dynamic):
            errors.append(f"does not have {what}")
    relocations = output("readelf", "--relocs", "--wide", library)
    for name in sorted(functions):
        if re.search(rf"\s{re.escape(name)}( \+ 0)?$", relocations, re.MULTILINE):
            errors.append(f"calls its own {name} through the dynamic linker (-Bsymbolic-functions)")
    if "TEXTREL" in dynamic:
        errors.append("has text relocations")
    segments = output("readelf", "--segments", "--wide", library)
    if "GNU_RELRO" not in segments:
        errors.append("has no read-only relocations (-z relro)")
    for line in segments.splitlines():
        fields = line.split()
        if fields and fields[0] == "LOAD" and int(fields[-1], 16) < 0x4000:
            errors.append(f"has a segment aligned to {fields[-1]}: 16 KiB pages need 0x4000")
        if fields and fields[0] == "GNU_STACK" and "E" in fields[-2]:
            errors.append("has an executable stack")

    for error in errors:
        print(f"{library}: {error}", file=sys.stderr)
    if not errors:
        print(f"{library}: {len(exported)} exported names, all promised; needs {', '.join(needed)}")
    return 1 if errors else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    sys.exit(main(sys.argv[1], sys.argv[2]))
