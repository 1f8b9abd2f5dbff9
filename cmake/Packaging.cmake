# The Debian package: `cpack` in a configured build folder, or scripts/package, which also checks what comes out.
#
# The same bytes come out of every build folder: no path of the folder reaches an object file (see CompilerSettings), and
# times come from SOURCE_DATE_EPOCH, which scripts/package sets to the time of the last commit.
install(FILES packaging/debian/copyright DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES packaging/debian/changelog DESTINATION "${CMAKE_INSTALL_DOCDIR}")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME schedulehelper)
set(CPACK_PACKAGE_CONTACT "The schedulehelper authors <maintainers@users.noreply.schedulehelper.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/PrepareDebian.cmake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# CPack puts the summary before the description, indents the lines, and puts the dot on an empty one.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "keeps the named schedules of Orvin and starts it when one falls due")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "A small background helper for one user's session. The application Orvin hands
it named schedules (once, daily, weekly) over a local service; the helper keeps
them durably and starts the application when one falls due.

The package also holds schedulectl, which shows and manages schedules at a
terminal, and the client library with its headers.")
include(CPack)
