# Foundation: platform library, queue and task primitives, the request exchange, the C header.
atapi_add_test(test_platform core/test_platform.cpp)
atapi_add_test(test_queue core/test_queue.cpp)
target_link_libraries(test_queue PRIVATE ${CMAKE_DL_LIBS})
atapi_add_test(test_depends core/test_depends.cpp)
atapi_add_test(test_exchange core/test_exchange.cpp)
target_link_libraries(test_exchange PRIVATE ${CMAKE_DL_LIBS})

# The public header must build as C11 and link against the library.
add_executable(test_c_header core/c_header.c)
target_link_libraries(test_c_header PRIVATE atapi)
target_compile_options(test_c_header PRIVATE -pedantic-errors)
add_test(NAME test_c_header COMMAND test_c_header)

add_test(NAME source_check COMMAND ${PROJECT_SOURCE_DIR}/scripts/check_sources.sh)
add_test(NAME exported_symbols
         COMMAND ${PROJECT_SOURCE_DIR}/scripts/check_exports.sh $<TARGET_FILE:atapi> ${PROJECT_SOURCE_DIR}/include
                 ${CMAKE_C_COMPILER})
set_tests_properties(test_exchange PROPERTIES LABELS concurrency)
