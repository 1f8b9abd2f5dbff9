# The foundation: user defaults, strings, bundles, running applications, launching, the application object.
find_package(SQLite3 3.37 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)

add_library(platform_foundation STATIC
    application.cpp
    array.cpp
    bundle.cpp
    cf_encodings.cpp
    cf_object.cpp
    cf_string.cpp
    cf_url.cpp
    defaults.cpp
    defaults_array.cpp
    defaults_place.cpp
    defaults_reader.cpp
    defaults_store.cpp
    defaults_values.cpp
    dictionary.cpp
    file_manager.cpp
    file_status.cpp
    gestalt.cpp
    info_plist.cpp
    info_plist_guard.cpp
    instance_lock.cpp
    launch.cpp
    launch_workspace.cpp
    processes.cpp
    processes_applications.cpp
    sqlite_database.cpp
)
target_link_libraries(platform_foundation PUBLIC platform_core PRIVATE SQLite::SQLite3 PkgConfig::PLIST)
