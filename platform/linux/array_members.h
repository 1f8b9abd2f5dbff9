// The members of arrays, shared between an array and the defaults object that it was set in.
//
// A member is one block: its text, its links in the array, and its links in the store's view of that array. The two
// views differ only by what changed since the array was last set, and every change is a matter of links. So handing an
// array with ten thousand members to the defaults again costs as much as what changed, allocates nothing, and cannot
// fail.
//
// Who may touch what: the array's links belong to the thread that uses the array; the store's links to whoever holds
// the defaults' lock; the count of references is atomic. The text never changes.
#pragma once

#include <Foundation/Foundation.h>

#include <atomic>
#include <cstdint>
#include <string_view>

struct ArrayMember {
    enum class Change : uint8_t { none, added, removed };

    /// A member with one reference. Throws std::bad_alloc.
    static ArrayMember* create(std::string_view text);
    void retain() { references.fetch_add(1, std::memory_order_relaxed); }
    void release();
    [[nodiscard]] std::string_view text() const { return {reinterpret_cast<const char*>(this + 1), length}; }

    std::atomic<unsigned> references{1};
    uint32_t length = 0;
    uint32_t hash = 0;

    // The array's.
    Change change = Change::none;  // since the array was last set
    ArrayMember* previous = nullptr;
    ArrayMember* next = nullptr;
    ArrayMember* nextInBucket = nullptr;
    ArrayMember* previousChanged = nullptr;
    ArrayMember* nextChanged = nullptr;

    // The store's.
    bool inStore = false;     // a member of the value as it was last set
    bool mayHaveRow = false;  // a row for `position` was written, or tried
    bool pending = false;     // in the list of rows to write or to delete
    int64_t position = 0;
    ArrayMember* previousInStore = nullptr;
    ArrayMember* nextInStore = nullptr;
    ArrayMember* nextPending = nullptr;

  private:
    ArrayMember() = default;
    ~ArrayMember() = default;
};

/// A doubly linked list through two fields of the members. Owns nothing.
template <ArrayMember* ArrayMember::*Previous, ArrayMember* ArrayMember::*Next>
struct ArrayMemberList {
    ArrayMember* head = nullptr;
    ArrayMember* tail = nullptr;

    void append(ArrayMember* member) {
        member->*Previous = tail;
        member->*Next = nullptr;
        (tail != nullptr ? tail->*Next : head) = member;
        tail = member;
    }
    void unlink(ArrayMember* member) {
        (member->*Previous != nullptr ? member->*Previous->*Next : head) = member->*Next;
        (member->*Next != nullptr ? member->*Next->*Previous : tail) = member->*Previous;
        member->*Previous = member->*Next = nullptr;
    }
};

/// Order, index and change log of one array. The array holds one reference for each of its members, the log one for
/// each member in it.
struct NSMutableArrayBody {
    using OrderList = ArrayMemberList<&ArrayMember::previous, &ArrayMember::next>;
    using ChangeList = ArrayMemberList<&ArrayMember::previousChanged, &ArrayMember::nextChanged>;

    ~NSMutableArrayBody();
    void add(std::string_view text);
    void remove(ArrayMember* member) noexcept;
    void removeAll() noexcept;
    [[nodiscard]] ArrayMember* find(std::string_view text) const;
    void forgetChanges() noexcept;

    OrderList order;
    ChangeList changes;
    size_t count = 0;
    /// Names the stored value that the log refers to; 0 while there is none, and then nothing is logged.
    uint64_t binding = 0;

  private:
    void reserveOneMore();
    ArrayMember*& bucketOf(uint32_t hash) { return buckets_[hash & (buckets_.size() - 1)]; }
    void log(ArrayMember* member, ArrayMember::Change change) noexcept;

    std::vector<ArrayMember*> buckets_;  // a power of two of them, or none
};
