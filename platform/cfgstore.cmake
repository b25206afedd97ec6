# The configuration store keeps its objects in SQLite.
find_package(SQLite3 REQUIRED)
target_sources(atplatform PRIVATE ${CMAKE_CURRENT_LIST_DIR}/cfgstore.cpp)
target_link_libraries(atplatform PRIVATE SQLite::SQLite3)
