// The helper as it ships, with real processes, sockets and a store on disk.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <AppKit/AppKit.h>

#include "app/LRequestKeys.h"
#include "tests/e2e/Helper.h"

namespace {

namespace fs = std::filesystem;

constexpr long kFuture = 4000000000 > LONG_MAX ? LONG_MAX : 4000000000;

const std::string kTest = std::string(kReplyTestConnection) + "=1";
const std::string kKnown = std::string(kReplyNewConnection) + "=1";
const std::string kMayGo = std::string(kReplyShutdownQuestion) + "=1";
const std::string kHolds = std::string(kReplyShutdownQuestion) + "=0";

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
    std::vector<LXPCData> NewSchedule(const std::string& name, long when = kFuture) const {
        return Of(bundle_, {Text(kKeyNewName, name), {kKeyNewTime, LXPCDataTypeDate, when}});
    }
    static long Records() {
        const std::string stored = Stored();
        return stored.empty() ? 0 : std::ranges::count(stored, ' ') + 1;
    }
    static fs::path Socket() { return fs::path(std::getenv("XDG_RUNTIME_DIR")) / "mach-services" / kServiceName; }

    std::string bundle_;
    std::unique_ptr<Process> orvin_;
    std::unique_ptr<Process> helper_;
};

TEST_F(EndToEnd, EveryRequestAndItsReply) {
    Client client;
    Start(client);
    EXPECT_EQ(client.Ask(Of(bundle_, {Flag(kKeyNewConnection)})), kKnown);
    EXPECT_EQ(client.Ask({Flag(kKeyShutdownQuestion)}), kMayGo);
    const std::string names[] = {"one-off", "daily", "weekly"};
    client.Tell(NewSchedule(names[0]));
    std::vector<LXPCData> daily = NewSchedule(names[1]);
    daily.insert(daily.begin(), Flag(kKeyNewDaily));
    client.Tell(daily);
    std::vector<LXPCData> weekly = NewSchedule(names[2]);
    weekly.push_back(Flag(kKeyNewWeekly));
    weekly.emplace_back(kKeyNewWeekdayMask, LXPCDataTypeUInt64, 62);
    client.Tell(weekly);
    EXPECT_EQ(client.Ask({Flag("UNKNOWN"), Flag(kKeyShutdownQuestion)}), kHolds);
    EXPECT_EQ(Stored(), "one-off daily weekly");
    client.Tell(Of(bundle_, {Text(kKeyDeleteName, names[1])}));
    EXPECT_EQ(client.Ask({Flag(kKeyTestConnection)}), kTest);
    EXPECT_EQ(Stored(), "one-off weekly");
    client.Tell(Of(bundle_, {Flag(kKeyDeleteAll)}));
    EXPECT_EQ(client.Ask({Flag(kKeyShutdownQuestion)}), kMayGo);
    EXPECT_EQ(Stored(), "");
    EXPECT_EQ(client.Ask({Flag(kKeyShutdown)}), "gone");
    EXPECT_EQ(helper_->Status(), 0);
}

TEST_F(EndToEnd, SchedulesSurviveARestartAndVanishedApplicationsDoNot) {
    Client client;
    Start(client);
    const std::string vanishing = Install(ORVIN_SCRIPT_BUNDLE, "Vanishing/Orvin.app");
    const std::string name = "vanishing";
    client.Tell(Of(vanishing, {Text(kKeyNewName, name), {kKeyNewTime, LXPCDataTypeDate, kFuture}}));
    client.Tell(NewSchedule("staying"));
    EXPECT_EQ(client.Ask({Flag(kKeyShutdownQuestion)}), kHolds);
    EXPECT_EQ(Stored(), "vanishing staying");
    helper_->Send(SIGTERM);
    EXPECT_EQ(helper_->Status(), 0);
    EXPECT_EQ(Stored(), "vanishing staying");
    fs::remove_all(vanishing);
    Start(client);
    EXPECT_EQ(client.Ask({Flag(kKeyShutdownQuestion)}), kHolds);
    EXPECT_EQ(Stored(), "- staying");
}

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
    client.Tell(NewSchedule("soon", due + 10));
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
    EXPECT_EQ(Records(), 5000);
}

TEST_F(EndToEnd, TerminationWhileBusyIsAlwaysOrderly) {
    std::minstd_rand random(20);  // the same delays in every run
    for (int round = 0; round < 100; ++round) {
        Client client;
        Start(client);
        std::vector<std::thread> busy;
        for (int i = 0; i < 2; ++i) {
            busy.emplace_back([this, i] {
                Client own;
                if (!own.Find()) return;
                for (int k = 0; k < 40; ++k) own.Tell(NewSchedule(std::to_string(i) + "." + std::to_string(k % 7)));
            });
        }
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20000));  // anywhere in their work
        helper_->Send(SIGTERM);
        EXPECT_EQ(helper_->Status(), 0) << round;
        Process next({HELPER});  // for those who have not found one yet
        for (std::thread& thread : busy) thread.join();
        ASSERT_TRUE(client.Find());  // before it is up, the signal would find its default disposition
        next.Send(SIGTERM);
        ASSERT_EQ(next.Status(), 0) << round;
    }
}

TEST_F(EndToEnd, OneHelperAtATime) {
    Client client;
    Start(client);
    Process second({HELPER});
    EXPECT_EQ(second.Status(), 0);
    EXPECT_EQ(client.Ask({Flag(kKeyTestConnection)}), kTest);
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
