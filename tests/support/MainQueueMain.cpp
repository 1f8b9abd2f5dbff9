// The main of test programs that talk over real sockets: the tests run on a thread of their own while the first thread
// serves the main queue, and everything that the programs keep lies in a temporary folder.
#include <gtest/gtest.h>

#include <thread>

#include <dispatch/dispatch.h>
#include <platform_ending.h>

#include "tests/support/TempHome.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    dispatch_get_main_queue();  // the runtime is up before any test can ask for the end
    std::thread([] {
        int result = 0;
        {
            const TempHome home;
            result = RUN_ALL_TESTS();
        }
        platform_exit(result);
    }).detach();
    dispatch_main();
}
