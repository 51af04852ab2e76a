#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints debian/changelog, made of CHANGELOG.md and VERSION.

usage: changelog.py MAINTAINER     "Name <address>"
"""

import datetime
import pathlib
import re
import sys
import textwrap

ROOT = pathlib.Path(__file__).resolve().parent.parent


def releases(text: str):
    """Yields (version, date, changes) of every section "## version (date)"."""
    for section in re.split(r"^## ", text, flags=re.M)[1:]:
        head, body = section.split("\n", 1)
        version, date = re.fullmatch(r"(\S+) \((\d+-\d+-\d+)\)", head).groups()
        yield version, datetime.date.fromisoformat(date), re.split(r"^- ", body, flags=re.M)[1:]


def entry(version: str, date: datetime.date, changes: list, maintainer: str) -> str:
    lines = [line for change in changes
             for line in textwrap.wrap(" ".join(change.split()), 78, initial_indent="  * ", subsequent_indent="    ")]
    return "\n".join([f"krelvcp ({version}-1) unstable; urgency=medium", "", *lines, "",
                      f" -- {maintainer}  {date:%a, %d %b %Y} 00:00:00 +0000", ""])


def main(maintainer: str) -> None:
    entries = list(releases((ROOT / "CHANGELOG.md").read_text(encoding="utf-8")))
    version = (ROOT / "VERSION").read_text(encoding="utf-8").strip()
    if entries[0][0] != version:
        sys.exit(f"CHANGELOG.md begins with {entries[0][0]}, but VERSION is {version}")
    print("\n".join(entry(*release, maintainer) for release in entries), end="")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
