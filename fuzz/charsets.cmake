schedulehelper_fuzz(utf SOURCES fuzz_utf.cpp LIBRARIES base)
schedulehelper_fuzz(wildcard SOURCES fuzz_wildcard.cpp LIBRARIES base)
schedulehelper_fuzz(paths SOURCES fuzz_paths.cpp LIBRARIES base)
