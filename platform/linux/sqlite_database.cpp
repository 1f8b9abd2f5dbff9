#include "sqlite_database.h"

namespace {

constexpr unsigned char kFormatWithLog = 2;  // the highest that the library knows

// The path as an SQLite URI, every unusual byte escaped.
std::string uriOf(const std::string& path, const char* parameters) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string uri = "file:";
    for (const char letter : path) {
        const auto byte = static_cast<unsigned char>(letter);
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || byte == '/' || byte == '.' || byte == '-' || byte == '_';
        if (plain) {
            uri += letter;
        } else {
            uri += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
        }
    }
    return uri + parameters;
}

sqlite3_file* fileOf(sqlite3* connection, int which) {
    sqlite3_file* file = nullptr;
    const int code = sqlite3_file_control(connection, "main", which, static_cast<void*>(&file));
    return code == SQLITE_OK && file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

// The library calls it damage, too, when the disk could not read a file. The system's error tells the two apart; it
// lasts until the connection is closed.
bool hasMetSystemError(sqlite3* connection) {
    for (const int which : {SQLITE_FCNTL_FILE_POINTER, SQLITE_FCNTL_JOURNAL_POINTER}) {
        sqlite3_file* const file = fileOf(connection, which);
        int number = 0;
        if (file == nullptr) continue;
        const int code = file->pMethods->xFileControl(file, SQLITE_FCNTL_LAST_ERRNO, &number);
        if (code == SQLITE_OK && number != 0) return true;
    }
    return false;
}

StoreResult storeResultOf(sqlite3* connection, int sqliteCode) {
    switch (sqliteCode & 0xFF) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return StoreResult::ok;
        case SQLITE_NOMEM:
            return StoreResult::noMemory;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return hasMetSystemError(connection) ? StoreResult::unavailable : StoreResult::damaged;
        default:
            return StoreResult::unavailable;
    }
}

}  // namespace

StoreResult SqliteStatement::prepare(sqlite3* connection, const char* sql) {
    finalize();
    const int code = sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr);
    // Our texts are right, so what does not compile finds a file of an unknown format, or other tables than ours.
    return (code & 0xFF) == SQLITE_ERROR ? StoreResult::damaged : storeResultOf(connection, code);
}

void SqliteStatement::finalize() {
    sqlite3_finalize(statement_);
    statement_ = nullptr;
}

// A bind that fails leaves its argument null, which the tables refuse; the run reports it.
void SqliteStatement::bind(int index, std::string_view text) {
    const char* bytes = text.empty() ? "" : text.data();
    (void)sqlite3_bind_text64(statement_, index, bytes, text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void SqliteStatement::bind(int index, int64_t number) {
    (void)sqlite3_bind_int64(statement_, index, number);
}

void SqliteStatement::bindNull(int index) {
    (void)sqlite3_bind_null(statement_, index);
}

StoreResult SqliteStatement::run() {
    const int code = sqlite3_step(statement_);
    (void)sqlite3_reset(statement_);  // repeats the code of the step
    return storeResultOf(sqlite3_db_handle(statement_), code);
}

StoreResult SqliteStatement::step(bool& row) {
    const int code = sqlite3_step(statement_);
    row = code == SQLITE_ROW;
    if (!row) (void)sqlite3_reset(statement_);
    return storeResultOf(sqlite3_db_handle(statement_), code);
}

std::string_view SqliteStatement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    if (bytes == nullptr) return {};
    return {bytes, static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

StoreResult SqliteDatabase::open(const std::string& path, Mode mode) {
    close();
    constexpr int kCommon = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE | SQLITE_OPEN_PRIVATECACHE;
    int code = SQLITE_OK;
    if (mode == Mode::readWrite) {
        code = sqlite3_open_v2(path.c_str(), &connection_, kCommon | SQLITE_OPEN_READWRITE, nullptr);
    } else {
        const std::string uri = uriOf(path, mode == Mode::immutable ? "?immutable=1" : "?readonly_shm=1");
        code = sqlite3_open_v2(uri.c_str(), &connection_, kCommon | SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr);
    }
    if (code != SQLITE_OK) {
        const StoreResult result = storeResultOf(connection_, code);
        close();
        return result;
    }
    // The file may have been made by anybody: nothing in it may act, and pages are checked before they are trusted.
    // What the log holds stays there at the end: closing a damaged file must not write to it.
    (void)sqlite3_db_config(connection_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    (void)sqlite3_db_config(connection_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    (void)sqlite3_db_config(connection_, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    (void)sqlite3_db_config(connection_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    return execute("PRAGMA cell_size_check=ON");
}

void SqliteDatabase::close() {
    (void)sqlite3_close(connection_);
    connection_ = nullptr;
}

// 0 when it cannot be read.
unsigned char SqliteDatabase::headerByte(int64_t at) const {
    sqlite3_file* const file = fileOf(connection_, SQLITE_FCNTL_FILE_POINTER);
    unsigned char byte = 0;
    if (file == nullptr) return 0;
    return file->pMethods->xRead(file, &byte, 1, at) == SQLITE_OK ? byte : 0;
}

bool SqliteDatabase::usesLog() const {
    constexpr int64_t kReadVersionAt = 19;
    return headerByte(kReadVersionAt) == kFormatWithLog;
}

bool SqliteDatabase::formatForbidsWrites() const {
    constexpr int64_t kWriteVersionAt = 18;
    return headerByte(kWriteVersionAt) > kFormatWithLog;
}

bool SqliteDatabase::refusesWrites() const {
    return sqlite3_db_readonly(connection_, "main") == 1;
}

StoreResult SqliteDatabase::execute(const char* sql) {
    return storeResultOf(connection_, sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr));
}

StoreResult SqliteDatabase::queryNumber(const char* sql, int64_t& number) {
    number = 0;
    SqliteStatement query;
    StoreResult result = query.prepare(connection_, sql);
    bool row = false;
    if (result == StoreResult::ok) result = query.step(row);
    if (row) number = query.number(0);
    return result;
}

StoreResult SqliteDatabase::queryText(const char* sql, std::string& text) {
    text.clear();
    SqliteStatement query;
    StoreResult result = query.prepare(connection_, sql);
    bool row = false;
    if (result == StoreResult::ok) result = query.step(row);
    if (!row) return result;
    text = query.text(0);
    return query.step(row);  // tells when memory was out for the text, which then came back empty
}
