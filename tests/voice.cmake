# Voice calls and the SIM toolkit: call control and the toolkit against the scripted fake AT
# server, and the call event parsers as pure functions.
atapi_add_test(test_voice test_voice.cpp)
atapi_add_test(test_stk test_stk.cpp)
