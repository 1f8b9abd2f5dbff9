// The helper as it ships, with real processes, sockets and a store on disk. What it does under load, under signals and
// across restarts is asked by tests/torture; its replies, by the tests of app/ and of schedulectl.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <AppKit/AppKit.h>

#include "app/LRequestKeys.h"
#include "tests/e2e/Helper.h"

namespace {

namespace fs = std::filesystem;

const std::string kMayGo = std::string(kReplyShutdownQuestion) + "=1";

/// A clean home in which the main application has been installed and is running, as a script.
class EndToEnd : public testing::Test {
  protected:
    void SetUp() override {
        for (const char* variable : {"XDG_DATA_HOME", "XDG_RUNTIME_DIR"}) {
            for (const auto& entry : fs::directory_iterator(std::getenv(variable))) fs::remove_all(entry);
        }
        bundle_ = Install(ORVIN_SCRIPT_BUNDLE, "Applications/Orvin.app");
        setenv("ORVIN_STAY", "600", 1);
        setenv("ORVIN_HELLO", "/dev/null", 1);
        StartOrvin();
    }
    static std::string Install(const char* source, const char* place) {
        const fs::path bundle = fs::path(std::getenv("HOME")) / place;
        fs::remove_all(bundle);
        fs::create_directories(bundle.parent_path());
        fs::copy(source, bundle, fs::copy_options::recursive);
        return bundle.string();
    }
    static std::string Program(const std::string& bundle) { return bundle + "/Contents/MacOS/Orvin"; }
    void StartOrvin() {
        orvin_ = std::make_unique<Process>(std::vector{Program(bundle_)});
        ASSERT_TRUE(Eventually([this] {  // as soon as its interpreter has got it
            const auto running = NSRunningApplication::runningApplicationsWithBundleIdentifier(kMainAppBundleId);
            return std::ranges::any_of(running, [this](const auto& each) { return each.bundlePath() == bundle_; });
        }));
    }
    void EndOrvin() {
        orvin_->Send(SIGTERM);
        EXPECT_EQ(orvin_->Status(), -SIGTERM);
    }
    /// Starts the helper and waits until it answers `client`.
    void Start(Client& client) {
        helper_ = std::make_unique<Process>(std::vector<std::string>{HELPER});
        ASSERT_TRUE(client.Find());
    }
    static fs::path Socket() { return fs::path(std::getenv("XDG_RUNTIME_DIR")) / "mach-services" / kServiceName; }

    std::string bundle_;
    std::unique_ptr<Process> orvin_;
    std::unique_ptr<Process> helper_;
};

TEST_F(EndToEnd, ADueScheduleStartsTheApplicationOnce) {
    Client client;
    Start(client);
    const std::string hello = std::string(std::getenv("HOME")) + "/hello";
    EndOrvin();
    client.Ask({Flag(kKeyShutdown)});
    EXPECT_EQ(helper_->Status(), 0);
    setenv("ORVIN_HELLO", hello.c_str(), 1);
    setenv("ORVIN_STAY", "1", 1);
    fs::remove(hello);
    // Another copy runs, so that the service is offered; the schedule's own bundle does not.
    const Process other({Program(Install(ORVIN_BUNDLE, "Copy/Orvin.app")), "wait", "600"});
    Start(client);
    const long due = static_cast<long>(time(nullptr)) + 2;
    const std::string name = "soon";
    client.Tell(Of(bundle_, {Text(kKeyNewName, name), {kKeyNewTime, LXPCDataTypeDate, due + 10}}));
    const auto greetings = [&hello] {
        std::ifstream file(hello);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) lines.push_back(line);
        return lines;
    };
    ASSERT_TRUE(Eventually([&greetings] { return !greetings().empty(); }));
    const std::string line = greetings().front();
    EXPECT_GE(std::stol(line.substr(line.rfind(' '))), due);
    EXPECT_TRUE(Eventually([&client] { return client.Ask({Flag(kKeyShutdownQuestion)}) == kMayGo; }));
    EXPECT_EQ(Stored(), "soon");  // fired, and kept on record
    EXPECT_EQ(greetings().size(), 1U);
}

TEST_F(EndToEnd, NoServiceIsOfferedWhenTheApplicationDoesNotRun) {
    Client client;
    Start(client);
    client.Tell(Of("/nonexistent/Orvin.app", {Text(kKeyNewName, "gone")}));
    EXPECT_EQ(client.Ask({Flag(kKeyShutdown)}), "gone");
    EXPECT_EQ(helper_->Status(), 0);
    fs::remove(Socket());
    EndOrvin();
    ASSERT_TRUE(Eventually([] {  // nor anybody else's on this machine
        return NSRunningApplication::runningApplicationsWithBundleIdentifier(kMainAppBundleId).empty();
    }));
    const Process helper({HELPER});
    ASSERT_TRUE(Eventually([] { return Stored() == "-"; }));  // it has loaded
    ASSERT_TRUE(Eventually([&helper] { return helper.Sleeps(); }));
    EXPECT_FALSE(fs::exists(Socket()));
    StartOrvin();  // too late for this run
    ASSERT_TRUE(Eventually([&helper] { return helper.Sleeps(); }));
    EXPECT_FALSE(fs::exists(Socket()));
}

TEST_F(EndToEnd, ABurstIsStoredWholeThoughItsSenderIsGone) {
    Client client;
    Start(client);
    const std::string native = Install(ORVIN_BUNDLE, "Native/Orvin.app");
    Process sender({Program(native), "add-many", "5000", "burst", "+1000000"});
    EXPECT_EQ(sender.Status(120), 0);
    EXPECT_TRUE(Eventually([] { return Stored().ends_with(" burst5000"); }));
    helper_->Send(SIGTERM);
    EXPECT_EQ(helper_->Status(), 0);
    EXPECT_EQ(std::ranges::count(Stored(), ' ') + 1, 5000);
}

TEST_F(EndToEnd, AnOldSystemIsRefusedAndTheStoreKept) {
    Client client;
    Start(client);
    client.Tell(Of("/nonexistent/Orvin.app", {Text(kKeyNewName, "kept")}));
    EXPECT_EQ(client.Ask({Flag(kKeyShutdown)}), "gone");
    EXPECT_EQ(helper_->Status(), 0);
    Process refused({OLD_SYSTEM_HELPER});
    EXPECT_EQ(refused.Status(), 0);
    EXPECT_EQ(Stored(), "kept");  // loading would have removed it
}

}  // namespace
