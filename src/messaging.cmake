# Messaging: SMS storage, reading, sending and writing; the phonebook; USSD.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_sms.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_pb.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_ussd.cpp)
