# The examples of docs/library.md, compiled as this build compiles.
set(example_flags "")
if(INSTALLER_SANITIZE)
    set(example_flags "-fsanitize=address,undefined")
endif()
add_test(NAME library_docs COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/library_docs_test.py)
set_tests_properties(library_docs PROPERTIES LABELS docs ENVIRONMENT
    "CXX=${CMAKE_CXX_COMPILER};LIBRARY=$<TARGET_FILE:modules>;FLAGS=${example_flags}")
