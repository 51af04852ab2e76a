#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Which lines of the library the tests and the fuzzers' corpus run: the lines not run, then a figure per folder.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly BUILD=build/coverage

test -f $BUILD/build.ninja || cmake --preset coverage
cmake --build --preset coverage
find $BUILD -name '*.gcda' -delete
ctest --preset coverage --quiet -O "$PWD/$BUILD/tests.log" || { cat $BUILD/tests.log; exit 1; }

gcovr --root . --object-directory $BUILD --csv $BUILD/lines.csv --txt $BUILD/lines.txt \
    --filter "($(scripts/check_layers.py --folders | paste -sd '|'))/" $BUILD
grep -E '[0-9]%  +[0-9]' $BUILD/lines.txt || true
awk -F, 'NR > 1 { split($1, path, "/"); all[path[1]] += $2; run[path[1]] += $3; all["total"] += $2; run["total"] += $3 }
    END { for (f in all) printf "%-14s %5d of %5d lines %6.2f %%\n", f "/", run[f], all[f], 100 * run[f] / all[f] }' \
    $BUILD/lines.csv | sort
