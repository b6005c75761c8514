# Packages, the static program and packed kits. The test makes release builds of its own, so once is enough, and it has the
# machine to itself.
if(CMAKE_BUILD_TYPE STREQUAL "Debug" AND NOT INSTALLER_SANITIZE)
    add_test(NAME package COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/package_test.py)
    set_tests_properties(package PROPERTIES LABELS package RUN_SERIAL ON TIMEOUT 900)
endif()
