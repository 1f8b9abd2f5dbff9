schedulehelper_fuzz(frame SOURCES frame_fuzz.cpp LIBRARIES app xpc scheduler platform_foundation platform_core)
