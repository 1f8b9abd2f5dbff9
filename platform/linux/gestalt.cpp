#include <CoreServices/CoreServices.h>
#include <platform_testing.h>

#include <atomic>

namespace {

// The version that this layer stands for: the last one of the line that the upper layers' version test knows by number.
std::atomic<int> systemMajor{10};
std::atomic<int> systemMinor{15};

}  // namespace

OSErr Gestalt(OSType selector, int32_t* response) {
    if (selector != gestaltSystemVersionMajor && selector != gestaltSystemVersionMinor) return gestaltUndefSelectorErr;
    const int value = selector == gestaltSystemVersionMajor ? systemMajor : systemMinor;
    if (value < 0) return gestaltUndefSelectorErr;
    *response = value;
    return noErr;
}

void platform_testing::set_system_version(int major, int minor) {
    systemMajor = major;
    systemMinor = minor;
}
