# Voice calls and the SIM toolkit: call control and the toolkit against the scripted fake AT
# server, the call event parsers as pure functions, and both end to end.
atapi_add_test(test_voice test_voice.cpp)
atapi_add_test(test_stk test_stk.cpp)
if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  atapi_add_test(test_voice_e2e test_voice_e2e.cpp e2e/harness.cpp)
  target_include_directories(test_voice_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_compile_definitions(test_voice_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
    SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
  add_dependencies(test_voice_e2e atctl atserver modemsim)
  set_tests_properties(test_voice_e2e PROPERTIES RUN_SERIAL ON)
endif()
