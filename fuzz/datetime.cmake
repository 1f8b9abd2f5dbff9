schedulehelper_fuzz(dates SOURCES fuzz_dates.cpp LIBRARIES datetime)
