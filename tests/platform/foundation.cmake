find_package(SQLite3 REQUIRED)

schedulehelper_test(defaults_test SOURCES defaults_test.cpp LIBRARIES platform_foundation SQLite::SQLite3
                    LABELS concurrent)
schedulehelper_test(defaults_damage_test SOURCES defaults_damage_test.cpp LIBRARIES platform_foundation SQLite::SQLite3)
schedulehelper_test(core_foundation_test SOURCES core_foundation_test.cpp LIBRARIES platform_foundation)
schedulehelper_test(applications_test SOURCES applications_test.cpp LIBRARIES platform_foundation LABELS concurrent)
add_executable(launched_probe launched_probe.cpp)
add_dependencies(applications_test launched_probe)
target_compile_definitions(applications_test PRIVATE LAUNCHED_PROBE="$<TARGET_FILE:launched_probe>")

add_executable(application_probe application_probe.cpp)
target_link_libraries(application_probe PRIVATE platform_foundation)
schedulehelper_test(application_test SOURCES application_test.cpp LIBRARIES platform_foundation SQLite::SQLite3
                    LABELS concurrent)
add_dependencies(application_test application_probe)
target_compile_definitions(application_test PRIVATE APPLICATION_PROBE="$<TARGET_FILE:application_probe>")
