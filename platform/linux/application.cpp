#include <AppKit/AppKit.h>
#include <dispatch/dispatch.h>
#include <platform_ending.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "defaults_place.h"
#include "instance_lock.h"
#include "runtime.h"

namespace {

// As long as an ending instance may take, so that a restart never meets its own predecessor.
constexpr int kWaitForAnotherMilliseconds = 2000;

// Set before any event, kept for ever.
std::atomic<NSApplicationDelegate*> applicationDelegate{nullptr};

// False when another instance runs. Where the lock cannot be had (no home, a full or read-only disk) the application
// runs without it: it could not store anything either.
bool becomeTheInstance() {
    static UniqueFd& lock = *new UniqueFd;  // held until the process is gone
    const std::string directory = defaults_place::standardDirectory();
    return directory.empty() ||
           instance_lock::take(directory, kWaitForAnotherMilliseconds, lock) != instance_lock::Result::heldByAnother;
}

// A start that fails, for want of memory, leaves nothing that could do its work: the process ends, and whoever watches
// over it may start it again.
void launch() {
    try {
        (void)dispatch_get_main_queue();  // which is to be served whatever the launching comes to
        applicationDelegate = NSApplicationCreateDelegate().release();
        applicationDelegate.load()->applicationDidFinishLaunching();
    } catch (const std::bad_alloc&) {
        platform_exit(EXIT_FAILURE);
    }
}

}  // namespace

int NSApplicationMain(int, char**) {
    if (!becomeTheInstance()) return 0;
    runtime::start();
    {
        const runtime::RunningScope running;
        launch();
    }
    runtime::serveMainQueue();
}

NSApplication& NSApplication::sharedApplication() {
    static NSApplication application;
    return application;
}

void NSApplication::terminate() {
    dispatch_async(dispatch_get_main_queue(), [] {
        if (NSApplicationDelegate* delegate = applicationDelegate) delegate->applicationWillTerminate();
        platform_exit(0);
    });
}
