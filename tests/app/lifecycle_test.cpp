// Start-up's version gate, and the order in which the process's static objects are made and go. Each case runs in a
// process of its own (a death test that starts this program again).
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include <platform_ending.h>
#include <platform_testing.h>

#include "app/LScheduleHelper.h"
#include "debug/LStaticOrder.h"

namespace {

void Tell(const char* word) {
    std::fprintf(stderr, "%s ", word);
}

bool SignalsAreHandled() {
    struct sigaction action {};
    sigaction(SIGTERM, nullptr, &action);
    return action.sa_handler != SIG_DFL;
}

/// Tells when it goes.
struct Witness {
    explicit Witness(const char* name) : name_(name), madeWithSignals(SignalsAreHandled()) {}
    ~Witness() {
        if (armed) Tell(name_);
    }
    static inline bool armed = false;
    const char* name_;
    bool madeWithSignals;
};

// Stand where the diagnostics' own objects stand, and right after the server's owner.
[[gnu::init_priority(LSTATIC_ORDER_DIAGNOSTICS)]] Witness diagnosticsWitness("diagnostics");
[[gnu::init_priority(LSTATIC_ORDER_SERVER + 1)]] Witness ownersWitness("(owners)");

struct TellingSink : LScheduleHelperNotify {
    ~TellingSink() override { Tell("sink"); }
};
struct TellingServer : LXPCMachServer {
    using LXPCMachServer::LXPCMachServer;
    ~TellingServer() override { Tell("server"); }
};

void Own() {
    Witness::armed = true;
    static LScheduleHelper delegate;
    pXpcNotifyee = new TellingSink;
    pXpcNotifyee->delegate = &delegate;
    pXPCServer = new TellingServer(pXpcNotifyee.get());
}

TEST(LifecycleDeathTest, TheServerGoesBeforeTheSinkOnEveryRoad) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_FALSE(ownersWitness.madeWithSignals);  // both owners stand before a signal can ask for the end
    EXPECT_TRUE(SignalsAreHandled());
    EXPECT_EXIT((Own(), std::exit(3)), testing::ExitedWithCode(3), "diagnostics \\(owners\\) server sink");

    const auto delegate = NSApplicationCreateDelegate();  // registers the steps of the ending
    const auto shutDown = [] {
        Own();
        LScheduleHelper().shutdownHelper();
    };
    EXPECT_EXIT(shutDown(), testing::ExitedWithCode(0), "server diagnostics \\(owners\\) sink");
    const auto terminate = [&delegate] {
        Own();
        delegate->applicationWillTerminate();
        Tell(pXPCServer ? "still there" : "closed");
        platform_exit(0);
    };
    EXPECT_EXIT(terminate(), testing::ExitedWithCode(0), "server closed diagnostics \\(owners\\) sink");
}

TEST(LifecycleDeathTest, SystemsBefore10_7AreRefused) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Row {
        int major;
        int minor;
        bool accepted;
    };
    const Row rows[] = {{10, 6, false}, {10, 7, true},   {10, 255, true}, {11, 0, true},  {9, 99, false},
                        {-1, 7, false}, {10, -1, false}, {-1, -1, false}, {266, 7, true}, {10, 256 + 6, false}};
    for (const Row& row : rows) {
        const auto ask = [&row] {
            platform_testing::set_system_version(row.major, row.minor);
            const bool accepted = IsOSMacLionOrLater();
            platform_testing::set_system_version(10, 15);
            _exit(accepted == IsOSMacLionOrLater() ? (accepted ? 1 : 2) : 3);  // asked once, kept for good
        };
        EXPECT_EXIT(ask(), testing::ExitedWithCode(row.accepted ? 1 : 2), "") << row.major << "." << row.minor;
    }
}

}  // namespace
