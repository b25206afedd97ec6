# Reply parsing: dispatcher, field and list parsers, text helpers and error-code mapping.
target_sources(atapi PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/at_parse.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_parse_fields.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_parse_lists.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_utils.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_errcode.cpp)
