#!/usr/bin/env bash
# Checks that need no running program: format, layering, exported names, static analysis.
#
#   scripts/check.sh BUILD_DIR     a configured and built release tree
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:?usage: scripts/check.sh BUILD_DIR}

echo "check: format"
git ls-files -z -- '*.h' '*.c' '*.cpp' | xargs -0 clang-format --dry-run --Werror

echo "check: layers"
python3 scripts/check_layers.py

echo "check: exported names"
python3 scripts/check_exports.py cmake/exports.map "$build/libkrelvcp.so"

echo "check: static analysis"
git ls-files -z -- 'base/*.cpp' 'dsp/*.cpp' 'tables/*.cpp' 'spectral/*.cpp' 'pitch_stream/*.cpp' 'core/*.cpp' \
    'wrapper/*.cpp' 'effect/*.cpp' 'platform/*.cpp' 'host/*.cpp' |
    xargs -0 -n 1 -P "$(nproc)" clang-tidy --quiet -p "$build" 2> >(grep -v 'warnings generated' >&2)
echo "check: all passed"
