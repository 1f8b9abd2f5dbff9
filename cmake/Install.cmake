# What `cmake --install` puts where:
#
#   libexec/schedulehelper/schedulehelper      the helper
#   bin/schedulectl                            the tool for people at a terminal
#   lib/libschedulehelper-client.a             the client library, in one archive that needs nothing but threads
#   include/schedulehelper/...                 its headers, included as in this tree: "xpc/LXPCClient.h"
#   lib/cmake/ScheduleHelperClient/            find_package(ScheduleHelperClient), target ScheduleHelper::client
#   lib/pkgconfig/schedulehelper-client.pc
#   lib/systemd/user/schedulehelper.service    the user unit
#   share/man                                  the pages
#   share/schedulehelper                       the JSON schema of schedulectl
#   share/bash-completion, zsh, fish           completions of schedulectl
include(CMakePackageConfigHelpers)

# The client library: the endpoints and what is under them.
add_library(schedulehelper_client STATIC $<TARGET_OBJECTS:xpc> $<TARGET_OBJECTS:platform_core>)
set_target_properties(schedulehelper_client PROPERTIES OUTPUT_NAME schedulehelper-client EXPORT_NAME client)
target_link_libraries(schedulehelper_client PUBLIC Threads::Threads)
target_compile_features(schedulehelper_client PUBLIC cxx_std_20)
target_include_directories(schedulehelper_client INTERFACE
                           "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/schedulehelper>")

install(TARGETS schedulehelper_client EXPORT ScheduleHelperClient ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(EXPORT ScheduleHelperClient NAMESPACE ScheduleHelper:: FILE ScheduleHelperClientTargets.cmake
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/ScheduleHelperClient")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/ScheduleHelperClientConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/ScheduleHelperClientConfig.cmake"
                              INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/ScheduleHelperClient")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/ScheduleHelperClientConfigVersion.cmake"
                                 COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/ScheduleHelperClientConfig.cmake"
              "${PROJECT_BINARY_DIR}/ScheduleHelperClientConfigVersion.cmake"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/ScheduleHelperClient")

# The .pc file finds its prefix from its own place, so that an installed tree may be moved.
file(RELATIVE_PATH pkgconfig_to_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file("${PROJECT_SOURCE_DIR}/cmake/schedulehelper-client.pc.in" "${PROJECT_BINARY_DIR}/schedulehelper-client.pc"
               @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/schedulehelper-client.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

set(headers "${CMAKE_INSTALL_INCLUDEDIR}/schedulehelper")
install(FILES xpc/LXPCBase.h xpc/LXPCClient.h xpc/LXPCData.h xpc/LXPCDictionary.h xpc/LXPCEndpointLink.h xpc/LXPCServer.h
        DESTINATION "${headers}/xpc")
install(FILES base/LList.h base/LPtr.h DESTINATION "${headers}/base")
install(FILES app/LRequestKeys.h DESTINATION "${headers}/app")
install(FILES platform/include/xpc/xpc.h DESTINATION "${headers}/xpc")
install(FILES platform/include/dispatch/dispatch.h DESTINATION "${headers}/dispatch")
install(FILES platform/include/platform_ending.h platform/include/platform_gate.h DESTINATION "${headers}")

install(TARGETS schedulehelper RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/schedulehelper")
install(TARGETS schedulectl RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")

foreach(section 1 3 5 8)
    file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.${section}")
    install(FILES ${pages} DESTINATION "${CMAKE_INSTALL_MANDIR}/man${section}")
endforeach()

install(FILES docs/schedulectl-schema.json DESTINATION share/schedulehelper)

# The tool writes its own completions, so they cannot fall behind its commands.
set(completions "${PROJECT_BINARY_DIR}/completions")
foreach(shell bash zsh fish)
    add_custom_command(OUTPUT "${completions}/${shell}"
                       COMMAND "${CMAKE_COMMAND}" -E make_directory "${completions}"
                       COMMAND schedulectl completion ${shell} > "${completions}/${shell}"
                       DEPENDS schedulectl VERBATIM)
    list(APPEND completion_files "${completions}/${shell}")
endforeach()
add_custom_target(completions ALL DEPENDS ${completion_files})
install(FILES "${completions}/bash" DESTINATION share/bash-completion/completions RENAME schedulectl)
install(FILES "${completions}/zsh" DESTINATION share/zsh/vendor-completions RENAME _schedulectl)
install(FILES "${completions}/fish" DESTINATION share/fish/vendor_completions.d RENAME schedulectl.fish)

configure_file("${PROJECT_SOURCE_DIR}/packaging/systemd/schedulehelper.service.in"
               "${PROJECT_BINARY_DIR}/schedulehelper.service" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/schedulehelper.service" DESTINATION lib/systemd/user)
