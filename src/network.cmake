# Command frame users: signal quality, registration state, time conversion.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_network_signal.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_network_reg.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_time_translate.cpp)
