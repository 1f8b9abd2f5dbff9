# A 32-bit build on a 64-bit machine: the machine's own compiler with -m32 (g++-multilib), and the i386 libraries that
# scripts/test-32 unpacks into I386_ROOT (build/i386-root unless it is given). Headers that come without a library are the
# machine's. The kernel runs what is built, so nothing here says "cross-compiling".
set(I386_ROOT "${CMAKE_CURRENT_LIST_DIR}/../build/i386-root" CACHE PATH "Where the i386 packages are unpacked")
get_filename_component(I386_ROOT "${I386_ROOT}" ABSOLUTE)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES I386_ROOT)

set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(i386_libraries "${I386_ROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}")

# Libraries and what describes them are looked for under the root; programs are the machine's.
set(CMAKE_FIND_ROOT_PATH "${I386_ROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(ENV{PKG_CONFIG_LIBDIR} "${i386_libraries}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${I386_ROOT}")

# The loader finds them there too, before and after installing: these programs are for tests, not for shipping.
set(CMAKE_BUILD_RPATH "${i386_libraries}")
set(CMAKE_INSTALL_RPATH "${i386_libraries}")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE i386)
