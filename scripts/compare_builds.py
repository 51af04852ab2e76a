#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Renders the bundled voice with several builds of krelvcp through every preset and compares the files.

usage: compare_builds.py REFERENCE [--same PROGRAM]... [--close PROGRAM]...

Each is a krelvcp program, with its emulator before it if it needs one: "qemu-aarch64 -L / build/arm64/krelvcp".

--same   every preset must give the same bits as the reference
--close  for builds with another FFT: presets that run on integers alone must give the same bits, the others must stay
         within the tolerance below
"""

import argparse
import array
import concurrent.futures
import math
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import wave

VOICE = pathlib.Path(__file__).resolve().parent.parent / "assets/voice.flac"
LEVELLED = 7  # a preset that changes nothing but the level: makes a WAV file of the voice
SECONDS = 2.5

# The presets with a spectral effect: the largest difference in steps of the 16-bit output, and the smallest ratio of
# signal to difference in dB. Behind each, what the packaged arm64 Ne10 measures: the floors lie some 6 dB below. Presets 3 to
# 6 sum their phases in single precision, so that last bits drift apart. For comparison: rounding instead of truncating where
# a spectral effect returns to 16 bits leaves 75 to 80 dB.
TOLERANCE = {
    0: (16, 98.0),  # 3 steps, 106.8 dB
    1: (32, 88.0),  # 8 steps, 95.5 dB
    **dict.fromkeys((3, 4, 5, 6), (192, 63.0)),  # 63 steps, 69.5 dB at most
    **dict.fromkeys((11, 13, 14), (48, 72.0)),  # 20 steps, 77.7 dB
    **dict.fromkeys((15, 16), (6, 90.0)),  # 2 steps, 96.9 dB
}
SAME = (0, math.inf)


def render(program: str, source: pathlib.Path, target: pathlib.Path, preset: int) -> array.array:
    subprocess.run([*shlex.split(program), "render", source, target, "--preset", str(preset), "--raw-timing"],
                   check=True, stdout=subprocess.DEVNULL)
    with wave.open(str(target), "rb") as file:
        assert file.getsampwidth() == 2 and sys.byteorder == "little"
        return array.array("h", file.readframes(file.getnframes()))


def presets(program: str) -> list:
    lines = subprocess.run([*shlex.split(program), "presets"], check=True, capture_output=True, text=True).stdout.splitlines()
    return [int(line.split()[0]) for line in lines[1:]]


def cut(path: pathlib.Path, seconds: float) -> None:
    with wave.open(str(path), "rb") as file:
        parameters, data = file.getparams(), file.readframes(int(seconds * file.getframerate()))
    with wave.open(str(path), "wb") as file:
        file.setparams(parameters)
        file.writeframes(data)


def difference(reference: array.array, other: array.array):
    """Largest difference in steps of the 16-bit output, and the ratio of signal to difference in dB."""
    if len(reference) != len(other):
        return 65536, -math.inf
    steps = [a - b for a, b in zip(reference, other)]
    error = sum(s * s for s in steps)
    signal = sum(a * a for a in reference)
    return max(map(abs, steps)), 10 * math.log10(signal / error) if error else math.inf


def judge(program: str, preset: int, reference: array.array, other: array.array, limits) -> bool:
    steps, ratio = difference(reference, other)
    good = steps <= limits[0] and ratio >= limits[1]
    found = "same bits" if steps == 0 else f"within {steps} steps, {ratio:.1f} dB"
    wanted = "" if good else " WRONG: wanted " + ("the same bits" if limits == SAME else f"{limits[0]} steps, {limits[1]} dB")
    print(f"preset {preset:2} {program}: {found}{wanted}")
    return good


def main() -> int:
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1])
    parser.add_argument("reference")
    parser.add_argument("--same", action="append", default=[])
    parser.add_argument("--close", action="append", default=[])
    arguments = parser.parse_args()
    programs = [arguments.reference, *arguments.same, *arguments.close]
    good = True
    with tempfile.TemporaryDirectory() as name, concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        folder = pathlib.Path(name)
        source = folder / "voice.wav"
        render(arguments.reference, VOICE, source, LEVELLED)
        cut(source, SECONDS)
        numbers = presets(arguments.reference)
        jobs = {(preset, i): pool.submit(render, program, source, folder / f"{preset}-{i}.wav", preset)
                for preset in numbers for i, program in enumerate(programs)}
        for preset in numbers:
            reference = jobs[preset, 0].result()
            if not any(reference):
                sys.exit(f"compare: preset {preset} is silent")
            for i, program in enumerate(programs[1:], 1):
                limits = SAME if i <= len(arguments.same) else TOLERANCE.get(preset, SAME)
                good &= judge(program, preset, reference, jobs[preset, i].result(), limits)
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
