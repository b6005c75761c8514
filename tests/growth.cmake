# How work and memory grow with the kit. The sanitizers' own memory and work would drown the program's.
if(NOT INSTALLER_SANITIZE)
    add_test(NAME growth COMMAND ${SYSTEM_PYTHON3} -B ${CMAKE_CURRENT_SOURCE_DIR}/growth_test.py)
    set_tests_properties(growth PROPERTIES LABELS growth ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>")
endif()
