// The scheduler's copy of the store's index: which schedule keys there are, in the order in which they were added.
//
// Beside the array that is written to the store stands a sorted set of the same keys, so that those of one application
// are found without walking all of them. No lock of its own.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include <Foundation/Foundation.h>

class LScheduleKeys {
  public:
    /// Beside `array`, the owned array that is handed to the store; it must be empty and outlive this object.
    explicit LScheduleKeys(std::unique_ptr<NSMutableArray>& array) : array_(array) {}
    LScheduleKeys(const LScheduleKeys&) = delete;
    LScheduleKeys& operator=(const LScheduleKeys&) = delete;

    [[nodiscard]] bool Contains(std::string_view key) const { return sorted_.find(key) != sorted_.end(); }
    /// Appends a key and returns it as it is kept; null, with nothing changed, when it is a member. On std::bad_alloc
    /// nothing has changed.
    const std::string* Append(std::string key);
    /// Nothing happens when it is no member.
    void Remove(std::string_view key) noexcept;
    /// Removes and appends. On std::bad_alloc the key is out of the array but still a member: Repair puts it back.
    void MoveToEnd(const std::string& key);
    /// Puts back what a MoveToEnd without memory has left out. To be called before every change of the array.
    void Repair();

    /// The first member in the order of bytes that begins with `prefix`, or null.
    [[nodiscard]] const std::string* FirstWithPrefix(std::string_view prefix) const;

    /// Exchanges the arrays and all that stands beside them.
    void Swap(LScheduleKeys& other) noexcept;

  private:
    std::unique_ptr<NSMutableArray>& array_;
    std::set<std::string, std::less<>> sorted_;
    const std::string* unlisted_ = nullptr;  // a member that is missing in the array
};
