// Formatted printing into fixed buffers and growable strings, without a measuring pass and without a retry.
//
// A format is plain text with conversions: a '%', then digits and dots (width and precision, the first 257 count), then
// the conversion character:
//
//   %        one '%'
//   s        a `const char*`, written as it is; width and precision are ignored, null writes nothing
//   d i c    an `int`, as the C library prints it
//   o u x X  an `unsigned`, likewise
//   e f g    a `double`, likewise
//   other    writes nothing; one `int` is taken from the arguments. There are no flags but '0', no '*', no length
//            modifiers: "%-5d" is the unknown conversion '-' and the text "5d".
//
// A format that ends inside a conversion writes nothing for it and takes no argument. The text of one conversion is cut
// at 259 characters (widths and precisions above 4096 count as 4096) and ends at a zero that "%c" printed; one with two
// dots is treated as an unknown conversion. The decimal point is that of the program's locale.
//
// Arguments must have exactly the types above, and texts must not lie in the target that is printed into. Everything
// here is reentrant.
#pragma once

#include <cstdarg>

#include "base/LString.h"

/// One conversion on its way from the format to text: reads width and precision, prints one value.
class LPrintConversion {
  public:
    /// Reads the width and precision that begin at `format`, right after the '%'; returns where the conversion
    /// character (or the format's terminator) stands.
    const char* Read(const char* format);

    bool TakesDouble() const { return character_ == 'e' || character_ == 'f' || character_ == 'g'; }

    /// The text of the value, at most 259 characters; valid until this object goes.
    const char* Print(unsigned value);
    const char* Print(double value);

  private:
    bool BuildFormat();
    bool IsShortDecimal() const;
    const char* PrintDecimal(unsigned value);

    static constexpr int textSize = 260;

    char kept_[textSize - 2];  // what stood between '%' and the conversion character, terminated
    char character_ = 0;
    char format_[8];  // for the C library, with width and precision as arguments
    int width_ = 0;
    int precision_ = -1;
    bool zeros_ = false;  // blanks in front of a number are zeros instead
    char scratch_[textSize];
};

/// The engine: prints `format` with `arguments` through `writer`, which offers AddChar(char) and Length(). Returns the
/// writer's length when printing ends, 0 for a null format. What a full fixed writer drops still consumes its
/// arguments.
template <typename Writer, typename T>
unsigned long tplprintf(Writer& writer, const T* format, va_list arguments) {
    if (format == nullptr) return 0;
    const auto write = [&writer](const T* text) {
        if (text == nullptr) return;
        while (*text != 0) writer.AddChar(*text++);
    };
    while (*format != 0) {
        if (*format != '%') {
            writer.AddChar(*format++);
            continue;
        }
        LPrintConversion conversion;
        format = conversion.Read(format + 1);
        if (*format == 0) break;
        const T character = *format++;
        if (character == '%') {
            writer.AddChar(character);
        } else if (character == 's') {
            write(va_arg(arguments, const T*));
        } else if (conversion.TakesDouble()) {
            write(conversion.Print(va_arg(arguments, double)));
        } else {
            write(conversion.Print(va_arg(arguments, unsigned)));
        }
    }
    return writer.Length();
}

/// Prints into `out`, `size` bytes with the terminator, and cuts what does not fit. Returns the characters written. A
/// `size` of 0 (which has no place for the terminator) leaves `out` untouched and gives 0.
unsigned long tplsnprintf(char* out, unsigned long size, const char* format, ...);

/// Replaces what `target` holds; returns its new length. The capacity becomes at least 260. When memory runs out
/// std::bad_alloc passes, and `target` is a terminated string of what was printed so far.
unsigned long sprintf(LStringLongTemplate<char>& target, const char* format, ...);

/// The same behind what `target` holds; returns the whole length.
unsigned long tsprintfappend(LStringLongTemplate<char>& target, const char* format, ...);

/// Goes on at the writer's length and returns the new one; writes no terminator.
unsigned long sprintf(LFixedLengthStringWriterTemplate<char>& writer, const char* format, ...);

/// The C library's `vprintf` to standard output, flags and length modifiers included. A null format prints nothing and
/// gives 0.
int tprintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
