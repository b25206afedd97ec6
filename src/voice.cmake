# Voice calls (call control and the call event report parsers) and the SIM toolkit.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_call.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_voice.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_stk.cpp)
