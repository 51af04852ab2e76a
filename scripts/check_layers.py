#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that every folder includes only what its CMakeLists.txt says it uses, that includes make no circle, and that
platform and foreign headers stay where they belong.

usage: check_layers.py [--folders]    --folders only prints the library's folders, lowest first
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# Sources that may include anything: what is not the product and not the host program.
FREE = {"tests", "bench", "fuzz", "android", "cmake"}
# What the host program sees of the libraries: the effect's interface, which it shares with them, and the voice engine's.
HOST_MAY = {"effect/interface.h", "engine/voice.h"}
SOURCES = {".h", ".hpp", ".hh", ".inc", ".c", ".cc", ".cpp", ".cxx"}
# Headers from outside that only some folders may see: those that name the dependency, or those listed here.
DEPENDENCIES = {"ne10": re.compile(r"^NE10"), "speexdsp": re.compile(r"^speex/")}
# dsp/resampler.c is the dependency's own source, built our way.
PART_OF_DEPENDENCY = {"speexdsp": "dsp"}
RESERVED = {
    re.compile(r"^(hardware|system|cutils|audio_utils)/"): {"effect", "platform", "host"},
    re.compile(r"^android/log\.h$"): {"base", "platform"},
    re.compile(r"^libspeexdsp/"): {"dsp"},
}
# What else the product may include: C, C++ and POSIX. The host program is free.
STANDARD = re.compile(
    r"^([a-z_]+|(assert|ctype|errno|fcntl|float|inttypes|limits|math|pthread|signal|std\w+|string|time|unistd|sys/\w+)\.h)$")
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def library_uses() -> dict:
    """What each folder of the library says it uses, lowest folder first."""
    uses = {}
    for folder in re.findall(r"^ *add_subdirectory\((\w+)\)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.M):
        text = (ROOT / folder / "CMakeLists.txt").read_text(encoding="utf-8")
        match = re.search(r"krel_add_folder\(NAME (\w+)[^)]*\bUSES ([\w\s]+)\)", text)
        uses[folder] = set(match[2].split()) if match else set()
        if match and match[1] != folder:
            sys.exit(f"check_layers: {folder}/CMakeLists.txt adds the folder {match[1]}")
    return uses


class Layers:
    def __init__(self):
        self.uses = library_uses()
        self.reserved = dict(RESERVED)
        for name, pattern in DEPENDENCIES.items():
            users = {folder for folder, used in self.uses.items() if name in used}
            self.reserved[pattern] = users | {PART_OF_DEPENDENCY.get(name, "")} - {""}

    def complaint(self, folder: str, quoted: bool, target: str) -> str:
        """What is wrong with an include in this folder, or nothing."""
        top = target.split("/")[0]
        if ".." in target.split("/"):
            return f"{target} must be named from the project's folder"
        if "/" in target and top in {*self.uses, "host"}:
            allowed = target in HOST_MAY if folder == "host" else top in self.uses[folder]
            return "" if allowed or top == folder else f"{folder}/ must not include {target}"
        for pattern, folders in self.reserved.items():
            if pattern.match(target):
                return "" if folder in folders else f"only {', '.join(sorted(folders))} may include {target}"
        if top in FREE:
            return f"product code must not include {target}"
        if quoted:
            return f"{target} must be named from the project's folder"
        return "" if folder == "host" or STANDARD.match(target) else f"{folder}/ must not include the foreign {target}"

    def violations(self, path: pathlib.Path):
        folder = path.parts[0]
        if len(path.parts) == 1 or folder not in {*self.uses, "host"}:
            yield f"{path}: this check does not know its folder"
            return
        for number, quoted, target in includes(path):
            wrong = self.complaint(folder, quoted, target)
            if wrong:
                yield f"{path}:{number}: {wrong}"


def includes(path: pathlib.Path):
    for number, line in enumerate((ROOT / path).read_text(encoding="utf-8").splitlines(), 1):
        match = INCLUDE.match(line)
        if match:
            yield number, match[1] == '"', match[2]


def circles(paths):
    """Units (a header and its source count as one) that reach themselves through includes."""
    unit = lambda path: str(pathlib.PurePath(path).with_suffix(""))
    graph = {unit(path): set() for path in paths}
    for path in paths:
        graph[unit(path)] |= {unit(target) for _, _, target in includes(path)} & graph.keys() - {unit(path)}
    done, trail = set(), []

    def visit(node):
        if node in trail:
            yield "includes in a circle: " + " -> ".join(trail[trail.index(node):] + [node])
        elif node not in done:
            trail.append(node)
            for target in sorted(graph[node]):
                yield from visit(target)
            done.add(trail.pop())

    for node in sorted(graph):
        yield from visit(node)


def main(arguments: list) -> int:
    if arguments == ["--folders"]:
        print("\n".join(library_uses()))
        return 0
    if arguments:
        sys.exit(__doc__)
    files = subprocess.run(["git", "ls-files"], check=True, capture_output=True, text=True, cwd=ROOT).stdout.splitlines()
    paths = [pathlib.Path(name) for name in files if pathlib.Path(name).suffix in SOURCES]
    checked = [path for path in paths if path.parts[0] not in FREE]
    layers = Layers()
    found = [message for path in checked for message in layers.violations(path)]
    found += circles(checked)
    print("\n".join(found), file=sys.stderr, end="\n" if found else "")
    if not checked:
        print("check_layers: found no sources", file=sys.stderr)
        return 1
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
