# The command frame, signal quality, registration state and time conversion.
# The frame's C++ side stays inside the library, so the frame test builds its own copy.
atapi_add_test(test_frame test_frame.cpp ${PROJECT_SOURCE_DIR}/src/at_frame.cpp)
target_include_directories(test_frame PRIVATE ${PROJECT_SOURCE_DIR}/src)
atapi_add_test(test_network test_network.cpp)
atapi_add_test(test_time test_time.cpp)
