# The SMS PDU codec: a small library of its own that atctl (and the simulated modem) link.
add_library(smscodec STATIC ${CMAKE_CURRENT_LIST_DIR}/smscodec.cpp)
target_include_directories(smscodec PUBLIC ${CMAKE_CURRENT_LIST_DIR})
target_link_libraries(atctl PRIVATE smscodec)
