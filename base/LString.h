// The three kinds of text storage beside plain arrays, and the writers that formatted printing fills.
//
// `LStringLongTemplate` is the growable heap string, `LStringShortTemplate` the fixed one of 260 characters. Text is
// UTF-8 in `char`, UTF-16 in host order in `unsigned short` and UTF-32 in `wchar_t`. Sizes and lengths count elements
// of the character type (bytes for `char`); a length leaves the terminating zero out, a size or capacity counts it.
//
// Nothing here locks: a string or writer belongs to one thread at a time.
#pragma once

#include <cstdint>

/// A growable string that owns its buffer, an array made with array new.
///
/// When the buffer is not null, buffer[length] is 0 and length < capacity; a null buffer reads as the empty string.
/// The fields may be written by whoever fills the buffer directly (after `GrowToSize`), who then keeps these rules.
///
/// Lengths and capacities have 32 bits: a need beyond 2^32 - 1 elements is out of memory. Out of memory is
/// std::bad_alloc, and the string is then as it was. Strings are not copied; `Assign` hands the storage over.
template <typename T>
class LStringLongTemplate {
  public:
    T* buffer = nullptr;
    std::uint32_t length = 0;
    std::uint32_t capacity = 0;

    LStringLongTemplate() = default;
    LStringLongTemplate(const LStringLongTemplate&) = delete;
    LStringLongTemplate& operator=(const LStringLongTemplate&) = delete;
    ~LStringLongTemplate();

    /// Makes the capacity at least `size` elements: exactly `size` when it was smaller, otherwise nothing changes.
    void GrowToSize(unsigned long size);

    /// Takes over the storage of `other`, which is left without a buffer. Assigning a string to itself does nothing.
    void Assign(LStringLongTemplate& other);

    /// A copy of `text` in a new buffer that it fills exactly; `text` may lie in this string. Null gives the empty
    /// text.
    LStringLongTemplate& operator=(const T* text);

    /// Adds `text`, which must not lie in this string's own buffer. Null adds nothing.
    void Append(const T* text);

    /// Prints into the string, or behind what it holds (see base/LPrint.h). For `char` only.
    unsigned long sprintf(const char* format, ...);
    unsigned long tsprintfappend(const char* format, ...);
};

template <>
unsigned long LStringLongTemplate<char>::sprintf(const char* format, ...);
template <>
unsigned long LStringLongTemplate<char>::tsprintfappend(const char* format, ...);

extern template class LStringLongTemplate<char>;
extern template class LStringLongTemplate<unsigned short>;
extern template class LStringLongTemplate<wchar_t>;

/// A long string's text as a C string, "" when it has no buffer. Neither owns nor copies it: the string must stay
/// unchanged for as long as the text is used.
struct LUTF8StringLongRef {
    const char* text;

    LUTF8StringLongRef(const LStringLongTemplate<char>& string) : text(string.buffer == nullptr ? "" : string.buffer) {}
    operator const char*() const { return text; }
};

/// Marks a text as a format for the short string's constructor.
template <typename T>
struct LStringPrintFormatTemplate {
    const T* format;

    explicit LStringPrintFormatTemplate(const T* text) : format(text) {}
};

/// A string of at most 259 characters and a terminator, for `char`. It copies as the plain array that it is.
template <typename T>
struct LStringShortTemplate {
    static constexpr std::uint32_t maximum = 259;

    T text[maximum + 1];

    /// Prints `format` with its arguments (see base/LPrint.h); longer output is cut at 259 characters.
    LStringShortTemplate(LStringPrintFormatTemplate<T> format, ...);

    operator const T*() const { return text; }
};

template <>
LStringShortTemplate<char>::LStringShortTemplate(LStringPrintFormatTemplate<char> format, ...);

/// Writes into a caller's array and drops what does not fit. It never writes a terminator: who made it does, at
/// buffer[length], when printing ends. With a null buffer it drops everything.
template <typename T>
struct LFixedLengthStringWriterTemplate {
    T* buffer;              ///< not owned
    std::uint32_t length;   ///< characters written
    std::uint32_t maximum;  ///< the buffer's size less one

    LFixedLengthStringWriterTemplate(T* target, std::uint32_t written, std::uint32_t limit)
        : buffer(target), length(written), maximum(limit) {}

    void AddChar(T character) {
        if (length < maximum && buffer != nullptr) buffer[length++] = character;
    }
    std::uint32_t Length() const { return length; }
};

/// Writes behind what a long string holds and quadruples its capacity when it fills. A string that has no buffer yet
/// starts with 260. The string is terminated after every character, so it is whole whenever an exception passes; the
/// character that found no memory is not in it then. Without a target everything is dropped.
template <typename T>
struct LStringLongTemplateWriter {
    static constexpr std::uint32_t firstCapacity = 260;

    LStringLongTemplate<T>* target;  ///< not owned

    explicit LStringLongTemplateWriter(LStringLongTemplate<T>* string) : target(string) {}
    explicit LStringLongTemplateWriter(LStringLongTemplate<T>& string) : target(&string) {}

    void AddChar(T character) {
        if (target == nullptr) return;
        // Growing comes first, so that a failure finds the string terminated and within its capacity.
        if (target->capacity - target->length <= 1) Grow();
        target->buffer[target->length++] = character;
        target->buffer[target->length] = 0;
    }
    std::uint32_t Length() const { return target == nullptr ? 0 : target->length; }

  private:
    void Grow();
};

extern template struct LStringLongTemplateWriter<char>;

/// The same writer under another name: printing makes it over a string as it is, the other over an emptied one.
template <typename T>
struct LStringLongTemplateAppender : LStringLongTemplateWriter<T> {
    using LStringLongTemplateWriter<T>::LStringLongTemplateWriter;
};
