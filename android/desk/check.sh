#!/usr/bin/env bash
# As much of Android as a desk without NDK and device can check: the packaging files, the library built for Android's
# target against a stand-in sysroot, the names it needs from a device, and that it computes what the native one does.
#
#   android/desk/check.sh RELEASE_BUILD      a configured and built release tree, to compare with
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
release=${1:?usage: android/desk/check.sh RELEASE_BUILD}
readonly BUILD=build/android-desk SYSROOT=build/android-sysroot RUN=build/android-desk/run
readonly MUSL=/usr/lib/aarch64-linux-musl
readonly WARN=(-std=c11 -O2 -Wall -Wextra -Werror)

echo "check-android: packaging"
unformatted=$(bpfmt -l Android.bp)
[[ -z $unformatted ]] || { echo "Android.bp: not formatted as bpfmt does" >&2; exit 1; }
python3 scripts/check_android.py packaging "$release/compile_commands.json"

echo "check-android: library for Android's target"
android/desk/make_sysroot.sh $SYSROOT
cmake --preset android-desk >/dev/null
cmake --build --preset android-desk
python3 scripts/check_android.py names $BUILD/libkrelvcp.so
python3 scripts/check_exports.py cmake/exports.map $BUILD/libkrelvcp.so

echo "check-android: Android.bp's flags, later platform headers"
python3 scripts/check_android.py compile $SYSROOT $BUILD/_deps

# Beside musl, on an emulated CPU. liblog.so comes before the C library, for what a device does otherwise.
echo "check-android: the same bits as $release"
mkdir -p $RUN
musl=(clang --target=aarch64-linux-musl -fuse-ld=lld -nostdlib -isystem /usr/include/aarch64-linux-musl "${WARN[@]}")
"${musl[@]}" -Iandroid/desk/include -shared -fPIC -Wl,-soname,liblog.so -o $RUN/liblog.so android/desk/device.c
"${musl[@]}" -Iplatform/include -fPIE -pie -Wl,-dynamic-linker,/lib/ld-musl-aarch64.so.1 -o $RUN/drive \
    $MUSL/Scrt1.o $MUSL/crti.o android/desk/drive.c $MUSL/libc.so $MUSL/crtn.o
cc -D_GNU_SOURCE "${WARN[@]}" -Iplatform/include -o $RUN/drive_native android/desk/drive.c -ldl
$RUN/drive_native "$release/libkrelvcp.so" >$RUN/native.txt 2>/dev/null
qemu-aarch64 -L / -E LD_LIBRARY_PATH=$RUN -E LD_PRELOAD=liblog.so $RUN/drive $BUILD/libkrelvcp.so >$RUN/android.txt
diff $RUN/native.txt $RUN/android.txt
echo "check-android: all passed, $(wc -l <$RUN/android.txt) presets"
