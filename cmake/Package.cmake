# The Debian packages, split as Debian splits a library: what programs load, what they are built
# with, and the tool. Configure with the prefix /usr, or the libraries miss Debian's folder of the
# architecture.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development)
if(STREAMPROXY_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tool)
endif()
set(CPACK_PACKAGE_NAME streamproxy)
# Each description begins with its own; this one would be put in front of all.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "streamproxy developers <streamproxy@example.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PACKAGE_SOURCE streamproxy)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The libraries of this build are in no installed package: the components name each other instead.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_TOOL_DEPENDS library)

set(about
"libstreamproxy takes PCM streams of any rate, channel count and 16-bit or
32-bit samples, converts each to one configuration, mixes them on one thread
in blocks of about 20 ms, and hands every block to the host's outputs.
Streams with timestamps follow an AV-sync clock.")

# The number is the soname's: packages of two versions that hosts can't exchange are installed
# beside each other.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libstreamproxy${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "${PROJECT_DESCRIPTION}
${about}

This package holds the shared libraries.")
# Names the libraries for packages that use them.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The loader's cache is renewed by a trigger. CPack would write scripts for it, of which dpkg keeps
# one when the package is removed. It writes none that is named here, and leaves out what does not
# exist, with a warning.
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/triggers
    ${PROJECT_BINARY_DIR}/debian/postinst ${PROJECT_BINARY_DIR}/debian/postrm)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libstreamproxy-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS streamproxy)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} - development files
${about}

This package holds what C and C++ hosts are built with, the guide for those
who write one, and examples.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME streamproxy)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS libstreamproxy-dev)
set(CPACK_DEBIAN_TOOL_DESCRIPTION "${PROJECT_DESCRIPTION} - command-line host
${about}

This package holds the program streamproxy, which mixes audio files and
replays streams with timestamps through the library.")

# The packages' own changelog, beside the program's.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
    file(WRITE ${PROJECT_BINARY_DIR}/installed/changelog.Debian
"streamproxy (${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) unstable; urgency=medium

  * Version ${PROJECT_VERSION}: see changelog.gz.

 -- ${CPACK_PACKAGE_CONTACT}  ${now}
")
    execute_process(COMMAND ${STREAMPROXY_GZIP} -9nc
        ${PROJECT_BINARY_DIR}/installed/changelog.Debian
        OUTPUT_FILE ${PROJECT_BINARY_DIR}/installed/changelog.Debian.gz
        COMMAND_ERROR_IS_FATAL ANY)
    foreach(component ${CPACK_COMPONENTS_ALL})
        string(TOUPPER ${component} name)
        set(folder ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME})
        install(FILES ${PROJECT_BINARY_DIR}/installed/changelog.Debian.gz
            DESTINATION ${folder} COMPONENT ${component})
        if(NOT component STREQUAL "tool")
            install(FILES ${PROJECT_BINARY_DIR}/installed/changelog.gz
                DESTINATION ${folder} COMPONENT ${component})
        endif()
    endforeach()
endif()
include(CPack)
