// An application of the tests: says what its delegate is told, and terminates itself at the end of its input.
#include <AppKit/AppKit.h>
#include <unistd.h>

#include <string_view>
#include <thread>

namespace {

void say(std::string_view line) {
    (void)!write(STDOUT_FILENO, line.data(), line.size());
}

class Delegate final : public NSApplicationDelegate {
  public:
    void applicationDidFinishLaunching() override {
        NSUserDefaults::standardUserDefaults().setObject(NSString("not flushed"), "pending");
        say("launched\n");
        std::thread([] {
            char byte = 0;
            while (read(STDIN_FILENO, &byte, 1) > 0) {
            }
            NSApplication::sharedApplication().terminate();
        }).detach();
    }
    void applicationWillTerminate() override { say("terminating\n"); }
};

}  // namespace

std::unique_ptr<NSApplicationDelegate> NSApplicationCreateDelegate() {
    return std::make_unique<Delegate>();
}

int main(int argc, char** argv) {
    return NSApplicationMain(argc, argv);
}
