# schedulehelper_test(NAME SOURCES file... LIBRARIES target... [LABELS label...])
#
# One GoogleTest program that is one ctest entry. The label "concurrent" puts it into the thread-sanitizer run.
find_package(GTest REQUIRED)

# All that the thread-sanitizer run needs, so that it need not build the rest.
add_custom_target(concurrent_tests)

function(schedulehelper_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main Threads::Threads)
    add_test(NAME ${name} COMMAND ${name})
    if(ARG_LABELS)
        set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
    endif()
    if(SCHEDULEHELPER_SANITIZE STREQUAL "thread")
        # The sanitizer lets every process of several threads sleep a second at its end, and the tests end hundreds.
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "TSAN_OPTIONS=atexit_sleep_ms=0")
    endif()
    if("concurrent" IN_LIST ARG_LABELS)
        add_dependencies(concurrent_tests ${name})
    endif()
endfunction()
