# The example kit under a real Apache, and its pages in a real browser; once is enough, so not with the sanitizers.
if(NOT INSTALLER_SANITIZE)
    add_test(NAME apache COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/apache_test.py)
    set_tests_properties(apache PROPERTIES LABELS apache SKIP_RETURN_CODE 77 TIMEOUT 300 ENVIRONMENT
        "INSTALLER=$<TARGET_FILE:installer>;ARTEFACTS=${CMAKE_BINARY_DIR}/artefacts")
endif()
