# The device family: identity and state, factory and diagnostic commands, battery, power and
# thermal, against the fake AT server; and end to end through modemsim, atserver and atctl.
atapi_add_test(test_device test_device.cpp)
set_tests_properties(test_device PROPERTIES ENVIRONMENT "GTEST_FILTER=-VersionCache.*")
# The firmware-version cache lasts as long as the process: each of its tests gets one of its own.
add_test(NAME test_device_version_fill COMMAND test_device --gtest_filter=VersionCache.FailuresCacheNothingThenThreadsFillItOnce)
add_test(NAME test_device_version_both COMMAND test_device --gtest_filter=VersionCache.OneLineNamingBothKindsFillsBoth)
set_tests_properties(test_device_version_fill test_device_version_both PROPERTIES TIMEOUT 300)
set_tests_properties(test_device_version_fill PROPERTIES LABELS concurrency)

if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  atapi_add_test(test_device_e2e test_device_e2e.cpp e2e/harness.cpp)
  target_include_directories(test_device_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_compile_definitions(test_device_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>")
  add_dependencies(test_device_e2e atctl atserver modemsim)
  set_tests_properties(test_device_e2e PROPERTIES RUN_SERIAL ON)
endif()
