# Reply parsing: dispatcher, handler tables, field and list parsers, text helpers and error-code
# mapping.
set(atapi_parse_sources
  ${CMAKE_CURRENT_LIST_DIR}/at_parse.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_parse_tables.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_parse_fields.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_parse_lists.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_utils.cpp
  ${CMAKE_CURRENT_LIST_DIR}/at_errcode.cpp)
target_sources(atapi PRIVATE ${atapi_parse_sources})
