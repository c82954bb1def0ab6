# What hosts outside this tree are built and run with: the public header; for hosts that share the
# process's properties, log or AV-sync clock with the library the headers of these, in a folder of
# their own; the libraries beside each other; the tool. Each file is in one of three components:
# "library" is what a built program loads, "development" what one is built with, "tool" the tool and
# the pages for its reader.
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
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT library NAMELINK_COMPONENT development)
install(FILES interface/streamproxy.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT development)
# Those that a host includes, and what they include in turn.
foreach(header android/log.h avsync/AVSyncBridge.h avsync/AVSyncClock.h avsync/AVSyncRecord.h
        cutils/properties.h utils/Errors.h utils/LockOrder.h utils/LockPlace.h utils/Mutex.h
        utils/RefBase.h utils/Timers.h)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES platform/include/${header}
        DESTINATION ${STREAMPROXY_HOST_INCLUDEDIR}/${folder} COMPONENT development)
endforeach()

install(EXPORT streamproxy NAMESPACE streamproxy:: FILE streamproxyTargets.cmake
    DESTINATION ${STREAMPROXY_CMAKEDIR} COMPONENT development)
configure_package_config_file(cmake/streamproxyConfig.cmake.in
    ${PROJECT_BINARY_DIR}/streamproxyConfig.cmake INSTALL_DESTINATION ${STREAMPROXY_CMAKEDIR}
    NO_SET_AND_CHECK_MACRO)
# As the soname has it: hosts break when the major version is raised.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/streamproxyConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/streamproxyConfig.cmake
    ${PROJECT_BINARY_DIR}/streamproxyConfigVersion.cmake DESTINATION ${STREAMPROXY_CMAKEDIR}
    COMPONENT development)

string(REGEX REPLACE "[^/]+" ".." STREAMPROXY_PC_TO_PREFIX ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
configure_file(cmake/streamproxy.pc.in ${PROJECT_BINARY_DIR}/streamproxy.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/streamproxy.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

find_program(STREAMPROXY_GZIP gzip REQUIRED)
if(STREAMPROXY_BUILD_TOOLS)
    install(TARGETS streamproxy_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        COMPONENT tool)
    # Compressed, with no time in the file: the same page gives the same bytes.
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/man/*.1)
    foreach(page ${pages})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${page})
        get_filename_component(name ${page} NAME)
        file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/man)
        execute_process(COMMAND ${STREAMPROXY_GZIP} -9nc ${page}
            OUTPUT_FILE ${PROJECT_BINARY_DIR}/man/${name}.gz COMMAND_ERROR_IS_FATAL ANY)
        install(FILES ${PROJECT_BINARY_DIR}/man/${name}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1
            COMPONENT tool)
    endforeach()
    if(EXISTS ${PROJECT_SOURCE_DIR}/tools/completion/streamproxy.bash)
        install(FILES tools/completion/streamproxy.bash RENAME streamproxy
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
    endif()
endif()

# What is installed has no tree: its README leaves out what is between the marks, and the lines of
# files that are not installed, and names the installed program and library.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS README.md CHANGELOG.md)
file(READ README.md readme)
string(FIND "${readme}" "<!-- tree -->" begin)
while(begin GREATER_EQUAL 0)
    string(FIND "${readme}" "<!-- end -->" end)
    math(EXPR end "${end} + 13")
    string(SUBSTRING "${readme}" 0 ${begin} before)
    string(SUBSTRING "${readme}" ${end} -1 after)
    set(readme "${before}${after}")
    string(FIND "${readme}" "<!-- tree -->" begin)
endwhile()
string(REGEX REPLACE "\n[|] [^\n]*CONTRIBUTING.md[^\n]*" "" readme "${readme}")
string(REPLACE "[CHANGELOG.md](CHANGELOG.md)" "`changelog.gz` beside this file" readme "${readme}")
string(REGEX REPLACE "; as pages in `build/doxygen`: [^|]* [|]" " |" readme "${readme}")
string(REPLACE "[interface/streamproxy.h](interface/streamproxy.h)" "`streamproxy.h`" readme "${readme}")
string(REPLACE "`man docs/man/streamproxy.1`, installed " "" readme "${readme}")
string(REPLACE "build/release/bin/" "" readme "${readme}")
string(REPLACE " -Iinterface smallest.c -o smallest \\\n    -Lbuild/release/lib -Wl,-rpath,$PWD/build/release/lib"
    " smallest.c -o smallest" readme "${readme}")
file(WRITE ${PROJECT_BINARY_DIR}/installed/README.md "${readme}")
execute_process(COMMAND ${STREAMPROXY_GZIP} -9nc ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/installed/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${PROJECT_BINARY_DIR}/installed/README.md
    ${PROJECT_BINARY_DIR}/installed/changelog.gz DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT tool)
# The pages lead to each other by relative links, so all lie in one folder, whatever their component.
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT tool
    FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.png PATTERN man EXCLUDE
    PATTERN host-guide.md EXCLUDE)
install(FILES docs/host-guide.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT development)
install(FILES examples/host.c examples/host.cpp examples/tunnel.cpp
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT development)
