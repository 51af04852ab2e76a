# SPDX-License-Identifier: Apache-2.0
# The libraries that end up inside libkrelvcp.so: krel_ne10, krel_speexdsp.
#
# KREL_TARBALL_DIR names the folder with the two source tarballs; scripts/setup.sh fills the default one. Where a packager
# has unpacked them as ne10/ and speexdsp/, it names the folder with these.

set(KREL_TARBALL_DIR "${PROJECT_SOURCE_DIR}/.deps" CACHE PATH "Folder with the Ne10 and SpeexDSP source tarballs")

include(Sources)

# Third-party code: its own warnings off, no sanitizers but address and thread (its shifts and casts are not ours to judge),
# same floating-point rules as ours.
function(krel_third_party target)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON C_EXTENSIONS ON C_VISIBILITY_PRESET hidden
        CXX_VISIBILITY_PRESET hidden)
    target_compile_options(${target} PRIVATE -w -ffp-contract=off -fno-math-errno ${KREL_ARCH_FLAGS})
    if(KREL_SANITIZE MATCHES "(address|thread)")
        target_compile_options(${target} PRIVATE -fsanitize=${CMAKE_MATCH_1})
    endif()
endfunction()

# ---- Ne10: the complex FFT ------------------------------------------------------------------------------------------
option(KREL_SYSTEM_NE10 "arm64: link the installed libNE10.a instead of building Ne10 from its tarball" OFF)
if(KREL_SYSTEM_NE10)
    # Not the default: its initialisers crash when an allocation fails (see Sources.cmake), and fused multiply-adds give
    # it other last bits.
    if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
        message(FATAL_ERROR "KREL_SYSTEM_NE10 is for arm64: there is no packaged Ne10 for ${CMAKE_SYSTEM_PROCESSOR}")
    endif()
    find_library(KREL_NE10 NAMES libNE10.a REQUIRED)
    find_path(KREL_NE10_INCLUDE NE10_dsp.h PATH_SUFFIXES ne10 REQUIRED)
    add_library(krel_ne10 INTERFACE)
    target_include_directories(krel_ne10 SYSTEM INTERFACE ${KREL_NE10_INCLUDE})
    target_link_libraries(krel_ne10 INTERFACE ${KREL_NE10})
else()
    # Built from source on every target: with its own NEON code on arm64, through SIMDe on x86-64 and WebAssembly, so that
    # the very same functions run on the desk.
    set(ne10 "${PROJECT_BINARY_DIR}/_deps/ne10")
    krel_unpack_ne10("${KREL_TARBALL_DIR}" "${ne10}")
    set(ne10_dsp "${ne10}/modules/dsp")
    set(KREL_NE10_LICENSE "${ne10}/LICENSE")
    add_library(krel_ne10 STATIC
        ${ne10_dsp}/NE10_fft.c
        ${ne10_dsp}/NE10_fft_float32.c
        ${ne10_dsp}/NE10_fft_float32.neonintrinsic.c
        ${ne10_dsp}/NE10_fft_generic_float32.c
        ${ne10_dsp}/NE10_fft_generic_float32.neonintrinsic.cpp
        ${ne10_dsp}/NE10_fft_int32.c
        ${ne10_dsp}/NE10_fft_generic_int32.cpp)
    target_compile_definitions(krel_ne10 PRIVATE NE10_UNROLL_LEVEL=0)
    target_include_directories(krel_ne10 SYSTEM PUBLIC ${ne10}/inc PRIVATE ${ne10}/common ${ne10_dsp})
    if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm")
        target_include_directories(krel_ne10 BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/cmake/simde)
    endif()
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "wasm32")
        # SIMDe alone, without what else the build machine has beside it.
        set(simde "${PROJECT_BINARY_DIR}/_deps/simde")
        file(MAKE_DIRECTORY "${simde}")
        file(CREATE_LINK /usr/include/simde "${simde}/simde" SYMBOLIC)
        target_include_directories(krel_ne10 SYSTEM PRIVATE "${simde}")
    endif()
    krel_third_party(krel_ne10)
    target_compile_options(krel_ne10 PRIVATE -O3 $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
    if("-DKREL_FAST_PATHS" IN_LIST KREL_ARCH_FLAGS)
        target_sources(krel_ne10 PRIVATE ${PROJECT_SOURCE_DIR}/cmake/ne10_avx2.c)
        set_source_files_properties(${PROJECT_SOURCE_DIR}/cmake/ne10_avx2.c PROPERTIES COMPILE_OPTIONS -mavx2)
    endif()
endif()

# ---- SpeexDSP: the resampler, fixed-point build ---------------------------------------------------------------------
# Without the package's USE_NEON, so that every target gives the same bits. dsp/resampler.c includes the package's source.
set(speexdsp "${PROJECT_BINARY_DIR}/_deps/speexdsp")
krel_unpack_speexdsp("${KREL_TARBALL_DIR}" "${speexdsp}")
set(speexdsp "${speexdsp}/speexdsp-1.2.1")
set(KREL_SPEEXDSP_SOURCE "${speexdsp}")
set(KREL_SPEEXDSP_LICENSE "${speexdsp}/COPYING")
add_library(krel_speexdsp STATIC ${PROJECT_SOURCE_DIR}/dsp/resampler.c)
target_include_directories(krel_speexdsp SYSTEM PUBLIC ${speexdsp}/include PRIVATE ${speexdsp})
target_include_directories(krel_speexdsp PRIVATE ${PROJECT_SOURCE_DIR})
krel_third_party(krel_speexdsp)
# Its 32-bit sums may leave their range on full-scale input: they wrap, everywhere alike. Without traps to mind, the design of
# its filters vectorises.
target_compile_options(krel_speexdsp PRIVATE -fwrapv -fno-trapping-math)
