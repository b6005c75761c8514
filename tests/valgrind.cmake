# What talks to the network and what holds the settings, once more under valgrind; a sanitized program cannot run there.
# Tests that take the memory away are left out, since valgrind itself would be without.
if(NOT INSTALLER_SANITIZE)
    find_program(VALGRIND valgrind REQUIRED)
    foreach(name tcp_test ini_test ini_file_test ini_replace_test)
        add_test(NAME valgrind.${name} COMMAND ${VALGRIND} --quiet --leak-check=full --errors-for-leak-kinds=all
                                               --error-exitcode=1 $<TARGET_FILE:${name}> --gtest_filter=-*NoMemory*)
        set_tests_properties(valgrind.${name} PROPERTIES LABELS valgrind TIMEOUT 600)
    endforeach()
endif()
