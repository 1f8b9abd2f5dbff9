find_package(SQLite3 REQUIRED)

schedulehelper_test(defaults_test SOURCES defaults_test.cpp LIBRARIES platform_foundation SQLite::SQLite3
                    LABELS concurrent)
schedulehelper_test(defaults_damage_test SOURCES defaults_damage_test.cpp LIBRARIES platform_foundation SQLite::SQLite3)
schedulehelper_test(core_foundation_test SOURCES core_foundation_test.cpp LIBRARIES platform_foundation)
schedulehelper_test(applications_test SOURCES applications_test.cpp LIBRARIES platform_foundation LABELS concurrent)
add_executable(launched_probe launched_probe.cpp)
add_dependencies(applications_test launched_probe)
target_compile_definitions(applications_test PRIVATE LAUNCHED_PROBE="$<TARGET_FILE:launched_probe>")
