// A list of character buffers, kept as an array of pointers that can be walked to a null.
#pragma once

#include <algorithm>
#include <limits>
#include <new>

/// Owns the buffers and the array. Whenever `items` exists, the slot after the last buffer holds a null pointer.
/// Read the fields freely, change them only through the operations. Neither copies nor locks.
template <typename T>
class LStringListTemplate {
  public:
    T** items = nullptr;
    unsigned long count = 0;     ///< number of buffers
    unsigned long capacity = 0;  ///< usable slots; the slot of the closing null is not counted

    LStringListTemplate() = default;
    LStringListTemplate(const LStringListTemplate&) = delete;
    LStringListTemplate& operator=(const LStringListTemplate&) = delete;

    ~LStringListTemplate() {
        Clear();
        delete[] items;
    }

    /// A new buffer of `size` characters, the terminator's place included, at the end of the list; it holds the empty
    /// string, so a `size` of 0 is taken as 1. The list owns it. Throws std::bad_alloc and then holds what it held.
    T* Add(unsigned long size) {
        if (count == capacity) Grow();
        T* buffer = new T[std::max(size, 1UL)];
        buffer[0] = 0;
        items[count++] = buffer;
        items[count] = nullptr;
        return buffer;
    }

    /// Frees the buffer at `index` and closes the gap; an index at or past `count` does nothing.
    void Delete(unsigned long index) {
        if (index >= count) return;
        delete[] items[index];
        std::copy(items + index + 1, items + count, items + index);
        items[--count] = nullptr;
    }

    /// Frees every buffer; the pointer array stays allocated.
    void Clear() {
        if (items == nullptr) return;
        std::for_each(items, items + count, [](T* buffer) { delete[] buffer; });
        count = 0;
        items[0] = nullptr;
    }

  private:
    // Room for eight times as many: the capacities run 7, 63, 511 and so on.
    void Grow() {
        if (count > (std::numeric_limits<unsigned long>::max() - 8) / 8) throw std::bad_alloc();
        T** grown = new T*[count * 8 + 8];
        std::copy(items, items + count, grown);
        grown[count] = nullptr;
        delete[] items;
        items = grown;
        capacity = count * 8 + 7;
    }
};
