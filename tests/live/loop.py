# SPDX-License-Identifier: Apache-2.0
"""A client in the graph that plays samples into the voice and records what comes out, period by period."""

import array
import ctypes
import errno
import multiprocessing
import os
import sys
import time
from multiprocessing.managers import BaseManager

PROCESS = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_uint32, ctypes.c_void_p)
AUDIO, INPUT, OUTPUT, NO_START_SERVER = b"32 bit float mono audio", 1, 2, 1


class Client:
    """Ports: test:play and test:record. Silent until play(); records from play()'s first period on."""

    def __init__(self, library, room=20 * 48000):
        """library: JACK's, or PipeWire's in its place."""
        self.jack = ctypes.CDLL(library)
        for function in (self.jack.jack_client_open, self.jack.jack_port_register, self.jack.jack_port_get_buffer):
            function.restype = ctypes.c_void_p
        self.client = ctypes.c_void_p(self.jack.jack_client_open(b"test", NO_START_SERVER, None))
        self.ports = [ctypes.c_void_p(self.jack.jack_port_register(self.client, name, AUDIO, ctypes.c_ulong(kind), ctypes.c_ulong(0)))
                      for name, kind in ((b"play", OUTPUT), (b"record", INPUT))]
        self.room, self.at, self.playing, self.frames = room, 0, False, 0
        self.played, self.recorded = (ctypes.c_float * room)(), (ctypes.c_float * room)()
        self.callback = PROCESS(self.process)
        self.jack.jack_set_process_callback(self.client, self.callback, None)
        self.jack.jack_activate(self.client)

    def process(self, frames, _):
        out, recorded = (self.jack.jack_port_get_buffer(port, frames) for port in self.ports)
        self.frames = frames
        running = self.playing and self.at + frames <= self.room
        if out and running:
            ctypes.memmove(out, ctypes.byref(self.played, 4 * self.at), 4 * frames)
        elif out:
            ctypes.memset(out, 0, 4 * frames)
        if recorded and running:
            ctypes.memmove(ctypes.byref(self.recorded, 4 * self.at), recorded, 4 * frames)
        self.at += frames if running else 0
        return 0

    def connect(self, source, target):
        """As soon as both are there."""
        for _ in range(100):
            if self.jack.jack_connect(self.client, source.encode(), target.encode()) in (0, errno.EEXIST):
                return
            time.sleep(0.05)
        raise RuntimeError(f"cannot connect {source} to {target}")

    def play(self, samples):
        """An array of floats, then silence."""
        for buffer, data in ((self.recorded, b""), (self.played, samples.tobytes())):
            ctypes.memset(buffer, 0, ctypes.sizeof(buffer))
            ctypes.memmove(buffer, data, len(data))
        self.at, self.playing = 0, True

    def heard(self):
        return array.array("f", self.recorded[:self.at])

    def state(self):
        """Frames in a period, and samples recorded."""
        return self.frames, self.at

    def leave(self):
        client, self.client = self.client, None
        if client:
            self.jack.jack_client_close(client)


def prepare(environment):
    os.environ.update(environment)
    sys.setswitchinterval(0.0005)  # a period does not wait for a request


class Process(BaseManager):
    """A client's process, for servers come and go and their libraries keep traces of them."""

    def __init__(self, environment):
        super().__init__(ctx=multiprocessing.get_context("spawn"))
        self.start(prepare, (environment,))


Process.register("Client", Client)
