#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Prepares a Debian machine for building this project: packages, and the two source tarballs that are built from
# source. Every step is skipped when its result is already there, so it is cheap to call before every build.
#
#   scripts/setup.sh            what `make demo` and `make test` need
#   scripts/setup.sh check      also what the checks need: clang, its tools, sanitizers and fuzzing run-time library
#   scripts/setup.sh coverage   also the coverage report
#   scripts/setup.sh lv2        also the LV2 headers and hosts, and a JACK server
#   scripts/setup.sh live       also what `krelvcp live` is built with, and sound servers to test it under
#   scripts/setup.sh arm64      also the cross toolchain, the arm64 libraries and the emulator
#   scripts/setup.sh armv7      the same for 32-bit ARM
#   scripts/setup.sh peers      also other makers' pitch changers, for `make bench PEERS=1`
#   scripts/setup.sh android    also what `make check-android` needs: clang, another C library, the emulator
#   scripts/setup.sh browser    also a browser and its driver, for `make test-report`
#   scripts/setup.sh wasm       also what `make web` needs: clang for WebAssembly, Node.js
#   scripts/setup.sh web        also what `make test-web` needs: two browsers, a sound server, npm
#   scripts/setup.sh deb-arm64  with deb and arm64: what arm64 packages need besides
#   scripts/setup.sh deb        also what builds Debian packages and tries them, and valgrind to count instructions
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly TARBALLS=.deps
readonly SUMS=cmake/tarballs.sha256

packages=(
    build-essential cmake ninja-build pkg-config python3 xz-utils ca-certificates
    libsimde-dev libsndfile1-dev libsamplerate0-dev libebur128-dev libcli11-dev nlohmann-json3-dev
    libelf-dev libtinyxml2-dev libkissfft-dev libpng-dev
    libgtest-dev libgmock-dev libbenchmark-dev
)

# What the library, the program and the tests link with on another machine.
cross_packages() { # ARCHITECTURE
    printf "%s:$1\n" libsndfile1-dev libsamplerate0-dev libebur128-dev libgtest-dev libgmock-dev
}

for group in "$@"; do
    case $group in
        check) packages+=(clang clang-format clang-tidy libclang-rt-14-dev) ;;
        coverage) packages+=(gcovr) ;;
        lv2) packages+=(lv2-dev lilv-utils sordi jalv jackd2) ;;
        live)
            packages+=(libpipewire-0.3-dev libjack-jackd2-dev lv2-dev)
            packages+=(pipewire pipewire-bin pipewire-jack wireplumber dbus-daemon jackd2)
            ;;
        arm64)
            packages+=(crossbuild-essential-arm64 qemu-user libne10-dev:arm64 libelf-dev:arm64 libtinyxml2-dev:arm64)
            packages+=(libkissfft-dev:arm64 libpng-dev:arm64)
            mapfile -t -O ${#packages[@]} packages < <(cross_packages arm64)
            ;;
        armv7)
            packages+=(crossbuild-essential-armhf qemu-user)
            mapfile -t -O ${#packages[@]} packages < <(cross_packages armhf)
            ;;
        android)
            # The calling convention of 32-bit Android is soft-float, Debian's armel: its C library. The compiler's own
            # run-time functions are in armhf only.
            packages+=(clang lld libc++-dev musl-dev:arm64 musl-dev:armel libclang-rt-14-dev:armhf)
            packages+=(gcc-arm-linux-gnueabi qemu-user blueprint-tools)
            ;;
        browser) packages+=(chromium chromium-driver) ;;
        wasm)
            packages+=(clang lld llvm wasi-libc libc++-14-dev-wasm32 libc++abi-14-dev-wasm32 libclang-rt-14-dev-wasm32)
            command -v node >/dev/null || packages+=(nodejs)
            ;;
        web)
            packages+=(chromium firefox-esr pulseaudio pulseaudio-utils)
            command -v npm >/dev/null || packages+=(npm)
            ;;
        deb)
            packages+=(debhelper lintian lv2-dev libpipewire-0.3-dev libjack-jackd2-dev mmdebstrap qemu-user valgrind)
            ;;
        deb-arm64) packages+=(lv2-dev:arm64 libpipewire-0.3-dev:arm64 libjack-jackd2-dev:arm64) ;;
        peers) packages+=(libsoundtouch-dev librubberband-dev) ;;
        *)
            printf "setup: unknown group '%s' (%s)\n" "$group" \
                "check, coverage, lv2, live, arm64, armv7, android, browser, wasm, web, deb, deb-arm64, peers" >&2
            exit 2
            ;;
    esac
done

as_root() {
    if [[ $(id -u) -eq 0 ]]; then "$@"; else sudo "$@"; fi
}

installed() { # PACKAGE[:ARCHITECTURE]
    local architecture
    architecture=$(dpkg --print-architecture)
    [[ $1 == *:* ]] && architecture=${1#*:}
    dpkg-query -W -f='${Architecture} ${db:Status-Status}\n' "$1" 2>/dev/null |
        grep -qxE "($architecture|all) installed"
}

# apt drops all of a source whose list for one architecture is amiss, so after a failure each architecture is asked for
# by itself. What is then still missing is no reason to stop: the installation decides.
update_lists() {
    local settings architecture
    as_root apt-get update -qq 2>/dev/null && return
    settings=$(mktemp)
    for architecture in $(dpkg --print-foreign-architectures); do
        printf '#clear APT::Architectures;\nAPT::Architectures { "%s"; "%s"; };\nAPT::Get::List-Cleanup "false";\n' \
            "$(dpkg --print-architecture)" "$architecture" >"$settings"
        as_root env APT_CONFIG="$settings" apt-get update -qq ||
            echo "setup: some package lists for $architecture are missing or old" >&2
    done
    rm -f "$settings"
}

install_packages() {
    local missing=() package architecture
    for package in "${packages[@]}"; do
        installed "$package" || missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0
    for architecture in $(printf '%s\n' "${missing[@]}" | sed -n 's/.*://p' | sort -u); do
        as_root dpkg --add-architecture "$architecture"  # again: does nothing
    done
    echo "setup: installing ${missing[*]}"
    update_lists
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# The machine's own package sources with `deb` turned into `deb-src`, in a private folder: the machine's configuration
# stays as it is.
write_source_entries() {
    local parts=$1 file
    mkdir -p "$parts"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ -f $file ]] || continue
        sed -nE 's/^deb[[:space:]]/deb-src /p' "$file" >"$parts/$(basename "$file" .list).list"
    done
    for file in /etc/apt/sources.list.d/*.sources; do
        [[ -f $file ]] || continue
        sed -E 's/^Types:.*/Types: deb-src/' "$file" >"$parts/$(basename "$file")"
    done
}

tarballs_verified() {
    (cd "$TARBALLS" 2>/dev/null && sha256sum --quiet --strict -c "../$SUMS") >/dev/null 2>&1
}

fetch_tarballs() {
    tarballs_verified && return 0
    echo "setup: fetching source tarballs"
    mkdir -p "$TARBALLS"
    local apt_dir
    apt_dir=$(mktemp -d)
    # shellcheck disable=SC2064  # expand now: the variable is local
    trap "rm -rf '$apt_dir'" EXIT
    mkdir -p "$apt_dir"/{parts,lists/partial,cache/archives/partial}
    write_source_entries "$apt_dir/parts"
    local options=(
        -qq -oAPT::Sandbox::User="$(id -un)"
        -oDir::Etc::SourceList=/dev/null -oDir::Etc::SourceParts="$apt_dir/parts"
        -oDir::State::Lists="$apt_dir/lists" -oDir::Cache="$apt_dir/cache"
    )
    # A third-party entry without sources is no reason to stop: the checksums below decide.
    apt-get "${options[@]}" update >/dev/null 2>&1 || true
    (cd "$TARBALLS" && apt-get "${options[@]}" source --tar-only ne10 speexdsp >/dev/null)
    if ! tarballs_verified; then
        echo "setup: a source tarball is missing or its SHA-256 differs from $SUMS:" >&2
        (cd "$TARBALLS" && sha256sum -c "../$SUMS") >&2 || true
        exit 1
    fi
}

install_packages
fetch_tarballs
