# SPDX-License-Identifier: Apache-2.0
"""Runs krelvcp as a user does: on files of many kinds, with sound and broken effect libraries, and interrupted."""

import json
import math
import os
import random
import re
import resource
import shlex
import signal
import struct
import shutil
import subprocess
import tempfile
import time
import unittest
import wave
from pathlib import Path

PROGRAM = shlex.split(os.environ.get("EMULATOR", "")) + [os.environ["KRELVCP"]]
PROGRAM[0] = shutil.which(PROGRAM[0])  # an emulator, wherever PATH points later
FAKE = os.environ["FAKE_EFFECT"]
NO_EFFECT = os.environ["NO_EFFECT"]
FORMATS = ("float", "s16", "s32", "q8.24")
WRAPPER_DELAY = 607
CONFIG_BYTES = 112 if Path(FAKE).read_bytes()[4] == 2 else 64  # ELF class: pointers are in it
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def voice(frames, peak=6000, seed=1):
    """16-bit samples with a voice's spectral tilt: noise through a leaky sum."""
    rng = random.Random(seed)
    x, samples = 0.0, []
    for _ in range(frames):
        x = 0.9 * x + rng.uniform(-1, 1)
        samples.append(x)
    scale = peak / max(map(abs, samples))
    return [round(s * scale) for s in samples]


def write_wav(path, samples, rate=48000, channels=1, width=2):
    """Integer samples of `width` bytes, interleaved."""
    with wave.open(str(path), "wb") as f:
        f.setparams((channels, width, rate, 0, "NONE", ""))
        f.writeframes(b"".join(s.to_bytes(width, "little", signed=True) for s in samples))


def write_float_wav(path, samples, rate=48000):
    data = struct.pack(f"<{len(samples)}f", *samples)
    form = struct.pack("<4sIHHIIHH", b"fmt ", 16, 3, 1, rate, 4 * rate, 4, 32)
    path.write_bytes(b"RIFF" + struct.pack("<I", 36 + len(data)) + b"WAVE" + form
                     + b"data" + struct.pack("<I", len(data)) + data)


def read_wav(path):
    """(integer samples, interleaved; rate; channels; width)"""
    with wave.open(str(path), "rb") as f:
        width, data = f.getsampwidth(), f.readframes(f.getnframes())
        samples = [int.from_bytes(data[i:i + width], "little", signed=True) for i in range(0, len(data), width)]
        return samples, f.getframerate(), f.getnchannels(), width


def rms(samples):
    return math.sqrt(sum(s * s for s in samples) / len(samples))


class ProgramTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.dir = Path(folder.name)

    def run_program(self, *arguments, env=None, **options):
        return subprocess.run([*PROGRAM, *map(str, arguments)], cwd=self.dir, capture_output=True, text=True,
                              timeout=120, env={**os.environ, **(env or {})}, **options)

    def render(self, *arguments, **options):
        result = self.run_program("render", *arguments, **options)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")
        return result.stdout

    def heard(self, *arguments, **options):
        """The samples that become of in.wav."""
        self.render("in.wav", "out.wav", *arguments, **options)
        return read_wav(self.dir / "out.wav")[0]

    def files(self):
        return sorted(p.name for p in self.dir.iterdir())

    def assert_fails(self, code, says, *arguments, **options):
        """The program ends with `code`, one line that contains `says`, and no new or changed file."""
        before = {p.name: p.read_bytes() for p in self.dir.iterdir() if p.is_file()}
        result = self.run_program(*arguments, **options)
        self.assertEqual(result.returncode, code, (arguments, result.stderr))
        self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
        self.assertIn(says, result.stderr)
        self.assertEqual({p.name: p.read_bytes() for p in self.dir.iterdir() if p.is_file()}, before)


class FrameworkTest(ProgramTest):  # what the effect sees
    def calls(self, *arguments):
        write_wav(self.dir / "in.wav", voice(1000))
        log = self.dir / "log"
        self.render("in.wav", "out.wav", "--library", FAKE, *arguments, env={"FAKE_EFFECT_LOG": str(log)})
        return log.read_text().splitlines()

    def test_calls_come_in_the_frameworks_order(self):
        side = "rate 48000, channels 3, format {}, access {}, mask 31, buffer 0 0"
        self.assertEqual(self.calls("--preset", 9, "--raw-timing"), [
            "library descriptor", "create", "instance descriptor, zeroed",
            "command 0, size 0, reply 4",
            f"command 1, size {CONFIG_BYTES}, reply 4", "  in " + side.format(5, 1), "  out " + side.format(5, 0),
            f"command 1, size {CONFIG_BYTES}, reply 4", "  in " + side.format(5, 1), "  out " + side.format(5, 0),
            "command 5, size 20, reply 4", "  sizes 4 4, parameter 0 = 9",
            "command 3, size 0, reply 4",
            "process 960 in place", "process 960 in place",
            "command 4, size 0, reply 4",
            "process 960 in place",
            "command 2, size 0, reply 0",
            "release", "unload"])

    def test_accumulating_effects_get_two_buffers(self):
        calls = self.calls("--preset", 7, "--accumulate", "--format", "s16", "--raw-timing")
        accesses = [line.split("format ")[1][:11] for line in calls if line.startswith("  out")]
        self.assertEqual(accesses, ["1, access 0", "1, access 2"])
        self.assertEqual([c for c in calls if c.startswith("process")],
                         2 * ["process 960 apart"] + ["process 960 in place"])

    def test_a_switch_comes_before_the_first_block_from_its_time_on(self):
        calls = self.calls("--preset", 7, "--block", 100, "--raw-timing",
                           "--switch", f"{400 / 48000}:15", "--switch", f"{201 / 48000}:Deep")
        events = [c for c in calls if c.startswith(("process", "  sizes"))]
        at = {c.split("= ")[1]: events.index(c) for c in events if c.startswith("  sizes")}
        self.assertEqual(at, {"7": 0, "10": 4, "15": 6})

    def test_the_log_is_shown_only_on_request(self):
        write_wav(self.dir / "in.wav", voice(1000))  # every other rendering here must be silent on stderr
        verbose = self.run_program("render", "in.wav", "out.wav", "--preset", 7, "--verbose")
        self.assertIn("EffectCreate", verbose.stderr)


class ConversionTest(ProgramTest):
    def copy(self, source, target, *arguments):
        """Through a library that copies, every sample must arrive as it was."""
        self.render(source, target, "--preset", 7, "--library", FAKE, "--raw-timing", *arguments)

    def test_samples_pass_bit_for_bit_where_the_buffer_can_hold_them(self):
        extremes = [0, 1, -1, 255, -256]
        s16 = [*extremes, 32767, -32768, *voice(500)]
        s24 = [*extremes, 2**23 - 1, -2**23, *(257 * s for s in voice(501))]
        write_wav(self.dir / "16.wav", s16)
        write_wav(self.dir / "24.wav", s24, width=3, channels=2, rate=44100)
        for fmt in FORMATS:
            self.copy("16.wav", "out.wav", "--format", fmt)
            self.assertEqual(read_wav(self.dir / "out.wav"), (s16 + WRAPPER_DELAY * [0], 48000, 1, 2), fmt)
            self.copy("24.wav", "out.wav", "--format", fmt, "--channel", "left")
            got, rate, channels, width = read_wav(self.dir / "out.wav")
            self.assertEqual((rate, channels, width), (44100, 2, 3))
            lost = 256 if fmt == "s16" else 1
            want = [min(max(round(s / lost), -2**23 // lost), 2**23 // lost - 1) * lost for s in s24]
            self.assertEqual(got, want + 2 * WRAPPER_DELAY * [0], fmt)

    def test_float_files_stay_float(self):
        samples = [0.0, 1.0, -1.0, 2.0**-20, 0.1234567, -1e-9]
        write_float_wav(self.dir / "in.wav", samples)
        self.copy("in.wav", "out.wav")
        self.assertIn(b"data" + struct.pack("<I6f", 4 * (6 + WRAPPER_DELAY), *samples),
                      (self.dir / "out.wav").read_bytes())
        self.copy("in.wav", "out.flac")
        self.copy("out.flac", "back.wav")
        self.assertEqual(read_wav(self.dir / "back.wav")[0][:6], [0, 2**23 - 1, -2**23, 8, 1035630, 0])

    def test_endings_choose_the_container(self):
        s16 = voice(4000)
        write_wav(self.dir / "in.wav", s16)
        magic = {"flac": b"fLaC", "aiff": b"FORM", "aif": b"FORM", "w64": b"riff", "caf": b"caff", "au": b".snd",
                 "rf64": b"RF64", "ogg": b"OggS", "oga": b"OggS", "opus": b"OggS", "WAV": b"RIFF", "mp3": b"\xff\xfb"}
        for ending, first in magic.items():
            self.copy("in.wav", f"out.{ending}")
            self.assertTrue((self.dir / f"out.{ending}").read_bytes().startswith(first), ending)
            self.copy(f"out.{ending}", "back.wav")
            back = read_wav(self.dir / "back.wav")[0][:len(s16)]
            if ending in ("ogg", "oga", "opus", "mp3"):
                self.assertLess(rms([a - b for a, b in zip(back, s16)]), 0.5 * rms(s16), ending)
            else:
                self.assertEqual(back, s16, ending)

    def test_accumulating_adds_the_original_delayed_to_match(self):
        s16 = voice(3000)
        write_wav(self.dir / "in.wav", s16)
        arguments = ["--preset", 7, "--library", FAKE, "--accumulate", "--format", "s16"]
        self.assertEqual(self.heard(*arguments, "--raw-timing")[:3000], [2 * s for s in s16])
        ahead = s16[WRAPPER_DELAY:] + WRAPPER_DELAY * [0]  # this library has no delay to compensate
        self.assertEqual(self.heard(*arguments), [a + b for a, b in zip(s16, ahead)])


class EffectTest(ProgramTest):  # with the real library
    def test_voice_and_original_line_up_at_every_rate(self):
        for rate in (8000, 16000, 22050, 44100, 48000, 96000):
            for channels in (1, 2):
                left = voice(3000, seed=rate)
                frames = left if channels == 1 else [s for l in left for s in (l, -7)]
                write_wav(self.dir / "in.wav", frames, rate, channels)
                self.render("in.wav", "out.wav", "--preset", 7, "--channel", "left")
                got, *form = read_wav(self.dir / "out.wav")
                self.assertEqual((len(got), form), (len(frames), [rate, channels, 2]))
                self.assertEqual(got[::channels], got[channels - 1::channels])
                # Make-up gain of 21/16, compressor idle: its settled gain is a hair below one.
                worst = max(abs(g - s * 21 / 16) for g, s in zip(got[::channels], left))
                self.assertLess(worst, 3, (rate, channels))

    def test_block_length_changes_nothing(self):
        write_wav(self.dir / "in.wav", voice(20000))
        for preset in (0, 2, 3, 7, 11, 15):
            results = {tuple(self.heard("--preset", preset, "--block", block)) for block in (61, 960, 1024, 100000)}
            self.assertEqual(len(results), 1, preset)

    def test_accumulated_is_original_plus_voice(self):
        original = voice(5000)
        write_wav(self.dir / "in.wav", original)
        for fmt in FORMATS:
            total = [a + b for a, b in zip(original, self.heard("--preset", 7))]
            self.assertEqual(self.heard("--preset", 7, "--accumulate", "--format", fmt), total, fmt)

    def test_a_switch_fades_through_silence_and_leaves_the_rest_alone(self):
        write_wav(self.dir / "in.wav", voice(24000))
        plain, switched = self.heard("--preset", 7), self.heard("--preset", 7, "--switch", "0.2:8")
        # In output time; the switch falls on a block's start, and the voice is 607 samples late there.
        start = 9600 - WRAPPER_DELAY
        self.assertEqual(switched[:start], plain[:start])
        self.assertEqual(set(switched[start + 960:start + 2 * 960]), {0})
        self.assertGreater(rms(switched[start + 4 * 960:]), 0.9 * rms(plain[start + 4 * 960:]))

    def test_length_follows_tail_and_raw_timing(self):
        write_wav(self.dir / "in.wav", voice(5000))
        for arguments, length in (([], 5000), (["--tail", 0.1], 9800), (["--raw-timing"], 5607)):
            got = self.heard("--preset", 7, *arguments)
            self.assertEqual(len(got), length)
        # Raw: the preset comes in through a ramp down, two silent blocks and a ramp up.
        self.assertEqual(set(got[960:3 * 960]), {0})
        self.assertGreater(rms(got[-300:]), 100)  # and the end is all there

    def test_results_are_reported(self):
        write_wav(self.dir / "in.wav", 24000 * [16384, -16384])
        self.assertEqual(self.render("in.wav", "out.wav", "--preset", 9, "--quiet"), "")
        text = self.render("in.wav", "out.wav", "--preset", 9)
        self.assertIn("1.00 s in, 1.00 s out, 48000 Hz, mono, 16-bit", text)
        self.assertIn("input     peak -6.0 dBFS, RMS -6.0 dBFS, 0 clipped samples", text)
        self.assertRegex(text, r"output +peak -3\.\d dBFS")
        self.assertRegex(text, r"loudness +-\d+\.\d LUFS, true peak")
        self.assertRegex(text, r"speed +\d+ times real time")


class SeveralPresetsTest(ProgramTest):
    def setUp(self):
        super().setUp()
        write_wav(self.dir / "in.wav", voice(2000))

    def test_a_folder_and_a_pattern_name_one_file_each(self):
        (self.dir / "out").mkdir()
        table = self.render("in.wav", "out", "--preset", "all")
        names = {p.name for p in (self.dir / "out").iterdir()}
        self.assertTrue(len(names) == 17 and "07-plain.wav" in names and all(name in table for name in names))
        self.render("in.wav", "v{number}-{name}.flac", "--preset", "16,2,2")
        self.assertEqual(self.files(), ["in.wav", "out", "v02-echo.flac", "v16-cave.flac"])

    def test_every_listed_preset_is_what_it_is_alone(self):
        (self.dir / "out").mkdir()
        write_wav(self.dir / "in.wav", voice(12000))  # beyond the furthest echo
        # The echo's distances are random draws: those of the first file must not show in the second.
        self.render("in.wav", "out", "--preset", "7,2", "--switch", "0.01:2")
        self.assertEqual(read_wav(self.dir / "out/02-echo.wav")[0], self.heard("--preset", 2))

    def test_collisions_are_refused(self):
        write_wav(self.dir / "03.wav", voice(2000))
        for says, *arguments in (("several results would", "in.wav", "out.wav", "-p3,4"),
                                 ("several results would", "in.wav", "{name}.wav", "-p7,8"),
                                 ("give a folder", "in.wav", "new", "-pall"),
                                 ("give a folder", "in.wav", "03.wav", "new.wav", "-p7"),
                                 ("may be the input", "03.wav", "{number}.wav", "-p2,3", "--force"),
                                 ("--force replaces", "in.wav", "03.wav", "{in}.wav", "-p7")):
            self.assert_fails(2, says, "render", *arguments)

    def test_presets_are_listed(self):
        lines = self.run_program("presets").stdout.splitlines()
        self.assertEqual([line.split()[0] for line in lines[1:]], [str(n) for n in range(17)])
        for line in lines[1:]:
            self.assertRegex(line, r"^ +\d+  \w+ .* \d+ ms +\d+\.\d\d %  \w")


class FailureTest(ProgramTest):
    def setUp(self):
        super().setUp()
        write_wav(self.dir / "in.wav", voice(2000))
        (self.dir / "out.wav").write_text("precious")

    def test_bad_files(self):
        (self.dir / "text.wav").write_text("no audio here, and long enough to be looked at twice\n")
        write_wav(self.dir / "empty.wav", [])
        os.mkfifo(self.dir / "pipe.wav")
        for source, target, says in (
                ("none.wav", "out.wav", "'none.wav': No such file"),
                ("text.wav", "out.wav", "'text.wav': no known audio format"),
                (".", "out.wav", "'.': it is a folder"),
                ("empty.wav", "out.wav", "holds no audio"),
                ("in.wav", "none/out.wav", "there is no folder 'none'"),
                ("in.wav", "pipe.wav", "it is not a file")):
            self.assert_fails(1, says, "render", source, target, "--preset", 7)

    def test_bad_command_lines(self):
        render = ["render", "in.wav", "out.wav", "--preset", "7"]
        for code, says, arguments in (
                (2, "subcommand", []),
                (2, "no command 'rendr'", ["rendr", *render[1:]]),
                (2, "OUT is required", ["render", "in.wav", "--preset", "7"]),
                (2, "--preset is required", render[:3]),
                (2, "--frobnicate", [*render, "--frobnicate"]),
                (2, "ending of 'out.xyz'", ["render", "in.wav", "out.xyz", "--preset", "7"]),
                (2, "--format 24", [*render, "--format", "24"]),
                (2, "--block", [*render, "--block", "0"]),
                (2, "--tail", [*render, "--tail", "nan"]),
                (2, "--switch 3", [*render, "--switch", "3"]),
                (2, "--switch inf:3", [*render, "--switch", "inf:3"]),
                (1, "beyond the end", [*render, "--switch", "1:3"]),
                (2, "no voice 'alto'", [*render, "--switch", "0:alto"]),
                (2, "no voice '17'", ["render", "in.wav", "out.wav", "--preset", "17"]),
                (2, "no voice ''", ["render", "in.wav", "out.wav", "--preset", "1,"]),
                (2, "no voice '-1'", ["render", "in.wav", "out.wav", "--preset=-1"]),
                (2, "is an input: --force", ["render", "in.wav", "./in.wav", "--preset", "7"]),
                (2, "--gain loud", [*render, "--gain", "loud"]),
                (2, "--channel up", [*render, "--channel", "up"]),
                (2, "--loudness", [*render, "--loudness", "3"]),
                (2, "--type xyz", [*render, "--type", "xyz"]),
                (2, "--raw s16le:0", [*render, "--raw", "s16le:0"]),
                (2, "no voice 'alto'", ["live", "--voice", "alto"]),
                (2, "--backend alsa", ["live", "--backend", "alsa"])):
            self.assert_fails(code, says, *arguments)

    def test_bad_libraries(self):
        render = ["render", "in.wav", "out.wav", "--preset", "7", "--library"]
        self.assert_fails(1, "none.so", *render, "none.so")
        self.assert_fails(1, "in.wav", *render, "in.wav")
        self.assert_fails(1, "has no AELI", *render, NO_EFFECT)
        for fault, says in (("tag", "its tag is 0x544c4541"), ("version", "library version 0x00020000"),
                            ("uuid", "has no voice changer"), ("api", "effect version 0x00030000"),
                            ("create", "cannot create"), ("init", "cannot initialise"),
                            ("config", "refuses the configuration 48000 Hz, stereo, float: Invalid argument"),
                            ("block", "refuses a block"), ("endless", "does not stop")):
            self.assert_fails(1, says, *render, FAKE, env={"FAKE_EFFECT_FAULT": fault})

    def test_a_full_disk(self):
        write_wav(self.dir / "long.wav", voice(100000))
        # -1: only the very last byte has no room.
        for target, room in (("out.wav", 10000), ("new.flac", 10000), ("new.flac", -1), ("new.ogg", -1)):
            if room < 0:
                self.render("long.wav", target, "--preset", 7)
                room += (self.dir / target).stat().st_size
                (self.dir / target).unlink()
            limit = lambda bytes=room: resource.setrlimit(resource.RLIMIT_FSIZE, (bytes, bytes))
            self.assert_fails(1, f"cannot write '{target}': File too large", "render", "long.wav", target,
                              "--preset", 7, preexec_fn=limit)
        with open("/dev/full", "w", encoding="ascii") as full:
            for arguments in (["presets"], ["render", "in.wav", "no.wav", "-p7"]):
                result = subprocess.run([*PROGRAM, *arguments], stdout=full, stderr=subprocess.PIPE, text=True,
                                        check=False, cwd=self.dir)
                self.assertEqual((result.returncode, result.stderr), (1, "krelvcp: cannot write to standard output\n"))
        self.assertNotIn("no.wav", self.files())

    def start(self, waits_for, *arguments, **env):
        """A rendering in the background, once its library's log holds `waits_for`."""
        log = self.dir / "log"
        log.write_text("")
        # A shell ignores signals for what it runs in the background, and children inherit that.
        program = subprocess.Popen([*PROGRAM, "render", *arguments, "--preset", "7", "--raw-timing", "--library", FAKE],
                                   cwd=self.dir, env={**os.environ, "FAKE_EFFECT_LOG": str(log), **env},
                                   preexec_fn=lambda: [signal.signal(n, signal.SIG_DFL) for n in SIGNALS])
        while waits_for not in log.read_text():
            self.assertIsNone(program.poll())
            time.sleep(0.01)
        return program

    def test_signals_leave_nothing_behind(self):
        write_wav(self.dir / "in.wav", 200000 * [1000])
        for number in SIGNALS:
            program = self.start("process", "in.wav", "out.wav", FAKE_EFFECT_FAULT="slow")
            program.send_signal(number)
            self.assertEqual(program.wait(timeout=30), -number)
        self.assertEqual(((self.dir / "out.wav").read_text(), self.files()), ("precious", ["in.wav", "log", "out.wav"]))

    def test_a_signal_ends_a_rendering_whose_input_stalls(self):
        write_wav(self.dir / "in.wav", 20000 * [1000])
        os.mkfifo(self.dir / "pipe")
        with open(self.dir / "pipe", "r+b", buffering=0) as pipe:
            pipe.write((self.dir / "in.wav").read_bytes()[:20000])
            program = self.start("", "pipe", "new.wav")
            time.sleep(1)
            program.send_signal(signal.SIGINT)
            self.assertEqual(program.wait(timeout=30), -signal.SIGINT)

    def test_a_file_may_be_rendered_onto_itself_and_through_links(self):
        (self.dir / "out.wav").chmod(0o640)
        self.render("in.wav", "out.wav", "--preset", 7, "--force")
        self.assertEqual((self.dir / "out.wav").stat().st_mode & 0o777, 0o640)
        wanted = (self.dir / "out.wav").read_bytes()
        (self.dir / "link.wav").symlink_to("in.wav")
        (self.dir / "new_link.wav").symlink_to("new.wav")
        self.render("in.wav", "new_link.wav", "--preset", 7)
        self.render("in.wav", "link.wav", "--preset", 7, "--force")
        for link, name in (("link.wav", "in.wav"), ("new_link.wav", "new.wav")):
            self.assertTrue((self.dir / link).is_symlink())
            self.assertEqual((self.dir / name).read_bytes(), wanted)
        self.assertEqual(self.files(), ["in.wav", "link.wav", "new.wav", "new_link.wav", "out.wav"])


class RecordingTest(ProgramTest):
    """What people have: sound on one side, pipes, cut files, odd types, levels."""

    def setUp(self):
        super().setUp()
        write_wav(self.dir / "in.wav", voice(24000))

    def peak(self, *arguments, source="in.wav", warns=""):
        """Of the left side of what comes out, which must be full of sound to its end."""
        result = self.run_program("render", source, "out.wav", *arguments, "-q")
        self.assertEqual((result.returncode, warns in result.stderr, bool(result.stderr)), (0, True, bool(warns)), result.stderr)
        samples, _, channels, _ = read_wav(self.dir / "out.wav")
        self.samples = samples[::channels]
        return max(map(abs, self.samples))

    def test_the_chosen_channel_is_heard(self):
        for channels, at in ((2, 1), (2, 0), (6, 5)):
            frames = [s if c == at else 0 for s in voice(24000) for c in range(channels)]
            write_wav(self.dir / "side.wav", frames, channels=channels)
            want = 6000 * 21 / 16
            for channel in ("mix", "left", "right"):
                heard = 1 / channels if channel == "mix" else float((channel == "right") == bool(at)) * (channels == 2)
                warns = "" if heard else "is silent, another one is not: try --channel"
                self.assertAlmostEqual(self.peak("-p7", "--channel", channel, source="side.wav", warns=warns), heard * want, delta=3)

    def test_outputs_end_when_the_voice_does(self):
        rows = [("plain", [], 24000, 24000), ("deep", [], 24000, 32000), ("girl", [], 24000, 32000),
                ("deep", ["--tail", "0"], 24000, 24000), ("echo", [], 28000, 50000), ("hall", [], 24100, 400000),
                ("cave", [], 26000, 500000), ("cave", ["--tail", "0"], 24000, 24000)]
        for name, arguments, least, most in rows:
            peak = self.peak("-p", name, *arguments)
            self.assertTrue(least <= len(self.samples) <= most, (name, len(self.samples)))
            if name in ("deep", "girl") and not arguments:  # cut off by hand, the end must have been there
                self.assertLess(max(map(abs, self.samples[-2:])), 0.02 * peak)

    def test_levels_are_set_and_flat_tops_counted(self):
        write_wav(self.dir / "loud.wav", [max(min(2 * s, 32767), -32768) for s in voice(24000, peak=25000)])
        self.peak("-p7", "--gain", "-6")
        self.assertAlmostEqual(max(self.samples), 6000 * 10**(-6 / 20) * 21 / 16, delta=6000)
        self.peak("-plower", source="loud.wav", warns="are flattened inside the voice; --gain -")
        self.peak("-plower", "--gain", "auto", source="loud.wav")
        for name, gain, want in (("lower", "0", -23.0), ("plain", "-3", -30.0), ("cave", "0", -26.0)):
            line = self.render("in.wav", "out.wav", "-p", name, "--gain", gain, "--loudness", want, "--json")
            result = json.loads(line)
            self.assertAlmostEqual(result["output"]["lufs"], want, delta=0.15)
            self.assertEqual((result["gain_db"], result["voice"]), (float(gain), name))
        self.peak("-p7", "--loudness", "0", warns="its true peak then is -1.0 dBTP")

    def test_pipes_and_headerless_files(self):
        want = self.peak("-p7") and self.samples
        raw = struct.pack("<24000h", *voice(24000))
        (self.dir / "in.raw").write_bytes(raw)
        self.render("in.wav", "in.caf", "-p7", "--library", FAKE)
        for data, arguments in (((self.dir / "in.wav").read_bytes(), []), (raw, ["--raw", "s16le:48000"])):
            out = subprocess.run([*PROGRAM, "render", "-", "-", "-p7", *arguments], input=data, cwd=self.dir,
                                 capture_output=True, check=True)
            (self.dir / "piped.wav").write_bytes(out.stdout)
            self.assertEqual(read_wav(self.dir / "piped.wav")[0], want)
            self.assertIn(b"- -> -, voice 7", out.stderr)
        caf = subprocess.run([*PROGRAM, "render", "-", "/dev/stdout", "-qp7", "--type", "flac"], cwd=self.dir,
                             input=(self.dir / "in.caf").read_bytes(), capture_output=True, check=True)
        self.assertEqual((caf.stdout[:4], caf.stderr), (b"fLaC", b""))

    def test_odd_files(self):
        self.peak("-p7", source="in.wav")
        for ending in ("wav", "flac"):
            self.render("in.wav", f"whole.{ending}", "-p7")
            cut = (self.dir / f"whole.{ending}").read_bytes()
            (self.dir / f"cut.{ending}").write_bytes(cut[:len(cut) // 2])
            self.peak("-p7", source=f"cut.{ending}", warns="is cut off or damaged: only its first 0.")
        write_wav(self.dir / "44.wav", voice(44100), rate=44100)
        self.assertIn("Opus at 48000 Hz", self.render("44.wav", "out.opus", "-p7"))
        self.peak("-p7", source="out.opus")
        self.assertAlmostEqual(len(self.samples), 48000, delta=10)
        write_wav(self.dir / "8.wav", voice(8000), rate=8000)
        self.peak("-probot", "--rate", "48000", source="8.wav")
        self.assertEqual(read_wav(self.dir / "out.wav")[1:2] + (len(self.samples),), (48000, 48000))
        self.assertIn("hint: 'robot' hums at 31 Hz", self.run_program("render", "8.wav", "out.wav", "-probot").stderr)

    def test_ffmpeg_reads_what_libsndfile_does_not(self):
        (self.dir / "memo.m4a").write_bytes(b"no audio that a library knows, but long enough")
        tools = self.dir / "tools"
        tools.mkdir()
        self.assert_fails(1, "ffmpeg -i 'memo.m4a' 'memo.wav'", "render", "memo.m4a", "x.wav", "-p7", env={"PATH": str(tools)})
        script = tools / "ffmpeg"
        for body, says in ((f"cat {shlex.quote(str(self.dir / 'in.wav'))}", ""), ("echo broken >&2; exit 1", "ffmpeg: broken")):
            script.write_text(f"#!/bin/sh\n{body}\n")
            script.chmod(0o755)
            path = {"PATH": f"{tools}:{os.environ['PATH']}"}
            if says:
                self.assert_fails(1, says, "render", "memo.m4a", "x.wav", "-p7", env=path)
            else:
                self.assertIn("0.50 s in", self.render("memo.m4a", "y.wav", "-p7", env=path))

    def test_several_inputs(self):
        write_wav(self.dir / "b.flac", voice(3000))
        table = self.render("in.wav", "b.flac", "new/", "-p", "Robot")
        self.assertEqual(sorted(p.name for p in (self.dir / "new").iterdir()), ["b-00-robot.wav", "in-00-robot.wav"])
        self.assertEqual(table.count("00-robot  "), 2)
        self.render("in.wav", "b.flac", "-p7", "-o", "{in}.au")
        result = self.run_program("render", "none.wav", "in.wav", "good/", "-p7")
        self.assertEqual((result.returncode, result.stderr.splitlines()[1:]), (1, ["krelvcp: 1 of 2 inputs failed"]))
        self.assertEqual([p.name for p in (self.dir / "good").iterdir()], ["in-07-plain.wav"])

    def test_help_manual_and_completions_agree(self):
        text = self.run_program("render", "--help").stdout
        self.assertLessEqual(max(map(len, (text + self.run_program("--help").stdout).splitlines())), 80)
        manual = self.run_program("manual").stdout.replace("\\-", "-")
        shells = [self.run_program("completion", shell).stdout for shell in ("bash", "zsh", "fish")]
        for option in re.findall(r"(--[a-z-]+)", text.split("Files:")[0]):
            self.assertIn(option, manual)
            for script in shells:
                self.assertRegex(script, rf"(--|-l ){option[2:]}\b")


class MemoryTest(ProgramTest):
    def peak_memory(self, seconds):
        write_wav(self.dir / "in.wav", voice(8000) * seconds, 8000)
        with subprocess.Popen([*PROGRAM, "render", self.dir / "in.wav", self.dir / "out.wav", "--preset", "7"],
                              stdout=subprocess.DEVNULL) as program:
            _, program.returncode, usage = os.wait4(program.pid, 0)
        return usage.ru_maxrss if program.returncode == 0 else self.fail()

    def test_long_files_need_no_more_memory(self):
        self.assertLess(self.peak_memory(600) - self.peak_memory(1), 3000)  # KiB; the samples are 9375


if __name__ == "__main__":
    unittest.main()
