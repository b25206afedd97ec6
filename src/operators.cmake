# Operator selection, network names and the clock; radio configuration and the network scan.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_network_oper.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_network_cfg.cpp)
