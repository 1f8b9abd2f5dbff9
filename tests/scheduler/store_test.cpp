#include <climits>

#include "scheduler_fixture.h"

namespace {

TEST_F(SchedulerTest, ARecordHoldsWhatWasGivenAndOutlivesTheProcess) {
    scheduler.Add(kId, app.c_str(), "Work", LDateTime(LONG_MAX), true, true, LWeekDay(255));
    const NSDictionary record = Store().dictionaryForKey("LGCDSCHEDULER_com.example.app" + app + "Work").value();
    EXPECT_EQ(record.entries().size(), 7U);
    EXPECT_EQ(*record.stringForKey("APP_BUNDLEID"), kId);
    EXPECT_EQ(*record.stringForKey("APP_PATH"), app);
    EXPECT_EQ(*record.stringForKey("SKED_NAME"), "Work");
    EXPECT_EQ(record.numberForKey("START_TIME"), NSNumber::numberWithLong(LONG_MAX));
    EXPECT_EQ(record.numberForKey("IS_DAILY"), NSNumber::numberWithBool(true));
    EXPECT_EQ(record.numberForKey("IS_WEEKLY"), NSNumber::numberWithBool(true));
    EXPECT_EQ(record.numberForKey("WEEKDAY_MASK"), NSNumber::numberWithUnsignedInt(255));

    platform_testing::use_defaults_at(folder + "/defaults.sqlite3");  // forget, and read from the disk
    const LScheduleRecord expected{kId, app, "Work", LDateTime(LONG_MAX), true, true, LWeekDay(127)};
    EXPECT_EQ(LReadScheduleRecord(Store(), Key("Work")), expected);
    scheduler.LoadFromSettings();
    EXPECT_EQ(Timers(), sizeof(long) < 8 ? "Work1" : "Work0");  // the last moment of 64 bits has no calendar form
}

TEST_F(SchedulerTest, OrdersOfListAndIndex) {
    Once("A", 1000);
    Add(app, "B", 0, false, true, 127);
    Once("C", -1000);
    EXPECT_EQ(Timers(), "C0 B7 A1!");
    EXPECT_EQ(Stored(), "/a.appA /a.appB /a.appC");
    Once("A", 2000);
    Add(app, "C", 0, false, true, 0);
    EXPECT_EQ(Timers(), "C0 A1! B7");
    EXPECT_EQ(Stored(), "/a.appB /a.appA /a.appC");
    for (int i = 0; i < 2; ++i) {
        scheduler.LoadFromSettings();
        EXPECT_EQ(Timers(), "C0 A1! B7");
        EXPECT_EQ(Stored(), "/a.appB /a.appA /a.appC");
    }
    scheduler.Delete(kId, app.c_str(), "A");
    scheduler.Delete(kId, app.c_str(), "A");
    EXPECT_EQ(Timers(), "C0 B7");
    EXPECT_EQ(Stored(), "/a.appB /a.appC");
    EXPECT_FALSE(Store().dictionaryForKey(Key("A")));
    EXPECT_TRUE(scheduler.HasSchedules());
}

TEST_F(SchedulerTest, NamesThatDifferInCase) {
    Daily("work");
    Daily("WORK");
    EXPECT_EQ(Timers(), "WORK1");
    EXPECT_EQ(Stored(), "/a.appwork /a.appWORK");
    scheduler.LoadFromSettings();
    EXPECT_EQ(Timers(), "WORK1 work1");
    scheduler.Delete(kId, app.c_str(), "Work");  // the newest goes from memory, no record matches
    EXPECT_EQ(Timers(), "work1");
    EXPECT_EQ(Stored(), "/a.appwork /a.appWORK");
    Daily("\xC3\x84");  // only ASCII letters fold: these are two
    Daily("\xC3\xA4");
    EXPECT_EQ(Timers(),
              "\xC3\xA4"
              "1 \xC3\x84"
              "1 work1");
}

TEST_F(SchedulerTest, DeleteAllCatchesByPrefixInTheStoreAndByPathInMemory) {
    Daily("A");
    Add(app + "2", "B", 0, true, false, 0);
    Add(folder + "/b.app", "C", 0, true, false, 0);
    Daily("D");
    scheduler.Add("COM.example.app", app.c_str(), "E", LDateTime(), true, false, LWeekDay());
    scheduler.DeleteAll(kId, app.c_str());
    EXPECT_EQ(Timers(), "C1 B1");
    EXPECT_EQ(Stored(), "/b.appC LGCDSCHEDULER_COM.example.app" + app + "E");
    EXPECT_FALSE(Store().dictionaryForKey(LScheduleKey(kId, app + "2", "B")));
    scheduler.DeleteAll(kId, "/nowhere");
    EXPECT_EQ(Timers(), "C1 B1");
    scheduler.DeleteAll("", "");
    EXPECT_EQ(Stored(), "");
    EXPECT_EQ(Timers(), "C1 B1");
}

TEST_F(SchedulerTest, AVanishedApplicationLosesItsRecordAndKeepsItsKey) {
    Daily("A");
    Add(folder + "/b.app", "B", 0, true, false, 0);
    std::filesystem::remove(app);
    for (int i = 0; i < 2; ++i) {
        platform_testing::use_defaults_at(folder + "/defaults.sqlite3");  // the removal was flushed
        EXPECT_EQ(Store().dictionaryForKey(Key("A")).has_value(), i == 0);
        scheduler.LoadFromSettings();
        EXPECT_EQ(Timers(), "B1");
        EXPECT_EQ(Stored(), "-/a.appA /b.appB");
    }
    Daily("A");  // its key goes to the end all the same
    EXPECT_EQ(Stored(), "/b.appB /a.appA");
}

TEST_F(SchedulerTest, RecordsOfForeignHands) {
    const auto record = [&](const std::string& path, const std::string& name) {
        return LScheduleRecordToDictionary({kId, path, name, LDateTime(30000), true, false, LWeekDay()});
    };
    NSMutableArray index;
    const auto put = [&](const std::string& key, const NSDictionary& dictionary) {
        Store().setObject(dictionary, key);
        index.addObject(key);
    };
    NSDictionary bare;
    for (const char* entry : {"APP_BUNDLEID", "SKED_NAME"}) bare.setObject(NSString("x"), entry);
    put("lacks its path", bare);
    bare.setObject(NSNumber::numberWithLong(1), "APP_PATH");
    put("path is a number", bare);
    bare.setObject(app, "APP_PATH");
    bare.setObject(NSString("1"), "IS_DAILY");
    put("three texts", bare);
    put("long name", record(app, std::string(260, 'n')));
    put("longest name", record(app, std::string(259, 'n')));
    put("no UTF-8", record(app, "\xC3"));
    put("a zero", record(app, std::string("a\0b", 3)));
    put("the index's name", LScheduleRecordToDictionary({"SKED", "_ALL", "", LDateTime(), true, false, LWeekDay()}));
    for (const char* key : {"LGCDSCHEDULER_SKED_ALL", "nothing", "longest name"}) index.addObject(key);
    Store().setObject(NSString("text"), "a text");
    index.addObject("a text");
    Store().setObject(index, kScheduleIndexKey);

    scheduler.LoadFromSettings();
    EXPECT_EQ(Timers(), std::string(259, 'n') + "1 x0");
    EXPECT_EQ(Store().dictionaryForKey("lacks its path")->entries().size(), 2U);  // left as it was
    EXPECT_EQ(scheduler.skedKeys->count(), 11U);
    scheduler.DeleteAll("SKE", "D_");  // catches the index's own name
    EXPECT_EQ(LReadScheduleIndex(Store())->size(), 10U);
}

TEST_F(SchedulerTest, UnusableTextsDoNothing) {
    Daily("A");
    const std::string longest(259, 'x');
    const std::string tooLong(260, 'x');
    for (const char* bad : {static_cast<const char*>(nullptr), tooLong.c_str(), "\xC3", "\xED\xA0\x80"}) {
        scheduler.Add(bad, app.c_str(), "A", LDateTime(), true, false, LWeekDay());
        scheduler.Add(kId, bad, "A", LDateTime(), true, false, LWeekDay());
        scheduler.Add(kId, app.c_str(), bad, LDateTime(), true, false, LWeekDay());
        scheduler.Delete(kId, app.c_str(), bad);
        scheduler.DeleteAll(kId, bad);
        scheduler.DeleteAll(bad, app.c_str());
    }
    scheduler.Add("SKED", "_ALL", "", LDateTime(), true, false, LWeekDay());
    scheduler.Delete("", "SKED", "_ALL");
    EXPECT_EQ(Timers(), "A1");
    EXPECT_EQ(Stored(), "/a.appA");
    Daily(longest);
    scheduler.LoadFromSettings();
    EXPECT_EQ(Timers(), longest + "1 A1");
}

// Nothing is armed from a store that cannot be read, and nothing of it is lost: what was added meanwhile stays as it is
// and wins, and what was deleted does not come back, however the store is found readable in the end.
TEST_F(SchedulerTest, AStoreThatCannotBeReadAtTheStartIsLoadedLater) {
    for (const bool byTimer : {true, false}) {
        for (const char* name : {"A", "B", "C", "d"}) Daily(name);
        Add(folder + "/b.app", "other", 30000, true, false, 0);
        Add(folder + "/b.app", "kept", 30000, true, false, 0);
        platform_testing::use_defaults_at(folder + "/defaults.sqlite3");
        std::filesystem::permissions(folder, std::filesystem::perms(0770));  // the folder is refused
        scheduler.LoadFromSettings();
        EXPECT_EQ(Timers(), "");
        Once("fired", 1000);
        scheduler.EvScheduleStart(scheduler.timers.head->sources.head->source);
        Daily("D");
        Add(folder + "/gone.app", "E", 30000, true, false, 0);
        Once("A", 1000);
        scheduler.Delete(kId, app.c_str(), "B");
        scheduler.DeleteAll(kId, (folder + "/b.app").c_str());
        Add(folder + "/b.app", "kept", 1000, false, false, 0);
        clock.advance(kSecond);
        EXPECT_EQ(Timers(), "kept1! A1! E1 D1");

        std::filesystem::permissions(folder, std::filesystem::perms(0700));
        clock.advance(kSecond);
        EXPECT_EQ(Timers(), "kept1! A1! E1 D1");  // the second pause is longer
        if (byTimer) {
            clock.advance(kSecond);
        } else {
            scheduler.Delete(kId, app.c_str(), "never added");
        }
        EXPECT_EQ(Timers(), "kept1! A1! E1 D1 C1");
        clock.advance(998 * kSecond);  // not armed anew: that would be due a second or two later
        EXPECT_EQ(Timers(), "E1 D1 C1");
        platform_testing::use_defaults_at(folder + "/defaults.sqlite3");
        EXPECT_EQ(Stored(), "/a.appC /a.appd /a.appfired /a.appD /gone.appE /a.appA /b.appkept");
        scheduler.LoadFromSettings();
        EXPECT_EQ(Timers(), "kept1! A1! D1 fired1! d1 C1");
        for (const char* path : {"/a.app", "/b.app", "/gone.app"}) scheduler.DeleteAll(kId, (folder + path).c_str());
        EXPECT_EQ(Timers() + Stored(), "");
    }
}

}  // namespace
