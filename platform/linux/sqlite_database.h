// One SQLite connection and its statements, with the library's many result codes told apart by what can be done about
// them. Not thread-safe: whoever owns one holds a lock.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>

enum class [[nodiscard]] StoreResult{
    ok,
    /// The file is no database, is damaged, or does not hold what it should: it will not get better by itself.
    damaged,
    /// Full, read-only, locked, not reachable, an error of the disk: another try may succeed once the file was closed.
    unavailable,
    noMemory,
};

class SqliteStatement {
  public:
    SqliteStatement() = default;
    ~SqliteStatement() { finalize(); }
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;

    StoreResult prepare(sqlite3* connection, const char* sql);
    void finalize();

    // Arguments are numbered from 1 and must stay as they are until the statement has run.
    void bind(int index, std::string_view text);
    void bind(int index, int64_t number);
    void bindNull(int index);

    /// Runs a statement that gives no rows, and makes it ready for the next run.
    StoreResult run();

    /// The next row: ok with `row` true, or ok with `row` false at the end.
    StoreResult step(bool& row);
    [[nodiscard]] int columnType(int column) const { return sqlite3_column_type(statement_, column); }
    /// Valid until the next step.
    [[nodiscard]] std::string_view text(int column) const;
    [[nodiscard]] int64_t number(int column) const { return sqlite3_column_int64(statement_, column); }

  private:
    sqlite3_stmt* statement_ = nullptr;
};

class SqliteDatabase {
  public:
    enum class Mode {
        readWrite,  // an existing file, for reading and writing
        readOnly,   // beside a writer, without making or changing any file
        immutable,  // nobody writes: without locks, and without the files beside it
    };

    SqliteDatabase() = default;
    ~SqliteDatabase() { close(); }
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    StoreResult open(const std::string& path, Mode mode);
    /// Statements must be finalized before. Leaves the file and its log as they are.
    void close();
    [[nodiscard]] bool isOpen() const { return connection_ != nullptr; }
    [[nodiscard]] sqlite3* connection() const { return connection_; }

    void setBusyTimeout(int milliseconds) { sqlite3_busy_timeout(connection_, milliseconds); }
    /// True when the file's header says that it goes with a write-ahead log. Reads nothing else, and makes no file.
    [[nodiscard]] bool usesLog() const;
    /// True when the file could be opened for reading only, or when its header forbids to write.
    [[nodiscard]] bool refusesWrites() const;
    /// True when it is the header: the file is of a format that may be read but not written.
    [[nodiscard]] bool formatForbidsWrites() const;
    StoreResult execute(const char* sql);
    /// The first column of the first row; 0 or "" when there is none.
    StoreResult queryNumber(const char* sql, int64_t& number);
    StoreResult queryText(const char* sql, std::string& text);

  private:
    [[nodiscard]] unsigned char headerByte(int64_t at) const;

    sqlite3* connection_ = nullptr;
};
