find_package(SQLite3 REQUIRED)

schedulehelper_fuzz(info_plist SOURCES fuzz_info_plist.cpp LIBRARIES platform_foundation)
schedulehelper_fuzz(proc SOURCES fuzz_proc.cpp LIBRARIES platform_foundation)
schedulehelper_fuzz(store SOURCES fuzz_store.cpp LIBRARIES scheduler platform_foundation SQLite::SQLite3)
