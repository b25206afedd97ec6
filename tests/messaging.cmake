# Messaging: SMS storage, reading, sending and writing, the phonebook and USSD through the fake AT
# server; the SMS codec of atctl; and the family end to end through modemsim and atserver.
atapi_add_test(test_sms test_sms.cpp)
if(TARGET smscodec)
  atapi_add_test(test_smscodec test_smscodec.cpp)
  target_link_libraries(test_smscodec PRIVATE smscodec)
endif()
if(TARGET atserver AND TARGET modemsim AND TARGET atctl)
  atapi_add_test(test_messaging_e2e test_messaging_e2e.cpp e2e/harness.cpp)
  target_include_directories(test_messaging_e2e PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(test_messaging_e2e PRIVATE smscodec)
  target_compile_definitions(test_messaging_e2e PRIVATE
    ATCTL_BIN="$<TARGET_FILE:atctl>"
    ATSERVER_BIN="$<TARGET_FILE:atserver>"
    MODEMSIM_BIN="$<TARGET_FILE:modemsim>"
    SCENARIO_DIR="${PROJECT_SOURCE_DIR}/sim/scenarios")
  add_dependencies(test_messaging_e2e atctl atserver modemsim)
  set_tests_properties(test_messaging_e2e PROPERTIES RUN_SERIAL ON)
endif()
