# SIM and PIN: the command functions against the scripted fake AT server, and end to end through
# modemsim, atserver and atctl.
atapi_add_test(test_sim test_sim.cpp)
# The card type is asked once per process: the path tables of a SIM get a process of their own.
add_test(NAME test_sim_2g COMMAND test_sim --gtest_filter=SimFiles.*)
set_tests_properties(test_sim_2g PROPERTIES ENVIRONMENT ATAPI_TEST_CARD=1 TIMEOUT 300)

