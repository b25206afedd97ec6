# SIM and PIN: PIN management, SIM files and identity, the card mode, the service-provider name.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/ats_security.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_usim.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_spn.cpp)
