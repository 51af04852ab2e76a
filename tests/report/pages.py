# SPDX-License-Identifier: Apache-2.0
"""Recordings whose figures are known, and pages made of them."""

import json
import math
import os
import re
import shlex
import struct
import subprocess
import wave

PROGRAM = [*shlex.split(os.environ.get("EMULATOR", "")), os.environ["KRELVCP"]]


def write_tone(path, rate, seconds, hz, start=0.0, peak=0.5):
    """Mono, 16 bits: a sine from `start` on, silence before it."""
    times = (i / rate for i in range(round(seconds * rate)))
    samples = [round(32767 * peak * math.sin(2 * math.pi * hz * t)) if t >= start else 0 for t in times]
    with wave.open(str(path), "wb") as f:
        f.setparams((1, 2, rate, 0, "NONE", ""))
        f.writeframes(struct.pack(f"<{len(samples)}h", *samples))


def compare(*arguments):
    return subprocess.run([*PROGRAM, "compare", *map(str, arguments)], capture_output=True, text=True)


def data(page):
    """What the page's script works with."""
    return json.loads(re.search(r'id="data">(.*?)</script>', page.read_text("utf-8"), re.DOTALL)[1])
