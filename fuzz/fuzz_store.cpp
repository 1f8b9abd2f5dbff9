// A store of ours whose rows hold anything: it is opened, loaded, added to and read again.
//
// An input is rows ended by byte 30: a letter for the table, then columns ended by byte 31. A column that begins with
// '#' is a whole number, with '!' a byte block, with '%' a real number; anything else is a text.
#include <platform_testing.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>

#include "scheduler/LGCDScheduler.h"

namespace {

struct Silent : LGCDScheduler {
    ~Silent() override { StopFirings(); }
    void EvScheduleStart(const char*, const char*, const char*) override { abort(); }  // the clock stands still
};

/// The file, in a folder that is in memory, and a connection of its own that writes rows to it.
class File {
  public:
    File() {
        if (mkdtemp(folder_.data()) == nullptr) abort();
        path = folder_ + "/defaults.sqlite3";
        platform_testing::use_defaults_at(path);
        NSUserDefaults::standardUserDefaults().setObject(NSString("v"), "k");
        if (!NSUserDefaults::standardUserDefaults().synchronize()) abort();
        if (sqlite3_open(path.c_str(), &connection_) != SQLITE_OK) abort();
        run("PRAGMA synchronous=OFF");
        prepare('s', "INSERT OR IGNORE INTO scalars(key, type, value) VALUES(?1, ?2, ?3)");
        prepare('e', "INSERT OR IGNORE INTO entries(key, name, type, value, position) VALUES(?1, ?2, ?3, ?4, ?5)");
        prepare('m', "INSERT OR IGNORE INTO members(key, value, position) VALUES(?1, ?2, ?5)");
    }
    ~File() {
        for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
        sqlite3_close(connection_);
        std::filesystem::remove_all(folder_);
    }
    void fill(std::string_view input) {
        run("BEGIN; DELETE FROM scalars; DELETE FROM entries; DELETE FROM members");
        for (int64_t position = 0; !input.empty(); ++position) insert(take(input, '\x1e'), position);
        run("COMMIT");
        sqlite3_db_release_memory(connection_);  // no run shall seem to leave memory behind
    }
    std::string path;

  private:
    void run(const char* sql) {
        if (sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) abort();
    }
    void prepare(char table, const char* sql) {
        sqlite3_stmt** const statement = &statements_[static_cast<unsigned char>(table)];
        if (sqlite3_prepare_v2(connection_, sql, -1, statement, nullptr) != SQLITE_OK) abort();
    }
    static std::string_view take(std::string_view& from, char end) {
        const std::string_view part = from.substr(0, from.find(end));
        from.remove_prefix(std::min(from.size(), part.size() + 1));
        return part;
    }
    static void bind(sqlite3_stmt* row, int column, std::string_view value) {
        const auto length = static_cast<int>(value.size());
        const char kind = value.empty() ? '\0' : value.front();
        const std::string number(value.substr(value.empty() ? 0 : 1));
        if (kind == '#') sqlite3_bind_int64(row, column, std::strtoll(number.c_str(), nullptr, 10));
        if (kind == '%') sqlite3_bind_double(row, column, std::strtod(number.c_str(), nullptr));
        if (kind == '!') sqlite3_bind_blob(row, column, value.data(), length, SQLITE_TRANSIENT);
        if (kind != '#' && kind != '%' && kind != '!')
            sqlite3_bind_text(row, column, value.data(), length, SQLITE_TRANSIENT);
    }
    /// A row with a column that its table refuses, a number where a text belongs, is left out.
    void insert(std::string_view row, int64_t position) {
        sqlite3_stmt* const statement = row.empty() ? nullptr : statements_[static_cast<unsigned char>(row.front())];
        if (statement == nullptr) return;
        row.remove_prefix(1);
        for (int column = 1; column <= 4 && !row.empty(); ++column) bind(statement, column, take(row, '\x1f'));
        sqlite3_bind_int64(statement, 5, position);
        (void)sqlite3_step(statement);
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }

    std::string folder_ = std::string(std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp") + "/store-fuzz.XXXXXX";
    sqlite3* connection_ = nullptr;
    sqlite3_stmt* statements_[256] = {};  // by the letter of their table
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static platform_testing::ManualClock clock;
    static File file;
    file.fill({reinterpret_cast<const char*>(data), size});
    for (const bool adds : {true, false}) {
        platform_testing::use_defaults_at(file.path);
        Silent scheduler;
        scheduler.LoadFromSettings();
        const LDateTime soon(static_cast<long>(std::time(nullptr)) + 5000);
        if (adds) scheduler.Add("qz-id", "/", "qz-added", soon, false, false, LWeekDay());
        if (scheduler.timers.head == nullptr || std::string_view(scheduler.timers.head->skedName) != "qz-added")
            abort();
    }
    platform_testing::use_defaults_at(file.path);
    return 0;
}
