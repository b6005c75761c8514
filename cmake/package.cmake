# The packages that scripts/package makes: a Debian package and an archive for every other host.

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_NAME installer)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "The installer's authors <maintainers@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "interactive console installer for web applications")
set(CPACK_PACKAGE_FILE_NAME installer-${PROJECT_VERSION}-${CMAKE_SYSTEM_NAME}-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
# Which components a package holds depends on its kind.
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/package-kinds.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_SOURCE_DIR}/cmake/package-order.cmake)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"A kit is a folder with this program and a few plain-text scripts. Started in
a terminal, the program asks the kit's questions, copies files, writes settings
from templates, sets owners and modes as the web server needs them, and logs
all it does.")

include(CPack)
