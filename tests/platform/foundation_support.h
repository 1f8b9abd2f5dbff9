// Shared by the tests of the foundation: a home of their own, files, and a look at the store from outside.
#pragma once

#include <Foundation/Foundation.h>
#include <gtest/gtest.h>
#include <platform_testing.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

inline std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::string& path, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

inline unsigned modeOf(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

/// Another program's connection to a store.
class OutsideConnection {
  public:
    explicit OutsideConnection(const std::string& path) {
        EXPECT_EQ(sqlite3_open(path.c_str(), &connection_), SQLITE_OK);
    }
    ~OutsideConnection() { sqlite3_close(connection_); }
    OutsideConnection(const OutsideConnection&) = delete;
    OutsideConnection& operator=(const OutsideConnection&) = delete;

    void run(const std::string& sql) {
        char* message = nullptr;
        EXPECT_EQ(sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
        sqlite3_free(message);
    }
    /// Rows as "a|b|c".
    std::vector<std::string> rows(const std::string& sql) {
        std::vector<std::string> result;
        const auto take = [](void* to, int count, char** values, char**) {
            std::string row;
            for (int i = 0; i < count; ++i) row += (i == 0 ? "" : "|") + std::string(values[i] ? values[i] : "NULL");
            static_cast<std::vector<std::string>*>(to)->push_back(row);
            return 0;
        };
        EXPECT_EQ(sqlite3_exec(connection_, sql.c_str(), take, &result, nullptr), SQLITE_OK);
        return result;
    }

  private:
    sqlite3* connection_ = nullptr;
};

/// The standard defaults in a file of the test's own. `restart` is what a new process would see.
class DefaultsFixture : public testing::Test {
  protected:
    void SetUp() override { restart(); }
    void restart() { platform_testing::use_defaults_at(store()); }
    [[nodiscard]] std::string store() const { return folder_ / "data/defaults.sqlite3"; }
    static NSUserDefaults& defaults() { return NSUserDefaults::standardUserDefaults(); }
    static NSUserDefaults::Array array(const char* key) {
        return defaults().arrayForKey(key).value_or(NSUserDefaults::Array{});
    }

    TemporaryFolder folder_;
};

inline NSDictionary sampleRecord(const std::string& name) {
    NSDictionary record;
    record.setObject(NSString("com.brindlewick.orvinfree"), "APP_BUNDLEID");
    record.setObject(NSString(name), "SKED_NAME");
    record.setObject(NSNumber::numberWithLongLong(5'000'000'000), "START_TIME");
    record.setObject(NSNumber::numberWithBool(true), "IS_DAILY");
    record.setObject(NSNumber::numberWithUnsignedInt(255), "WEEKDAY_MASK");
    return record;
}
