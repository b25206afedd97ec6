# The data connection: dial, connection state, contexts and addresses.
atapi_add_test(test_data test_data.cpp)

# End to end through modemsim, atserver and atctl; the masks of the built-in scenario directly.
if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  atapi_add_test(test_data_e2e test_data_e2e.cpp e2e/harness.cpp)
  target_include_directories(test_data_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(test_data_e2e PRIVATE modemsim_engine)
  target_compile_definitions(test_data_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
    SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
  add_dependencies(test_data_e2e atctl atserver modemsim)
  set_tests_properties(test_data_e2e PROPERTIES RUN_SERIAL ON)
endif()
