// The defaults' values in memory: one slot a key, compact (a record of seven short entries takes about half a KiB with
// its key), and what each slot still owes the store.
//
// Setting builds the new value first and links it with nothing that can fail afterwards, so running out of memory
// leaves the old value. Removing allocates nothing and cannot fail. Not synchronised.
#pragma once

#include <Foundation/Foundation.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "array_members.h"

namespace defaults {

/// An array as it was last set: its members in order, and the rows that it owes. Holds one reference for each member in
/// either list.
class StoredArray {
  public:
    StoredArray();
    ~StoredArray();
    StoredArray(const StoredArray&) = delete;
    StoredArray& operator=(const StoredArray&) = delete;

    using Members = ArrayMemberList<&ArrayMember::previousInStore, &ArrayMember::nextInStore>;

    /// Takes over the caller's reference. A member without a position gets the next one, and owes its row.
    void append(ArrayMember* member);
    /// Takes `member` out of the value; it owes the deletion of its row if it has one.
    void remove(ArrayMember* member);
    /// Brings this to what `array` holds, by its log if `array` was the last one set here, else by comparing.
    void assign(NSMutableArrayBody& array);
    /// Puts the members of `older`, which were found in the store, before these, each text once.
    void mergeOlder(StoredArray& older);

    [[nodiscard]] const Members& members() const { return members_; }
    [[nodiscard]] ArrayMember* pending() const { return pending_; }
    [[nodiscard]] NSUserDefaults::Array texts() const;
    void forgetPending();
    /// No row of this value can be on disk any more.
    void forgetRows();

  private:
    void owe(ArrayMember* member);
    void applyLog(NSMutableArrayBody& array);
    void takeOver(ArrayMember* first, ArrayMember* ArrayMember::*next);

    uint64_t identity_;  // see NSMutableArrayBody::binding
    Members members_;
    ArrayMember* pending_ = nullptr;
    int64_t lastPosition_ = 0;
};

/// A dictionary packed into one block of bytes; only this process reads it.
std::string pack(const NSDictionary& dictionary);
NSDictionary unpack(std::string_view packed);

/// Appends one entry to a packed dictionary.
void packEntry(std::string& packed, std::string_view name, std::string_view text);
void packEntry(std::string& packed, std::string_view name, NSNumber number);

/// An entry of a packed dictionary, in place.
struct PackedEntry {
    std::string_view name;
    std::string_view text;
    NSNumber number = NSNumber::numberWithLong(0);
    bool isNumber = false;
};
/// Takes the next entry off `packed`; false at the end.
bool takeEntry(std::string_view& packed, PackedEntry& entry);

enum class Kind : uint8_t { none, text, integer, boolean, dictionary, array };

/// The tables in which a key may have rows.
enum Table : uint8_t { kScalars = 1, kEntries = 2, kMembers = 4 };

struct Slot {
    const std::string* key = nullptr;
    Slot* nextDirty = nullptr;
    int64_t number = 0;
    std::string bytes;  // the text, or the packed dictionary
    std::unique_ptr<StoredArray> array;
    Kind kind = Kind::none;
    uint8_t tables = 0;    // those that may hold rows of this key
    bool dirty = false;    // owes the store something
    bool rewrite = false;  // owes all of it, not just the array's pending rows
};

/// The tables that hold the slot's value as it stands. An empty dictionary or array is one row among the scalars, since
/// it would leave no trace in its own table.
uint8_t tablesOf(const Slot& slot);

class Values {
  public:
    /// Null when the key was never heard of; a slot of kind none is a key that was removed.
    [[nodiscard]] const Slot* find(std::string_view key) const;
    Slot* find(std::string_view key) { return const_cast<Slot*>(std::as_const(*this).find(key)); }
    /// The key's slot, made when needed.
    Slot& slot(std::string_view key);
    /// The same, for a key that is most likely new.
    Slot& newSlot(std::string_view key);

    [[nodiscard]] NSUserDefaults::Value get(std::string_view key) const;
    [[nodiscard]] std::vector<NSString> keys() const;

    void setText(std::string_view key, NSString text);
    void setNumber(std::string_view key, NSNumber number);
    void setDictionary(std::string_view key, const NSDictionary& dictionary);
    void setArray(std::string_view key, NSMutableArrayBody& array);
    void remove(std::string_view key) noexcept;
    /// The same while the store has not been read: it may hold the key, and then loses it.
    void removeUnseen(std::string_view key);

    /// The first slot that owes the store something; the others follow by nextDirty.
    [[nodiscard]] Slot* dirty() const { return dirty_; }
    /// Everything owed was paid.
    void forgetDirty() noexcept;
    /// The store is gone: everything is owed again.
    void forgetStore() noexcept;
    /// Adds what was found in the store to what is here. A value that is here wins; of an array both parts stay, since
    /// the one here was made without knowledge of the other. May throw std::bad_alloc half-way; merging again is safe.
    void merge(Values&& found);

  private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    void markDirty(Slot& slot, bool rewrite) noexcept;
    void replace(Slot& slot, Kind kind, std::string bytes, int64_t number) noexcept;

    std::unordered_map<std::string, Slot, Hash, std::equal_to<>> slots_;
    Slot* dirty_ = nullptr;
};

}  // namespace defaults
