# libkrelvcp.so: every folder of the product, whole, behind the list of exported names.

get_property(folders GLOBAL PROPERTY KREL_FOLDERS)
set(exports "${PROJECT_SOURCE_DIR}/cmake/exports.map")

add_library(krelvcp SHARED ${PROJECT_SOURCE_DIR}/cmake/empty.c)
target_link_libraries(krelvcp PRIVATE krel_flags -Wl,--whole-archive ${folders} -Wl,--no-whole-archive m)
set_target_properties(krelvcp PROPERTIES
    LINKER_LANGUAGE C  # no C++ run-time library
    LINK_DEPENDS "${exports}")
target_link_options(krelvcp PRIVATE
    -Wl,--version-script=${exports}
    # Our functions call each other, whatever else is loaded; mVcpLock stays one object for callers that name it.
    -Wl,-Bsymbolic-functions
    -Wl,--as-needed
    -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack
    -Wl,-z,max-page-size=16384)
if(NOT KREL_SANITIZE)
    target_link_options(krelvcp PRIVATE -Wl,-z,defs)
endif()
