schedulehelper_fuzz(frame SOURCES frame_fuzz.cpp LIBRARIES platform_core)
