# End to end: modemsim, atserver and the library as separate processes, plus the server's line
# rules and the simulator's rule engine on their own.
if(TARGET atserver AND TARGET modemsim)
  atapi_add_test(test_e2e_rules test_e2e_rules.cpp)
  target_link_libraries(test_e2e_rules PRIVATE atserver_core modemsim_engine)
  target_compile_definitions(test_e2e_rules PRIVATE SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")

  foreach(t test_e2e_server test_e2e_load)
    atapi_add_test(${t} ${t}.cpp e2e/harness.cpp)
    target_include_directories(${t} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_compile_definitions(${t} PRIVATE
      ATSERVER_BIN="$<TARGET_FILE:atserver>"
      MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
      SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
    add_dependencies(${t} atserver modemsim)
    # Each suite starts its own processes in its own run directory, but the machine is small.
    set_tests_properties(${t} PROPERTIES RUN_SERIAL ON)
  endforeach()
  # Many client threads and the server's intake threads: part of the ThreadSanitizer run.
  set_tests_properties(test_e2e_load PROPERTIES LABELS concurrency)
endif()
