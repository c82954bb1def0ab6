# What hosts outside this tree are built and run with: the public header; for hosts that share the
# process's properties, log or AV-sync clock with the library the headers of these, in a folder of
# their own; the libraries beside each other; the tool.
include(CMakePackageConfigHelpers)

set(STREAMPROXY_HOST_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/streamproxy)
set(STREAMPROXY_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/streamproxy)

# The folders may be moved: the files find each other. In the system's own folders the loader looks
# anyway.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set_target_properties(streamproxy streamproxy_avsync streamproxy_platform PROPERTIES
        INSTALL_RPATH "$ORIGIN")
    if(STREAMPROXY_BUILD_TOOLS)
        set_target_properties(streamproxy_tool PROPERTIES
            INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
    endif()
endif()

foreach(part avsync platform)
    set_target_properties(streamproxy_${part} PROPERTIES EXPORT_NAME ${part})
    target_include_directories(streamproxy_${part} INTERFACE
        $<INSTALL_INTERFACE:${STREAMPROXY_HOST_INCLUDEDIR}>)
endforeach()

install(TARGETS streamproxy streamproxy_avsync streamproxy_platform EXPORT streamproxy
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES interface/streamproxy.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Those that a host includes, and what they include in turn.
foreach(header android/log.h avsync/AVSyncBridge.h avsync/AVSyncClock.h avsync/AVSyncRecord.h
        cutils/properties.h utils/Errors.h utils/LockOrder.h utils/LockPlace.h utils/Mutex.h
        utils/RefBase.h utils/Timers.h)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES platform/include/${header}
        DESTINATION ${STREAMPROXY_HOST_INCLUDEDIR}/${folder})
endforeach()

install(EXPORT streamproxy NAMESPACE streamproxy:: FILE streamproxyTargets.cmake
    DESTINATION ${STREAMPROXY_CMAKEDIR})
configure_package_config_file(cmake/streamproxyConfig.cmake.in
    ${PROJECT_BINARY_DIR}/streamproxyConfig.cmake INSTALL_DESTINATION ${STREAMPROXY_CMAKEDIR}
    NO_SET_AND_CHECK_MACRO)
# As the soname has it: hosts break when the major version is raised.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/streamproxyConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/streamproxyConfig.cmake
    ${PROJECT_BINARY_DIR}/streamproxyConfigVersion.cmake DESTINATION ${STREAMPROXY_CMAKEDIR})

string(REGEX REPLACE "[^/]+" ".." STREAMPROXY_PC_TO_PREFIX ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(cmake/streamproxy.pc.in ${PROJECT_BINARY_DIR}/streamproxy.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/streamproxy.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(STREAMPROXY_BUILD_TOOLS)
    install(TARGETS streamproxy_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    file(GLOB STREAMPROXY_MAN_PAGES ${PROJECT_SOURCE_DIR}/docs/man/*.1)
    if(STREAMPROXY_MAN_PAGES)
        install(FILES ${STREAMPROXY_MAN_PAGES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
    endif()
    if(EXISTS ${PROJECT_SOURCE_DIR}/tools/completion/streamproxy.bash)
        install(FILES tools/completion/streamproxy.bash RENAME streamproxy
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    endif()
endif()
install(FILES README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR}
    FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN man EXCLUDE)
install(FILES examples/host.c examples/host.cpp examples/tunnel.cpp DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples)
