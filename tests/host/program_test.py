"""Runs krelvcp as a user does: on files of many kinds, with sound and broken effect libraries, and interrupted."""

import math
import os
import random
import resource
import shlex
import signal
import struct
import subprocess
import tempfile
import time
import unittest
import wave
from pathlib import Path

PROGRAM = shlex.split(os.environ.get("EMULATOR", "")) + [os.environ["KRELVCP"]]
FAKE = os.environ["FAKE_EFFECT"]
NO_EFFECT = os.environ["NO_EFFECT"]
FORMATS = ("float", "s16", "s32", "q8.24")
WRAPPER_DELAY = 607


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


def read_float_wav(path):
    data = path.read_bytes()
    start = data.index(b"data") + 8
    assert struct.unpack_from("<H", data, data.index(b"fmt ") + 8)[0] in (3, 0xFFFE)
    return list(struct.unpack_from(f"<{(len(data) - start) // 4}f", data, start))


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


class FrameworkTest(ProgramTest):
    """What the effect sees."""

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
            "command 1, size 112, reply 4", "  in " + side.format(5, 1), "  out " + side.format(5, 0),
            "command 1, size 112, reply 4", "  in " + side.format(5, 1), "  out " + side.format(5, 0),
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
                           "--switch", f"{400 / 48000}:3", "--switch", f"{201 / 48000}:5")
        events = [c for c in calls if c.startswith(("process", "  sizes"))]
        at = {c.split("= ")[1]: events.index(c) for c in events if c.startswith("  sizes")}
        self.assertEqual(at, {"7": 0, "5": 4, "3": 6})

    def test_the_log_is_shown_only_on_request(self):
        write_wav(self.dir / "in.wav", voice(1000))
        self.render("in.wav", "out.wav", "--preset", 7)
        verbose = self.run_program("render", "in.wav", "out.wav", "--preset", 7, "--verbose")
        self.assertIn("EffectCreate", verbose.stderr)


class ConversionTest(ProgramTest):
    """Through a library that copies, every sample must arrive as it was."""

    def copy(self, source, target, *arguments):
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
            self.copy("24.wav", "out.wav", "--format", fmt)
            got, rate, channels, width = read_wav(self.dir / "out.wav")
            self.assertEqual((rate, channels, width), (44100, 2, 3))
            lost = 256 if fmt == "s16" else 1
            want = [min(max(round(s / lost), -2**23 // lost), 2**23 // lost - 1) * lost for s in s24]
            self.assertEqual(got, want + 2 * WRAPPER_DELAY * [0], fmt)

    def test_float_files_stay_float(self):
        samples = [0.0, 1.0, -1.0, 2.0**-20, 0.1234567, -1e-9]
        samples = list(struct.unpack("<6f", struct.pack("<6f", *samples)))
        write_float_wav(self.dir / "in.wav", samples)
        self.copy("in.wav", "out.wav")
        self.assertEqual(read_float_wav(self.dir / "out.wav")[:6], samples)
        self.copy("in.wav", "out.flac")
        self.copy("out.flac", "back.wav")
        self.assertEqual(read_wav(self.dir / "back.wav")[0][:6], [0, 2**23 - 1, -2**23, 8, 1035630, 0])

    def test_endings_choose_the_container(self):
        s16 = voice(4000)
        write_wav(self.dir / "in.wav", s16)
        magic = {"flac": b"fLaC", "aiff": b"FORM", "aif": b"FORM", "w64": b"riff", "caf": b"caff", "au": b".snd",
                 "rf64": b"RF64", "ogg": b"OggS", "oga": b"OggS", "opus": b"OggS", "WAV": b"RIFF"}
        for ending, first in magic.items():
            self.copy("in.wav", f"out.{ending}")
            self.assertEqual((self.dir / f"out.{ending}").read_bytes()[:4], first)
            self.copy(f"out.{ending}", "back.wav")
            back = read_wav(self.dir / "back.wav")[0][:len(s16)]
            if first == b"OggS":
                self.assertLess(rms([a - b for a, b in zip(back, s16)]), 0.5 * rms(s16), ending)
            else:
                self.assertEqual(back, s16, ending)

    def test_accumulating_adds_the_original_delayed_to_match(self):
        s16 = voice(3000)
        write_wav(self.dir / "in.wav", s16)
        self.copy("in.wav", "raw.wav", "--accumulate", "--format", "s16")
        self.assertEqual(read_wav(self.dir / "raw.wav")[0][:3000], [2 * s for s in s16])
        self.render("in.wav", "out.wav", "--preset", 7, "--library", FAKE, "--accumulate", "--format", "s16")
        ahead = s16[WRAPPER_DELAY:] + WRAPPER_DELAY * [0]  # this library has no delay to compensate
        self.assertEqual(read_wav(self.dir / "out.wav")[0], [a + b for a, b in zip(s16, ahead)])


class EffectTest(ProgramTest):
    """With the real library."""

    def test_voice_and_original_line_up_at_every_rate(self):
        for rate in (8000, 16000, 22050, 44100, 48000, 96000):
            for channels in (1, 2):
                left = voice(3000, seed=rate)
                frames = left if channels == 1 else [s for l in left for s in (l, -7)]
                write_wav(self.dir / "in.wav", frames, rate, channels)
                self.render("in.wav", "out.wav", "--preset", 7)
                got, *form = read_wav(self.dir / "out.wav")
                self.assertEqual((len(got), form), (len(frames), [rate, channels, 2]))
                self.assertEqual(got[::channels], got[channels - 1::channels])
                # Make-up gain of 21/16, compressor idle: its settled gain is a hair below one.
                worst = max(abs(g - s * 21 / 16) for g, s in zip(got[::channels], left))
                self.assertLess(worst, 3, (rate, channels))

    def test_block_length_changes_nothing(self):
        write_wav(self.dir / "in.wav", voice(20000, peak=20000))
        for preset in (0, 2, 3, 7, 11, 15):
            results = set()
            for block in (61, 960, 1024, 100000):
                self.render("in.wav", "out.wav", "--preset", preset, "--block", block)
                results.add((self.dir / "out.wav").read_bytes())
            self.assertEqual(len(results), 1, preset)

    def test_buffer_formats_agree_to_the_last_bit(self):
        write_wav(self.dir / "in.wav", voice(10000, peak=25000))
        for preset in (3, 7):
            results = []
            for fmt in FORMATS:
                self.render("in.wav", "out.wav", "--preset", preset, "--format", fmt)
                results.append(read_wav(self.dir / "out.wav")[0])
            for other in results[1:]:
                self.assertLessEqual(max(abs(a - b) for a, b in zip(results[0], other)), 1)

    def test_accumulated_is_original_plus_voice(self):
        original = voice(5000)
        write_wav(self.dir / "in.wav", original)
        self.render("in.wav", "voice.wav", "--preset", 7)
        changed = read_wav(self.dir / "voice.wav")[0]
        for fmt in FORMATS:
            self.render("in.wav", "out.wav", "--preset", 7, "--accumulate", "--format", fmt)
            self.assertEqual(read_wav(self.dir / "out.wav")[0], [a + b for a, b in zip(original, changed)], fmt)

    def test_a_switch_fades_through_silence_and_leaves_the_rest_alone(self):
        write_wav(self.dir / "in.wav", voice(24000))
        self.render("in.wav", "plain.wav", "--preset", 7)
        self.render("in.wav", "switched.wav", "--preset", 7, "--switch", "0.2:8")
        plain, switched = (read_wav(self.dir / f)[0] for f in ("plain.wav", "switched.wav"))
        # In output time; the switch falls on a block's start, and the voice is 607 samples late there.
        start = 9600 - WRAPPER_DELAY
        self.assertEqual(switched[:start], plain[:start])
        self.assertEqual(set(switched[start + 960:start + 2 * 960]), {0})
        self.assertGreater(rms(switched[start + 4 * 960:]), 0.9 * rms(plain[start + 4 * 960:]))

    def test_length_follows_tail_and_raw_timing(self):
        write_wav(self.dir / "in.wav", voice(5000))
        for arguments, length in (([], 5000), (["--tail", 0.1], 9800), (["--raw-timing"], 5607)):
            self.render("in.wav", "out.wav", "--preset", 7, *arguments)
            got = read_wav(self.dir / "out.wav")[0]
            self.assertEqual(len(got), length)
        # Raw: the preset comes in through a ramp down, two silent blocks and a ramp up.
        self.assertEqual(set(got[960:3 * 960]), {0})
        self.assertGreater(rms(got[-300:]), 100)  # and the end is all there

    def test_results_are_reported(self):
        write_wav(self.dir / "in.wav", 24000 * [16384, -16384])
        text = self.render("in.wav", "out.wav", "--preset", 9)
        self.assertIn("1.00 s in, 1.00 s out, 48000 Hz, mono, 16-bit", text)
        self.assertIn("input    peak -6.0 dBFS, RMS -6.0 dBFS, 0 clipped samples", text)
        self.assertRegex(text, r"output   peak -3\.\d dBFS")
        self.assertRegex(text, r"speed +\d+ times real time")


class SeveralPresetsTest(ProgramTest):
    def setUp(self):
        super().setUp()
        write_wav(self.dir / "in.wav", voice(2000))

    def test_a_folder_and_a_pattern_name_one_file_each(self):
        (self.dir / "out").mkdir()
        table = self.render("in.wav", "out", "--preset", "all")
        names = sorted(p.name for p in (self.dir / "out").iterdir())
        self.assertEqual(len(names), 17)
        self.assertIn("07-plain.wav", names)
        for name in names:
            self.assertIn(name, table)
        self.render("in.wav", "v{number}-{name}.flac", "--preset", "16,2,2")
        self.assertEqual(self.files(), ["in.wav", "out", "v02-echo.flac", "v16-cave.flac"])

    def test_every_listed_preset_is_what_it_is_alone(self):
        (self.dir / "out").mkdir()
        write_wav(self.dir / "in.wav", voice(12000))  # beyond the furthest echo
        # The echo's distances are random draws: those of the first file must not show in the second.
        self.render("in.wav", "out", "--preset", "7,2", "--switch", "0.01:2")
        self.render("in.wav", "alone.wav", "--preset", 2)
        self.assertEqual((self.dir / "out/02-echo.wav").read_bytes(), (self.dir / "alone.wav").read_bytes())

    def test_collisions_are_refused(self):
        self.assert_fails(2, "several presets would", "render", "in.wav", "out.wav", "--preset", "3,4")
        self.assert_fails(2, "several presets would", "render", "in.wav", "{name}.wav", "--preset", "7,8")
        self.assert_fails(2, "a folder that exists", "render", "in.wav", "new", "--preset", "all")
        write_wav(self.dir / "03.wav", voice(2000))
        self.assert_fails(2, "may be the input", "render", "03.wav", "{number}.wav", "--preset", "2,3")

    def test_presets_are_listed(self):
        lines = self.run_program("presets").stdout.splitlines()
        self.assertEqual([line.split()[0] for line in lines[1:]], [str(n) for n in range(17)])


class FailureTest(ProgramTest):
    def setUp(self):
        super().setUp()
        write_wav(self.dir / "in.wav", voice(2000))
        (self.dir / "out.wav").write_text("precious")

    def test_bad_files(self):
        (self.dir / "text.wav").write_text("no audio here, and long enough to be looked at twice\n")
        write_wav(self.dir / "six.wav", 600 * [1], channels=6)
        write_wav(self.dir / "empty.wav", [])
        os.mkfifo(self.dir / "pipe.wav")
        for source, target, says in (
                ("none.wav", "out.wav", "'none.wav': No such file"),
                ("text.wav", "out.wav", "'text.wav': no known audio format"),
                (".", "out.wav", "'.': it is a folder"),
                ("six.wav", "out.wav", "6 channels"),
                ("empty.wav", "out.wav", "holds no audio"),
                ("in.wav", "none/out.wav", "there is no folder 'none'"),
                ("in.wav", "pipe.wav", "it is not a file")):
            self.assert_fails(1, says, "render", source, target, "--preset", 7)

    def test_bad_command_lines(self):
        render = ["render", "in.wav", "out.wav", "--preset", "7"]
        for code, says, arguments in (
                (2, "subcommand", []),
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
                (1, "no preset '17'", [*render, "--switch", "0:17"]),
                (1, "no preset '17'", ["render", "in.wav", "out.wav", "--preset", "17"]),
                (1, "no preset ''", ["render", "in.wav", "out.wav", "--preset", "1,"]),
                (1, "no preset '-1'", ["render", "in.wav", "out.wav", "--preset=-1"])):
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
        for target, room in (("out.wav", 10000), ("new.wav", 10000), ("new.flac", 10000), ("new.ogg", 10000),
                             ("new.flac", -1), ("new.ogg", -1)):  # -1: only the very last byte has no room
            if room < 0:
                self.render("long.wav", target, "--preset", 7)
                room += (self.dir / target).stat().st_size
                (self.dir / target).unlink()
            limit = lambda bytes=room: resource.setrlimit(resource.RLIMIT_FSIZE, (bytes, bytes))
            self.assert_fails(1, f"cannot write '{target}': File too large", "render", "long.wav", target,
                              "--preset", 7, preexec_fn=limit)
        with open("/dev/full", "w", encoding="ascii") as full:
            result = subprocess.run([*PROGRAM, "presets"], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((result.returncode, result.stderr), (1, "krelvcp: cannot write to standard output\n"))

    def start(self, waits_for, *arguments, **env):
        """A rendering in the background, once its library's log holds `waits_for`."""
        log = self.dir / "log"
        log.write_text("")
        program = subprocess.Popen([*PROGRAM, "render", *arguments, "--preset", "7", "--raw-timing", "--library", FAKE],
                                   cwd=self.dir, env={**os.environ, "FAKE_EFFECT_LOG": str(log), **env})
        while waits_for not in log.read_text():
            self.assertIsNone(program.poll())
            time.sleep(0.01)
        return program

    def test_signals_leave_nothing_behind(self):
        write_wav(self.dir / "in.wav", 200000 * [1000])
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            program = self.start("process", "in.wav", "out.wav", FAKE_EFFECT_FAULT="slow")
            program.send_signal(number)
            self.assertEqual(program.wait(timeout=30), -number)
        self.assertEqual((self.dir / "out.wav").read_text(), "precious")
        self.assertEqual(self.files(), ["in.wav", "log", "out.wav"])

    def test_a_second_signal_ends_a_rendering_whose_input_stalls(self):
        write_wav(self.dir / "in.wav", 20000 * [1000])
        os.mkfifo(self.dir / "pipe")
        with open(self.dir / "pipe", "r+b", buffering=0) as pipe:
            pipe.write((self.dir / "in.wav").read_bytes()[:20000])
            program = self.start("process", "pipe", "new.wav")
            time.sleep(0.1)
            program.send_signal(signal.SIGINT)
            time.sleep(0.1)
            program.send_signal(signal.SIGINT)
            self.assertEqual(program.wait(timeout=30), -signal.SIGINT)

    def test_a_file_may_be_rendered_onto_itself_and_through_links(self):
        (self.dir / "out.wav").chmod(0o640)
        self.render("in.wav", "out.wav", "--preset", 7)
        self.assertEqual((self.dir / "out.wav").stat().st_mode & 0o777, 0o640)
        wanted = (self.dir / "out.wav").read_bytes()
        (self.dir / "link.wav").symlink_to("in.wav")
        (self.dir / "new_link.wav").symlink_to("new.wav")
        self.render("in.wav", "new_link.wav", "--preset", 7)
        self.render("in.wav", "link.wav", "--preset", 7)
        for link, name in (("link.wav", "in.wav"), ("new_link.wav", "new.wav")):
            self.assertTrue((self.dir / link).is_symlink())
            self.assertEqual((self.dir / name).read_bytes(), wanted)
        self.assertEqual(self.files(), ["in.wav", "link.wav", "new.wav", "new_link.wav", "out.wav"])


class MemoryTest(ProgramTest):
    def peak_memory(self, seconds):
        with wave.open(str(self.dir / "in.wav"), "wb") as f:
            f.setparams((1, 2, 8000, 0, "NONE", ""))
            f.writeframes(struct.pack("<8000h", *voice(8000)) * seconds)
        with subprocess.Popen([*PROGRAM, "render", "in.wav", "out.wav", "--preset", "7"], cwd=self.dir,
                              stdout=subprocess.DEVNULL) as program:
            _, status, usage = os.wait4(program.pid, 0)
            program.returncode = os.waitstatus_to_exitcode(status)
        self.assertEqual(program.returncode, 0)
        return usage.ru_maxrss

    def test_long_files_need_no_more_memory(self):
        self.assertLess(self.peak_memory(600) - self.peak_memory(1), 3000)  # KiB; the samples are 9375


if __name__ == "__main__":
    unittest.main()
