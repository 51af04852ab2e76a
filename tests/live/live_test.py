#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""krelvcp live under sound servers without hardware: what it gives, and how it starts, goes on and ends.

usage: live_test.py BUILD_FOLDER
"""

import array
import ctypes
import fcntl
import os
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
import wave
from pathlib import Path

from loop import Process
from servers import Jack, PipeWire, Server, until

SOURCE = Path(__file__).resolve().parent.parent.parent
BUILD = Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else SOURCE / "build/release"
PROGRAM = BUILD / "krelvcp"
RATE, BLOCK, HIGH, PLAIN, GIRL = 48000, 128, 5, 7, 11
LATENCY = {HIGH: 2655, GIRL: 7455}
# A test run in the background inherits them ignored, and the program leaves such as they are.
SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


def engine(samples, voice, switch=(None, None), bypass_at=None):
    """What the engine makes of them without a graph. switch: at which sample, to which voice."""
    lib = ctypes.CDLL(str(BUILD / "libkrelvoice.so.1"))
    lib.krel_voice_create.restype = ctypes.c_void_p
    handle = ctypes.c_void_p(lib.krel_voice_create(RATE, voice, None, None))
    out = array.array("f", samples)
    done = 0
    for at in sorted({switch[0], bypass_at, len(out)} - {None}):
        lib.krel_voice_process_float(handle, ctypes.c_void_p(out.buffer_info()[0] + 4 * done), ctypes.c_size_t(at - done))
        if at == switch[0]:
            lib.krel_voice_prepare(handle, switch[1])
        if at == bypass_at:
            lib.krel_voice_bypass(handle, 1)
        done = at
    lib.krel_voice_release(handle)
    return out


def first_difference(a, b):
    """Of the part that both have; or None."""
    return next((n for n, (x, y) in enumerate(zip(a, b)) if x != y), None)


def read_wav(path):
    with wave.open(str(path)) as file:
        return array.array("h", file.readframes(file.getnframes()))[::file.getnchannels()]


class Live:
    """A running `krelvcp live`, asked by lines."""

    def __init__(self, server, *options):
        pipes = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
        self.process = subprocess.Popen([PROGRAM, "live", *options], env=server.environment, text=True, **pipes,
                                        preexec_fn=lambda: [signal.signal(n, signal.SIG_DFL) for n in SIGNALS])
        os.set_blocking(self.process.stdout.fileno(), False)
        self.said = []

    def expect(self, pattern, seconds=20):
        """Reads lines up to the one that matches."""
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            select.select([self.process.stdout], [], [], 1)
            for line in iter(self.process.stdout.readline, ""):
                self.said.append(line.rstrip())
                if re.search(pattern, line):
                    return line
        self.process.kill()
        raise AssertionError(f"no {pattern} in {self.said}, {self.process.stderr.read()}")

    def ask(self, line, pattern):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        return self.expect(pattern)

    def end(self):
        """(exit code, standard error); what it said is printed."""
        self.process.wait(60)  # with its standard input open
        out, err = self.process.communicate()
        print("", *self.said, *out.splitlines(), *err.splitlines(), sep="\n  ")
        return self.process.returncode, err


class LiveTest(unittest.TestCase):
    def setUp(self):
        self.dir = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def render(self, source, voice):
        subprocess.run([PROGRAM, "render", source, self.dir / "out.wav", f"-p{voice}", "-q", "--rate", str(RATE)], check=True,
                       stderr=subprocess.DEVNULL)
        return read_wav(self.dir / "out.wav")

    def speech(self):
        """Floats that are 16-bit steps, beginning with a sound; and what krelvcp render makes of them."""
        samples = self.render(SOURCE / "assets/voice.flac", PLAIN)
        first = next(n for n, s in enumerate(samples) if abs(s) > 100)
        samples = samples[first:first + 8 * RATE]
        with wave.open(str(self.dir / "in.wav"), "wb") as file:
            file.setparams((1, 2, RATE, 0, "NONE", ""))
            file.writeframes(samples.tobytes())
        return [array.array("f", (s / 32768 for s in all_)) for all_ in (samples, self.render(self.dir / "in.wav", HIGH))]

    def start_server(self, kind):
        self.server = kind(self.dir)
        self.addCleanup(self.server.stop)
        self.server.start()
        self.start_client()

    def start_client(self):
        self.client = self.enterContext(Process(self.server.environment)).Client(self.server.library)
        self.addCleanup(self.server.release, self.client)

    def wait_for(self, seconds):
        until(lambda: self.client.state()[1] > seconds * RATE, "playing")

    def live(self, *options):
        live = Live(self.server, *options)
        self.enterContext(live.process)
        self.addCleanup(live.process.kill)
        return live


class ServerTest:
    """What holds under either server."""

    def setUp(self):
        super().setUp()
        self.start_server(self.kind)

    def start(self, *options):
        live = self.live("--in", self.server.microphone, *options)
        live.expect("^choose ")
        self.assertIn("microphone: " + self.server.heard_as, live.said)
        return live

    def record(self, speech):
        """What was heard while the voice was switched and bypassed."""
        live = self.start("--voice", str(HIGH))
        self.server.connect(self.client)
        time.sleep(0.5)
        self.client.play(speech)
        self.wait_for(2)
        live.ask("girl", "^voice: girl, .*voice 155.3")
        self.wait_for(5)
        live.ask("bypass", "^bypass: on")
        self.wait_for(7)
        self.assertRegex(live.ask("status", "^status"), r"in -?\d+\.\d dB, out -?\d+\.\d dB, .* cost \d+\.\d\d %")
        live.ask("quit", "^ended")
        self.assertEqual(live.end(), (0, ""))
        return self.client.heard()

    def where_switched(self, heard, speech):
        """The block at which the engine took the new voice, and the next difference."""
        heard_at = first_difference(heard, engine(speech, HIGH))
        self.assertIsNotNone(heard_at, "no switch was heard")
        guess = (heard_at - LATENCY[GIRL] - 60 * RATE // 1000) // BLOCK * BLOCK
        for at in range(max(guess - 4 * BLOCK, 0), guess + 5 * BLOCK, BLOCK):
            differs = first_difference(heard, engine(speech, HIGH, (at, GIRL)))
            if differs is None or differs > heard_at + RATE // 2:
                return at, differs
        self.fail(f"from sample {heard_at} on nothing explains what was heard")

    def assert_equals_offline(self, heard, speech, rendered):
        period = self.client.state()[0]
        late = next((n for n in (period, 2 * period) if first_difference(heard[n + LATENCY[HIGH]:n + RATE], rendered) is None), None)
        self.assertIsNotNone(late, "not the samples of krelvcp render, one or two periods later")
        heard = heard[late:]
        switched, bypassed = self.where_switched(heard, speech)
        # The engine looks at the begin of a block and at its end.
        near = [n for n in range(bypassed - BLOCK, bypassed + 1) if n % BLOCK in (0, BLOCK - 1)]
        whole = [first_difference(heard, engine(speech, HIGH, (switched, GIRL), n)) for n in near]
        self.assertIn(None, whole, f"after the bypass near {near}")
        print(f"{len(heard)} samples equal, {late} late; switched at {switched}, bypassed at {bypassed}")

    def test_live_output_is_the_offline_render_through_a_switch_and_a_bypass(self):
        speech, rendered = self.speech()
        for left in reversed(range(self.attempts)):
            try:
                return self.assert_equals_offline(self.record(speech), speech, rendered)
            except AssertionError as e:
                print(f"{e}; attempts left: {left}")
                if left == 0:
                    raise

    def test_an_unplugged_microphone_is_silence_until_it_is_back(self):
        live = self.start("--voice", "plain")
        self.server.unplug(self.client)
        live.expect("^microphone: gone")
        if self.kind is Jack:
            self.start_client()
        else:
            self.server.plug()
        live.expect("^microphone: " + self.server.heard_as)
        self.server.connect(self.client)
        self.client.play(array.array("f", [0.25] * 10 * RATE))
        until(lambda: max(self.client.heard(), default=0) > 0.2, "hearing the microphone again")
        live.process.stdin.close()  # who controls it has gone
        live.expect("^ended")
        self.assertEqual(live.process.wait(30), 0)

    def test_no_microphone_and_a_killed_server_end_it_with_one_line(self):
        live, unheard = self.start(), self.live("--in", "nothing")
        self.assertRegex(unheard.end()[1], rf"\Akrelvcp: .*{self.server.name}: there is no microphone 'nothing'.*\n\Z")
        self.server.daemon.kill()
        code, error = live.end()
        self.assertEqual((code, unheard.process.returncode), (1, 1))
        self.assertRegex(error, r"\Akrelvcp: the sound server has gone: .+\n\Z")

    def test_signals_end_it_and_leave_nothing_in_the_graph(self):
        for number in SIGNALS:
            live = self.start("--monitor")
            self.assertTrue(self.server.has_voice())
            live.process.send_signal(number)
            self.assertEqual(live.end(), (-number, ""))
            until(lambda: not self.server.has_voice(), "the voice's going")


class JackTest(ServerTest, LiveTest):
    kind, attempts = Jack, 1


class PipeWireTest(ServerTest, LiveTest):
    kind, attempts = PipeWire, 3  # a client that is late loses a period

    def test_the_monitor_plays_and_the_voice_is_no_default_microphone(self):
        live = self.start("--monitor")
        self.assertIn("monitor: Test headphones", live.said)
        played_on = {"krel-voice:input_MONO", "phones:playback_FL", "phones:playback_FR"}
        self.assertEqual(self.server.links("krel-voice-filter:out"), played_on)
        live.ask("monitor", "^monitor: off")
        until(lambda: self.server.links("krel-voice-filter:out") == {"krel-voice:input_MONO"}, "the monitor's end")
        self.assertIn('{"name":"mic"}', self.server.call("pw-metadata", "0", "default.audio.source"))
        # Both of our ports and, as it is passed on, both of the microphone's.
        until(lambda: self.server.call("pw-dump").count('"maxRate": 607') >= 4, "the voice's delay being known")

    def test_what_another_program_removes_is_an_end(self):
        for node in ("krel-voice", "krel-voice-filter"):
            live = self.start()
            self.server.call("pw-cli", "destroy", node)
            self.assertEqual(live.end(), (1, "krelvcp: another program has removed the voice from PipeWire\n"))

    def test_another_period_and_rate_of_the_graph(self):
        live = self.start("--voice", "robot")
        self.server.connect(self.client)
        for key, value, says in (("quantum", "2048", "48000 Hz, periods of 2048 frames"), ("rate", "44100", "44100 Hz")):
            self.server.call("pw-metadata", "-n", "settings", "0", "clock.force-" + key, value)
            live.expect("^graph: " + says)
        self.client.play(array.array("f", [0.25, -0.25] * 5 * RATE))
        until(lambda: max(self.client.heard(), default=0) > 0.01, "a voice at the new rate")

    def test_keys_and_the_screen_of_a_terminal(self):
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, 90, 0, 0))
        before = termios.tcgetattr(slave)

        def press(keys, pattern):
            screen = b""

            os.write(master, keys)
            while not re.search(pattern, screen):
                self.assertTrue(select.select([master], [], [], 20)[0], f"{pattern} after {keys}")
                screen += os.read(master, 4096)
                self.assertLess(max(map(len, re.split(rb"[\r\n]+", screen))), 100)
                self.assertLess(len(screen), 20000, f"{pattern} after {keys}")

        for last_key in (b"q", None):
            live = subprocess.Popen([PROGRAM, "live", "--voice", "7"], env=self.server.environment, stdin=slave, stdout=slave,
                                    stderr=slave, start_new_session=True)
            self.addCleanup(live.kill)
            for step in ((b"", rb"plain +in \[ {11}\] +-60 out \[ {11}\] +-60 dB +12\.6\+0\.0 ms +\d"),
                                  (b"n", b"voice: deep"), (b"\x1b[D", b"voice: plain"), (b"11", b"voice: girl"),
                                  (b" ", b"bypass: on(.|\n)* bypass"), (b"m", b"monitor: Test headphones(.|\n)* monitor")):
                press(*step)
            if last_key:
                press(last_key, b"ended")
                self.assertEqual(live.wait(30), 0)
                self.assertEqual(termios.tcgetattr(slave), before)
        os.close(master)  # the window is closed
        os.close(slave)
        self.assertIn(live.wait(30), (0, 1))


class FilterChainTest(LiveTest):
    def test_the_configuration_file_makes_a_microphone_with_the_plug_ins_samples(self):
        os.environ["LV2_PATH"] = str(BUILD / "lv2_path")
        fragments = self.dir / "pipewire/pipewire.conf.d"
        fragments.mkdir(parents=True)
        # Of the voices the one that does not depend on how long it has heard silence.
        text, count = re.subn(r"voice = 11\b", f"voice = {PLAIN}", (SOURCE / "lv2/krel-voice.conf").read_text())
        self.assertEqual(count, 1)
        (fragments / "krel-voice.conf").write_text(text)
        self.start_server(PipeWire)
        until(lambda: "krel-voice-input:input_MONO" in self.server.links("mic:capture_MONO"), "the microphone's connection")
        self.assertIn('{"name":"mic"}', self.server.call("pw-metadata", "0", "default.audio.source"))
        self.server.connect(self.client)
        speech = self.speech()[0]
        for _ in range(PipeWireTest.attempts):
            self.client.play(speech)
            self.wait_for(4)
            heard, (period, _) = self.client.heard(), self.client.state()
            if None in [first_difference(heard[n * period:3 * RATE], engine(speech, PLAIN)) for n in (1, 2, 3)]:
                return
        self.fail("not the plug-in's samples")


class NoServerTest(LiveTest):
    def run_live(self, program, *options):
        result = subprocess.run([program, "live", *options], env=Server(self.dir).environment, capture_output=True, text=True,
                                stdin=subprocess.DEVNULL, timeout=60)
        self.assertEqual((result.returncode, result.stdout, result.stderr.count("\n")), (1, "", 1))
        return result.stderr

    def test_what_is_missing_is_said_in_one_line(self):
        self.assertEqual(self.run_live(PROGRAM), "krelvcp: pipewire: no PipeWire daemon is running; "
                                                 "jack: no JACK server is running\n")
        alone = self.dir / "krelvcp"
        shutil.copy(PROGRAM, alone)
        (self.dir / "krelvcp-live").mkdir()
        (self.dir / "krelvcp-live/jack.so").write_text("no module")
        self.assertRegex(self.run_live(alone), "pipewire: this krelvcp was built without it; jack: cannot load ")


if __name__ == "__main__":
    unittest.main(verbosity=2)
