# Reply parsing: handler tables, row and list parsers, allocation-failure paths, helpers and the
# error-code mapping.
foreach(t test_parse_tables test_parse_fields test_parse_lists test_parse_faults
          test_utils test_errcode)
  if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${t}.cpp)
    atapi_add_test(${t} ${t}.cpp)
  endif()
endforeach()
