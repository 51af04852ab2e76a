# SPDX-License-Identifier: Apache-2.0
# Unpacks the Ne10 and SpeexDSP sources, ready to compile: for the CMake build (Dependencies.cmake) and, on its own, for
# Android trees:
#
#   cmake -DTARBALL_DIR=<folder with the tarballs> -DOUT=<folder to fill> -P cmake/Sources.cmake

get_filename_component(KREL_SUMS "${CMAKE_CURRENT_LIST_DIR}/tarballs.sha256" ABSOLUTE)

# Copies sources that someone has verified and unpacked already.
function(krel_copy from to)
    if(NOT EXISTS "${to}/.copied")
        file(REMOVE_RECURSE "${to}")
        file(COPY "${from}/" DESTINATION "${to}")
        file(TOUCH "${to}/.copied")
    endif()
endfunction()

# Unpacks the tarball whose file name starts with `prefix` into `out_dir`, after its checksum was verified.
function(krel_extract prefix tarball_dir out_dir)
    file(STRINGS "${KREL_SUMS}" sums REGEX "  ${prefix}")
    string(REGEX MATCH "^([0-9a-f]+)  (.+)$" unused "${sums}")
    set(expected "${CMAKE_MATCH_1}")
    set(name "${CMAKE_MATCH_2}")
    set(tarball "${tarball_dir}/${name}")
    if(NOT EXISTS "${tarball}")
        message(FATAL_ERROR "${name} is missing in ${tarball_dir}: run scripts/setup.sh, or name the folder that has it")
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

# The sources of `package` into `out_dir`. `top` is the folder that its tarball unpacks to, in front of it a slash; none for
# a tarball without one. What is unpacked already lacks it.
function(krel_unpack package top tarball_dir out_dir)
    if(IS_DIRECTORY "${tarball_dir}/${package}")
        krel_copy("${tarball_dir}/${package}" "${out_dir}${top}")
    else()
        krel_extract("${package}_" "${tarball_dir}" "${out_dir}")
    endif()
    # An Android tree's build would take these for its own, wherever they lie.
    file(GLOB_RECURSE foreign "${out_dir}/Android.mk" "${out_dir}/Android.bp" "${out_dir}/CleanSpec.mk")
    if(foreign)
        file(REMOVE ${foreign})
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

function(krel_unpack_ne10 tarball_dir out_dir)
    krel_unpack(ne10 "" "${tarball_dir}" "${out_dir}")
    # Its allocators write to the new state before they look whether there is one. Our initialisers promise to survive a
    # failed allocation, so the look comes first.
    krel_swap_text("${out_dir}/modules/dsp/NE10_fft.c"
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
endfunction()

function(krel_unpack_speexdsp tarball_dir out_dir)
    krel_unpack(speexdsp /speexdsp-1.2.1 "${tarball_dir}" "${out_dir}")
    set(INCLUDE_STDINT "#include <stdint.h>")
    set(SIZE16 "int16_t")
    set(USIZE16 "uint16_t")
    set(SIZE32 "int32_t")
    set(USIZE32 "uint32_t")
    set(types "${out_dir}/speexdsp-1.2.1/include/speex/speexdsp_config_types.h")
    configure_file("${types}.in" "${types}" @ONLY)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    get_filename_component(out "${OUT}" ABSOLUTE)
    krel_unpack_ne10("${TARBALL_DIR}" "${out}/ne10")
    krel_unpack_speexdsp("${TARBALL_DIR}" "${out}/speexdsp")
endif()
