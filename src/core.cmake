target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/at_queue.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ats_depends.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_lib.cpp
  ${CMAKE_CURRENT_LIST_DIR}/run_dir.cpp)
