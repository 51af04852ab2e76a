#!/usr/bin/env python3
"""Checks that no folder includes what is above it, and that platform headers stay where they belong."""

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
# System headers that only some folders may see.
RESERVED = {
    re.compile(r"^(hardware|system|cutils|audio_utils)/"): {"effect", "platform", "host"},
    re.compile(r"^android/log\.h$"): {"base", "platform", "host"},
    re.compile(r"^NE10"): {"spectral"},
    re.compile(r"^speex/"): {"spectral", "pitch_stream"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def violations(path: pathlib.Path):
    folder = path.parts[0]
    for number, line in enumerate(path.read_text().splitlines(), 1):
        match = INCLUDE.match(line)
        if not match:
            continue
        target = match.group(2)
        top = target.split("/")[0]
        if match.group(1) == '"' and top in ALLOWED and top not in ALLOWED[folder] | {folder, "base"}:
            yield f"{path}:{number}: {folder}/ must not include {target}"
        if match.group(1) == '"' and top in ("tests", "bench", "fuzz"):
            yield f"{path}:{number}: product code must not include {target}"
        for pattern, folders in RESERVED.items():
            if pattern.match(target) and folder not in folders:
                yield f"{path}:{number}: only {', '.join(sorted(folders))} may include {target}"


def main() -> int:
    files = subprocess.run(["git", "ls-files", "--", "*.h", "*.cpp", "*.c"], check=True, capture_output=True, text=True)
    paths = [pathlib.Path(name) for name in files.stdout.split()]
    checked = [path for path in paths if path.parts[0] in ALLOWED]
    found = [message for path in checked for message in violations(path)]
    print("\n".join(found), file=sys.stderr, end="\n" if found else "")
    if not checked:
        print("check_layers: found no sources", file=sys.stderr)
        return 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
