# SIM and PIN: the command functions against the scripted fake AT server, and end to end through
# modemsim, atserver and atctl.
atapi_add_test(test_sim test_sim.cpp)
# The card type is asked once per process: the path tables of a SIM get a process of their own.
add_test(NAME test_sim_2g COMMAND test_sim --gtest_filter=SimFiles.*)
set_tests_properties(test_sim_2g PROPERTIES ENVIRONMENT ATAPI_TEST_CARD=1 TIMEOUT 300)

if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  atapi_add_test(test_sim_e2e test_sim_e2e.cpp e2e/harness.cpp)
  target_include_directories(test_sim_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  # The SIM's codes are read from the built-in scenario itself.
  target_link_libraries(test_sim_e2e PRIVATE modemsim_engine)
  target_compile_definitions(test_sim_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
    SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
  add_dependencies(test_sim_e2e atserver modemsim atctl)
  set_tests_properties(test_sim_e2e PROPERTIES RUN_SERIAL ON)
endif()
