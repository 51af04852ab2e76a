# What `cmake --install` puts below its prefix: the library, the headers for outside callers, a CMake and a pkg-config
# package, documents. Nothing installed names the prefix: the tree may be moved.
include(CMakePackageConfigHelpers)

# The headers whose functions outside callers may use. Those of the effect library are the platform's own.
set(public_headers
    base/export.h
    core/echos.h
    core/reverb.h
    core/reverb_filters.h
    core/vcp.h
    dsp/cubic_interp.h
    dsp/drc.h
    dsp/iir.h
    dsp/peq.h
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

install(TARGETS krelvcp EXPORT krelvcp LIBRARY)
target_include_directories(krelvcp INTERFACE $<INSTALL_INTERFACE:${headers}>)
if(TARGET krelvcp_program)
    install(TARGETS krelvcp_program RUNTIME)
endif()

set(package "${CMAKE_INSTALL_LIBDIR}/cmake/krelvcp")
set(generated "${PROJECT_BINARY_DIR}/package")
install(EXPORT krelvcp NAMESPACE krelvcp:: FILE krelvcpTargets.cmake DESTINATION ${package})
configure_package_config_file(cmake/krelvcpConfig.cmake.in ${generated}/krelvcpConfig.cmake
    INSTALL_DESTINATION ${package} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${generated}/krelvcpConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${generated}/krelvcpConfig.cmake ${generated}/krelvcpConfigVersion.cmake DESTINATION ${package})

# The .pc file finds everything from where it stands.
foreach(folder LIBDIR INCLUDEDIR)
    file(RELATIVE_PATH KREL_PC_${folder} "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_FULL_${folder}}")
    string(REGEX REPLACE "/$" "" KREL_PC_${folder} "${KREL_PC_${folder}}")
endforeach()
configure_file(cmake/krelvcp.pc.in ${generated}/krelvcp.pc @ONLY)
install(FILES ${generated}/krelvcp.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES LICENSE README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs FILES_MATCHING PATTERN "*.md")
# The licences of what the library contains.
install(FILES "${KREL_SPEEXDSP_LICENSE}" DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME LICENSE.speexdsp)
if(NOT KREL_SYSTEM_NE10)
    install(FILES "${KREL_NE10_LICENSE}" DESTINATION ${CMAKE_INSTALL_DOCDIR} RENAME LICENSE.ne10)
endif()
