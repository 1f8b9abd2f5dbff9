#include <AppKit/AppKit.h>
#include <platform_testing.h>

int main(int argc, char** argv) {
    platform_testing::set_system_version(10, 6);
    return NSApplicationMain(argc, argv);
}
