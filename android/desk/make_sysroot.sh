#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes a stand-in for the NDK's sysroot, for cmake/android-desk.cmake: the headers of musl (a C library that is not
# glibc, as the device's is not), LLVM's C++ headers as the NDK has them, our own of what is Android's alone, and link stubs that have the names of
# android/needed_names.txt and no others.
#
#   android/desk/make_sysroot.sh CPU OUT        CPU: aarch64 or armv7a
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
usage="usage: android/desk/make_sysroot.sh aarch64|armv7a OUT"
cpu=${1:?$usage} out=${2:?$usage}
case $cpu in
    aarch64) target=aarch64-linux-android folder=$target musl=aarch64-linux-musl ;;
    armv7a) target=armv7a-linux-androideabi folder=arm-linux-androideabi musl=arm-linux-musleabi ;;
    *) echo "$usage" >&2 && exit 2 ;;
esac
readonly TARGET=${target}29

include=$out/usr/include
lib=$out/usr/lib/$folder/29
rm -rf "$out"
mkdir -p "$include" "$lib"
cp -rs /usr/include/$musl/. "$include"
cp -rp "$root"/android/desk/include/. "$root"/platform/standin/include/. "$include"
if [[ $cpu == armv7a ]]; then
    # Times are 32 bits wide there, as on 32-bit devices.
    types=$include/bits/alltypes.h
    sed -E 's/_Int64 (time_t|suseconds_t)/long \1/; /_REDIR_TIME64/d' "$types" >"$types.new"
    mv "$types.new" "$types"
    # Its functions take and return integer registers in every calling convention, whatever the archive says of itself.
    arm-linux-gnueabi-objcopy --remove-section .ARM.attributes \
        "$(clang -print-resource-dir)/lib/linux/libclang_rt.builtins-armhf.a" "$lib/libbuiltins.a"
fi
mkdir "$include/c++"
ln -s "$(realpath "$(clang -print-resource-dir)/../../../include/c++/v1")" "$include/c++/v1"

for name in libc libm liblog; do
    awk -v library=$name -v cpu="$cpu" '$1 == library && (NF == 2 || $3 == cpu) {
        printf ".globl %s\n.type %s, %%function\n%s:\n", $2, $2, $2 }' "$root/android/needed_names.txt" >"$lib/$name.s"
    clang --target=$TARGET -shared -nostdlib -fuse-ld=lld -Wl,-soname,$name.so -o "$lib/$name.so" "$lib/$name.s"
done

# As the device's own: unloading the library runs what it has registered with __cxa_atexit.
clang --target=$TARGET -c -fPIC -O2 -x c -o "$lib/crtbegin_so.o" - <<'SOURCE'
extern void __cxa_finalize(void*);
__attribute__((visibility("hidden"))) void* __dso_handle = &__dso_handle;
__attribute__((destructor)) static void on_dlclose(void) { __cxa_finalize(&__dso_handle); }
SOURCE
clang --target=$TARGET -c -x c -o "$lib/crtend_so.o" - </dev/null
