# SPDX-License-Identifier: Apache-2.0
# Debian's clang for Android, for checks on a desk without the NDK: __ANDROID__ is defined, CMake takes its Android
# branch, lld links for Android's loader. Libraries and headers come from KREL_ANDROID_SYSROOT, which has the NDK's
# layout: a real one, or the stand-in that android/desk/make_sysroot.sh makes. What ships is built with the NDK (preset
# "android") or in an Android tree. KREL_ANDROID_CPU is the target's CPU: aarch64, or armv7a with the soft-float calling
# convention.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1)  # keeps CMake from looking for an NDK

set(KREL_ANDROID_CPU aarch64 CACHE STRING "aarch64 or armv7a")
set(KREL_ANDROID_SYSROOT "" CACHE PATH "Sysroot in the NDK's layout")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KREL_ANDROID_CPU KREL_ANDROID_SYSROOT)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_SYSROOT "${KREL_ANDROID_SYSROOT}")

if(KREL_ANDROID_CPU STREQUAL "armv7a")
    set(CMAKE_SYSTEM_PROCESSOR armv7-a)
    set(target armv7a-linux-androideabi29)
    set(builtins -lbuiltins)  # 64-bit division and the like, as the NDK links them in
else()
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
    set(target aarch64-linux-android29)
endif()
set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET ${target})
set(CMAKE_CXX_COMPILER_TARGET ${target})
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++")
# No compiler run-time library where none is needed: a call into it would be an undefined symbol.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -nodefaultlibs")
set(CMAKE_C_STANDARD_LIBRARIES "${builtins} -lc")
