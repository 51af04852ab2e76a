# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` puts below its prefix: the libraries, their headers for outside callers, CMake and pkg-config
# packages, documents. Nothing installed names the prefix: the tree may be moved.
include(CMakePackageConfigHelpers)

# The headers for outside callers. The functions of the effect library are the platform's own.
set(public_headers
    base/export.h
    delay/echos.h
    delay/reverb.h
    delay/reverb_filters.h
    core/vcp.h
    dsp/cubic_interp.h
    dsp/drc.h
    dsp/iir.h
    dsp/peq.h
    effect/interface.h
    pitch_stream/pitch_stream.h
    spectral/envelope.h
    spectral/pitch.h
    spectral/spectral_types.h
    spectral/vocal.h
    spectral/vocoder.h
    wrapper/voice_changer.h)
set(headers "${CMAKE_INSTALL_INCLUDEDIR}/krelvcp")
foreach(header IN LISTS public_headers)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${headers}/${folder})
endforeach()

install(TARGETS krelvcp EXPORT krelvcp LIBRARY DESTINATION ${KREL_EFFECT_FOLDER})
target_include_directories(krelvcp INTERFACE $<INSTALL_INTERFACE:${headers}>)
if(TARGET krelvcp_program)
    install(TARGETS krelvcp_program RUNTIME)
    set(documents "${PROJECT_BINARY_DIR}/documents")
    install(FILES ${documents}/krelvcp.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    # Where each shell looks on its own.
    set(shells "${CMAKE_INSTALL_DATADIR}")
    install(FILES ${documents}/krelvcp.bash DESTINATION ${shells}/bash-completion/completions RENAME krelvcp)
    install(FILES ${documents}/krelvcp.zsh DESTINATION ${shells}/zsh/site-functions RENAME _krelvcp)
    install(FILES ${documents}/krelvcp.fish DESTINATION ${shells}/fish/vendor_completions.d)
endif()

# The engine is another library, with headers of its own.
set(headers "${CMAKE_INSTALL_INCLUDEDIR}/krelvoice")
install(FILES base/export.h DESTINATION ${headers}/base)
install(FILES engine/voice.h DESTINATION ${headers}/engine)
foreach(target krelvoice krelvoice_static)
    if(TARGET ${target})
        install(TARGETS ${target} EXPORT krelvoice LIBRARY ARCHIVE)
    endif()
endforeach()

# The .pc files find everything from where they stand.
set(KREL_PC_EFFECT "${KREL_EFFECT_FOLDER}")
set(KREL_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
set(KREL_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
foreach(folder EFFECT LIBDIR INCLUDEDIR)
    file(RELATIVE_PATH KREL_PC_${folder} "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix/${KREL_PC_${folder}}")
    string(REGEX REPLACE "/$" "" KREL_PC_${folder} "${KREL_PC_${folder}}")
endforeach()

# krel_install_package(NAME): the CMake package of the exported targets, and the .pc file.
function(krel_install_package name)
    set(package "${CMAKE_INSTALL_LIBDIR}/cmake/${name}")
    set(generated "${PROJECT_BINARY_DIR}/package")
    install(EXPORT ${name} NAMESPACE ${name}:: FILE ${name}Targets.cmake DESTINATION ${package})
    configure_package_config_file(cmake/${name}Config.cmake.in ${generated}/${name}Config.cmake
        INSTALL_DESTINATION ${package} NO_SET_AND_CHECK_MACRO)
    write_basic_package_version_file(${generated}/${name}ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
    install(FILES ${generated}/${name}Config.cmake ${generated}/${name}ConfigVersion.cmake DESTINATION ${package})
    configure_file(cmake/${name}.pc.in ${generated}/${name}.pc @ONLY)
    install(FILES ${generated}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
krel_install_package(krelvcp)
krel_install_package(krelvoice)

install(FILES LICENSE NOTICE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md")
# The licences of what the library contains.
install(FILES "${KREL_SPEEXDSP_LICENSE}" DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME LICENSE.speexdsp)
if(NOT KREL_SYSTEM_NE10)
    install(FILES "${KREL_NE10_LICENSE}" DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME LICENSE.ne10)
endif()
