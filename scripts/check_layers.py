#!/usr/bin/env python3
"""Checks that no folder includes what is above it, and that platform and foreign headers stay where they belong."""

import pathlib
import re
import subprocess
import sys

# What each folder may include besides itself and base/.
ALLOWED = {
    "base": set(),
    "platform": set(),
    "tables": set(),
    "dsp": set(),
    "spectral": {"dsp", "tables"},
    "pitch_stream": set(),
    "core": {"spectral", "pitch_stream", "tables", "dsp"},
    "wrapper": {"core", "dsp"},
    "effect": {"wrapper"},
    "host": set(),
}
# Sources that may include anything: what is not the product and not the host program.
FREE = {"tests", "bench", "fuzz", "android", "cmake"}
SOURCES = {".h", ".hpp", ".hh", ".inc", ".c", ".cc", ".cpp", ".cxx"}
# Headers from outside that only some folders may see.
RESERVED = {
    re.compile(r"^(hardware|system|cutils|audio_utils)/"): {"effect", "platform", "host"},
    re.compile(r"^android/log\.h$"): {"base", "platform", "host"},
    re.compile(r"^NE10"): {"spectral"},
    re.compile(r"^speex/"): {"spectral", "pitch_stream"},
}
# What else the product may include: C, C++ and POSIX. The host program is free.
STANDARD = re.compile(
    r"^([a-z_]+|(assert|ctype|errno|fcntl|float|inttypes|limits|math|pthread|signal|std\w+|string|time|unistd|sys/\w+)\.h)$")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def complaint(folder: str, quoted: bool, target: str) -> str:
    """What is wrong with an include in this folder, or nothing."""
    top = target.split("/")[0]
    if ".." in target.split("/"):
        return f"{target} must be named from the project's folder"
    if top in ALLOWED and "/" in target:
        return "" if top in ALLOWED[folder] | {folder, "base"} else f"{folder}/ must not include {target}"
    for pattern, folders in RESERVED.items():
        if pattern.match(target):
            return "" if folder in folders else f"only {', '.join(sorted(folders))} may include {target}"
    if top in FREE:
        return f"product code must not include {target}"
    if quoted:
        return f"{target} must be named from the project's folder"
    return "" if folder == "host" or STANDARD.match(target) else f"{folder}/ must not include the foreign {target}"


def violations(path: pathlib.Path):
    folder = path.parts[0]
    if len(path.parts) == 1 or folder not in ALLOWED:
        yield f"{path}: this check does not know its folder"
        return
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        wrong = complaint(folder, match.group(1) == '"', match.group(2)) if match else ""
        if wrong:
            yield f"{path}:{number}: {wrong}"


def main() -> int:
    files = subprocess.run(["git", "ls-files"], check=True, capture_output=True, text=True).stdout.splitlines()
    paths = [pathlib.Path(name) for name in files if pathlib.Path(name).suffix in SOURCES]
    checked = [path for path in paths if path.parts[0] not in FREE]
    found = [message for path in checked for message in violations(path)]
    print("\n".join(found), file=sys.stderr, end="\n" if found else "")
    if not checked:
        print("check_layers: found no sources", file=sys.stderr)
        return 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
