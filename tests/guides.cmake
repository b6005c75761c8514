# The examples of the guides and of README.md, played with the program.
add_test(NAME guides COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/guides_test.py)
set_tests_properties(guides PROPERTIES LABELS docs ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>")

# The manual pages.
add_test(NAME manual_pages COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/man_test.py)
set_tests_properties(manual_pages PROPERTIES LABELS docs)
