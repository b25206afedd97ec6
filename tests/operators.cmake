# Operator selection, network names, the clock and the radio configuration: table tests against
# the scripted fake AT server, and end to end through modemsim, atserver and atctl.
atapi_add_test(test_operators test_operators.cpp)
