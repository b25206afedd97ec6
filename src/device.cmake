# The device itself: identity and state, factory and diagnostic commands, battery, power and thermal.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_comm.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_comm_factory.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_k9_power.cpp)
