// A hash table of elements that carry their own links: it owns none of them, and once there is room for an element,
// inserting and removing it need no memory and cannot fail.
//
// Elements with equal hashes stay in the order of their insertion, the newest first. No lock of its own.
//
//     struct Guest { LGCDHashLink<Guest> byName; };
//     LGCDHashTable<Guest, &Guest::byName> guests;
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

/// An element's place in a table. The table's own.
template <typename Element>
struct LGCDHashLink {
    Element* next = nullptr;
    Element** fromBefore = nullptr;  // what points to the element; null while it is in no table
    size_t hash = 0;
};

template <typename Element, LGCDHashLink<Element> Element::*kLink>
class LGCDHashTable {
  public:
    LGCDHashTable() = default;
    LGCDHashTable(const LGCDHashTable&) = delete;
    LGCDHashTable& operator=(const LGCDHashTable&) = delete;

    /// Makes room for `more` elements besides those that are in. On std::bad_alloc nothing has changed.
    void Reserve(size_t more) {
        if (count_ + more <= buckets_.size()) return;
        size_t size = buckets_.empty() ? kSmallest : buckets_.size();
        while (size < count_ + more) size *= 2;
        std::vector<Element*> larger(size);
        buckets_.swap(larger);
        for (Element* first : larger) Rehang(first);
    }

    /// There must be room.
    void Insert(Element* element, size_t hash) noexcept {
        (element->*kLink).hash = hash;
        Hang(element, Bucket(hash));
        ++count_;
    }

    /// Nothing happens when it is in no table.
    void Remove(Element* element) noexcept {
        LGCDHashLink<Element>& link = element->*kLink;
        if (link.fromBefore == nullptr) return;
        *link.fromBefore = link.next;
        if (link.next != nullptr) (link.next->*kLink).fromBefore = link.fromBefore;
        link = {};
        --count_;
    }

    /// The newest element with this hash for which `matches` is true, or null.
    template <typename Matches>
    [[nodiscard]] Element* Find(size_t hash, Matches matches) const {
        if (buckets_.empty()) return nullptr;
        Element* element = buckets_[hash & (buckets_.size() - 1)];
        while (element != nullptr && ((element->*kLink).hash != hash || !matches(*element))) {
            element = (element->*kLink).next;
        }
        return element;
    }

    /// Has the memory that removing the element will write to brought near; a hint.
    static void PrepareRemoval(const Element& element) noexcept {
        const LGCDHashLink<Element>& link = element.*kLink;
        __builtin_prefetch(link.fromBefore, 1);
        if (link.next != nullptr) __builtin_prefetch(&(link.next->*kLink), 1);
    }

    [[nodiscard]] size_t Count() const { return count_; }

    void Swap(LGCDHashTable& other) noexcept {
        buckets_.swap(other.buckets_);
        std::swap(count_, other.count_);
    }

  private:
    static constexpr size_t kSmallest = 16;

    Element*& Bucket(size_t hash) { return buckets_[hash & (buckets_.size() - 1)]; }

    static void Hang(Element* element, Element*& place) noexcept {
        LGCDHashLink<Element>& link = element->*kLink;
        link.next = place;
        link.fromBefore = &place;
        if (place != nullptr) (place->*kLink).fromBefore = &link.next;
        place = element;
    }

    /// Hands the elements of a bucket of the smaller table on to this one, the oldest first.
    void Rehang(Element* first) noexcept {
        Element* reversed = nullptr;
        while (first != nullptr) {
            Element* const following = (first->*kLink).next;
            (first->*kLink).next = reversed;
            reversed = first;
            first = following;
        }
        while (reversed != nullptr) {
            Element* const following = (reversed->*kLink).next;
            Hang(reversed, Bucket((reversed->*kLink).hash));
            reversed = following;
        }
    }

    std::vector<Element*> buckets_;  // a power of two of them, or none
    size_t count_ = 0;
};
