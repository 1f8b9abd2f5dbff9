schedulehelper_fuzz(utf SOURCES fuzz_utf.cpp LIBRARIES base)
# The same with the blocks of any machine, which take the place of those that the library has for this one.
schedulehelper_fuzz(utf_plain
    SOURCES fuzz_utf.cpp "${PROJECT_SOURCE_DIR}/base/LCharsetsBlocksPlain.cpp" LIBRARIES base)
# And with the blocks of a machine without AVX-512.
schedulehelper_fuzz(utf_sse
    SOURCES fuzz_utf.cpp "${PROJECT_SOURCE_DIR}/tests/base/charsets_processor.cpp" LIBRARIES base)
schedulehelper_fuzz(wildcard SOURCES fuzz_wildcard.cpp LIBRARIES base)
schedulehelper_fuzz(paths SOURCES fuzz_paths.cpp LIBRARIES base)
