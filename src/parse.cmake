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

# The parser fuzzer compiles the parser into itself so that libFuzzer's coverage reaches it; it
# is defined here rather than under tests/ so that a fuzz-only build (tests off) still has it.
if(ATAPI_FUZZ AND CMAKE_CXX_COMPILER_ID MATCHES "Clang" AND EXISTS ${PROJECT_SOURCE_DIR}/tests/fuzz/fuzz_parse.cpp)
  add_executable(fuzz_parse ${PROJECT_SOURCE_DIR}/tests/fuzz/fuzz_parse.cpp ${atapi_parse_sources})
  target_include_directories(fuzz_parse PRIVATE ${PROJECT_SOURCE_DIR}/include ${CMAKE_CURRENT_LIST_DIR})
  target_link_libraries(fuzz_parse PRIVATE atplatform)
  # Undefined behaviour stops the run like a crash, so it cannot scroll by unnoticed.
  target_compile_options(fuzz_parse PRIVATE -fsanitize=fuzzer,address,undefined
                         -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
  target_link_options(fuzz_parse PRIVATE -fsanitize=fuzzer,address,undefined)
  set_target_properties(fuzz_parse PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
endif()
