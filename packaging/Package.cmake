# The Debian package: cmake --build BUILD --target package.
#
# Its maintainer is whoever makes it, named as the distribution's own tools have it. The list of changes names the same.
set(maker "whoever made this package <root@localhost>")
if(DEFINED ENV{DEBEMAIL} AND DEFINED ENV{DEBFULLNAME})
  set(maker "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
endif()
set(KV_MAINTAINER "" CACHE STRING "Whom the Debian package names as its maintainer, \"Name <address>\"")
if(NOT KV_MAINTAINER)
  set(KV_MAINTAINER ${maker})
endif()
configure_file(changelog.in changelog @ONLY)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME project-share)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${KV_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "editing workstations that share one projects directory")
set(CPACK_PACKAGE_DESCRIPTION
    "Several video-editing workstations work on the same projects in one directory
of a network file system; what one changes arrives on the others at once, and
there is no server. The package holds the plug-in, a stand-alone workstation
(kv-station), the administrator's tool (kv-share) and the headers with which
another host application is built.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The two that lie beside each other; the linker's name for the first is its file's.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "tshark | wireshark, ufw | firewalld")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
