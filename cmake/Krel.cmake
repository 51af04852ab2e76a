# SPDX-License-Identifier: Apache-2.0
# Compiler rules shared by all of the project's own targets.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")
set(KREL_EFFECT_FOLDER "${CMAKE_INSTALL_LIBDIR}" CACHE STRING "Where libkrelvcp.so is installed, below the prefix")

if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE Release)
endif()

# x86-64 is the desk, not the product: use what the build machine has, AVX2 or else SSE4.2. The results are the same bits,
# also as on arm64: gcc fuses the two halves of complex products in spite of -ffp-contract=off, unless there is no such
# instruction.
set(KREL_ARCH_FLAGS "")
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
    set(level x86-64-v2)
    if(EXISTS /proc/cpuinfo AND NOT CMAKE_CROSSCOMPILING)
        file(READ /proc/cpuinfo cpuinfo)
        if(cpuinfo MATCHES "[ \t]avx2[ \n]" AND cpuinfo MATCHES "[ \t]bmi2[ \n]" AND cpuinfo MATCHES "[ \t]fma[ \n]")
            set(level x86-64-v3)
        endif()
    endif()
    set(KREL_X86_LEVEL ${level} CACHE STRING "-march value of x86-64 builds")
    set(KREL_ARCH_FLAGS -march=${KREL_X86_LEVEL} -mno-fma)
    # base/fast_paths.h. Not with sanitizers: the dynamic linker would ask which one to take before they are ready.
    option(KREL_X86_FAST_PATHS "Compile hot loops for AVX2 as well, and choose when the library is loaded (gcc)" OFF)
    if(KREL_X86_FAST_PATHS AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT KREL_SANITIZE)
        list(APPEND KREL_ARCH_FLAGS -DKREL_FAST_PATHS)
    endif()
endif()

# 32-bit ARM: NEON is part of every device in scope. Its multiply-accumulate rounds twice there, as everywhere else.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "armv7")
    set(KREL_ARCH_FLAGS -march=armv7-a -mfpu=neon)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        list(APPEND KREL_ARCH_FLAGS -Wno-psabi -Wno-restrict)  # gcc 7 changed a convention; 12 has false alarms
    endif()
endif()

if(CMAKE_SYSTEM_PROCESSOR STREQUAL "wasm32")
    set(KREL_ARCH_FLAGS -msimd128 -fno-pic)  # one module: nothing to relocate
endif()

# WebAssembly's own stack cannot be reached by writes, and wasi-libc has no stack protector.
set(KREL_STACK_FLAGS $<$<NOT:$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},wasm32>>:-fstack-protector-strong>)

add_library(krel_flags INTERFACE)
target_compile_options(krel_flags INTERFACE
    ${KREL_ARCH_FLAGS}
    -Wall -Wextra -Wconversion -Wshadow -Wundef $<$<BOOL:${KREL_WARNINGS_AS_ERRORS}>:-Werror>
    # Results are the same on every compiler and machine: no fused multiply-add, no reordering. The two flags after it
    # change no value; they only free the vectoriser from errno and floating-point traps.
    -ffp-contract=off -fno-math-errno -fno-trapping-math
    -fvisibility=hidden ${KREL_STACK_FLAGS}
    $<$<COMPILE_LANGUAGE:CXX>:-fvisibility-inlines-hidden>)
if(KREL_SANITIZE)
    target_compile_options(krel_flags INTERFACE -fsanitize=${KREL_SANITIZE} -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(krel_flags INTERFACE -fsanitize=${KREL_SANITIZE})
elseif(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT ANDROID)  # the NDK brings its own
    target_compile_definitions(krel_flags INTERFACE _FORTIFY_SOURCE=2)
endif()
if(KREL_BUILD_FUZZ)
    # What a fuzzer's guidance needs: which edges an input takes.
    target_compile_options(krel_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# Code that runs in the phone's audio process: no exceptions, no RTTI, no C++ run-time library.
add_library(krel_product_flags INTERFACE)
target_link_libraries(krel_product_flags INTERFACE krel_flags)
target_compile_options(krel_product_flags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)

# krel_use(TARGET PRIVATE base ne10 ...)
#
# Links a target with folders and dependencies (Dependencies.cmake), named without the krel_ that all of ours begin with.
function(krel_use target visibility)
    list(TRANSFORM ARGN PREPEND krel_)
    target_link_libraries(${target} ${visibility} ${ARGN})
endfunction()

# krel_add_folder(NAME dsp SOURCES a.cpp ... USES base ...)
#
# One static library per folder of the product, position independent. USES names the folders and dependencies that it may
# include and call: a folder's own tests link only these, so an upward call does not link, and scripts/check_layers.py
# reads these lines. APART keeps the folder out of libkrelvcp.so.
function(krel_add_folder)
    cmake_parse_arguments(arg "APART" "NAME" "SOURCES;USES" ${ARGN})
    set(target krel_${arg_NAME})
    add_library(${target} STATIC ${arg_SOURCES})
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PRIVATE krel_product_flags)
    krel_use(${target} PUBLIC ${arg_USES})
    if(NOT arg_APART)
        set_property(GLOBAL APPEND PROPERTY KREL_FOLDERS ${target})
    endif()
endfunction()
