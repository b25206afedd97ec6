# Positioning, the datacard command set and data-flow statistics.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_gps.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_datacard.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_statistics.cpp)
