#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What the native engine makes of a file of 32-bit floats: the SHA-256 of every voice's samples, a line each.

usage: native.py LIBKRELVOICE RATE FILE
"""

import array
import ctypes
import hashlib
import sys

library, rate, path = sys.argv[1:]
engine = ctypes.CDLL(library)
engine.krel_voice_create.restype = ctypes.c_void_p
samples = array.array("f")
with open(path, "rb") as file:
    samples.frombytes(file.read())
for number in range(engine.krel_voice_count()):
    voice = ctypes.c_void_p(engine.krel_voice_create(int(rate), number, None, None))
    block = (ctypes.c_float * len(samples))(*samples)
    engine.krel_voice_process_float(voice, block, ctypes.c_size_t(len(samples)))
    engine.krel_voice_release(voice)
    print(hashlib.sha256(bytes(block)).hexdigest())
