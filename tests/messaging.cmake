# Messaging: SMS storage, reading, sending and writing, the phonebook and USSD through the fake AT
# server.
atapi_add_test(test_sms test_sms.cpp)
