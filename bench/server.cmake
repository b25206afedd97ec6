# The AT server against the simulated modem: commands per second, latency, server CPU.
if(TARGET atserver AND TARGET modemsim)
  add_executable(bench_server ${CMAKE_CURRENT_LIST_DIR}/bench_server.cpp
                              ${PROJECT_SOURCE_DIR}/tests/e2e/harness.cpp)
  target_include_directories(bench_server PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tests/support)
  target_link_libraries(bench_server PRIVATE atapi benchmark::benchmark)
  target_compile_definitions(bench_server PRIVATE
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
    SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
  add_dependencies(bench_server atserver modemsim)
endif()
