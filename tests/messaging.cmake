# Messaging: SMS storage, reading, sending and writing, the phonebook and USSD through the fake AT
# server, and the SMS codec of atctl.
atapi_add_test(test_sms test_sms.cpp)
if(TARGET smscodec)
  atapi_add_test(test_smscodec test_smscodec.cpp)
  target_link_libraries(test_smscodec PRIVATE smscodec)
endif()
