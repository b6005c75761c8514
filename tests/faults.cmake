# Runs of the installer that are disturbed from outside by a preloaded library (docs/testing.md).
add_library(faults MODULE faults/faults.cpp)
target_compile_options(faults PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2
                                      $<$<BOOL:${INSTALLER_WERROR}>:-Werror>)
target_link_libraries(faults PRIVATE ${CMAKE_DL_LIBS})

# The runtime of the sanitizers wants to be the first library. It has a malloc of its own, so that memory does not run
# short there, and runs take several times as long: every fifth call is disturbed.
if(INSTALLER_SANITIZE)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libasan.so OUTPUT_VARIABLE asan_runtime
                    OUTPUT_STRIP_TRAILING_WHITESPACE)
    set(sanitized "FAULTS_FIRST=${asan_runtime}" FAULTS_STEP=5)
endif()

foreach(name IN ITEMS faults kills hostile)
    add_test(NAME ${name} COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/faults/${name}_test.py)
    set_tests_properties(
        ${name} PROPERTIES LABELS ${name} TIMEOUT 900
                           ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>;FAULTS_LIBRARY=$<TARGET_FILE:faults>;${sanitized}")
endforeach()
set_tests_properties(faults PROPERTIES PROCESSORS 2)
