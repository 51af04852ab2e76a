#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# As much of Android as a desk without NDK and device can check: the packaging files, the library built for Android's
# targets against a stand-in sysroot, the names it needs from a device, and that it computes what the native one does.
#
#   android/desk/check.sh RELEASE_BUILD      a configured and built release tree, to compare with
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
release=${1:?usage: android/desk/check.sh RELEASE_BUILD}
readonly WARN=(-std=c11 -O2 -Wall -Wextra -Werror)

build_and_judge() { # CPU BUILD SYSROOT
    local cpu=$1 build=$2 sysroot=$3
    echo "check-android: library for Android's target, $cpu"
    android/desk/make_sysroot.sh "$cpu" "$sysroot"
    cmake --preset "$(basename "$build")" >/dev/null
    cmake --build --preset "$(basename "$build")"
    python3 android/check_android.py names "$build/libkrelvcp.so"
    python3 scripts/check_exports.py cmake/exports.map "$build/libkrelvcp.so"

    echo "check-android: Android.bp's flags, later platform headers, $cpu"
    python3 android/check_android.py compile "$cpu" "$sysroot" "$build/_deps"
}

# Beside musl, on an emulated CPU. liblog.so comes before the C library, for what a device does otherwise.
run_beside_musl() { # BUILD MUSL_TARGET LOADER EMULATOR [OPTION_OR_LIBRARY...]
    local build=$1 target=$2 loader=$3 emulator=$4
    shift 4
    local run=$build/run musl=/usr/lib/$target
    local compiler=(clang "--target=$target" -fuse-ld=lld -nostdlib -isystem "/usr/include/$target" "${WARN[@]}")
    mkdir -p "$run"
    "${compiler[@]}" -Iandroid/desk/include -Iplatform/standin/include -shared -fPIC -Wl,-soname,liblog.so \
        -o "$run/liblog.so" android/desk/device.c "$@"
    "${compiler[@]}" -I. -Iplatform/include -fPIE -pie "-Wl,-dynamic-linker,$loader" -o "$run/drive" \
        "$musl/Scrt1.o" "$musl/crti.o" android/desk/drive.c "$musl/libc.so" "$musl/crtn.o" "$@"
    "$emulator" -L / -E "LD_LIBRARY_PATH=$run" -E LD_PRELOAD=liblog.so \
        "$run/drive" "$build/libkrelvcp.so" "$presets" >"$run/result.txt"
}

echo "check-android: packaging"
unformatted=$(bpfmt -l Android.bp)
[[ -z $unformatted ]] || { echo "Android.bp: not formatted as bpfmt does" >&2; exit 1; }
python3 android/check_android.py packaging "$release/compile_commands.json"

build_and_judge aarch64 build/android-desk build/android-sysroot
build_and_judge armv7a build/android-desk-armv7 build/android-sysroot-armv7

echo "check-android: a device with both"
readonly DEVICE=build/android-desk/device
rm -rf $DEVICE && mkdir -p $DEVICE/vendor/{etc,lib/soundfx,lib64/soundfx}
cp android/audio_effects.xml $DEVICE/vendor/etc
cp build/android-desk/libkrelvcp.so $DEVICE/vendor/lib64/soundfx
cp build/android-desk-armv7/libkrelvcp.so $DEVICE/vendor/lib/soundfx
echo "[ro.build.version.sdk]: [30]" >$DEVICE/getprop.txt
"$release/krelvcp" doctor $DEVICE

echo "check-android: the same bits as $release"
readonly REFERENCE=build/android-desk/native
presets=$("$release/krelvcp" presets | tail -n +2 | wc -l)
cc -D_GNU_SOURCE "${WARN[@]}" -I. -Iplatform/include -o $REFERENCE android/desk/drive.c -ldl
$REFERENCE "$release/libkrelvcp.so" "$presets" >$REFERENCE.txt 2>/dev/null
run_beside_musl build/android-desk aarch64-linux-musl /lib/ld-musl-aarch64.so.1 qemu-aarch64
run_beside_musl build/android-desk-armv7 arm-linux-musleabi /lib/ld-musl-arm.so.1 qemu-arm \
    -march=armv7-a -mfpu=neon -mfloat-abi=softfp build/android-sysroot-armv7/usr/lib/arm-linux-androideabi/29/libbuiltins.a
for build in build/android-desk build/android-desk-armv7; do
    diff $REFERENCE.txt $build/run/result.txt
done
echo "check-android: all passed, $(wc -l <$REFERENCE.txt) presets"
