# On real pseudo-terminals; pexpect comes with the system's own Python. The screens are those of docs/terminal.md.
add_test(NAME terminal COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/terminal_test.py)
add_test(NAME screens COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/screens_test.py)
set_tests_properties(terminal screens PROPERTIES LABELS terminal ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>")
