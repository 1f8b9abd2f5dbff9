schedulehelper_test(base_charsets_test SOURCES charsets_utf_test.cpp charsets_pages_test.cpp LIBRARIES base)
# The same with the blocks of any machine, which take the place of those that the library has for this one.
schedulehelper_test(base_charsets_plain_test
    SOURCES charsets_utf_test.cpp "${PROJECT_SOURCE_DIR}/base/LCharsetsBlocksPlain.cpp" LIBRARIES base)
if(SCHEDULEHELPER_X86)
    schedulehelper_test(base_charsets_sse_test SOURCES charsets_utf_test.cpp charsets_processor.cpp LIBRARIES base)
endif()
schedulehelper_test(base_cfstring_test SOURCES cfstring_test.cpp LIBRARIES base)
schedulehelper_test(base_paths_test SOURCES paths_test.cpp LIBRARIES base)
