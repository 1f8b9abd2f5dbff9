# Character sets, platform strings and path names. What calls the platform's string objects has files of its own, so
# that a program which links the rest of this library does not need the platform's foundation.
target_sources(base PRIVATE
    LCFString.cpp
    LCFURL.cpp
    LCharsetsDecode.cpp
    LCharsetsEncode.cpp
    LCharsetsIconv.cpp
    LCharsetsLong.cpp
    LCharsetsMeasure.cpp
    LCharsetsPlatform.cpp
    LFileJoin.cpp
    LFileMatch.cpp
    LFileName.cpp
    LFileRelative.cpp
    LFileSystem.cpp
    LFileText.cpp
)

# The fast roads of the conversions, by processor.
include(CheckCXXSourceCompiles)
check_cxx_source_compiles("
#if !defined(__x86_64__) && !defined(__i386__)
#error
#endif
int main() { return 0; }" SCHEDULEHELPER_X86)
if(SCHEDULEHELPER_X86)
    target_sources(base PRIVATE LCharsetsBlocksX86.cpp LCharsetsBlocksAvx512.cpp LCharsetsProcessor.cpp)
else()
    target_sources(base PRIVATE LCharsetsBlocksPlain.cpp)
endif()

target_link_libraries(base PUBLIC platform_foundation)
