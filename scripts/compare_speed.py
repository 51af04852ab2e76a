#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Instructions that several builds of krelvcp spend in the effect library and the mathematical library, by preset, for
a second of the bundled voice and for setting the voice up. Counted by valgrind: the same on every run and machine.

usage: compare_speed.py [--presets 0,11] [--seconds 1] REFERENCE PROGRAM...

PROGRAM is a krelvcp program, or PROGRAM:LIBRARY with another effect library than its own.
"""

import argparse
import collections
import concurrent.futures
import os
import pathlib
import re
import subprocess
import tempfile

from compare_builds import LEVELLED, VOICE, cut, presets, render

COUNTED = re.compile(r"/(libkrelvcp|libm)\.so")


def by_object(profile: str) -> collections.Counter:
    """Instructions by object file of a callgrind profile: each line of cost counts where its function lies, but for
    those after `calls=`, which repeat what the called function cost."""
    names, spent, current, skip = {}, collections.Counter(), "", False
    for line in profile.splitlines():
        if line.startswith("ob="):
            number, name = re.fullmatch(r"ob=\((\d+)\)(?: (.*))?", line).groups()
            current = names.setdefault(number, name)
        elif line.startswith("cob=") and ") " in line:
            names.setdefault(*re.fullmatch(r"cob=\((\d+)\) (.*)", line).groups())
        elif line.startswith("calls="):
            skip = True
        elif re.match(r"[\d+*-]", line):
            spent[current] += 0 if skip else int(line.split()[1])
            skip = False
    return spent


def count(program: str, source: pathlib.Path, folder: pathlib.Path, preset: int) -> int:
    program, _, library = program.partition(":")
    profile = folder / "profile"
    folder.mkdir()
    subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={profile}", program, "render", source,
                    folder / "out.wav", "--preset", str(preset), *(["--library", library] if library else [])],
                   check=True, capture_output=True)
    return sum(n for name, n in by_object(profile.read_text()).items() if COUNTED.search(name))


def main() -> None:
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    parser.add_argument("reference")
    parser.add_argument("programs", nargs="+")
    parser.add_argument("--presets")
    parser.add_argument("--seconds", type=float, default=1.0)
    arguments = parser.parse_args()
    programs = [arguments.reference, *arguments.programs]
    with tempfile.TemporaryDirectory() as name, concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        folder = pathlib.Path(name)
        source = folder / "voice.wav"
        render(arguments.reference.partition(":")[0], VOICE, source, LEVELLED)
        cut(source, arguments.seconds)
        chosen = [int(n) for n in arguments.presets.split(",")] if arguments.presets else presets(arguments.reference)
        jobs = {(preset, i): pool.submit(count, program, source, folder / f"{preset}-{i}", preset)
                for preset in chosen for i, program in enumerate(programs)}
        for preset in chosen:
            first, *others = (jobs[preset, i].result() for i in range(len(programs)))
            print(f"preset {preset:2}  {first / 1e6:8.1f} M" + "".join(f"  {n / 1e6:8.1f} M  x {n / first:.2f}" for n in others),
                  flush=True)


if __name__ == "__main__":
    main()
