# atctl, the command-line client, run as a child process: against the scripted fake AT server,
# and against modemsim and atserver (with the demo script) when those are built.
if(TARGET atctl)
  atapi_add_test(test_atctl test_atctl.cpp)
  target_compile_definitions(test_atctl PRIVATE ATCTL_BIN="$<TARGET_FILE:atctl>")
  add_dependencies(test_atctl atctl)

  if(TARGET atserver AND TARGET modemsim)
    atapi_add_test(test_atctl_sim test_atctl_sim.cpp e2e/harness.cpp)
    target_include_directories(test_atctl_sim PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_compile_definitions(test_atctl_sim PRIVATE
      ATCTL_BIN="$<TARGET_FILE:atctl>"
      ATSERVER_BIN="$<TARGET_FILE:atserver>"
      MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
      SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios"
      DEMO_SCRIPT="${PROJECT_SOURCE_DIR}/scripts/demo.sh"
      BUILD_DIR="${PROJECT_BINARY_DIR}")
    add_dependencies(test_atctl_sim atctl atserver modemsim)
    set_tests_properties(test_atctl_sim PROPERTIES RUN_SERIAL ON)
  endif()
endif()
