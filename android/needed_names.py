# SPDX-License-Identifier: Apache-2.0
"""needed_names.txt, for the checks that hold a library against it."""

import pathlib


def needed_names(cpu: str = "") -> set:
    """What the file allows a library for `cpu` ("armv7a", "aarch64"), or for any of them."""
    text = (pathlib.Path(__file__).resolve().parent / "needed_names.txt").read_text(encoding="utf-8")
    rows = [line.split() for line in text.splitlines() if line and not line.startswith("#")]
    return {row[1] for row in rows if not cpu or row[2:] in ([], [cpu])}
