# Every folder in scenarios/ is a test of its own; a new folder is picked up with no line here touched.
file(GLOB scenario_about_files CONFIGURE_DEPENDS scenarios/*/about)
foreach(about IN LISTS scenario_about_files)
    get_filename_component(folder ${about} DIRECTORY)
    get_filename_component(name ${folder} NAME)
    add_test(NAME scenario.${name}
             COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/run_scenario $<TARGET_FILE:installer> ${folder})
    set_tests_properties(scenario.${name} PROPERTIES LABELS scenario SKIP_RETURN_CODE 77 TIMEOUT 60)
endforeach()

# The example kit, played whole.
add_test(NAME noticeboard COMMAND ${SYSTEM_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/noticeboard_test.py)
set_tests_properties(noticeboard PROPERTIES LABELS demo ENVIRONMENT "INSTALLER=$<TARGET_FILE:installer>")
