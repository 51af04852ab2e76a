# SPDX-License-Identifier: Apache-2.0
"""Sound servers without sound hardware, private to the test."""

import os
import re
import shutil
import subprocess
import time
import unittest
import zlib
from pathlib import Path

# The same every time: a machine remembers eight servers, and one that was killed until another one takes its name.
JACK_NAME = f"krel-live-{os.getuid()}-{zlib.crc32(__file__.encode()):08x}"
NODE = "factory.name = support.null-audio-sink object.linger = true node.name ="
CONFIGURATION = """context.properties = {{ default.clock.min-quantum = {0} default.clock.max-quantum = {0} }}
context.objects = [ {{ factory = adapter args = {{
    {1} phones node.description = "Test headphones" media.class = Audio/Sink audio.position = [ FL FR ] }} }} ]"""
MICROPHONE = f"""{{ {NODE} mic node.description = "Test microphone" media.class = Audio/Source/Virtual
    audio.position = [ MONO ] priority.session = 100 }}"""


def until(condition, what, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"{what} does not happen")
        time.sleep(0.05)


class Server:
    """Runs until stop(). environment: what its clients need. library: JACK's, for the test's own client."""

    def __init__(self, folder):
        self.folder, self.processes = Path(folder), []
        own = ("HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME", "PIPEWIRE_RUNTIME_DIR")
        self.environment = {**os.environ, **dict.fromkeys(own, str(folder)), "JACK_NO_AUDIO_RESERVATION": "1",
                            "JACK_DEFAULT_SERVER": JACK_NAME, "DBUS_SESSION_BUS_ADDRESS": f"unix:path={folder}/bus"}

    def spawn(self, *command):
        if not shutil.which(command[0]):
            raise unittest.SkipTest(f"no {command[0]} here")
        with open(self.folder / f"{command[0]}.log", "w") as log:
            self.processes.append(subprocess.Popen([*map(str, command)], env=self.environment, stdin=subprocess.DEVNULL,
                                                   stdout=log, stderr=log))
        return self.processes[-1]

    def has_voice(self):
        return "krel-voice" in self.call(*self.list_ports)

    def call(self, *command):
        return subprocess.run(command, env=self.environment, capture_output=True, text=True, timeout=60).stdout

    def begin(self, answers, *command):
        self.daemon = self.spawn(*command)

        def ready():
            if self.daemon.poll() is not None:
                log = (self.folder / f"{command[0]}.log").read_text()
                raise unittest.SkipTest(f"{self.name} does not start in this sandbox:\n{log}")
            return answers()
        until(ready, f"{self.name}'s answer")

    def stop(self):
        for process in reversed(self.processes):
            process.terminate()
            try:
                process.wait(5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


class Jack(Server):
    """The test's own client is the microphone."""
    name, library, list_ports = "jack", "libjack.so.0", ["jack_lsp"]
    voice, microphone, heard_as = "krel-voice:out", "test", "test:play"

    def start(self, period=1024):
        # Synchronous: a client that is late holds up the others, and no sample is lost on a busy machine.
        self.begin(lambda: "system:capture_1" in self.call("jack_lsp"), "jackd", "--name", JACK_NAME, "-r", "-S", "-t", 5000,
                   "-d", "dummy", "-r", 48000, "-p", period)

    def connect(self, client):
        client.connect(self.voice, "test:record")

    def unplug(self, client):
        client.leave()

    def release(self, client):
        """It waits for a client that goes without a word."""
        if self.daemon.poll() is None:
            client.leave()


class PipeWire(Server):
    name, list_ports = "pipewire", ["pw-link", "-o"]
    voice, microphone, heard_as = "Krel voice:capture_MONO", "test microphone", "Test microphone"

    def start(self, period=1024):
        libraries = [str(path) for path in Path("/usr/lib").glob("*/pipewire-0.3/jack/libjack.so.0")]
        if not libraries:
            raise unittest.SkipTest("no pipewire-jack here")
        self.library = libraries[0]
        fragments = self.folder / "pipewire/pipewire.conf.d"
        fragments.mkdir(parents=True, exist_ok=True)
        (fragments / "test.conf").write_text(CONFIGURATION.format(period, NODE))
        self.spawn("dbus-daemon", "--session", "--nofork", f"--address=unix:path={self.folder}/bus")
        until((self.folder / "bus").exists, "the bus")
        self.begin(lambda: "core" in self.call("pw-cli", "info", "0"), "pipewire")
        self.spawn("wireplumber")
        until(lambda: "phones:playback_FR" in self.call("pw-link", "-i"), "the session manager's start")
        self.plug()

    def plug(self):
        self.call("pw-cli", "create-node", "adapter", MICROPHONE)
        until(lambda: "mic:capture_MONO" in self.call("pw-link", "-o"), "the microphone's coming")

    def connect(self, client):
        client.connect("test:play", "Test microphone:input_MONO")
        client.connect(self.voice, "test:record")

    def unplug(self, _):
        self.call("pw-cli", "destroy", "mic")

    def release(self, _):
        pass

    def links(self, port):
        """The ports that get what this one gives."""
        _, _, targets = self.call("pw-link", "-l").partition(f"\n{port}\n")
        return set(re.findall(r"^  \|-> (.*)$", re.split(r"^\S", targets, maxsplit=1, flags=re.M)[0], re.M))
