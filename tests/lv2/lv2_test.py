#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The plug-in as hosts see it: its description, offline, and live under a JACK server without sound hardware.

usage: lv2_test.py BUILD_FOLDER
"""

import array
import glob
import itertools
import math
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import wave
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent.parent
BUILD = Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else SOURCE / "build/release"
BUNDLE = BUILD / "lv2_path/krelvoice.lv2"
URI = "urn:krel:voice"
RATE = 48000
ENV = {**os.environ, "LV2_PATH": str(BUNDLE.parent), "JACK_DEFAULT_SERVER": f"krel{os.getpid()}", "JACK_NO_AUDIO_RESERVATION": "1"}
VOICES = 17


def run(*command):
    result = subprocess.run([*map(str, command)], capture_output=True, text=True, timeout=200, env=ENV)
    if result.returncode != 0:
        raise AssertionError(f"{command} failed:\n{result.stdout}{result.stderr}")
    return result.stdout + result.stderr


def read_s16(path):
    with wave.open(str(path)) as file:
        return array.array("h", file.readframes(file.getnframes()))


def write_float(path, samples):
    """A mono file of 32-bit floats: 1.0 is 32768, which no program's own scaling changes."""
    data = array.array("f", (s / 32768 for s in samples)).tobytes()
    form = struct.pack("<4sIHHIIHH", b"fmt ", 16, 3, 1, RATE, 4 * RATE, 4, 32)
    chunks = b"WAVE" + form + struct.pack("<4sI", b"data", len(data)) + data
    path.write_bytes(struct.pack("<4sI", b"RIFF", len(chunks)) + chunks)


def read_float(path):
    data = path.read_bytes().split(b"data", 1)[1][4:]
    return array.array("f", data[:len(data) // 4 * 4])


def largest_second_difference(samples):
    return max(abs(c - 2 * b + a) for a, b, c in zip(samples, samples[1:], samples[2:]))


class Lv2Test(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.dir = Path(folder.name)

    def render(self, source, preset):
        target = self.dir / f"{source.stem}-{preset}.wav"
        run(BUILD / "krelvcp", "render", source, target, "--preset", preset)
        return target

    def offline(self, samples, voice):
        write_float(self.dir / "in.wav", samples)
        run("lv2apply", "-i", self.dir / "in.wav", "-o", self.dir / "out.wav", "-c", "voice", voice, URI)
        return array.array("h", (int(s * 32768) for s in read_float(self.dir / "out.wav")))

    def test_description_is_valid_and_the_binary_exports_its_entry_only(self):
        files = sorted(BUNDLE.glob("*.ttl"))
        self.assertEqual([f.name for f in files], ["krelvoice.ttl", "manifest.ttl", "presets.ttl"])
        for checked in (run("lv2_validate", *files),
                        run("sord_validate", *glob.glob("/usr/lib/lv2/**/*.ttl", recursive=True), *files)):
            self.assertIn("Found 0 errors", checked)
        exported = re.findall(r" [TDBR] (\w+)", run("nm", "-D", "--defined-only", BUNDLE / "krelvoice.so"))
        self.assertEqual(exported, ["lv2_descriptor"])

    def test_offline_host_gets_the_samples_of_the_effect(self):
        speech = self.render(SOURCE / "assets/voice.flac", 7)
        for voice in range(VOICES):
            got = self.offline(read_s16(speech), voice)
            wanted = read_s16(self.render(speech, voice))
            late = 607 + (2048 if voice in (0, 1, 3, 4, 5, 6, 11, 13, 14, 15, 16) else 0) + (4800 if 10 <= voice <= 14 else 0)
            self.assertGreater(max(wanted), 1000)
            self.assertTrue(got[late:] == wanted[:len(got) - late], f"voice {voice} differs")

    def start(self, *command):
        """A process that ends with the test, and the file of what it says."""
        said = tempfile.TemporaryFile("w+", dir=self.dir)
        self.addCleanup(said.close)
        process = subprocess.Popen([*map(str, command)], stdin=subprocess.PIPE, stdout=said, stderr=said, text=True, env=ENV)
        self.addCleanup(process.communicate)
        self.addCleanup(process.terminate)
        return process, said

    def start_server(self):
        if not shutil.which("jackd") or not shutil.which("jalv"):
            self.skipTest("no jackd or no jalv here")
        # Synchronous: a client that is late holds up the others, and no sample is lost on a busy machine.
        server, _ = self.start("jackd", "--name", ENV["JACK_DEFAULT_SERVER"], "-r", "-S", "-d", "dummy", "-r", RATE, "-p", 256)
        for _ in range(50):
            if subprocess.run(["jack_lsp"], capture_output=True, env=ENV).returncode == 0:
                return
            if server.poll() is not None:
                break
            time.sleep(0.1)
        self.skipTest("jackd does not start in this sandbox")

    def test_live_host_lists_presets_follows_the_latency_and_switches_without_a_gap(self):
        self.start_server()
        self.start("jack_simple_client", "tone")  # a sine
        jalv, said = self.start("stdbuf", "-oL", "jalv", "-n", "krel", URI)

        def transcript():
            return os.pread(said.fileno(), 1 << 20, 0).decode()

        def say_until(pattern, *lines):
            """Says the first lines once, and the last one again and again until the answer ends so. Busy machines are slow."""
            for tries in range(100):
                jalv.stdin.write("\n".join(lines if tries == 0 else lines[-1:]) + "\n")
                jalv.stdin.flush()
                time.sleep(0.3)
                if re.search(pattern + r"[^=]*\Z", transcript()):
                    return
            self.fail(f"no {pattern} in:\n{transcript()}")

        say_until(r"preset-\d+ \(", "presets")
        run("jack_connect", "tone:output1", "krel:in")
        say_until("latency = 607.0", f"preset {URI}#preset-7", "monitors")
        recorder, _ = self.start("jack_rec", "-f", self.dir / "recorded.wav", "-d", 15, "-b", 16, "krel:out")
        time.sleep(1)
        for latency, line in (("2655", "set voice 5"), ("5407", "set voice 10"), ("7455", f"preset {URI}#preset-11")):
            say_until(f"latency = {latency}.0", line, "monitors")
            time.sleep(0.5)
        self.assertIsNone(recorder.poll(), "the recording ended before the last switch")
        recorder.communicate(timeout=200)
        jalv.communicate(timeout=60)
        print(transcript())
        for n in range(VOICES):
            self.assertIn(f"{URI}#preset-{n} (", transcript())
        heard = read_s16(self.dir / "recorded.wav")[RATE // 10:-RATE // 10]
        self.assertGreater(len(heard), 14 * RATE)
        self.assertGreater(max(heard), 3000)
        gap = max((len(list(run_)) for zero, run_ in itertools.groupby(s == 0 for s in heard) if zero), default=0)
        # What the voices make of that tone by themselves.
        tone = array.array("h", (round(6553.6 * math.sin(n * math.pi / 100)) for n in range(3 * RATE)))
        own = max(largest_second_difference(self.offline(tone, voice)[RATE:]) for voice in (5, 7, 10, 11))
        found = largest_second_difference(heard)
        print(f"longest silence {gap} samples; second difference at most {found}, that of the voices alone {own}")
        self.assertLess(gap, RATE // 500)
        self.assertLess(found, 3 * own)  # a voice that has just begun edits more; a cut would be a step of the tone's size


if __name__ == "__main__":
    unittest.main(verbosity=2)
