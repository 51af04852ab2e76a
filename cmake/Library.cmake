# SPDX-License-Identifier: Apache-2.0
# Rules for linking a shared library that ships: exports by the version script, no C++ run-time library, everything bound
# at load time.
function(krel_shared_library target exports)
    set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C LINK_DEPENDS "${exports}")
    target_link_options(${target} PRIVATE
        -Wl,--version-script=${exports}
        -Wl,--as-needed
        -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
        -Wl,-z,max-page-size=16384)
    if(NOT KREL_SANITIZE)
        target_link_options(${target} PRIVATE -Wl,-z,defs)
    endif()
endfunction()

if(NOT KREL_BUILD_EFFECT)
    return()
endif()

# libkrelvcp.so: every folder of the product, whole, behind the list of exported names.

get_property(folders GLOBAL PROPERTY KREL_FOLDERS)
set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.map")

add_library(krelvcp SHARED ${PROJECT_SOURCE_DIR}/cmake/empty.c)
target_link_libraries(krelvcp PRIVATE krel_flags -Wl,--whole-archive ${folders} -Wl,--no-whole-archive krel_system m)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "armv7" AND NOT ANDROID)
    # gcc registers destructors with the C++ library's own __aeabi_atexit there.
    target_link_libraries(krelvcp PRIVATE -l:libstdc++.a)
endif()
krel_shared_library(krelvcp "${exports}")
# Our functions call each other, whatever else is loaded; mVcpLock stays one object for callers that name it.
target_link_options(krelvcp PRIVATE -Wl,-Bsymbolic-functions)
