find_package(SQLite3 REQUIRED)
atapi_add_test(test_cfgstore ${CMAKE_CURRENT_LIST_DIR}/test_cfgstore.cpp)
# The tests reach into the store file directly to damage it or hold its lock.
target_link_libraries(test_cfgstore PRIVATE SQLite::SQLite3)
