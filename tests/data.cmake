# The data connection: dial, connection state, contexts and addresses.
atapi_add_test(test_data test_data.cpp)
