# The data connection: NDIS dial and connection status, PDP contexts, authentication and addressing.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_ndis.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_ndis_addr.cpp)
