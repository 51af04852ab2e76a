# SPDX-License-Identifier: Apache-2.0
"""Shows krelvcp doctor small made-up devices, each with one thing different from one that loads the effect."""

import os
import shlex
import struct
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

PROGRAM = shlex.split(os.environ.get("EMULATOR", "")) + [os.environ["KRELVCP"]]
PROGRAM[0] = shutil.which(PROGRAM[0])  # an emulator, wherever PATH points later
FRAGMENT = (Path(__file__).resolve().parents[2] / "android/audio_effects.xml").read_text()
ARM, ARM64 = (32, 40), (64, 183)  # ELF class and machine
HARD_FLOAT = 0x400
XML, LIBRARY, LIBRARY_64 = "vendor/etc/audio_effects.xml", "vendor/lib/soundfx/libkrelvcp.so", "vendor/lib64/soundfx/libkrelvcp.so"
SERVICE, MANIFEST = "vendor/bin/hw/android.hardware.audio.service", "vendor/etc/vintf/manifest.xml"
CONF = """libraries { krelvcp { path /vendor/lib/soundfx/libkrelvcp.so } }
effects { voice { library krelvcp
    uuid 40050B20-6999-11e0-b0d8-0002a5d5c526 } }  # ours
"""


def elf(kind, needed=("libc.so", "libm.so"), imports=("malloc",), record=(0x41454C54, 0x30000), align=0x4000, flags=0,
        text_relocations=False):
    """A shared library that has just what a loader reads: a segment, dynamic entries, dynamic symbols, AELI's words."""
    bits, machine = kind
    wide = bits == 64
    strings, at = b"\0", {}
    for name in (*needed, *imports, "AELI"):
        at[name] = len(strings)
        strings += name.encode() + b"\0"
    header, segment, section = (64, 56, 64) if wide else (52, 32, 40)
    start = header + segment
    names = [(name, 0) for name in imports] + ([("AELI", 1)] if record else [])

    def symbol(name, index):
        value = start if index else 0
        return struct.pack("<IBBHQQ", at[name], 0x12, 0, index, value, 8) if wide else \
            struct.pack("<IIIBBH", at[name], value, 8, 0x12, 0, index)

    entries = [(1, at[name]) for name in needed] + ([(22, 0)] if text_relocations else []) + [(0, 0)]
    parts = [struct.pack("<II", *(record or (0, 0))), strings.ljust(-(-len(strings) // 8) * 8, b"\0"),
             bytes(24 if wide else 16) + b"".join(symbol(*name) for name in names),
             b"".join(struct.pack("<QQ" if wide else "<II", *entry) for entry in entries)]
    offsets = [start + sum(map(len, parts[:i])) for i in range(5)]
    word = "Q" if wide else "I"
    sections = b"".join(struct.pack(f"<II{word * 4}II{word * 2}", 0, kind, 0, 0, offset, size, link, info, 1, entry)
                        for kind, offset, size, link, info, entry in (
        (0, 0, 0, 0, 0, 0), (3, offsets[1], len(parts[1]), 0, 0, 0),
        (11, offsets[2], len(parts[2]), 1, 1, 24 if wide else 16),
        (6, offsets[3], len(parts[3]), 1, 0, 16 if wide else 8)))
    size = offsets[4]
    head = b"\x7fELF" + bytes([2 if wide else 1, 1, 1]) + bytes(9) + struct.pack(
        f"<HHI{word * 3}IHHHHHH", 3, machine, 1, 0, header, size, flags, header, segment, 1, section, 4, 0)
    load = struct.pack("<IIQQQQQQ", 1, 6, 0, 0, 0, size, size, align) if wide else \
        struct.pack("<IIIIIIII", 1, 0, 0, 0, size, size, 6, align)
    return head + load + b"".join(parts) + sections


def manifest(form):
    return f'<manifest><hal format="{form}"><name>android.hardware.audio.effect</name></hal></manifest>'


LOADS = {XML: FRAGMENT, LIBRARY: elf(ARM), SERVICE: elf(ARM), MANIFEST: manifest("hidl")}
ONLY_64 = {LIBRARY: None, SERVICE: elf(ARM64), LIBRARY_64: elf(ARM64)}

# What differs from a device that loads the effect, and a part of a line that says so: of a problem, or (the second table) of
# another line on a device that loads it all the same.
BROKEN = {
    "only the 64-bit library": ({LIBRARY: None, LIBRARY_64: elf(ARM64)}, "not where a 32-bit process looks"),
    "only 32 bits and no HAL program": ({SERVICE: None}, "not where a 64-bit process looks"),
    "64-bit library in lib": ({LIBRARY: elf(ARM64)}, "libkrelvcp.so is 64-bit arm64"),
    "another machine": ({LIBRARY: elf((32, 3))}, "is 32-bit x86"),
    "not a library": ({LIBRARY: b"text"}, "no shared ELF file"),
    "cut off": ({LIBRARY: elf(ARM)[:90]}, "cut off: it has no symbols"),
    "hard float": ({LIBRARY: elf(ARM, flags=HARD_FLOAT)}, "hard float"),
    "glibc": ({LIBRARY: elf(ARM, needed=("libc.so.6",))}, "needs libc.so.6, which a device lacks"),
    "unknown name": ({LIBRARY: elf(ARM, imports=("malloc", "quick_exit"))}, "needs quick_exit, not known"),
    "text relocations": ({LIBRARY: elf(ARM, text_relocations=True)}, "has text relocations"),
    "no pages": ({LIBRARY: elf(ARM, align=4)}, "not aligned to pages"),
    "no AELI": ({LIBRARY: elf(ARM, record=None)}, "does not export AELI"),
    "AELI of version 2": ({LIBRARY: elf(ARM, record=(0x41454C54, 0x20000))}, "wrong tag or version"),
    "AELI with another tag": ({LIBRARY: elf(ARM, record=(0x41454C55, 0x30000))}, "wrong tag or version"),
    "AIDL": ({MANIFEST: manifest("aidl")}, "AIDL"),
    "AIDL beside HIDL": ({"vendor/etc/vintf/manifest/a.xml": manifest("aidl")}, "AIDL"),
    "neither said": ({MANIFEST: None, "getprop.txt": "[ro.build.version.sdk]: [34]\n"}, "say that it is HIDL"),
    "effects ignored": ({"vendor/build.prop": "ro.audio.ignore_effects=true\n"}, "ro.audio.ignore_effects"),
    "no configuration": ({XML: None}, "no file that the factory can take"),
    "broken XML": ({XML: FRAGMENT.replace("</effects>", "")}, "audio_effects.xml: Error="),
    "broken XML comes first": ({"odm/etc/audio_effects.xml": "<audio_effects_conf>"}, "/odm/etc/audio_effects.xml: Error="),
    "other root": ({XML: "<conf/>"}, "root element is not audio_effects_conf"),
    "no effect": ({XML: FRAGMENT.replace("40050b20", "40050b21")}, "no effect has the uuid"),
    "no library": ({XML: FRAGMENT.replace('library name="krelvcp"', 'library name="x"')}, "names the library 'krelvcp'"),
    "other file": ({XML: FRAGMENT.replace("libkrelvcp.so", "libx.so")}, "is the file 'libx.so'"),
    "whole path": ({XML: FRAGMENT.replace('path="', 'path="/vendor/lib/soundfx/')}, "begins with a slash"),
    "SKU without the entries": ({"vendor/etc/audio/sku_b/audio_effects.xml": "<audio_effects_conf/>", "getprop.txt":
                                 "[ro.boot.product.vendor.sku]: [b]\n"}, "no effect has the uuid"),
    "conf without the folder": ({XML: None, "vendor/etc/audio_effects.conf": CONF.replace("/lib/", "/lib64/")},
                                "has no /lib/soundfx/"),
    "conf with an open brace": ({XML: None, "vendor/etc/audio_effects.conf": CONF.replace("}", "", 1)}, "brace"),
}
WORKING = {
    "32 bits": ({}, "/vendor/lib/soundfx/libkrelvcp.so is 32-bit arm"),
    "64 bits": (ONLY_64, "/vendor/lib64/soundfx/libkrelvcp.so is 64-bit arm64"),
    "the first folder counts": ({"odm/lib/soundfx/libkrelvcp.so": elf(ARM), LIBRARY: b"text"}, "/odm/lib/soundfx/"),
    "no manifest, Android 11": ({MANIFEST: None, "getprop.txt": "[ro.build.version.sdk]: [30]\n"}, "API level 30"),
    "SKU is new in 11": ({"vendor/etc/audio/sku_b/audio_effects.xml": "<audio_effects_conf/>", "getprop.txt":
                          "[ro.boot.product.vendor.sku]: [b]\n[ro.build.version.sdk]: [29]\n"}, "takes /vendor/etc/"),
    "conf": ({XML: None, "vendor/etc/audio_effects.conf": CONF}, "takes /vendor/etc/audio_effects.conf"),
    "conf for 64 bits": ({**ONLY_64, XML: "<", "vendor/etc/audio_effects.conf": CONF}, "/vendor/lib64/soundfx/"),
    "attached": ({XML: FRAGMENT.replace("</audio_effects_conf>", '<postprocess><stream type="music"><apply effect='
                  '"voice_changer"/></stream></postprocess></audio_effects_conf>')}, "every stream of type 'music'"),
    "device effect": ({XML: FRAGMENT.replace("</audio_effects_conf>", '<deviceEffects><devicePort type="x"><apply effect='
                       '"voice_changer"/></devicePort></deviceEffects></audio_effects_conf>')}, "its record is 3.0"),
    "small pages": ({LIBRARY: elf(ARM, align=0x1000)}, "aligned to 4 KiB"),
    "neighbours": ({"vendor/lib/soundfx/libx.so": b""}, "1 other files in /vendor/lib/soundfx"),
}


class DoctorTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)

    def doctor(self, *arguments, **environment):
        return subprocess.run([*PROGRAM, "doctor", *map(str, arguments)], capture_output=True, text=True, timeout=60,
                              env={**os.environ, **environment})

    def device(self, name, changes):
        root = self.root / name.replace(" ", "_")
        for path, content in {**LOADS, **changes}.items():
            if content is not None:
                (root / path).parent.mkdir(parents=True, exist_ok=True)
                (root / path).write_bytes(content if isinstance(content, bytes) else content.encode())
        return root

    def test_devices(self):
        for table, code in ((BROKEN, 1), (WORKING, 0)):
            for name, (changes, said) in table.items():
                with self.subTest(name):
                    result = self.doctor(self.device(name, changes))
                    problems = [line for line in result.stdout.splitlines() if line.startswith("PROBLEM")]
                    self.assertEqual(result.returncode, code, result.stdout + result.stderr)
                    self.assertIn(said, "\n".join(problems) if code else result.stdout)
                    self.assertEqual(bool(problems), bool(code))
                    self.assertEqual(len(result.stderr.splitlines()), code)

    def test_one_library_needs_no_device(self):
        for kind in (ARM, ARM64):
            library = self.root / "lib.so"
            library.write_bytes(elf(kind))
            self.assertEqual(self.doctor(library).returncode, 0)

    def test_adb_fetches_what_a_folder_would_have(self):
        phone = self.device("phone", {"getprop.txt": ""})
        adb = self.root / "adb"
        adb.write_text(f'#!/bin/sh\ncase $1 in\nshell) cat "{phone}/getprop.txt";;\n'
                       f'pull) cp -r "{phone}$2" "$3" 2>/dev/null;;\nesac\n')
        adb.chmod(0o755)
        path = f"{self.root}:{os.environ['PATH']}"
        result = self.doctor("--adb", PATH=path)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        adb.write_text("#!/bin/sh\nexit 1\n")
        self.assertIn("reaches no device", self.doctor("--adb", PATH=path).stderr)

    def test_what_cannot_be_examined_is_one_line(self):
        empty = self.root / "empty"
        empty.mkdir()
        for arguments, code, said in ((("--adb",), 1, "adb cannot be run"), ((self.root / "none",), 1, "is no folder"),
                                      ((), 2, "wants a PATH"), ((empty, "--adb"), 2, "wants a PATH")):
            result = self.doctor(*arguments, PATH=str(empty))
            self.assertEqual((result.returncode, len(result.stderr.splitlines())), (code, 1), result.stderr)
            self.assertIn(said, result.stderr)


if __name__ == "__main__":
    unittest.main()
