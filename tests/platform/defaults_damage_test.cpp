// A store that somebody cut, overwrote or replaced: set aside with its bytes kept, never a crash, never a loss of what
// is in memory.
#include <platform_store_reader.h>

#include <functional>

#include "foundation_support.h"

using platform_store::ReadResult;

class DamagedDefaults : public DefaultsFixture {
  protected:
    // A store of a few dozen pages, in its main file alone, as a program that ended in good order leaves it.
    void makeStore() {
        NSMutableArray index;
        for (int i = 0; i < 200; ++i) {
            const std::string key = "record number " + std::to_string(i);
            index.addObject(key);
            defaults().setObject(sampleRecord(key), key);
        }
        defaults().setObject(index, "INDEX");
        ASSERT_TRUE(defaults().synchronize());
        restart();
        OutsideConnection(store()).run("PRAGMA wal_checkpoint(TRUNCATE)");
        for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(store() + suffix);
        sound_ = contentOf(store());
        ASSERT_GT(sound_.size(), 40000U);
    }

    void replaceStore(const std::string& bytes) {
        restart();
        std::filesystem::remove_all(folder_ / "data");
        std::filesystem::create_directory(folder_ / "data");
        chmod((folder_ / "data").c_str(), 0700);
        writeFile(store(), bytes);
        chmod(store().c_str(), 0600);
    }

    // Reads, writes, starts again; then either everything old is there, or it was set aside with every byte.
    void expectSafe(const std::string& bytes, const std::string& what, bool mustBeSetAside) {
        const NSUserDefaults::Array before = array("INDEX");
        defaults().setObject(NSString("v"), "new");
        EXPECT_TRUE(defaults().synchronize()) << what;
        restart();
        EXPECT_EQ(defaults().objectForKey("new"), NSUserDefaults::Value(NSString("v"))) << what;
        EXPECT_EQ(array("INDEX"), before) << what;
        const std::vector<std::string> aside = platform_store::filesSetAside(store());
        EXPECT_LE(aside.size(), 1U) << what;
        if (mustBeSetAside) {
            EXPECT_EQ(aside.size(), 1U) << what;
        }
        if (!aside.empty()) {
            EXPECT_EQ(contentOf(aside.front()), bytes) << what;
        }
    }

    std::string sound_;
};

TEST_F(DamagedDefaults, CutAnywhere) {
    makeStore();
    for (const size_t length : {0, 1, 15, 16, 99, 100, 512, 4095, 4096, 4097, 8192, 20000, 36864}) {
        replaceStore(sound_.substr(0, length));
        expectSafe(sound_.substr(0, length), "cut at " + std::to_string(length), length > 0);
    }
}

TEST_F(DamagedDefaults, BytesFlipped) {
    makeStore();
    for (size_t at = 0; at < sound_.size(); at += at < 128 ? 1 : 1009) {
        std::string bytes = sound_;
        bytes[at] = static_cast<char>(~bytes[at]);
        replaceStore(bytes);
        const ReadResult seen = platform_store::StoreReader(store()).result();
        EXPECT_TRUE(seen == ReadResult::ok || seen == ReadResult::damaged || seen == ReadResult::newer ||
                    seen == ReadResult::unavailable)
            << at;
        expectSafe(bytes, "flipped at " + std::to_string(at), false);
    }
}

TEST_F(DamagedDefaults, FilesThatAreNotOurs) {
    makeStore();
    const auto changed = [this](const char* sql) {
        replaceStore(sound_);
        OutsideConnection(store()).run(std::string("PRAGMA journal_mode=DELETE;") + sql);
        return contentOf(store());
    };
    const struct {
        const char* what;
        std::string bytes;
        ReadResult seen;
    } table[] = {
        {"a text", "a text of some length, surely no database\n", ReadResult::damaged},
        {"zeros", std::string(8192, '\0'), ReadResult::damaged},
        {"somebody's database", changed("PRAGMA application_id=7"), ReadResult::damaged},
        {"a later version", changed("PRAGMA user_version=2"), ReadResult::newer},
        {"a table missing", changed("DROP TABLE members"), ReadResult::damaged},
        {"another table of that name",
         changed("DROP TABLE members; CREATE TABLE members(key TEXT, position, value TEXT)"), ReadResult::damaged},
        {"a view that never ends",
         changed("DROP TABLE scalars; CREATE VIEW scalars AS WITH RECURSIVE r(n) AS (SELECT 1 UNION ALL SELECT n FROM "
                 "r) SELECT 'k' AS key, 'integer' AS type, n AS value FROM r"),
         ReadResult::damaged},
    };
    for (const auto& [what, bytes, seen] : table) {
        replaceStore(bytes);
        EXPECT_EQ(platform_store::StoreReader(store()).result(), seen) << what;
        expectSafe(bytes, what, true);
    }
}

TEST_F(DamagedDefaults, RowsOfTheWrongTypeAreLeftOut) {
    makeStore();
    replaceStore(sound_);
    OutsideConnection(store()).run(
        "UPDATE entries SET type='string' WHERE key='record number 3' AND name='START_TIME';"
        "UPDATE entries SET value=x'00' WHERE key='record number 3' AND name='SKED_NAME';"
        "UPDATE entries SET type='tensor' WHERE key='record number 3' AND name='IS_DAILY';"
        "INSERT INTO scalars VALUES('odd','integer','text')");
    const auto record = defaults().dictionaryForKey("record number 3");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->entries().size(), 2U);
    EXPECT_EQ(defaults().objectForKey("odd"), NSUserDefaults::Value{});
    EXPECT_EQ(array("INDEX").size(), 200U);
}

// What happens to the file while it is closed after a failure, or open: all that is in memory goes whole into a new
// one.
TEST_F(DamagedDefaults, InMidLife) {
    const auto overwrite = [this] {
        std::fstream file(store(), std::ios::in | std::ios::out | std::ios::binary);
        for (size_t at = 0; at < sound_.size(); at += 4096) {
            file.seekp(static_cast<std::streamoff>(at));
            file << std::string(512, '\x7F');
        }
    };
    const auto empty = [this] {
        for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(store() + suffix);
        std::filesystem::resize_file(store(), 0);  // the same file, by its number
    };
    const auto vanish = [this] { std::filesystem::remove_all(folder_ / "data"); };
    const struct {
        const char* what;
        std::function<void()> happen;
        bool closed;
        size_t setAside;
    } table[] = {{"overwritten", overwrite, true, 1}, {"emptied", empty, true, 0}, {"gone", vanish, false, 0}};
    for (const auto& [what, happen, closed, setAside] : table) {
        replaceStore("");
        makeStore();
        ASSERT_EQ(array("INDEX").size(), 200U);
        defaults().setObject(NSString("v"), "new");
        if (closed) {
            chmod((folder_ / "data").c_str(), 0777);
            EXPECT_FALSE(defaults().synchronize());
            chmod((folder_ / "data").c_str(), 0700);
        }
        happen();
        EXPECT_TRUE(defaults().synchronize()) << what;
        restart();
        EXPECT_EQ(defaults().objectForKey("new"), NSUserDefaults::Value(NSString("v"))) << what;
        EXPECT_EQ(array("INDEX").size(), 200U) << what;
        EXPECT_EQ(defaults().dictionaryForKey("record number 17"), sampleRecord("record number 17")) << what;
        EXPECT_EQ(platform_store::filesSetAside(store()).size(), setAside) << what;
    }
}

// A want of memory in the midst of reading or writing is no damage, wherever it strikes.
TEST_F(DamagedDefaults, MemoryRunsOut) {
    makeStore();
    bool written = false;
    for (int64_t room = 0; !written; room += 997) {
        restart();
        (void)sqlite3_hard_heap_limit64(sqlite3_memory_used() + room + 1);
        try {
            defaults().setObject(NSString(std::to_string(room)), "new");
            written = defaults().synchronize();
        } catch (const std::bad_alloc&) {
        }
        (void)sqlite3_hard_heap_limit64(0);
        ASSERT_TRUE(platform_store::filesSetAside(store()).empty()) << room;
        ASSERT_LT(room, 10'000'000);
    }
    restart();
    EXPECT_EQ(array("INDEX").size(), 200U);
}

// Several in one second must not meet under one name.
TEST_F(DamagedDefaults, SettingAsideNeverOverwrites) {
    replaceStore("junk 1");
    for (int i = 1; i <= 4; ++i) {
        writeFile(store(), "junk " + std::to_string(i));
        chmod(store().c_str(), 0600);
        restart();
        EXPECT_TRUE(array("INDEX").empty());
    }
    std::vector<std::string> kept;
    for (const std::string& path : platform_store::filesSetAside(store())) kept.push_back(contentOf(path));
    std::sort(kept.begin(), kept.end());
    EXPECT_EQ(kept, (std::vector<std::string>{"junk 1", "junk 2", "junk 3", "junk 4"}));
}
