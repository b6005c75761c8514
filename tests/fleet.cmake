# The Ansible role against three hosts, and its reading of logs; once is enough, so not with the sanitizers.
if(NOT INSTALLER_SANITIZE)
    foreach(name fleet fleet_result)
        add_test(NAME ${name} COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/${name}_test.py)
        set_tests_properties(${name} PROPERTIES LABELS fleet SKIP_RETURN_CODE 77 TIMEOUT 1200
            ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>")
    endforeach()
endif()
