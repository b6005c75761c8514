# Runs on a real pseudo-terminal; pexpect comes with the system's own Python.
add_test(NAME terminal COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/terminal_test.py)
set_tests_properties(terminal PROPERTIES LABELS terminal ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>")
