# schedulehelper_test(NAME SOURCES file... LIBRARIES target... [LABELS label...])
#
# One GoogleTest program that is one ctest entry. The label "concurrent" puts it into the thread-sanitizer run.
find_package(GTest REQUIRED)

function(schedulehelper_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;LABELS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main Threads::Threads)
    add_test(NAME ${name} COMMAND ${name})
    if(ARG_LABELS)
        set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
    endif()
endfunction()
