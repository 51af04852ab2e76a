#!/usr/bin/env bash
# Non-blank lines of code and of tests, per folder. Generated tables count as data, not as code.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

count() { # FOLDER...: lines of the tracked sources below
    git ls-files -z -- "$@" | { grep -zE '\.(c|cpp|h|py|sh)$' || true; } | { grep -zvE '^tables/.*\.(inc|cpp)$' || true; } |
        xargs -0 -r cat | grep -cvE '^\s*$' || true
}

code=0
for folder in base platform tables dsp spectral pitch_stream core wrapper effect host bench fuzz scripts; do
    lines=$(count "$folder/")
    printf '%-14s %6d\n' "$folder/" "$lines"
    code=$((code + lines))
done
tests=$(count tests/)
printf '%-14s %6d   (%d %% of the %d above)\n' tests/ "$tests" $((100 * tests / code)) "$code"
