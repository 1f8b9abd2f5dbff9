#include "base/LString.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr std::uint32_t largestSize = std::numeric_limits<std::uint32_t>::max();

template <typename T>
unsigned long LengthOf(const T* text) {
    const T* end = text;
    while (*end != 0) ++end;
    return static_cast<unsigned long>(end - text);
}

// The place for `length` elements and their terminator. Where `unsigned long` has 32 bits the sum may exceed it, hence
// the wider arithmetic.
std::uint32_t SizeFor(std::uint64_t length) {
    if (length >= largestSize) throw std::bad_alloc();
    return static_cast<std::uint32_t>(length + 1);
}

}  // namespace

template <typename T>
LStringLongTemplate<T>::~LStringLongTemplate() {
    delete[] buffer;
}

template <typename T>
void LStringLongTemplate<T>::GrowToSize(unsigned long size) {
    if (capacity >= size) return;
    if (size > largestSize) throw std::bad_alloc();
    T* grown = new T[size];
    std::copy_n(buffer, length, grown);
    grown[length] = 0;
    delete[] buffer;
    buffer = grown;
    capacity = static_cast<std::uint32_t>(size);
}

template <typename T>
void LStringLongTemplate<T>::Assign(LStringLongTemplate& other) {
    if (&other == this) return;
    delete[] buffer;
    buffer = other.buffer;
    length = other.length;
    capacity = other.capacity;
    other.buffer = nullptr;
    other.length = 0;
    other.capacity = 0;
}

template <typename T>
LStringLongTemplate<T>& LStringLongTemplate<T>::operator=(const T* text) {
    const unsigned long count = text == nullptr ? 0 : LengthOf(text);
    const std::uint32_t size = SizeFor(count);
    T* copy = new T[size];
    std::copy_n(text, count, copy);
    copy[count] = 0;
    delete[] buffer;
    buffer = copy;
    length = size - 1;
    capacity = size;
    return *this;
}

template <typename T>
void LStringLongTemplate<T>::Append(const T* text) {
    if (text == nullptr) return;
    const unsigned long count = LengthOf(text);
    const std::uint32_t size = SizeFor(std::uint64_t{length} + count);
    GrowToSize(size);
    std::copy_n(text, count, buffer + length);
    length = size - 1;
    buffer[length] = 0;
}

template <typename T>
void LStringLongTemplateWriter<T>::Grow() {
    const std::uint32_t capacity = target->capacity;
    if (capacity > largestSize / 4) throw std::bad_alloc();
    target->GrowToSize(capacity == 0 ? firstCapacity : capacity * 4);
}

template class LStringLongTemplate<char>;
template class LStringLongTemplate<unsigned short>;
template class LStringLongTemplate<wchar_t>;
template struct LStringLongTemplateWriter<char>;
