# The Debian package, one for all: hosts load the library by the name without a version. Configure
# with the prefix /usr, or the libraries miss Debian's folder of the architecture.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME streamproxy)
set(CPACK_PACKAGE_CONTACT "streamproxy developers <streamproxy@example.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
"libstreamproxy takes PCM streams of any rate, channel count and 16-bit or
32-bit samples, converts each to one configuration, mixes them on one thread
in blocks of about 20 ms, and hands every block to the host's outputs.
Streams with timestamps follow an AV-sync clock.

The package holds the library, what C and C++ hosts are built with, and the
program streamproxy, which mixes audio files and replays streams with
timestamps through the library.")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Of the package's own libraries there is nothing to depend on.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# Names the libraries for packages that use them.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# The loader's cache is renewed by a trigger. CPack would write scripts for it, of which dpkg keeps
# one when the package is removed. It writes none that is named here, and leaves out what does not
# exist, with a warning.
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/triggers
    ${PROJECT_BINARY_DIR}/debian/postinst ${PROJECT_BINARY_DIR}/debian/postrm)
# The package's own changelog, beside the program's.
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
    install(FILES ${PROJECT_BINARY_DIR}/installed/changelog.Debian.gz
        DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
include(CPack)
