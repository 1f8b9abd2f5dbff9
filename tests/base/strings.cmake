schedulehelper_test(base_containers SOURCES containers_test.cpp LIBRARIES base)
schedulehelper_test(base_strings SOURCES strings_test.cpp LIBRARIES base)
schedulehelper_test(base_fields SOURCES fields_test.cpp LIBRARIES base)
schedulehelper_test(base_printing SOURCES printing_test.cpp LIBRARIES base)
