#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the fuzzers, or takes what they found into the corpus.
#
#   scripts/fuzz.sh run      each fuzzer for FUZZ_SECONDS (60), from its corpus; new inputs go to build/fuzz/found/,
#                            inputs that end it to build/fuzz/findings/
#   scripts/fuzz.sh merge    fuzz/corpus/ becomes the smallest set that covers what corpus and build/fuzz/found/ cover
#
# FUZZER=name takes one of them, FUZZ_SEED=n repeats a run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly BUILD=build/fuzz
readonly ALL=(command process pitch_stream blocks)
read -ra fuzzers <<<"${FUZZER:-${ALL[*]}}"

# A slow input, a large allocation and a leak are findings, too. The library may take 64 MiB for delay lines.
options=(-timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=80 -max_len=512 -print_final_stats=1)
[[ -z ${FUZZ_SEED:-} ]] || options+=(-seed="$FUZZ_SEED")

build() {
    test -f $BUILD/build.ninja || cmake --preset fuzz
    cmake --build --preset fuzz --target "${fuzzers[@]/%/_fuzz}"
    mkdir -p $BUILD/findings "${fuzzers[@]/#/$BUILD/found/}" "${fuzzers[@]/#/fuzz/corpus/}"
}

run() { # NAME
    local log=$BUILD/$1.log
    echo "fuzz: $1 for ${FUZZ_SECONDS:-60} s"
    if ! "$BUILD/$1_fuzz" "${options[@]}" -max_total_time="${FUZZ_SECONDS:-60}" \
        -artifact_prefix="$BUILD/findings/$1-" "$BUILD/found/$1" "fuzz/corpus/$1" >"$log" 2>&1; then
        grep -vE '^#[0-9]+|NEW_FUNC|^INFO' "$log" | tail -n 60
        echo "fuzz: $1 found something: run $BUILD/$1_fuzz with the file named above" >&2
        return 1
    fi
    grep -F ' cov: ' "$log" | tail -n 1
    grep -E '^stat::' "$log"
}

# By edges alone: telling apart how often each was taken would keep ten times as many inputs.
merge() { # NAME
    local smallest=$BUILD/smallest/$1
    rm -rf "$smallest"
    mkdir -p "$smallest"
    "$BUILD/$1_fuzz" -max_len=512 -use_counters=0 -set_cover_merge=1 "$smallest" "fuzz/corpus/$1" "$BUILD/found/$1" \
        >"$BUILD/$1-merge.log" 2>&1
    find "fuzz/corpus/$1" -type f -not -name '*-*' -delete # inputs with a name of their own stay
    find "$smallest" -type f -exec cp -t "fuzz/corpus/$1" {} +
    echo "fuzz: $1: $(find "fuzz/corpus/$1" -type f | wc -l) inputs, $(cat "fuzz/corpus/$1"/* | wc -c) bytes"
}

case ${1:-} in run | merge) ;; *) sed -n '2,9s/^# \{0,1\}//p' "$0" >&2; exit 2 ;; esac
build
for name in "${fuzzers[@]}"; do "$1" "$name"; done
