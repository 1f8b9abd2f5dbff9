// The intrusive singly linked list that holds every list of the system.
//
// The list owns its elements and has one field, `head`. Each element type carries its own link, a field `next` that
// points to the following element (null for the last). Elements go in at the head, so a list is visited newest first.
// There is no count and no tail.
//
//     struct Stop { Stop* next = nullptr; };
//
//     LList<Stop> stops;
//     stops.Insert(new Stop);
//     for (Stop& stop : stops) { ... }
//
//     for (LListIterator<Stop> it(stops); it.current != nullptr;) {
//         if (unwanted(*it)) stops.Delete(it);  // moves on by itself
//         else ++it;
//     }
//
// Neither lists nor iterators lock: a list and everything that walks it belong to one thread at a time. Elements may
// not be taken out inside a range-for over the list.
#pragma once

#include <type_traits>

template <typename T>
class LList;

/// A place in a list: one field, `current`, the element under the iterator, null when past the end.
///
/// It stays valid while the element under it is in memory; nothing tells it when that element goes.
template <typename T>
struct LListIterator {
    T* current = nullptr;

    LListIterator() = default;
    explicit LListIterator(T* element) : current(element) {}

    /// Stands on the list's head.
    explicit LListIterator(const LList<std::remove_const_t<T>>& list) : current(list.head) {}

    T& operator*() const { return *current; }
    T* operator->() const { return current; }

    /// Moves on to the element after the current one; must not be past the end.
    LListIterator& operator++() {
        current = current->next;
        return *this;
    }

    bool operator==(const LListIterator&) const = default;
};

template <typename T>
class LList {
  public:
    /// The first element, null when the list is empty.
    T* head = nullptr;

    LList() = default;
    LList(const LList&) = delete;
    LList& operator=(const LList&) = delete;

    /// Destroys the elements, from the head on.
    ~LList() { Clear(); }

    /// Puts `element` before all others; the list owns it from here. `element` must be in no list.
    void Insert(T* element) {
        element->next = head;
        head = element;
    }

    /// Unlinks the element under `iterator` and gives it to the caller; its own `next` is left as it was. `iterator`
    /// moves on to the element that followed. Null when `iterator` is past the end, and null, with the list left as it
    /// was, when the element is not in this list. Linear in the element's position.
    T* Detach(LListIterator<T>& iterator) {
        T* element = iterator.current;
        if (element == nullptr) return nullptr;
        iterator.current = element->next;
        T** link = &head;
        while (*link != nullptr && *link != element) link = &(*link)->next;
        if (*link == nullptr) return nullptr;
        *link = element->next;
        return element;
    }

    /// `Detach`, then destroys the element, if there was one.
    void Delete(LListIterator<T>& iterator) { Destroy(Detach(iterator)); }

    /// Destroys every element, from the head on. Each is unlinked before its destructor runs.
    void Clear() {
        while (head != nullptr) {
            T* element = head;
            head = element->next;
            Destroy(element);
        }
    }

    LListIterator<T> begin() { return LListIterator<T>(head); }
    LListIterator<T> end() { return LListIterator<T>(); }
    LListIterator<const T> begin() const { return LListIterator<const T>(head); }
    LListIterator<const T> end() const { return LListIterator<const T>(); }

  private:
    static void Destroy(T* element) {
        static_assert(!std::is_polymorphic_v<T> || std::has_virtual_destructor_v<T>,
                      "elements of a derived type need a virtual destructor");
        delete element;
    }
};
