// The schedule helper: keeps the named schedules of the main application and starts it when one falls due.
#include <AppKit/AppKit.h>

int main(int argc, char** argv) {
    return NSApplicationMain(argc, argv);
}
