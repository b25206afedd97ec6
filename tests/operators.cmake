# Operator selection, network names, the clock and the radio configuration: table tests against
# the scripted fake AT server, and end to end through modemsim, atserver and atctl.
atapi_add_test(test_operators test_operators.cpp)

# End to end. The search that holds the modem while other callers queue behind it runs on its
# own, with the concurrency tests (it is also the ThreadSanitizer's).
if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  add_executable(test_operators_e2e test_operators_e2e.cpp e2e/harness.cpp)
  target_link_libraries(test_operators_e2e PRIVATE atapi_testsupport GTest::gtest_main)
  set_target_properties(test_operators_e2e PROPERTIES ENABLE_EXPORTS ON)
  target_include_directories(test_operators_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_compile_definitions(test_operators_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>")
  add_dependencies(test_operators_e2e atctl atserver modemsim)
  add_test(NAME test_operators_e2e COMMAND test_operators_e2e --gtest_filter=-*Queued*)
  add_test(NAME test_operators_queue COMMAND test_operators_e2e --gtest_filter=*Queued*)
  set_tests_properties(test_operators_e2e test_operators_queue PROPERTIES RUN_SERIAL ON TIMEOUT 300)
  set_tests_properties(test_operators_queue PROPERTIES LABELS concurrency)
endif()
