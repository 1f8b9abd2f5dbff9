# Compiler settings shared by every target of the project.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The project's headers are included by their room: "xpc/LXPCBase.h", <dispatch/dispatch.h>.
include_directories("${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/platform/include")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(SCHEDULEHELPER_WERROR)
    add_compile_options(-Werror)
endif()

# 32-bit builds keep 64-bit file sizes, inode numbers and times in the C library's own types.
add_compile_definitions(_FILE_OFFSET_BITS=64)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    add_compile_definitions(_TIME_BITS=64)
endif()

# The same bytes from every build folder.
add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${PROJECT_BINARY_DIR}=build")

if(SCHEDULEHELPER_SANITIZE)
    add_compile_options(-fsanitize=${SCHEDULEHELPER_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -O1)
    add_link_options(-fsanitize=${SCHEDULEHELPER_SANITIZE})
elseif(CMAKE_BUILD_TYPE MATCHES "Rel")
    include(CheckCXXCompilerFlag)
    add_compile_options(-fstack-protector-strong)
    add_compile_definitions(_FORTIFY_SOURCE=2)
    check_cxx_compiler_flag(-fcf-protection SCHEDULEHELPER_HAS_CET)
    if(SCHEDULEHELPER_HAS_CET)
        add_compile_options(-fcf-protection)
    endif()
    add_link_options(-Wl,-z,relro,-z,now)
endif()
