#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks that need no running program: format, layering, size of the tests, licence lines, exported names, generated
# tables, static analysis.
#
#   scripts/check.sh BUILD_DIR     a configured and built release tree
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:?usage: scripts/check.sh BUILD_DIR}

echo "check: format"
git ls-files -z -- '*.h' '*.c' '*.cpp' | xargs -0 clang-format --dry-run --Werror

# clang-format leaves comments as they are.
echo "check: width"
if git ls-files -z -- '*.h' '*.c' '*.cpp' ':!core/presets.h' ':!tables' ':!tests/conformance' |
    LC_ALL=C.UTF-8 xargs -0 grep -nE '^.{101,}'; then
    echo "check: the lines above exceed 100 columns" >&2
    exit 1
fi

echo "check: layers"
python3 scripts/check_layers.py

echo "check: size of the tests"
scripts/loc.sh

echo "check: licence lines, changes of this version"
scripts/licence_lines.py
packaging/changelog.py check >/dev/null

echo "check: exported names"
python3 scripts/check_exports.py cmake/exports.map "$build/libkrelvcp.so"
python3 scripts/check_exports.py engine/exports.map "$build/libkrelvoice.so.1"

echo "check: generated tables"
python3 tables/gen_tables.py --check

echo "check: static analysis"
# What this tree builds: some parts wait for a package that is not everywhere.
comm -12 <(git ls-files -- '*.cpp' | sort) \
    <(sed -n "s#^  \"file\": \"$PWD/\(.*\.cpp\)\".*#\1#p" "$build/compile_commands.json" | sort -u) |
    tr '\n' '\0' | xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet -p "$build" 2> >(grep -v 'warnings generated' >&2)
echo "check: all passed"
