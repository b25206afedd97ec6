# Positioning, the datacard command set and data-flow statistics, against the scripted fake AT
# server.
atapi_add_test(test_gps test_gps.cpp)
atapi_add_test(test_datacard test_datacard.cpp)
atapi_add_test(test_stats test_stats.cpp)
