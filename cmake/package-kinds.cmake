# Read by cpack once for each kind of package.
set(kinds_own papers)
if(CPACK_GENERATOR STREQUAL "DEB")
    set(kinds_own debian)
endif()
list(GET CPACK_INSTALL_CMAKE_PROJECTS 0 build_folder)
set(CPACK_INSTALL_CMAKE_PROJECTS
    ${build_folder} ${CPACK_PACKAGE_NAME} program / ${build_folder} ${CPACK_PACKAGE_NAME} ${kinds_own} /)
