# Debian's clang for arm64 Android, for checks on a desk without the NDK: __ANDROID__ is defined, CMake takes its Android
# branch, lld links for Android's loader. Libraries and headers come from KREL_ANDROID_SYSROOT, which has the NDK's
# layout: a real one, or the stand-in that android/desk/make_sysroot.sh makes. What ships is built with the NDK (preset
# "android") or in an Android tree.
set(CMAKE_SYSTEM_NAME Android)
set(CMAKE_SYSTEM_VERSION 1)  # keeps CMake from looking for an NDK
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(KREL_ANDROID_SYSROOT "" CACHE PATH "Sysroot in the NDK's layout")
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KREL_ANDROID_SYSROOT)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_SYSROOT "${KREL_ANDROID_SYSROOT}")

set(CMAKE_C_COMPILER clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-android29)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-android29)
set(CMAKE_CXX_FLAGS_INIT "-stdlib=libc++")
# No compiler run-time library: a call into it would be an undefined symbol.
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-fuse-ld=lld -nodefaultlibs")
set(CMAKE_C_STANDARD_LIBRARIES "-lc")
