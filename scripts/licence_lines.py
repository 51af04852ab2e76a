#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks that every tracked source file says its licence in one of its first two lines.

usage: licence_lines.py [--add]    --add writes the line where it is missing
"""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
TEXT = "SPDX-License-Identifier: Apache-2.0"
HASH, SLASHES, C, HTML = f"# {TEXT}", f"// {TEXT}", f"/* {TEXT} */", f"<!-- {TEXT} -->"
BY_SUFFIX = {".c": SLASHES, ".cpp": SLASHES, ".h": SLASHES, ".js": SLASHES, ".mjs": SLASHES, ".ts": SLASHES, ".bp": SLASHES,
             ".css": C, ".html": HTML, ".py": HASH, ".sh": HASH, ".cmake": HASH, ".map": HASH}
BY_NAME = {"Makefile": HASH, "CMakeLists.txt": HASH, "rules": HASH}
SCRIPTS = ("#!/",)
DATA = {("fuzz", "corpus"), ("tests", "vectors")}


def line_for(path: pathlib.Path, text: str):
    """The line in this file's language; None for what is no source."""
    if path.parts[:2] in DATA:
        return None
    suffix = path.with_suffix("").suffix if path.suffix == ".in" else path.suffix
    line = BY_NAME.get(path.name) or BY_SUFFIX.get(suffix) or (HASH if text.startswith(SCRIPTS) else None)
    # A header that C of any age reads keeps to its kind of comment.
    return C if line == SLASHES and text.startswith("/*") else line


def with_line(text: str, line: str) -> str:
    first, rest = text.split("\n", 1) if text.startswith((*SCRIPTS, "<!")) else ("", text)
    return (first + "\n" if first else "") + line + "\n" + rest


def main(arguments: list) -> int:
    if arguments not in ([], ["--add"]):
        sys.exit(__doc__)
    names = subprocess.run(["git", "ls-files", "-z"], check=True, capture_output=True, text=True, cwd=ROOT).stdout
    missing = 0
    for path in map(pathlib.Path, filter(None, names.split("\0"))):
        try:
            text = (ROOT / path).read_text(encoding="utf-8")
        except (UnicodeDecodeError, FileNotFoundError, IsADirectoryError):
            continue
        line = line_for(path, text)
        if line is None or any(TEXT in start for start in text.split("\n", 2)[:2]):
            continue
        missing += 1
        if arguments:
            (ROOT / path).write_text(with_line(text, line), encoding="utf-8")
        else:
            print(f"{path}: does not say its licence (scripts/licence_lines.py --add)", file=sys.stderr)
    return 0 if arguments else int(missing > 0)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
