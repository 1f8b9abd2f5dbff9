// The user's defaults: what is set is seen, what is flushed is there again, what could not be flushed goes later.
#include <platform_instance.h>
#include <platform_store_reader.h>

#include <thread>

#include "foundation_support.h"
#include "platform/linux/defaults_store.h"
#include "platform/linux/instance_lock.h"

using platform_store::ReadResult;
using platform_store::StoreReader;

class Defaults : public DefaultsFixture {};

TEST_F(Defaults, EveryTypeComesBackAsItWas) {
    const std::vector<std::pair<const char*, NSUserDefaults::Value>> values = {
        {"text", NSString("Fr\xC3\xBChst\xC3\xBC"
                          "ck")},
        {"empty text", NSString()},
        {"text with zero", NSString("a\0b", 3)},
        {"smallest", NSNumber::numberWithLongLong(INT64_MIN)},
        {"2038", NSNumber::numberWithLongLong(5'000'000'000)},
        {"one", NSNumber::numberWithLong(1)},
        {"true", NSNumber::numberWithBool(true)},
        {"false", NSNumber::numberWithBool(false)},
        {"record", sampleRecord("n")},
        {"empty record", NSDictionary()},
    };
    for (const auto& [key, value] : values) {
        std::visit(
            [key = key](const auto& alternative) {
                using Type = std::decay_t<decltype(alternative)>;
                if constexpr (!std::is_same_v<Type, std::monostate> && !std::is_same_v<Type, NSUserDefaults::Array>) {
                    defaults().setObject(alternative, key);
                }
            },
            value);
    }
    NSMutableArray none;
    defaults().setObject(none, "empty array");
    for (const bool restarted : {false, true}) {
        for (const auto& [key, value] : values) EXPECT_EQ(defaults().objectForKey(key), value) << key << restarted;
        EXPECT_EQ(defaults().arrayForKey("empty array"), NSUserDefaults::Array{});
        EXPECT_EQ(defaults().objectForKey("never set"), NSUserDefaults::Value{});
        EXPECT_FALSE(defaults().dictionaryForKey("text"));
        EXPECT_FALSE(defaults().arrayForKey("record"));
        ASSERT_TRUE(defaults().synchronize());
        restart();
    }
}

TEST_F(Defaults, AValueOfAnotherTypeReplacesTheFormerWhole) {
    NSMutableArray list;
    list.addObject("a");
    const std::vector<void (*)(NSMutableArray&)> setters = {
        [](NSMutableArray&) { defaults().setObject(NSString("t"), "key"); },
        [](NSMutableArray& members) { defaults().setObject(members, "key"); },
        [](NSMutableArray&) { defaults().setObject(sampleRecord("n"), "key"); },
        [](NSMutableArray&) { defaults().setObject(NSDictionary(), "key"); },
        [](NSMutableArray&) { defaults().removeObjectForKey("key"); },
    };
    for (size_t first = 0; first < setters.size(); ++first) {
        for (size_t second = 0; second < setters.size(); ++second) {
            setters[first](list);
            ASSERT_TRUE(defaults().synchronize());
            setters[second](list);
            const NSUserDefaults::Value expected = defaults().objectForKey("key");
            ASSERT_TRUE(defaults().synchronize());
            restart();
            EXPECT_EQ(defaults().objectForKey("key"), expected) << first << " then " << second;
        }
    }
}

TEST_F(Defaults, ReadingMakesNothingAndModesAreNarrow) {
    EXPECT_EQ(defaults().objectForKey("x"), NSUserDefaults::Value{});
    defaults().removeObjectForKey("x");
    EXPECT_TRUE(defaults().synchronize());
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));

    defaults().setObject(NSString("v"), "k");
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path())) << "a file appeared before the flush";
    ASSERT_TRUE(defaults().synchronize());
    EXPECT_EQ(modeOf(folder_ / "data"), 0700U);
    for (const char* suffix : {"", "-wal", "-shm"}) EXPECT_EQ(modeOf(store() + suffix), 0600U) << suffix;
}

TEST_F(Defaults, OneAddIsEightRowsAndTheShellReadsThem) {
    NSMutableArray index;
    const auto add = [&index](const std::string& key) {
        index.addObject(key);
        defaults().setObject(sampleRecord(key), key);
        defaults().setObject(index, "INDEX");
        ASSERT_TRUE(defaults().synchronize());
    };
    for (int i = 0; i < 50; ++i) add("r" + std::to_string(i));
    OutsideConnection outside(store());
    EXPECT_EQ(outside.rows("SELECT position, name, type, value FROM entries WHERE key='r7' ORDER BY position"),
              (std::vector<std::string>{"1|APP_BUNDLEID|string|com.brindlewick.orvinfree", "2|SKED_NAME|string|r7",
                                        "3|START_TIME|integer|5000000000", "4|IS_DAILY|boolean|1",
                                        "5|WEEKDAY_MASK|integer|255"}));
    // A trigger counts the rows that one more add touches.
    outside.run("CREATE TABLE touched(n)");
    for (const char* what : {"INSERT", "DELETE", "UPDATE"}) {
        outside.run(std::string("CREATE TRIGGER t") + what + " AFTER " + what +
                    " ON members BEGIN INSERT INTO touched VALUES(1); END");
    }
    OutsideConnection counter(store());
    const auto before = counter.rows("SELECT max(position) FROM members");
    index.removeObject("r3");
    index.addObject("r3");
    defaults().setObject(index, "INDEX");
    ASSERT_TRUE(defaults().synchronize());
    EXPECT_EQ(before, std::vector<std::string>{"50"});
    EXPECT_EQ(counter.rows("SELECT count(*), min(position), max(position) FROM members"),
              std::vector<std::string>{"50|1|51"});
    EXPECT_EQ(counter.rows("SELECT value FROM members ORDER BY position DESC LIMIT 1"), std::vector<std::string>{"r3"});
}

// Random edits of one array against a plain vector, set and flushed now and then, by the same array or by another one.
TEST_F(Defaults, ArraysFollowEveryHistory) {
    unsigned seed = 1;
    const auto random = [&seed](unsigned below) { return (seed = seed * 1103515245 + 12345) / 65536 % below; };
    auto array = std::make_unique<NSMutableArray>();
    NSMutableArray other;
    std::vector<NSString> expected;
    for (int step = 0; step < 3000; ++step) {
        const std::string text = "m" + std::to_string(random(12));
        switch (random(10)) {
            case 0:
            case 1:
                array->removeObject(text);
                std::erase(expected, text);
                break;
            case 2:
                if (random(8) == 0) array->removeAllObjects(), expected.clear();
                break;
            case 3:
                ASSERT_TRUE(defaults().synchronize());
                break;
            case 4:
                if (random(4) == 0) restart();
                break;
            case 5:
                defaults().setObject(*array, random(4) == 0 ? "second" : "key");
                break;
            case 6:  // another array under the same key, and a fresh one that continues from what is stored
                if (random(6) == 0) {
                    other.addObject(text);
                    defaults().setObject(other, "key");
                    array = std::make_unique<NSMutableArray>();
                    for (const NSString& member : expected) array->addObject(member);
                } else if (random(6) == 0) {
                    defaults().removeObjectForKey("key");
                }
                break;
            default:
                array->addObject(text);
                expected.push_back(text);
        }
        ASSERT_EQ(array->allObjects(), expected);
        ASSERT_EQ(array->containsObject(text), std::find(expected.begin(), expected.end(), text) != expected.end());
        if (step % 10 == 0) {
            defaults().setObject(*array, "key");
            ASSERT_EQ(*defaults().arrayForKey("key"), expected);
            ASSERT_TRUE(defaults().synchronize());
            if (step % 50 == 0) restart();
            ASSERT_EQ(*defaults().arrayForKey("key"), expected) << step;
        }
    }
}

TEST_F(Defaults, AFileThatMayOnlyBeReadIsNotDamaged) {
    defaults().setObject(NSString("old"), "k");
    ASSERT_TRUE(defaults().synchronize());
    defaults::Store reading;
    ASSERT_EQ(reading.open(store(), SqliteDatabase::Mode::readOnly, 0), StoreResult::ok);
    EXPECT_EQ(reading.openForWriting(store()), StoreResult::unavailable) << "its mode may allow more by now";
}

// A start that meets a locked store must not take it for an empty one and write over it.
TEST_F(Defaults, AStoreThatCouldNotBeReadIsAddedTo) {
    NSMutableArray index;
    index.addObject("a");
    index.addObject("b");
    defaults().setObject(index, "INDEX");
    defaults().setObject(NSString("va"), "a");
    defaults().setObject(NSString("vb"), "b");
    ASSERT_TRUE(defaults().synchronize());
    restart();
    chmod((folder_ / "data").c_str(), 0770);
    EXPECT_TRUE(array("INDEX").empty());
    NSMutableArray fresh;
    fresh.addObject("c");
    defaults().setObject(fresh, "INDEX");
    defaults().removeObjectForKey("b");
    EXPECT_FALSE(defaults().synchronize());
    chmod((folder_ / "data").c_str(), 0700);
    ASSERT_TRUE(defaults().synchronize());
    fresh.addObject("d");
    defaults().setObject(fresh, "INDEX");
    ASSERT_TRUE(defaults().synchronize());
    restart();
    EXPECT_EQ(array("INDEX"), (NSUserDefaults::Array{"a", "b", "c", "d"}));
    EXPECT_EQ(defaults().objectForKey("a"), NSUserDefaults::Value(NSString("va")));
    EXPECT_EQ(defaults().objectForKey("b"), NSUserDefaults::Value{});
}

TEST_F(Defaults, ThreadsMaySetAndFlushTogether) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            NSMutableArray own;
            const std::string list = "list" + std::to_string(t);
            for (int i = 0; i < 20; ++i) {
                const std::string key = std::to_string(t) + '/' + std::to_string(i);
                own.addObject(key);
                defaults().setObject(sampleRecord(key), key);
                defaults().setObject(own, list);
                EXPECT_TRUE(defaults().synchronize());
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    restart();
    for (int t = 0; t < 4; ++t) EXPECT_EQ(array(("list" + std::to_string(t)).c_str()).size(), 20U);
    EXPECT_EQ(defaults().dictionaryForKey("3/19"), sampleRecord("3/19"));
}

static std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

// The reader runs beside a writer and after it, sees what is committed, and leaves the folder as it was.
TEST_F(Defaults, AReaderChangesNothing) {
    EXPECT_EQ(StoreReader(store()).result(), ReadResult::missing);
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
    defaults().setObject(sampleRecord("a"), "a");
    ASSERT_TRUE(defaults().synchronize());
    defaults().setObject(NSString("not yet"), "b");

    struct Stage {
        const char* name;
        std::function<void()> prepare;
    };
    const std::vector<Stage> stages = {
        {"beside the writer", [] {}},
        {"after a writer that left its log", [this] { restart(); }},
        {"without a log",
         [this] {
             OutsideConnection(store()).run("PRAGMA wal_checkpoint(TRUNCATE)");
             for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(store() + suffix);
         }},
    };
    for (const Stage& stage : stages) {
        stage.prepare();
        const auto before = filesIn(folder_ / "data");
        const std::string bytes = contentOf(store());
        {
            const StoreReader reader(store());
            EXPECT_EQ(reader.result(), ReadResult::ok) << stage.name;
            EXPECT_EQ(reader.allKeys(), std::vector<NSString>{"a"}) << stage.name;
            EXPECT_EQ(reader.objectForKey("a"), NSUserDefaults::Value(sampleRecord("a"))) << stage.name;
            reader.defaults().removeObjectForKey("a");
            EXPECT_FALSE(reader.defaults().synchronize());
        }
        EXPECT_EQ(filesIn(folder_ / "data"), before) << stage.name;
        EXPECT_EQ(contentOf(store()), bytes) << stage.name;
    }
    chmod(store().c_str(), 0666);
    EXPECT_EQ(StoreReader(store()).result(), ReadResult::refused);
}

TEST(InstanceLock, OneHoldsItAndOthersKnowWho) {
    const TemporaryFolder home;
    setenv("XDG_DATA_HOME", home.path().c_str(), 1);
    const std::string directory = std::filesystem::path(platform_store::standardPath()).parent_path();
    EXPECT_EQ(directory, home / "com.brindlewick.schedulehelper.orvinfree213");
    EXPECT_FALSE(platform_instance::query().running);
    EXPECT_TRUE(std::filesystem::is_empty(home.path())) << "asking made something";

    UniqueFd first;
    UniqueFd second;
    ASSERT_EQ(instance_lock::take(directory, 0, first), instance_lock::Result::taken);
    EXPECT_EQ(modeOf(directory + "/instance.lock"), 0600U);
    EXPECT_EQ(instance_lock::take(directory, 20, second), instance_lock::Result::heldByAnother);
    const platform_instance::Status status = platform_instance::query();
    EXPECT_TRUE(status.running);
    EXPECT_EQ(status.pid, getpid());
    EXPECT_LE(time(nullptr) - status.startedAt, 60);

    std::thread ending([&first] { first.reset(); });
    EXPECT_EQ(instance_lock::take(directory, 2000, second), instance_lock::Result::taken);
    ending.join();
    second.reset();
    EXPECT_FALSE(platform_instance::query().running);

    std::filesystem::remove(directory + "/instance.lock");
    std::filesystem::create_symlink(home / "elsewhere", directory + "/instance.lock");
    EXPECT_EQ(instance_lock::take(directory, 0, first), instance_lock::Result::taken);  // the link gives way
    EXPECT_FALSE(std::filesystem::exists(home / "elsewhere"));
    unsetenv("XDG_DATA_HOME");
}

TEST(DefaultsPlace, FollowsTheEnvironment) {
    const std::string usual = getenv("HOME") == nullptr ? "" : getenv("HOME");
    const std::string end = "/.local/share/com.brindlewick.schedulehelper.orvinfree213/defaults.sqlite3";
    setenv("HOME", "/h", 1);
    for (const char* ignored : {"", "relative/path"}) {
        setenv("XDG_DATA_HOME", ignored, 1);
        EXPECT_EQ(platform_store::standardPath(), "/h" + end) << ignored;
    }
    unsetenv("XDG_DATA_HOME");
    unsetenv("HOME");
    EXPECT_TRUE(platform_store::standardPath().ends_with(end));
    setenv("HOME", usual.c_str(), 1);
}
