#!/usr/bin/env bash
# Makes a stand-in for the NDK's sysroot, for cmake/android-desk.cmake: the headers of musl (a C library that is not
# glibc, as the device's is not), LLVM's C++ headers as the NDK has them, our own of what is Android's alone, and link stubs that have the names of
# android/needed_names.txt and no others.
#
#   android/desk/make_sysroot.sh OUT
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
out=${1:?usage: android/desk/make_sysroot.sh OUT}
readonly MUSL=/usr/include/aarch64-linux-musl TARGET=aarch64-linux-android29

include=$out/usr/include
lib=$out/usr/lib/aarch64-linux-android/29
rm -rf "$out"
mkdir -p "$include" "$lib"
cp -rs "$MUSL"/. "$include"
cp -rp "$root"/android/desk/include/. "$include"
mkdir "$include/c++"
ln -s "$(realpath "$(clang -print-resource-dir)/../../../include/c++/v1")" "$include/c++/v1"

for name in libc libm liblog; do
    awk -v library=$name '$1 == library { printf ".globl %s\n.type %s, %%function\n%s:\n", $2, $2, $2 }' \
        "$root/android/needed_names.txt" >"$lib/$name.s"
    clang --target=$TARGET -shared -nostdlib -fuse-ld=lld -Wl,-soname,$name.so -o "$lib/$name.so" "$lib/$name.s"
done

# As the device's own: unloading the library runs what it has registered with __cxa_atexit.
clang --target=$TARGET -c -fPIC -O2 -x c -o "$lib/crtbegin_so.o" - <<'SOURCE'
extern void __cxa_finalize(void*);
__attribute__((visibility("hidden"))) void* __dso_handle = &__dso_handle;
__attribute__((destructor)) static void on_dlclose(void) { __cxa_finalize(&__dso_handle); }
SOURCE
clang --target=$TARGET -c -x c -o "$lib/crtend_so.o" - </dev/null
