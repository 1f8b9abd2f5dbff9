// What requests do: sent by a client over a real socket to a sink whose schedules and store can be looked at.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <string>
#include <vector>

#include "app/LRequestKeys.h"
#include "app/LScheduleHelper.h"
#include "scheduler/LScheduleStore.h"
#include "tests/support/EventSink.h"
#include "xpc/LXPCClient.h"

namespace {

constexpr char kPath[] = "/Applications/Orvin.app";
constexpr long kFar = 4000000;  // a start in 1970: stored, never armed

/// Stands for the application: nothing ends and nothing is launched, but it is written down.
class RecordingDelegate : public LScheduleHelper {
  public:
    LXPCMachServer* getXPCServer() override { return server.get(); }
    void shutdownHelper() override { ++shutdowns; }
    void launchMainApp(const char* bundleId, const char* bundlePath) override {
        launched = std::string(bundleId) + " " + bundlePath;
    }
    LPtr<LXPCMachServer> server;
    std::atomic<int> shutdowns = 0;
    std::string launched;
};

LXPCData Text(const char* key, const char* text) {
    return {key, LXPCDataTypeString, LXPCAddress(text)};
}
LXPCData Flag(const char* key, long value = 1) {
    return {key, LXPCDataTypeBool, value};
}
LXPCData Date(long seconds) {
    return {kKeyNewTime, LXPCDataTypeDate, seconds};
}
LXPCData Mask(long mask) {
    return {kKeyNewWeekdayMask, LXPCDataTypeUInt64, mask};
}
const LXPCData kId = Text(kKeyBundleId, kMainAppBundleId);
const LXPCData kAt = Text(kKeyBundlePath, kPath);

class Requests : public testing::Test {
  protected:
    void SetUp() override {
        sink_.delegate = &delegate_;
        delegate_.server = new LXPCMachServer(&sink_);
        for (const LRequestKeyType& key : kRequestKeys) delegate_.server->AddKey(key.name, key.type);
        ASSERT_TRUE(delegate_.server->Listen(service_.c_str()));
        for (const char* key : kReplyKeys) client_.AddKey(key, LXPCDataTypeBool);
        ASSERT_TRUE(client_.Connect(service_.c_str(), 1, true));
    }
    void TearDown() override {
        delegate_.server->Close();
        delegate_.server = nullptr;
        for (const LStoredSchedule& stored : LReadStoredSchedules(NSUserDefaults::standardUserDefaults())) {
            NSUserDefaults::standardUserDefaults().removeObjectForKey(stored.key);
        }
        NSUserDefaults::standardUserDefaults().removeObjectForKey(kScheduleIndexKey);
    }

    /// The replies to `items` and to nothing else: a connection test behind them shows when they have been dealt with.
    std::string Ask(const std::vector<LXPCData>& items) {
        client_.SendMessage(service_.c_str(), 1, items.data(), items.size(), true);
        const LXPCData test = Flag(kKeyTestConnection);
        client_.SendMessage(service_.c_str(), 1, &test, 1, true);
        return replies_.Until(kTestReply);
    }
    /// Leaves two schedules, as in kBefore.
    void KeepTwo() {
        sink_.DeleteAll(kMainAppBundleId, kPath);
        for (const char* name : {"kept", "also"}) {
            sink_.Add(kMainAppBundleId, kPath, name, LDateTime(-10), false, false, LWeekDay(0));
        }
    }
    static std::string Stored() {
        std::string text;
        for (const LStoredSchedule& stored : LReadStoredSchedules(NSUserDefaults::standardUserDefaults())) {
            if (!stored.record) continue;
            const LScheduleRecord& record = *stored.record;
            text += (text.empty() ? "" : " ") + record.skedName + "@" + std::to_string(record.start.seconds) + "/" +
                    (record.daily ? "d" : "") + (record.weekly ? "w" : "") + std::to_string(record.weekDays.mask);
        }
        return text;
    }

    static constexpr char kBefore[] = "kept@-10/0 also@-10/0";  // name, start -10, no repetition, mask 0
    static constexpr char kTestReply[] = "reply XPC_TEST_CONNECTION_REPLY=1";
    // A name of its own: a listener lives as long as the process.
    const std::string service_ = std::string("test.") + testing::UnitTest::GetInstance()->current_test_info()->name();
    RecordingDelegate delegate_;
    LScheduleHelperNotify sink_;
    Sink replies_;
    LXPCClient client_{&replies_};
};

TEST_F(Requests, EachDoesOneThing) {
    const LXPCData name = Text(kKeyNewName, "new");
    struct Row {
        const char* what;
        std::vector<LXPCData> items;
        std::string reply;
        std::string stored;
    };
    const std::string before = kBefore;
    const std::string known = "reply XPC_NEW_CONNECTION_REPLY=1";
    const Row rows[] = {
        {"only unknown keys", {Flag("UNKNOWN")}, "", before},
        {"keys compare with their case", {kId, kAt, Flag("delete_all_sked")}, "", before},
        // Adding
        {"any order of sending", {Date(kFar), name, kAt, kId}, "", before + " new@3999990/0"},
        {"weekly, all bits",
         {kId, kAt, name, Date(kFar), Flag(kKeyNewWeekly), Mask(255)},
         "",
         before + " new@3999990/w127"},
        {"weekly, no day", {kId, kAt, name, Flag(kKeyNewWeekly), Mask(384)}, "", before + " new@-10/w0"},
        {"daily as false", {kId, kAt, name, Flag(kKeyNewDaily, 0), Flag(kKeyNewWeekly)}, "", before + " new@-10/w0"},
        {"the beginning of time",
         {kId, kAt, name, Date(LONG_MIN)},
         "",
         before + " new@" + std::to_string(LONG_MIN) + "/0"},
        {"wrong types read as nothing",
         {kId, kAt, name, Text(kKeyNewTime, "soon"), Date(5), Flag(kKeyNewWeekdayMask)},
         "",
         before + " new@-10/0"},
        {"a name that is no text", {kId, kAt, Flag(kKeyNewName), Flag(kKeyNewConnection)}, "", before},
        // Introducing and asking
        {"from elsewhere", {kId, Text(kKeyBundlePath, "x\\Orvin.other"), Flag(kKeyNewConnection)}, known, before},
        {"a copy", {kId, Text(kKeyBundlePath, "/Orvin Copy.app"), Flag(kKeyNewConnection)}, "", before},
        {"a folder", {kId, Text(kKeyBundlePath, "/Orvin.app/"), Flag(kKeyNewConnection)}, "", before},
        {"another case", {Text(kKeyBundleId, "com.Brindlewick.orvinfree"), kAt, Flag(kKeyNewConnection)}, "", before},
    };
    for (const Row& row : rows) {
        KeepTwo();
        EXPECT_EQ(Ask(row.items), row.reply) << row.what;
        EXPECT_EQ(Stored(), row.stored) << row.what;
        EXPECT_EQ(delegate_.shutdowns, 0) << row.what;
    }
}

/// All 8,192 sets of the thirteen keys, with their names spelled out here. Of the keys that ask for something the first
/// one in `precedence` says what becomes of the message; only presence counts, so those are sent as false.
TEST_F(Requests, EverySetOfKeysHasOneMeaning) {
    enum Key { Id, Path, Sign, Hello, New, Time, Daily, Weekly, Days, Delete, Clear, End, Question, Keys };
    const LXPCData values[Keys] = {
        Text("MAIN_APP_BUNDLEID", "com.brindlewick.orvinfree"),
        Text("MAIN_APP_BUNDLE_PATH", "/Applications/Orvin.app"),
        Flag("XPC_TEST_CONNECTION", 0),
        Flag("XPC_NEW_CONNECTION", 0),
        Text("NEW_SKED_NAME", "new"),
        {"NEW_SKED_TIME", LXPCDataTypeDate, 4000000},
        Flag("NEW_SKED_DAILY"),
        Flag("NEW_SKED_WEEKLY"),
        {"NEW_SKED_WEEKDAYMASK", LXPCDataTypeUInt64, 0x1A5},
        Text("DELETE_SKED_NAME", "kept"),
        Flag("DELETE_ALL_SKED", 0),
        Flag("XPC_SHUTDOWN_HELPER", 0),
        Flag("XPC_SHUTDOWN_HELPER_REQUEST", 0),
    };
    const std::string before = kBefore;
    int shutdowns = 0;
    for (unsigned set = 0; set < 1U << Keys; ++set) {
        const auto has = [set](Key key) { return key == Keys || (set >> key & 1U) != 0; };
        const bool named = has(Id) && has(Path);
        const std::string added = std::string(has(Time) ? "@3999990/" : "@-10/") + (has(Daily) ? "d" : "") +
                                  (has(Weekly) ? "w" : "") + (has(Days) ? "37" : "0");
        const struct {
            Key decides;
            std::string reply;
            std::string stored;
        } precedence[] = {
            {Sign, "", before},  // its reply looks like the one that ends the waiting
            {End, "", before},
            {New, "", !named ? before : (has(Delete) ? "also@-10/0 kept" : before + " new") + added},
            {Delete, "", named ? "also@-10/0" : before},
            {Clear, "", named ? "" : before},
            {Hello, named ? "reply XPC_NEW_CONNECTION_REPLY=1" : "", before},
            {Question, "reply XPC_SHUTDOWN_HELPER_REQUEST_REPLY=0", before},
            {Keys, "", before},
        };
        const auto* expected = precedence;
        while (!has(expected->decides)) ++expected;

        std::vector<LXPCData> items;
        for (unsigned key = 0; key < Keys; ++key) {
            if (has(static_cast<Key>(key))) items.push_back(values[key]);
        }
        if (Stored() != before) KeepTwo();
        ASSERT_EQ(Ask(items), expected->reply) << set;
        if (expected->decides == Sign) {
            ASSERT_EQ(replies_.Until(kTestReply), "") << set;
        }
        if (expected->decides == End) ++shutdowns;
        ASSERT_EQ(Stored(), expected->stored) << set;
        ASSERT_EQ(delegate_.shutdowns, shutdowns) << set;
    }
}

TEST_F(Requests, TheHelperMayGoWhenItHoldsNoSchedule) {
    EXPECT_EQ(Ask({Flag(kKeyShutdownQuestion)}), "reply XPC_SHUTDOWN_HELPER_REQUEST_REPLY=1");
    sink_.Add(kMainAppBundleId, kPath, "past", LDateTime(1), false, false, LWeekDay(0));
    EXPECT_EQ(Ask({Flag(kKeyShutdownQuestion)}), "reply XPC_SHUTDOWN_HELPER_REQUEST_REPLY=0");
}

TEST_F(Requests, EventsReachTheDelegate) {
    EXPECT_EQ(Ask({}), "");
    const long connection = LXPCAddress(delegate_.server->connections.head->connection);
    sink_.EvConnectionError(connection, LXPCErrorConnectionInterrupted);
    EXPECT_NE(delegate_.server->connections.head, nullptr);
    sink_.EvConnectionError(connection, LXPCErrorTerminationImminent);
    EXPECT_EQ(delegate_.server->connections.head, nullptr);
    sink_.EvInvalidConnectionAttempt();
    EXPECT_EQ(delegate_.shutdowns, 1);
    static_cast<LGCDScheduler&>(sink_).EvScheduleStart("id", "/path", "name");
    EXPECT_EQ(delegate_.launched, "id /path");
}

}  // namespace
