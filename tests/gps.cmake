# Positioning, the datacard command set and data-flow statistics: against the scripted fake AT
# server, and end to end through modemsim, atserver and atctl.
atapi_add_test(test_gps test_gps.cpp)
atapi_add_test(test_datacard test_datacard.cpp)
atapi_add_test(test_stats test_stats.cpp)
if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  atapi_add_test(test_gps_e2e test_gps_e2e.cpp e2e/harness.cpp)
  target_include_directories(test_gps_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_compile_definitions(test_gps_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
    SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
  add_dependencies(test_gps_e2e atctl atserver modemsim)
  set_tests_properties(test_gps_e2e PROPERTIES RUN_SERIAL ON)
endif()
