# SPDX-License-Identifier: Apache-2.0
"""Installs the build, moves the tree, and uses it as outside callers do: CMake, pkg-config, the program."""

import os
import re
import shlex
import struct
import subprocess
import tempfile
import unittest
import wave
from pathlib import Path

HERE = Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
CMAKE, BUILD, LIBDIR = os.environ["CMAKE"], Path(os.environ["BUILD"]), os.environ["LIBDIR"]
EFFECT_FOLDER = os.environ["EFFECT_FOLDER"]
CC, CXX, TOOLCHAIN = os.environ["CC"], os.environ["CXX"], os.environ.get("TOOLCHAIN", "")
EMULATOR = shlex.split(os.environ.get("EMULATOR", ""))
STRICT = ["-Wall", "-Wextra", "-Werror", "-pedantic"]


def run(*command, **env):
    result = subprocess.run([*map(str, command)], capture_output=True, text=True, timeout=200,
                            env={**os.environ, **env})
    if result.returncode != 0:
        raise AssertionError(f"{command} failed:\n{result.stdout}{result.stderr}")
    return result.stdout


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.dir = Path(folder.name)
        cls.first, cls.tree = cls.dir / "first", cls.dir / "moved"
        run(CMAKE, "--install", BUILD, "--prefix", cls.first)
        cls.first.rename(cls.tree)
        cls.headers = sorted((cls.tree / "include/krelvcp").rglob("*.h"))
        cls.engine_headers = sorted((cls.tree / "include/krelvoice").rglob("*.h"))

    def test_nothing_names_where_it_was_built_or_installed(self):
        packages = [p for p in (self.tree / LIBDIR).rglob("*") if p.suffix in (".cmake", ".pc")]
        self.assertEqual(len(packages), 10)
        for path in packages:
            for place in (self.first, BUILD, SOURCE):
                self.assertNotIn(str(place), path.read_text(), path)
        for path in (*(self.tree / LIBDIR).rglob("*.so*"), self.tree / "bin/krelvcp"):
            self.assertNotIn("RUNPATH", run("readelf", "--dynamic", "--wide", path), path)

    def test_staging_and_a_system_prefix_work(self):
        run(CMAKE, "--install", BUILD, "--prefix", "/usr", DESTDIR=str(self.dir / "stage"))
        self.assertTrue((self.dir / "stage/usr" / EFFECT_FOLDER / "libkrelvcp.so").exists())
        share = self.dir / "stage/usr/share"
        self.assertTrue((share / "doc/krelvcp/LICENSE").exists())
        for path in ("man/man1/krelvcp.1", "bash-completion/completions/krelvcp", "zsh/site-functions/_krelvcp",
                     "fish/vendor_completions.d/krelvcp.fish"):
            self.assertIn("--preset" if "man" not in path else "preset", (share / path).read_text().replace("-l ", "--"))

    def test_headers_declare_all_names_but_the_frameworks(self):
        promised = re.findall(r"^ +(\w+);", (SOURCE / "cmake/exports.map").read_text(), re.MULTILINE)
        text = "".join(path.read_text() for path in self.headers)
        declared = {re.findall(r"\w+", d.split("(")[0])[-1] for d in re.findall(r"KREL_EXPORT\s+([^;{]+);", text)}
        left = {name for name in promised if name != "AELI" and not name.startswith("Effect")}
        self.assertEqual(declared, left)

    def test_every_header_compiles_alone(self):
        alone = self.dir / "alone"
        for path in self.headers + self.engine_headers:
            include = path.parent.parent
            alone.write_text(f"#include <{path.relative_to(include)}>\nextern int not_empty;\n")
            for compiler, language, standard in ((CC, "c", "c11"), (CXX, "c++", "c++17")):
                run(compiler, "-x", language, f"-std={standard}", *STRICT, "-I", include, "-fsyntax-only", alone)

    def test_cmake_package_serves_an_outside_project(self):
        build = self.dir / "cmake"  # a build tree's package registry must not help
        run(CMAKE, "-S", HERE, "-B", build, f"-DCMAKE_PREFIX_PATH={self.tree}", "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF",
            *([f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}"] if TOOLCHAIN else [f"-DCMAKE_C_COMPILER={CC}"]))
        run(CMAKE, "--build", build)
        self.assertIn("all blocks answer", run(*EMULATOR, build / "consumer"))
        for library in ("krelvoice", "krelvoice_static"):
            self.assertIn("voice: heard", run(*EMULATOR, build / f"{library}_consumer"))

    def test_pkg_config_serves_a_compiler_command(self):
        package = {"PKG_CONFIG_PATH": str(self.tree / LIBDIR / "pkgconfig")}
        version = (SOURCE / "VERSION").read_text().strip()
        program = self.dir / "plain"
        for name, source, answer in (("krelvcp", "consumer.c", "all blocks answer"), ("krelvoice", "voice.c", "voice: heard")):
            flags = run("pkg-config", "--cflags", "--libs", name, **package).split()
            self.assertEqual(run("pkg-config", "--modversion", name, **package).strip(), version)
            run(CC, "-std=c11", *STRICT, HERE / source, "-o", program, *flags,
                f"-Wl,-rpath,{self.tree / LIBDIR}:{self.tree / EFFECT_FOLDER}")
            self.assertIn(answer, run(*EMULATOR, program))

    def test_installed_program_finds_the_installed_library(self):
        with wave.open(str(self.dir / "in.wav"), "wb") as f:
            f.setparams((1, 2, 48000, 0, "NONE", ""))
            f.writeframes(struct.pack("<4800h", *(8000 if n // 50 % 2 else -8000 for n in range(4800))))
        for program, out in ((self.tree / "bin/krelvcp", "a.wav"), (BUILD / "krelvcp", "b.wav")):
            run(*EMULATOR, program, "render", self.dir / "in.wav", self.dir / out, "--preset", "2")
        self.assertEqual((self.dir / "a.wav").read_bytes(), (self.dir / "b.wav").read_bytes())
        # Without it the program stops: it was that library, and no other.
        library = self.tree / EFFECT_FOLDER / "libkrelvcp.so"
        library.rename(library.with_suffix(".away"))
        self.addCleanup(library.with_suffix(".away").rename, library)
        with self.assertRaisesRegex(AssertionError, "cannot load the effect library"):
            run(*EMULATOR, self.tree / "bin/krelvcp", "render", self.dir / "in.wav", self.dir / "x.wav", "--preset", "2")


if __name__ == "__main__":
    unittest.main()
