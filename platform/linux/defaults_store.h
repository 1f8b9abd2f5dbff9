// The defaults' file: its schema, reading all of it, and writing what is owed in one transaction.
//
// docs/store-format.md describes the tables for people; the texts of their definitions in defaults_store.cpp are part
// of the format, since a file whose tables are defined otherwise is not ours. Not synchronised.
#pragma once

#include <memory>
#include <string>

#include "defaults_values.h"
#include "sqlite_database.h"

namespace defaults {

class Store {
  public:
    enum class Schema { unknown, empty, ours, newer, foreign };

    /// Milliseconds that a lock of somebody else is waited for: a first reading has one chance, all else comes again.
    static constexpr int kLongWait = 2000;
    static constexpr int kShortWait = 250;

    ~Store() { close(); }

    /// Opens an existing file; damaged when it is no database, or none of ours.
    StoreResult open(const std::string& path, SqliteDatabase::Mode mode, int wait);

    /// Opens a file that a reader of a running writer may look at without making or changing any; see
    /// platform_store_reader.h.
    StoreResult openBesideWriter(const std::string& path, int wait);

    /// Readies an existing, possibly empty file for writing: log, schema, statements.
    StoreResult openForWriting(const std::string& path);

    void close();
    [[nodiscard]] bool isReadyToWrite() const { return readyToWrite_; }
    /// True when the file was empty, so that nothing that was ever written is in it.
    [[nodiscard]] bool madeTables() const { return madeTables_; }
    [[nodiscard]] Schema schema() const { return schema_; }

    /// Every value in the file, as of one moment. May throw std::bad_alloc.
    StoreResult read(Values& found);

    /// Commits what `values` owes; on success the caller calls Values::forgetDirty.
    StoreResult write(Values& values);

  private:
    struct Statements {
        SqliteStatement begin, commit, rollback;
        SqliteStatement insertScalar, insertEntry, insertMember;
        SqliteStatement deleteScalars, deleteEntries, deleteMembers, deleteMember;
    };

    StoreResult checkSchema(const std::string& path);
    StoreResult readSchema(const std::string& path);
    StoreResult createSchema();
    StoreResult chooseJournal();
    StoreResult prepareStatements();
    StoreResult readScalars(Values& found);
    StoreResult readEntries(Values& found);
    StoreResult readMembers(Values& found);
    StoreResult writeSlot(Slot& slot);
    StoreResult deleteRows(const Slot& slot);
    StoreResult writeScalar(const Slot& slot);
    StoreResult writeDictionary(const Slot& slot);
    StoreResult writeArray(const Slot& slot);
    StoreResult writeMember(const Slot& slot, ArrayMember& member);

    SqliteDatabase database_;
    std::unique_ptr<Statements> statements_;  // finalized before the connection is closed
    Schema schema_ = Schema::unknown;
    bool readyToWrite_ = false;
    bool madeTables_ = false;
};

}  // namespace defaults
