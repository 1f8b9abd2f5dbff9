schedulehelper_fuzz(printing SOURCES fuzz_printing.cpp LIBRARIES base)
schedulehelper_fuzz(fields SOURCES fuzz_fields.cpp LIBRARIES base)
