// Two small arrays: one that knows its size and can change it, one whose owner keeps the length.
//
// Neither copies, checks indexes or locks. Out of memory is std::bad_alloc, and the array is then as it was.
#pragma once

#include <algorithm>
#include <memory>

/// Read the fields freely, change them only through `SetSize`.
template <typename T>
class LVector {
  public:
    T* data = nullptr;  ///< the elements, null when there are none
    unsigned long size = 0;

    LVector() = default;
    LVector(const LVector&) = delete;
    LVector& operator=(const LVector&) = delete;
    ~LVector() { delete[] data; }

    /// Makes room for exactly `newSize` elements and keeps the first ones. Elements past the old size are not set:
    /// those of a plain type hold anything.
    void SetSize(unsigned long newSize) {
        if (newSize == size) return;
        std::unique_ptr<T[]> grown(newSize == 0 ? nullptr : new T[newSize]);
        std::copy(data, data + std::min(size, newSize), grown.get());
        delete[] data;
        data = grown.release();
        size = newSize;
    }

    T& operator[](unsigned long index) { return data[index]; }
    const T& operator[](unsigned long index) const { return data[index]; }
};

template <typename T>
class LArray {
  public:
    T* data;

    /// `count` elements, each zero.
    explicit LArray(unsigned long count) : data(new T[count]()) {}
    LArray(const LArray&) = delete;
    LArray& operator=(const LArray&) = delete;
    ~LArray() { delete[] data; }

    T& operator[](unsigned long index) { return data[index]; }
    const T& operator[](unsigned long index) const { return data[index]; }
};
