target_sources(atplatform PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/bounded_string.cpp
  ${CMAKE_CURRENT_LIST_DIR}/trace.cpp
  ${CMAKE_CURRENT_LIST_DIR}/privileges.cpp
  ${CMAKE_CURRENT_LIST_DIR}/notify.cpp)
