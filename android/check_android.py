#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks what goes to Android against the CMake build, which is the one that is tested.

usage: check_android.py packaging COMPILE_COMMANDS    Android.bp
       check_android.py compile CPU SYSROOT EXTERNAL  Android.bp's sources with Android.bp's flags and later headers
       check_android.py names LIBRARY                 what the built library needs from the device
"""

import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor

from needed_names import needed_names

ROOT = pathlib.Path(__file__).resolve().parent.parent
NOT_IN_LIBRARY = {"bench", "engine", "fuzz", "host", "lv2"}
STANDINS = "platform/standin/"  # an Android tree has the real ones
X86_SOURCE, X86_FLAG = "cmake/ne10_avx2.c", "-DKREL_FAST_PATHS"  # base/fast_paths.h
EXTERNAL = "android/external/"
MODULES = ("libkrelvcp", "libkrelvcp_ne10", "libkrelvcp_speexdsp")

# Options that a tree's build adds by itself.
SOONG_ADDS = {"-fPIC", "-D_FORTIFY_SOURCE=2"}
SOONG_LINKS = {"-z,relro", "-z,now", "-z,noexecstack", "-z,defs"}
SAME = {"-std=c++2a": "-std=c++20"}
# What a tree's build passes before a module's own flags, as far as it can make a difference to compiling.
SOONG_FLAGS = (
    "-Wall -Wextra -Wno-unused -Winit-self -Wpointer-arith -O2 -g -DNDEBUG -UDEBUG -D__ANDROID_VNDK__ -DANDROID_STRICT "
    "-fno-exceptions -fno-strict-aliasing -fno-short-enums -ffunction-sections -fdata-sections -funwind-tables "
    "-fstack-protector-strong -D_FORTIFY_SOURCE=2 -fPIC -Werror=return-type -Werror=address -Werror=sequence-point "
    "-Werror=format-security -Werror=int-to-pointer-cast -Werror=pointer-to-int-cast"
).split()
TARGETS = {
    "aarch64": ["--target=aarch64-linux-android29"],
    "armv7a": "--target=armv7a-linux-androideabi29 -mfloat-abi=softfp -mfpu=neon -mthumb".split(),
}


# ---- Android.bp ------------------------------------------------------------------------------------------------------
class Blueprint:
    """The modules of a Blueprint file, as far as ours uses the language: no variables, no sums."""

    TOKEN = re.compile(r'\s+|//[^\n]*|("(?:[^"\\]|\\.)*"|\w+|[{}\[\]:,])')

    def __init__(self, path: pathlib.Path):
        text = path.read_text(encoding="utf-8")
        self.tokens, at = [], 0
        while at < len(text):
            match = self.TOKEN.match(text, at)
            if not match:
                raise ValueError(f"{path}: cannot read {text[at:at + 20]!r}")
            if match.group(1):
                self.tokens.append(match.group(1))
            at = match.end()
        modules = []
        while self.tokens:
            kind = self.tokens.pop(0)
            modules.append({"kind": kind, **self.value()})
        self.modules = {module["name"]: self.with_defaults(module, modules) for module in modules}

    def value(self):
        token = self.tokens.pop(0)
        if token == "{":
            return dict(self.items("}", self.pair))
        if token == "[":
            return list(self.items("]", self.value))
        if token in ("true", "false"):
            return token == "true"
        return json.loads(token)

    def items(self, end, item):
        while self.tokens[0] != end:
            yield item()
            if self.tokens[0] == ",":
                self.tokens.pop(0)
        self.tokens.pop(0)

    def pair(self):
        name, colon = self.tokens.pop(0), self.tokens.pop(0)
        if colon != ":":
            raise ValueError(f"{name}: expected a colon, found {colon}")
        return name, self.value()

    @staticmethod
    def with_defaults(module, modules):
        merged = {}
        for part in [m for m in modules if m["name"] in module.get("defaults", [])] + [module]:
            for key, value in part.items():
                merged[key] = merged.get(key, []) + value if isinstance(value, list) else value
        return merged


def language(source: str) -> str:
    return "c" if source.endswith(".c") else "cpp"


def module_flags(module: dict, source: str) -> list:
    flags = list(module.get("cflags", []))
    if language(source) == "cpp":
        flags += module.get("cppflags", [])
        flags += [f"-std={module['cpp_std']}"] if "cpp_std" in module else []
    return flags


# ---- packaging -------------------------------------------------------------------------------------------------------
def cmake_sources(compile_commands: str):
    """Yields (module, source as Android.bp names it, options) for everything that CMake puts into the library."""
    for entry in json.loads(pathlib.Path(compile_commands).read_text(encoding="utf-8")):
        options = shlex.split(entry["command"])
        folder = re.search(r"CMakeFiles/krel_(\w+)\.dir/", options[options.index("-o") + 1])
        unpacked = re.search(r"/_deps/((ne10|speexdsp)/.*)", entry["file"])
        if not folder or folder.group(1) in NOT_IN_LIBRARY or entry["file"].endswith(X86_SOURCE):
            continue
        if unpacked:
            yield f"libkrelvcp_{unpacked.group(2)}", EXTERNAL + unpacked.group(1), options
            continue
        source = os.path.relpath(entry["file"], ROOT)
        module = f"libkrelvcp_{folder.group(1)}"
        if module in MODULES:  # a source of ours that includes the package's
            yield module, source, options
        elif source.split("/")[0] in (folder.group(1), "base") and not source.startswith(STANDINS):
            yield "libkrelvcp", source, options


def significant(options, third_party: bool, optimised: bool) -> set:
    """Options that may change results, what is compiled or what is exported; warnings and places left out."""
    kept = {SAME.get(option, option) for option in options if re.match(r"-[fD]|-O|-std=", option)}
    ignored = SOONG_ADDS | {"-DNDEBUG", X86_FLAG}
    return {
        option
        for option in kept - ignored
        if (optimised or not option.startswith("-O")) and not (third_party and option.startswith("-std="))
    }


def compare_sources(blueprint: Blueprint, compile_commands: str):
    listed = {(name, source) for name in MODULES for source in blueprint.modules[name]["srcs"]}
    built = set()
    for name, source, options in cmake_sources(compile_commands):
        built.add((name, source))
        if (name, source) not in listed:
            yield f"{name}: {source} is in the CMake build only"
            continue
        how = {"third_party": name != "libkrelvcp", "optimised": "-DNDEBUG" in options}
        cmake = significant(options, **how)
        soong = significant(module_flags(blueprint.modules[name], source), **how)
        for flag in sorted(cmake ^ soong):
            yield f"{name}: {source}: {flag} is in {'CMake' if flag in cmake else 'Android.bp'} only"
    for name, source in sorted(listed - built):
        yield f"{name}: {source} is in Android.bp only"


def compare_linking(blueprint: Blueprint):
    library = blueprint.modules["libkrelvcp"]
    cmake = re.sub(r"#.*", "", (ROOT / "cmake/Library.cmake").read_text(encoding="utf-8"))
    options = set(re.findall(r"-Wl,([^\s)]+)", cmake)) - SOONG_LINKS
    script = next(option for option in options if option.startswith("--version-script="))
    options = {option for option in options - {script} if "whole-archive" not in option}
    for flag in sorted(options ^ {flag[len("-Wl,"):] for flag in library["ldflags"]}):
        yield f"libkrelvcp: -Wl,{flag} is in {'CMake' if flag in options else 'Android.bp'} only"
    if not (ROOT / library["version_script"]).samefile(ROOT / "cmake/exports.map"):
        yield "libkrelvcp: the version script is another one"


def packaging(compile_commands: str):
    blueprint = Blueprint(ROOT / "Android.bp")
    yield from (f"Android.bp: {error}" for error in compare_sources(blueprint, compile_commands))
    yield from (f"Android.bp: {error}" for error in compare_linking(blueprint))


# ---- compile ---------------------------------------------------------------------------------------------------------
def compile_command(module: dict, source: str, cpu: str, sysroot: str, external: str, exported: list) -> list:
    def located(path: str) -> str:
        return os.path.join(external, path[len(EXTERNAL):]) if path.startswith(EXTERNAL) else path

    kind = language(source)
    includes = ["."] + module.get("local_include_dirs", []) + module.get("export_include_dirs", []) + exported
    command = ["clang" if kind == "c" else "clang++", *TARGETS[cpu], f"--sysroot={sysroot}"]
    command += ["-stdlib=libc++", "-std=gnu++17"] if kind == "cpp" else ["-std=gnu99"]
    command += SOONG_FLAGS + [f"-I{located(path)}" for path in includes]
    # Platform headers come as system headers in a tree as well; the later ones stand before those of Android 10.
    command += ["-isystem", "android/desk/later_headers", "-isystem", "platform/include"]
    return command + module_flags(module, source) + ["-fsyntax-only", located(source)]


def compile_all(cpu: str, sysroot: str, external: str):
    modules = Blueprint(ROOT / "Android.bp").modules
    commands = []
    for name in MODULES:
        module = modules[name]
        exported = [path for lib in module.get("static_libs", []) for path in modules[lib]["export_include_dirs"]]
        commands += [compile_command(module, source, cpu, sysroot, external, exported) for source in module["srcs"]]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = list(pool.map(lambda c: subprocess.run(c, cwd=ROOT, capture_output=True, text=True), commands))
    for command, run in zip(commands, runs):
        if run.returncode != 0:
            yield f"{command[-1]} does not compile:\n{run.stderr}"


# ---- names -----------------------------------------------------------------------------------------------------------
def compare_names(library: str):
    allowed = needed_names("armv7a" if pathlib.Path(library).read_bytes()[4] == 1 else "aarch64")  # ELFCLASS32
    output = subprocess.run(["nm", "-D", "--undefined-only", library], check=True, capture_output=True, text=True).stdout
    needed = {line.split()[-1] for line in output.splitlines()}
    yield from (f"{library}: needs {name}, which is not in needed_names.txt" for name in sorted(needed - allowed))
    yield from (f"needed_names.txt: {name} is not needed" for name in sorted(allowed - needed))


def main(arguments: list) -> int:
    checks = {"packaging": (packaging, 1), "compile": (compile_all, 3), "names": (compare_names, 1)}
    check, count = checks.get(arguments[0] if arguments else "", (None, 0))
    if check is None or len(arguments) != count + 1:
        print(__doc__, file=sys.stderr)
        return 2
    errors = list(check(*arguments[1:]))
    for error in errors:
        print(error, file=sys.stderr)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
