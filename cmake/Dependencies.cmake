# The libraries that end up inside libkrelvcp.so (krel_ne10, krel_speexdsp) or beside it (krel_liblog).
#
# KREL_TARBALL_DIR names the folder with the two source tarballs; scripts/setup.sh fills the default one.

set(KREL_TARBALL_DIR "${PROJECT_SOURCE_DIR}/.deps" CACHE PATH "Folder with the Ne10 and SpeexDSP source tarballs")

# Unpacks the tarball whose file name starts with `prefix` into `out_dir`, after its checksum was verified.
function(krel_unpack prefix out_dir)
    file(STRINGS "${PROJECT_SOURCE_DIR}/cmake/tarballs.sha256" sums REGEX "  ${prefix}")
    string(REGEX MATCH "^([0-9a-f]+)  (.+)$" unused "${sums}")
    set(expected "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    set(tarball "${KREL_TARBALL_DIR}/${name}")
    if(NOT EXISTS "${tarball}")
        message(FATAL_ERROR "${name} is missing in ${KREL_TARBALL_DIR}: run scripts/setup.sh, or set KREL_TARBALL_DIR")
    endif()
    set(stamp "${out_dir}/.unpacked-${expected}")
    if(NOT EXISTS "${stamp}")
        file(SHA256 "${tarball}" actual)
        if(NOT actual STREQUAL expected)
            message(FATAL_ERROR "${tarball}: SHA-256 is ${actual}, expected ${expected}")
        endif()
        file(REMOVE_RECURSE "${out_dir}")
        file(MAKE_DIRECTORY "${out_dir}")
        file(ARCHIVE_EXTRACT INPUT "${tarball}" DESTINATION "${out_dir}")
        file(TOUCH "${stamp}")
    endif()
endfunction()

# Exchanges two neighbouring pieces of a file wherever `first` stands directly before `second`; done once, kept after.
function(krel_swap_text file first second)
    file(READ "${file}" text)
    string(REPLACE "${first}${second}" "${second}${first}" swapped "${text}")
    string(FIND "${swapped}" "${second}${first}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "${file} is not the source that we know")
    elseif(NOT swapped STREQUAL text)
        file(WRITE "${file}" "${swapped}")
    endif()
endfunction()

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
    # Not the default: its initialisers crash when an allocation fails (see below), and its fused multiply-adds give other
    # last bits.
    if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm64")
        message(FATAL_ERROR "KREL_SYSTEM_NE10 is for arm64: there is no packaged Ne10 for ${CMAKE_SYSTEM_PROCESSOR}")
    endif()
    find_library(KREL_NE10 NAMES libNE10.a REQUIRED)
    find_path(KREL_NE10_INCLUDE NE10_dsp.h PATH_SUFFIXES ne10 REQUIRED)
    add_library(krel_ne10 INTERFACE)
    target_include_directories(krel_ne10 SYSTEM INTERFACE ${KREL_NE10_INCLUDE})
    target_link_libraries(krel_ne10 INTERFACE ${KREL_NE10})
else()
    # Built from source on every target: with its own NEON code on arm64, through SIMDe on x86-64, so that the very same
    # functions run on the desk.
    set(ne10 "${PROJECT_BINARY_DIR}/_deps/ne10")
    krel_unpack("ne10_" "${ne10}")
    set(ne10_dsp "${ne10}/modules/dsp")
    set(KREL_NE10_LICENSE "${ne10}/LICENSE")
    # Its allocators write to the new state before they look whether there is one. Our initialisers promise to survive a
    # failed allocation, so the look comes first.
    krel_swap_text("${ne10_dsp}/NE10_fft.c"
    "    // Only backward FFT is scaled by default.
    st->is_forward_scaled = 0;
    st->is_backward_scaled = 1;

"
    "    // Bad allocation.
    if (st == NULL)
    {
        return st;
    }

")
    add_library(krel_ne10 STATIC
        ${ne10_dsp}/NE10_fft.c
        ${ne10_dsp}/NE10_fft_float32.c
        ${ne10_dsp}/NE10_fft_float32.neonintrinsic.c
        ${ne10_dsp}/NE10_fft_generic_float32.c
        ${ne10_dsp}/NE10_fft_generic_float32.neonintrinsic.cpp
        ${ne10_dsp}/NE10_fft_int32.c
        ${ne10_dsp}/NE10_fft_generic_int32.cpp)
    # SIMDe would take a fused multiply-add where the build machine has one: the bits would depend on the machine.
    target_compile_definitions(krel_ne10 PRIVATE NE10_UNROLL_LEVEL=0 SIMDE_X86_FMA_NO_NATIVE)
    target_include_directories(krel_ne10 SYSTEM PUBLIC ${ne10}/inc PRIVATE ${ne10}/common ${ne10_dsp})
    if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64|arm")
        target_include_directories(krel_ne10 BEFORE PRIVATE ${PROJECT_SOURCE_DIR}/cmake/simde)
    endif()
    krel_third_party(krel_ne10)
    target_compile_options(krel_ne10 PRIVATE -O3 $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti>)
endif()

# ---- SpeexDSP: the resampler, fixed-point build ---------------------------------------------------------------------
# Scalar on every target (no USE_NEON), so that all of them give the same bits.
set(speexdsp "${PROJECT_BINARY_DIR}/_deps/speexdsp")
krel_unpack("speexdsp_" "${speexdsp}")
set(speexdsp "${speexdsp}/speexdsp-1.2.1")
set(KREL_SPEEXDSP_LICENSE "${speexdsp}/COPYING")
set(INCLUDE_STDINT "#include <stdint.h>")
set(SIZE16 "int16_t")
set(USIZE16 "uint16_t")
set(SIZE32 "int32_t")
set(USIZE32 "uint32_t")
configure_file("${speexdsp}/include/speex/speexdsp_config_types.h.in"
    "${PROJECT_BINARY_DIR}/_deps/include/speexdsp_config_types.h" @ONLY)
add_library(krel_speexdsp STATIC ${speexdsp}/libspeexdsp/resample.c)
target_compile_definitions(krel_speexdsp PRIVATE FIXED_POINT VAR_ARRAYS EXPORT=)
target_include_directories(krel_speexdsp SYSTEM PUBLIC ${speexdsp}/include ${PROJECT_BINARY_DIR}/_deps/include)
krel_third_party(krel_speexdsp)
# Its 32-bit sums may leave their range on full-scale input: they wrap, everywhere alike.
target_compile_options(krel_speexdsp PRIVATE -fwrapv)

# ---- liblog ---------------------------------------------------------------------------------------------------------
add_library(krel_liblog INTERFACE)
if(ANDROID)
    target_link_libraries(krel_liblog INTERFACE log)
else()
    # Debian keeps it out of the loader's path, hence the run path.
    find_library(KREL_LIBLOG NAMES log PATH_SUFFIXES android REQUIRED)
    find_path(KREL_LIBLOG_INCLUDE android/log.h PATH_SUFFIXES android REQUIRED)
    get_filename_component(KREL_LIBLOG_DIR "${KREL_LIBLOG}" DIRECTORY)
    target_include_directories(krel_liblog SYSTEM INTERFACE ${KREL_LIBLOG_INCLUDE})
    target_link_libraries(krel_liblog INTERFACE ${KREL_LIBLOG})
    list(APPEND CMAKE_INSTALL_RPATH ${KREL_LIBLOG_DIR})
    set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
endif()
