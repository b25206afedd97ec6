# libFuzzer targets: every tests/fuzz/fuzz_NAME.cpp becomes the program fuzz_NAME, linked with the
# instrumented library. A fuzz_NAME.cmake beside it may add what else the target needs.
file(GLOB fuzz_sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/fuzz_*.cpp)
foreach(src ${fuzz_sources})
  get_filename_component(name ${src} NAME_WE)
  add_executable(${name} ${src})
  target_link_libraries(${name} PRIVATE atapi)
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/${name}.cmake)
    include(${CMAKE_CURRENT_LIST_DIR}/${name}.cmake)
  endif()
endforeach()
