#include "base/LPrint.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

// Far beyond the 259 characters that are kept, so a width or a precision above it changes nothing in the cut text;
// near enough that a hostile format costs microseconds.
constexpr int largestNumber = 4096;

// Reads digits from `text` on into `number`; returns the first character that is none.
const char* ReadNumber(const char* text, int& number) {
    number = 0;
    for (; *text >= '0' && *text <= '9'; ++text) number = std::min(number * 10 + (*text - '0'), largestNumber);
    return text;
}

unsigned long PrintInto(LStringLongTemplate<char>& target, const char* format, va_list arguments) {
    target.GrowToSize(LStringLongTemplateWriter<char>::firstCapacity);
    target.length = 0;
    target.buffer[0] = 0;
    LStringLongTemplateWriter<char> writer(target);
    tplprintf(writer, format, arguments);
    return target.length;
}

unsigned long PrintBehind(LStringLongTemplate<char>& target, const char* format, va_list arguments) {
    target.GrowToSize(LStringLongTemplateAppender<char>::firstCapacity);
    LStringLongTemplateAppender<char> writer(target);
    tplprintf(writer, format, arguments);
    return target.length;
}

// A va_list that is ended on every path; printing into long strings may throw.
class EndArguments {
  public:
    explicit EndArguments(va_list& arguments) : arguments_(arguments) {}
    EndArguments(const EndArguments&) = delete;
    EndArguments& operator=(const EndArguments&) = delete;
    ~EndArguments() { va_end(arguments_); }

  private:
    va_list& arguments_;
};

}  // namespace

const char* LPrintConversion::Read(const char* format) {
    size_t kept = 0;
    for (; (*format >= '0' && *format <= '9') || *format == '.'; ++format) {
        if (kept < sizeof kept_ - 1) kept_[kept++] = *format;
    }
    kept_[kept] = 0;
    character_ = *format;
    return format;
}

// False when the C library must not see the conversion: it would take the argument for an address or a wide character,
// or what stands before it is no width and precision.
bool LPrintConversion::BuildFormat() {
    if (std::strchr("diouxXcefg", character_) == nullptr) return false;
    zeros_ = kept_[0] == '0';
    const char* rest = ReadNumber(kept_, width_);
    if (*rest == '.') rest = ReadNumber(rest + 1, precision_);
    if (*rest != 0) return false;
    char* out = format_;
    *out++ = '%';
    if (zeros_) *out++ = '0';
    std::memcpy(out, "*.*", 3);
    out[3] = character_;
    out[4] = 0;
    return true;
}

// Whole decimal numbers are what is printed most: those whose text is sure to fit are written here, as the C library
// would write them.
bool LPrintConversion::IsShortDecimal() const {
    constexpr int longest = 200;
    const bool isDecimal = character_ == 'd' || character_ == 'i' || character_ == 'u';
    return isDecimal && width_ <= longest && precision_ <= longest;
}

// From the last digit to the first character: a precision says how many digits there are at least, a width how many
// characters; with a precision there are no zeros but those that it asks for.
const char* LPrintConversion::PrintDecimal(unsigned value) {
    const bool isNegative = character_ != 'u' && static_cast<int>(value) < 0;
    char* const end = scratch_ + sizeof scratch_ - 1;
    char* out = end;
    *out = 0;
    for (unsigned left = isNegative ? 0U - value : value; left != 0; left /= 10) {
        *--out = static_cast<char>('0' + left % 10);
    }
    int digits = precision_;
    if (precision_ < 0) digits = zeros_ ? std::max(width_ - (isNegative ? 1 : 0), 1) : 1;
    while (end - out < digits) *--out = '0';
    if (isNegative) *--out = '-';
    while (end - out < width_) *--out = ' ';
    return out;
}

const char* LPrintConversion::Print(unsigned value) {
    scratch_[0] = 0;
    if (!BuildFormat()) return scratch_;
    if (IsShortDecimal()) return PrintDecimal(value);
    const int printed = std::snprintf(scratch_, sizeof scratch_, format_, width_, precision_, value);
    return printed < 0 ? "" : scratch_;
}

const char* LPrintConversion::Print(double value) {
    scratch_[0] = 0;
    if (!BuildFormat()) return scratch_;
    const int printed = std::snprintf(scratch_, sizeof scratch_, format_, width_, precision_, value);
    return printed < 0 ? "" : scratch_;
}

unsigned long tplsnprintf(char* out, unsigned long size, const char* format, ...) {
    if (out == nullptr || size == 0) return 0;
    constexpr unsigned long largest = std::numeric_limits<std::uint32_t>::max();
    LFixedLengthStringWriterTemplate<char> writer(out, 0, static_cast<std::uint32_t>(std::min(size - 1, largest)));
    va_list arguments;
    va_start(arguments, format);
    tplprintf(writer, format, arguments);
    va_end(arguments);
    out[writer.length] = 0;
    return writer.length;
}

unsigned long sprintf(LStringLongTemplate<char>& target, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    EndArguments end(arguments);
    return PrintInto(target, format, arguments);
}

template <>
unsigned long LStringLongTemplate<char>::sprintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    EndArguments end(arguments);
    return PrintInto(*this, format, arguments);
}

unsigned long tsprintfappend(LStringLongTemplate<char>& target, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    EndArguments end(arguments);
    return PrintBehind(target, format, arguments);
}

template <>
unsigned long LStringLongTemplate<char>::tsprintfappend(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    EndArguments end(arguments);
    return PrintBehind(*this, format, arguments);
}

unsigned long sprintf(LFixedLengthStringWriterTemplate<char>& writer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    tplprintf(writer, format, arguments);
    va_end(arguments);
    return writer.length;
}

template <>
LStringShortTemplate<char>::LStringShortTemplate(LStringPrintFormatTemplate<char> format, ...) {
    LFixedLengthStringWriterTemplate<char> writer(text, 0, maximum);
    va_list arguments;
    va_start(arguments, format);
    tplprintf(writer, format.format, arguments);
    va_end(arguments);
    text[writer.length] = 0;
}

int tprintf(const char* format, ...) {
    if (format == nullptr) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int printed = std::vprintf(format, arguments);
    va_end(arguments);
    return printed;
}
