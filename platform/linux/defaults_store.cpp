#include "defaults_store.h"

#include <array>

#include "file_status.h"
#include "runtime.h"

namespace defaults {

namespace {

// On disk for good: never change a definition, a number or a word without a new version.
constexpr int64_t kApplicationId = 0x4C474344;
constexpr int64_t kVersion = 1;

struct Definition {
    const char* query;
    const char* text;
};
constexpr std::array<Definition, 3> kDefinitions = {{
    {"SELECT sql FROM sqlite_schema WHERE name='scalars'",
     "CREATE TABLE scalars(key TEXT NOT NULL PRIMARY KEY, type TEXT NOT NULL, value ANY) STRICT, WITHOUT ROWID"},
    {"SELECT sql FROM sqlite_schema WHERE name='entries'",
     "CREATE TABLE entries(key TEXT NOT NULL, position INTEGER NOT NULL, name TEXT NOT NULL, type TEXT NOT NULL, "
     "value ANY NOT NULL, PRIMARY KEY(key, position)) STRICT, WITHOUT ROWID"},
    {"SELECT sql FROM sqlite_schema WHERE name='members'",
     "CREATE TABLE members(key TEXT NOT NULL, position INTEGER NOT NULL, value TEXT NOT NULL, "
     "PRIMARY KEY(key, position)) STRICT, WITHOUT ROWID"},
}};

constexpr std::string_view kTextType = "string";
constexpr std::string_view kIntegerType = "integer";
constexpr std::string_view kBooleanType = "boolean";
constexpr std::string_view kDictionaryType = "dictionary";
constexpr std::string_view kArrayType = "array";

std::string_view typeOf(NSNumber number) {
    return number.isBool() ? kBooleanType : kIntegerType;
}

// Of KiB. Reading all of a file meets each page once: a large cache would only be more memory to touch. The second is
// the library's own default, for what comes afterwards.
constexpr char kBeginReading[] = "PRAGMA cache_size=-64;BEGIN";
constexpr char kEndReading[] = "ROLLBACK;PRAGMA cache_size=-2000";

// The file's size; -1 when it is not there.
int64_t sizeOf(const std::string& path) {
    struct stat status {};
    return statLink(path, status) ? int64_t{status.st_size} : -1;
}

// The number in a row's type and value columns; false when they do not make one.
bool readNumber(const SqliteStatement& row, int typeColumn, NSNumber& number) {
    if (row.columnType(typeColumn + 1) != SQLITE_INTEGER) return false;
    const std::string_view type = row.text(typeColumn);
    const int64_t value = row.number(typeColumn + 1);
    if (type == kBooleanType) return number = NSNumber::numberWithBool(value != 0), true;
    if (type == kIntegerType) return number = NSNumber::numberWithLongLong(value), true;
    return false;
}

bool isTextRow(const SqliteStatement& row, int typeColumn) {
    return row.columnType(typeColumn + 1) == SQLITE_TEXT && row.text(typeColumn) == kTextType;
}

}  // namespace

StoreResult Store::open(const std::string& path, SqliteDatabase::Mode mode, int wait) {
    close();
    StoreResult result = database_.open(path, mode);
    if (result == StoreResult::ok) {
        database_.setBusyTimeout(wait);
        result = checkSchema(path);
    }
    if (result != StoreResult::ok) database_.close();
    return result;
}

// A database that uses a log can be read in place only where the log's files are; without them, and with nothing in the
// log, the file itself is the whole truth. Opening it the ordinary way would make those files.
StoreResult Store::openBesideWriter(const std::string& path, int wait) {
    close();
    StoreResult result = database_.open(path, SqliteDatabase::Mode::readOnly);
    if (result != StoreResult::ok) return result;
    if (database_.usesLog() && (sizeOf(path + "-wal") < 0 || sizeOf(path + "-shm") < 0)) {
        if (sizeOf(path + "-wal") > 0) {
            close();
            return StoreResult::unavailable;
        }
        return open(path, SqliteDatabase::Mode::immutable, wait);
    }
    database_.setBusyTimeout(wait);
    result = checkSchema(path);
    if (result != StoreResult::ok) database_.close();
    return result;
}

void Store::close() {
    statements_.reset();
    database_.close();
    readyToWrite_ = false;
}

// As of one moment: a writer may be making the tables just now.
StoreResult Store::checkSchema(const std::string& path) {
    schema_ = Schema::unknown;
    StoreResult result = database_.execute("BEGIN");
    if (result != StoreResult::ok) return result;
    try {
        result = readSchema(path);
    } catch (...) {
        (void)database_.execute("ROLLBACK");
        throw;
    }
    (void)database_.execute("ROLLBACK");  // nothing was written; this ends the reading
    return result;
}

StoreResult Store::readSchema(const std::string& path) {
    int64_t application = 0;
    int64_t version = 0;
    int64_t objects = 0;
    StoreResult result = database_.queryNumber("PRAGMA application_id", application);
    if (result == StoreResult::ok) result = database_.queryNumber("PRAGMA user_version", version);
    if (result == StoreResult::ok) result = database_.queryNumber("SELECT count(*) FROM sqlite_schema", objects);
    if (result != StoreResult::ok) return result;

    if (application == 0 && version == 0 && objects == 0) {
        // A few bytes, less than the smallest page, pass for an empty database; they are somebody's, though.
        const int64_t size = sizeOf(path);
        if (size > 0 && size < 512) return StoreResult::damaged;
        schema_ = Schema::empty;
        return StoreResult::ok;
    }
    schema_ = Schema::foreign;
    if (application != kApplicationId) return StoreResult::damaged;
    if (version > kVersion) schema_ = Schema::newer;
    if (version != kVersion) return StoreResult::damaged;
    for (const Definition& definition : kDefinitions) {
        std::string text;
        result = database_.queryText(definition.query, text);
        if (result != StoreResult::ok) return result;
        if (text != definition.text) return StoreResult::damaged;
    }
    schema_ = Schema::ours;
    return StoreResult::ok;
}

StoreResult Store::createSchema() {
    StoreResult result = database_.execute("BEGIN IMMEDIATE");
    for (const Definition& definition : kDefinitions) {
        if (result == StoreResult::ok) result = database_.execute(definition.text);
    }
    const std::string marks = "PRAGMA application_id=" + std::to_string(kApplicationId) +
                              ";PRAGMA user_version=" + std::to_string(kVersion) + ";COMMIT";
    if (result == StoreResult::ok) result = database_.execute(marks.c_str());
    if (result != StoreResult::ok) {
        (void)database_.execute("ROLLBACK");  // there may be none to roll back
        return result;
    }
    schema_ = Schema::ours;
    return result;
}

// A write-ahead log costs one sync a commit and lets others read meanwhile. Where shared memory cannot be had (network
// file systems) SQLite says so, and the older journal is used, with the folder synced too.
StoreResult Store::chooseJournal() {
    std::string mode;
    StoreResult result = database_.queryText("PRAGMA journal_mode=WAL", mode);
    if (result == StoreResult::damaged || result == StoreResult::noMemory) return result;
    if (result == StoreResult::ok && mode == "wal") {
        return database_.execute("PRAGMA synchronous=FULL;PRAGMA journal_size_limit=4194304");
    }
    result = database_.queryText("PRAGMA journal_mode=DELETE", mode);
    return result == StoreResult::ok ? database_.execute("PRAGMA synchronous=EXTRA") : result;
}

StoreResult Store::prepareStatements() {
    statements_ = std::make_unique<Statements>();
    const struct {
        SqliteStatement& statement;
        const char* sql;
    } list[] = {
        {statements_->begin, "BEGIN IMMEDIATE"},
        {statements_->commit, "COMMIT"},
        {statements_->rollback, "ROLLBACK"},
        {statements_->insertScalar, "INSERT OR REPLACE INTO scalars(key, type, value) VALUES(?1, ?2, ?3)"},
        {statements_->insertEntry,
         "INSERT OR REPLACE INTO entries(key, position, name, type, value) VALUES(?1, ?2, ?3, ?4, ?5)"},
        {statements_->insertMember, "INSERT OR REPLACE INTO members(key, position, value) VALUES(?1, ?2, ?3)"},
        {statements_->deleteScalars, "DELETE FROM scalars WHERE key=?1"},
        {statements_->deleteEntries, "DELETE FROM entries WHERE key=?1"},
        {statements_->deleteMembers, "DELETE FROM members WHERE key=?1"},
        {statements_->deleteMember, "DELETE FROM members WHERE key=?1 AND position=?2"},
    };
    for (const auto& [statement, sql] : list) {
        const StoreResult result = statement.prepare(database_.connection(), sql);
        if (result != StoreResult::ok) return result;
    }
    return StoreResult::ok;
}

StoreResult Store::openForWriting(const std::string& path) {
    StoreResult result = database_.isOpen() ? StoreResult::ok : open(path, SqliteDatabase::Mode::readWrite, kShortWait);
    if (result != StoreResult::ok) return result;
    if (database_.refusesWrites()) {
        // For want of a right, a writable disk or a descriptor, which the next try may have; no header of ours does it.
        return database_.formatForbidsWrites() ? StoreResult::damaged : StoreResult::unavailable;
    }
    database_.setBusyTimeout(kShortWait);
    result = chooseJournal();
    madeTables_ = result == StoreResult::ok && schema_ == Schema::empty;
    if (madeTables_) result = createSchema();
    if (result == StoreResult::ok) result = prepareStatements();
    readyToWrite_ = result == StoreResult::ok;
    return result;
}

StoreResult Store::readScalars(Values& found) {
    SqliteStatement rows;
    StoreResult result = rows.prepare(database_.connection(), "SELECT key, type, value FROM scalars");
    bool row = false;
    while (result == StoreResult::ok && (result = rows.step(row)) == StoreResult::ok && row) {
        Slot& slot = found.slot(rows.text(0));
        slot.tables = kScalars;
        NSNumber number = NSNumber::numberWithBool(false);
        if (isTextRow(rows, 1)) {
            slot.kind = Kind::text;
            slot.bytes = rows.text(2);
        } else if (readNumber(rows, 1, number)) {
            slot.kind = number.isBool() ? Kind::boolean : Kind::integer;
            slot.number = number.longLongValue();
        } else if (rows.text(1) == kDictionaryType) {
            slot.kind = Kind::dictionary;
        } else if (rows.text(1) == kArrayType) {
            slot.array = std::make_unique<StoredArray>();
            slot.kind = Kind::array;
        }
    }
    return result;
}

// Rows come in the order of their keys, so each dictionary is packed in one go and the map is asked once for each.
StoreResult Store::readEntries(Values& found) {
    SqliteStatement rows;
    StoreResult result =
        rows.prepare(database_.connection(), "SELECT key, name, type, value FROM entries ORDER BY key, position");
    std::string packed;
    Slot* slot = nullptr;
    const auto finish = [&packed, &slot] {
        if (slot != nullptr) slot->bytes = packed;  // a copy, just as long as it needs to be
        packed.clear();
    };
    bool row = false;
    while (result == StoreResult::ok && (result = rows.step(row)) == StoreResult::ok && row) {
        const std::string_view key = rows.text(0);
        if (slot == nullptr || *slot->key != key) {
            finish();
            slot = &found.newSlot(key);
            slot->kind = Kind::dictionary;
            slot->tables = static_cast<uint8_t>(slot->tables | kEntries);
        }
        NSNumber number = NSNumber::numberWithBool(false);
        if (isTextRow(rows, 2)) {
            packEntry(packed, rows.text(1), rows.text(3));
        } else if (readNumber(rows, 2, number)) {
            packEntry(packed, rows.text(1), number);
        }
    }
    finish();
    return result;
}

StoreResult Store::readMembers(Values& found) {
    SqliteStatement rows;
    StoreResult result =
        rows.prepare(database_.connection(), "SELECT key, position, value FROM members ORDER BY key, position");
    Slot* slot = nullptr;
    bool row = false;
    while (result == StoreResult::ok && (result = rows.step(row)) == StoreResult::ok && row) {
        const std::string_view key = rows.text(0);
        if (slot == nullptr || *slot->key != key) {
            slot = &found.slot(key);
            slot->array = std::make_unique<StoredArray>();
            slot->bytes.clear();
            slot->kind = Kind::array;
            slot->tables = static_cast<uint8_t>(slot->tables | kMembers);
        }
        ArrayMember* member = ArrayMember::create(rows.text(2));
        member->position = rows.number(1);
        member->mayHaveRow = true;
        slot->array->append(member);
    }
    return result;
}

StoreResult Store::read(Values& found) {
    if (schema_ == Schema::empty) return StoreResult::ok;
    StoreResult result = database_.execute(kBeginReading);
    if (result != StoreResult::ok) return result;
    try {
        result = readScalars(found);
        if (result == StoreResult::ok) result = readEntries(found);
        if (result == StoreResult::ok) result = readMembers(found);
    } catch (...) {
        (void)database_.execute(kEndReading);
        throw;
    }
    (void)database_.execute(kEndReading);  // nothing was written
    return result;
}

StoreResult Store::write(Values& values) {
    runtime::expectToBlock();
    StoreResult result = statements_->begin.run();
    if (result != StoreResult::ok) return result;
    for (Slot* slot = values.dirty(); slot != nullptr && result == StoreResult::ok; slot = slot->nextDirty) {
        result = writeSlot(*slot);
    }
    if (result == StoreResult::ok) result = statements_->commit.run();
    if (result != StoreResult::ok) (void)statements_->rollback.run();  // SQLite may have rolled back already
    return result;
}

// A commit that fails may yet have reached the disk. So whatever is written here counts as possibly there from now on,
// and the next try, or a removal meanwhile, deals with it.
StoreResult Store::writeSlot(Slot& slot) {
    const bool isArray = slot.kind == Kind::array;
    StoreResult result = StoreResult::ok;
    if (slot.rewrite) result = deleteRows(slot);
    if (result == StoreResult::ok && !slot.rewrite && (slot.tables & kScalars) != 0) {
        statements_->deleteScalars.bind(1, *slot.key);  // the mark of an array that was empty
        result = statements_->deleteScalars.run();
    }
    slot.tables = static_cast<uint8_t>(slot.tables | tablesOf(slot));
    if (result != StoreResult::ok || slot.kind == Kind::none) return result;
    if (isArray) result = writeArray(slot);
    if (slot.kind == Kind::dictionary) result = writeDictionary(slot);
    const bool isScalar = (tablesOf(slot) & kScalars) != 0;
    return result == StoreResult::ok && isScalar ? writeScalar(slot) : result;
}

StoreResult Store::deleteRows(const Slot& slot) {
    const struct {
        Table table;
        SqliteStatement& statement;
    } list[] = {{kScalars, statements_->deleteScalars},
                {kEntries, statements_->deleteEntries},
                {kMembers, statements_->deleteMembers}};
    for (const auto& [table, statement] : list) {
        if ((slot.tables & table) == 0) continue;
        statement.bind(1, *slot.key);
        const StoreResult result = statement.run();
        if (result != StoreResult::ok) return result;
    }
    return StoreResult::ok;
}

StoreResult Store::writeScalar(const Slot& slot) {
    SqliteStatement& insert = statements_->insertScalar;
    insert.bind(1, *slot.key);
    switch (slot.kind) {
        case Kind::text:
            insert.bind(2, kTextType);
            insert.bind(3, slot.bytes);
            break;
        case Kind::integer:
        case Kind::boolean:
            insert.bind(2, slot.kind == Kind::boolean ? kBooleanType : kIntegerType);
            insert.bind(3, slot.number);
            break;
        default:
            insert.bind(2, slot.kind == Kind::array ? kArrayType : kDictionaryType);
            insert.bindNull(3);
    }
    return insert.run();
}

StoreResult Store::writeDictionary(const Slot& slot) {
    SqliteStatement& insert = statements_->insertEntry;
    std::string_view packed = slot.bytes;
    PackedEntry entry;
    insert.bind(1, *slot.key);
    for (int64_t position = 1; takeEntry(packed, entry); ++position) {
        insert.bind(2, position);
        insert.bind(3, entry.name);
        insert.bind(4, entry.isNumber ? typeOf(entry.number) : kTextType);
        if (entry.isNumber) {
            insert.bind(5, entry.number.longLongValue());
        } else {
            insert.bind(5, entry.text);
        }
        const StoreResult result = insert.run();
        if (result != StoreResult::ok) return result;
    }
    return StoreResult::ok;
}

StoreResult Store::writeMember(const Slot& slot, ArrayMember& member) {
    SqliteStatement& statement = member.inStore ? statements_->insertMember : statements_->deleteMember;
    statement.bind(1, *slot.key);
    statement.bind(2, member.position);
    if (member.inStore) {
        member.mayHaveRow = true;
        statement.bind(3, member.text());
    }
    return statement.run();
}

StoreResult Store::writeArray(const Slot& slot) {
    StoreResult result = StoreResult::ok;
    if (slot.rewrite) {
        ArrayMember* member = slot.array->members().head;
        for (; member != nullptr && result == StoreResult::ok; member = member->nextInStore) {
            result = writeMember(slot, *member);
        }
        return result;
    }
    if (slot.array->members().head == nullptr) {  // all have gone, so all rows go at once
        statements_->deleteMembers.bind(1, *slot.key);
        return statements_->deleteMembers.run();
    }
    ArrayMember* member = slot.array->pending();
    for (; member != nullptr && result == StoreResult::ok; member = member->nextPending) {
        if (member->inStore || member->mayHaveRow) result = writeMember(slot, *member);
    }
    return result;
}

}  // namespace defaults
