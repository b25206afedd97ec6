# The command frame every family builds on: argument checks, the common query, many-line replies.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/at_frame.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_substring.cpp)
