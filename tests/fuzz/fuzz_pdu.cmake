# The SMS codec lives with atctl; this target links it beside the library.
target_link_libraries(fuzz_pdu PRIVATE smscodec)
