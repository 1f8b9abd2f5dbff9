// User defaults and the file manager: the subset of the platform's foundation classes that this project uses, as C++
// classes named alike, each method named by the first word of its selector.
//
// Values are value types: copying one is cheap (strings apart) and the copy never changes under its holder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

struct NSMutableArrayBody;
struct NSUserDefaultsBody;

/// UTF-8 text.
using NSString = std::string;

/// A number that remembers how it was made, since the store keeps a boolean apart from a whole number.
class NSNumber {
  public:
    static NSNumber numberWithLong(long value) { return NSNumber(value, false); }
    static NSNumber numberWithLongLong(int64_t value) { return NSNumber(value, false); }
    static NSNumber numberWithUnsignedInt(unsigned value) { return NSNumber(value, false); }
    static NSNumber numberWithBool(bool value) { return NSNumber(value ? 1 : 0, true); }

    [[nodiscard]] bool isBool() const { return isBool_; }
    [[nodiscard]] int64_t longLongValue() const { return value_; }
    /// The low-order bits where `long` is narrower than 64 bits.
    [[nodiscard]] long longValue() const { return static_cast<long>(value_); }
    [[nodiscard]] unsigned unsignedIntValue() const { return static_cast<unsigned>(value_); }
    [[nodiscard]] bool boolValue() const { return value_ != 0; }

    friend bool operator==(const NSNumber&, const NSNumber&) = default;

  private:
    NSNumber(int64_t value, bool isBool) : value_(value), isBool_(isBool) {}
    int64_t value_;
    bool isBool_;
};

/// A small dictionary of texts and numbers, in the order in which its keys were first set.
class NSDictionary {
  public:
    using Value = std::variant<NSString, NSNumber>;
    using Entry = std::pair<NSString, Value>;

    /// An empty one with room for `count` keys; more find room too.
    static NSDictionary dictionaryWithCapacity(size_t count);

    /// Replaces the value of `key`.
    void setObject(Value value, std::string_view key);
    /// Null when the key is missing.
    [[nodiscard]] const Value* objectForKey(std::string_view key) const;
    /// The text under `key`; null when it is missing or a number.
    [[nodiscard]] const NSString* stringForKey(std::string_view key) const;
    /// The number under `key`; nothing when it is missing or a text.
    [[nodiscard]] std::optional<NSNumber> numberForKey(std::string_view key) const;

    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }

    friend bool operator==(const NSDictionary&, const NSDictionary&) = default;

  private:
    std::vector<Entry> entries_;
};

/// A growable array of texts.
///
/// Beside the order it keeps an index from text to places, so that `containsObject`, `addObject` and `removeObject`
/// cost the same with ten members and with ten thousand; and a short log of its latest changes, from which the defaults
/// store an array that grew by one text as one row (see NSUserDefaults::setObject). Neither copies nor moves: it has an
/// identity, as the platform's mutable array has. One thread at a time.
class NSMutableArray {
  public:
    NSMutableArray();
    ~NSMutableArray();
    NSMutableArray(const NSMutableArray&) = delete;
    NSMutableArray& operator=(const NSMutableArray&) = delete;

    [[nodiscard]] size_t count() const;
    [[nodiscard]] bool containsObject(std::string_view text) const;
    /// Appends at the end, whether or not the text is a member already.
    void addObject(std::string_view text);
    /// Removes every member equal to `text`; the others keep their order.
    void removeObject(std::string_view text);
    void removeAllObjects();
    /// The members in order, copied.
    [[nodiscard]] std::vector<NSString> allObjects() const;

  private:
    friend class NSUserDefaults;
    std::unique_ptr<NSMutableArrayBody> body_;
};

/// The user's settings of this program, kept in one SQLite file; docs/store-format.md describes it.
///
/// Thread-safe. A value that was set is visible to every later read in the process at once, and on disk after the next
/// `synchronize` that succeeded. What is handed out is a copy. Keys compare exactly.
class NSUserDefaults {
  public:
    /// An array is read back as a list of texts; members that are no texts are left out.
    using Array = std::vector<NSString>;
    /// std::monostate: there is no value.
    using Value = std::variant<std::monostate, NSString, NSNumber, NSDictionary, Array>;

    /// The one object of the process. Its file is looked for at first use and made by the first flush that has
    /// something to write, never by reading. Lives for ever.
    static NSUserDefaults& standardUserDefaults();

    [[nodiscard]] Value objectForKey(std::string_view key) const;
    /// As objectForKey, for callers that want one type and treat every other as missing.
    [[nodiscard]] std::optional<NSDictionary> dictionaryForKey(std::string_view key) const;
    [[nodiscard]] std::optional<Array> arrayForKey(std::string_view key) const;

    void setObject(NSString value, std::string_view key);
    void setObject(NSNumber value, std::string_view key);
    void setObject(NSDictionary value, std::string_view key);
    /// The array as it stands now. When the same NSMutableArray was the last value set under `key`, the cost is that of
    /// the changes since then, in memory and on disk.
    void setObject(const NSMutableArray& value, std::string_view key);
    /// Nothing happens when there is no value.
    void removeObjectForKey(std::string_view key);

    /// Commits everything set or removed since the last success in one transaction, durably; does no I/O when there is
    /// nothing to commit. False when the store could not be written: what failed stays pending and goes with the next
    /// call. Waits at most 250 ms at each lock of another process (some 10 s at one of SQLite's log, should it be held
    /// without end).
    bool synchronize();

    NSUserDefaults(const NSUserDefaults&) = delete;
    NSUserDefaults& operator=(const NSUserDefaults&) = delete;
    ~NSUserDefaults();

  private:
    NSUserDefaults();
    friend struct DefaultsAccess;  // platform/linux: opens the object at another path for tests and for readers
    std::unique_ptr<NSUserDefaultsBody> body_;
};

class NSFileManager {
  public:
    static NSFileManager& defaultManager();
    /// Links are followed; false for a dangling one and whenever existence cannot be told.
    [[nodiscard]] bool fileExistsAtPath(const NSString& path) const;
};
