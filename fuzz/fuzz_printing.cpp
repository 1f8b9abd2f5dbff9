// Formatted printing of any format with arguments of the types that it asks for, against the C library one conversion
// at a time. The first byte is the size of the fixed buffer; the rest is the format, of at most four arguments.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/LPrint.h"

namespace {

constexpr int mostArguments = 4;
constexpr int number = -1234567;
constexpr double real = -1234.56789;
const std::string text(300, 't');

void Require(bool condition) {
    if (!condition) std::abort();
}

// What a format takes ('s', 'd' for 32 bits, 'f' for a double), and what it should print.
struct Expectation {
    std::string kinds;
    std::string output;
    bool known = true;  // false where the C library is not asked for the text: numbers beyond 4096, two dots
};

bool HasLargeNumber(const std::string& digits) {
    for (size_t i = 0; i < digits.size(); ++i) {
        if (digits[i] != '.' && std::atof(digits.c_str() + i) > 4096) return true;
    }
    return false;
}

template <typename Value>
std::string Printed(const std::string& format, Value value) {
    std::string out(8192, '\0');
    std::snprintf(out.data(), out.size(), format.c_str(), value);
    return std::string(out.c_str()).substr(0, 259);
}

void ExpectConversion(const std::string& digits, char conversion, Expectation& expected) {
    const bool isReal = std::strchr("efg", conversion) != nullptr;
    expected.kinds += conversion == 's' ? 's' : isReal ? 'f' : 'd';
    if (conversion == 's') expected.output += text;
    if (conversion == 's' || std::strchr("diouxXcefg", conversion) == nullptr) return;
    if (std::count(digits.begin(), digits.end(), '.') > 1 || HasLargeNumber(digits)) expected.known = false;
    if (!expected.known) return;
    const std::string format = "%" + digits + conversion;
    expected.output += isReal ? Printed(format, real) : Printed(format, number);
}

Expectation Expect(const std::string& format) {
    Expectation expected;
    for (size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            expected.output += format[i];
            continue;
        }
        const size_t end = format.find_first_not_of("0123456789.", i + 1);
        if (end == std::string::npos) break;
        const std::string digits = format.substr(i + 1, std::min<size_t>(end - i - 1, 257));
        if (format[end] == '%') {
            expected.output += '%';
        } else {
            ExpectConversion(digits, format[end], expected);
        }
        i = end;
    }
    return expected;
}

template <typename... Arguments>
void Check(const Expectation& expected, size_t size, const char* format, Arguments... arguments) {
    const std::unique_ptr<char[]> out(new char[size]);
    const size_t written = tplsnprintf(out.get(), size, format, arguments...);
    LStringLongTemplate<char> string;
    const size_t length = string.sprintf(format, arguments...);
    Require(std::strlen(out.get()) == written && written == std::min(length, size - 1));
    Require(std::strlen(string.buffer) == length && std::memcmp(out.get(), string.buffer, written) == 0);
    if (expected.known) Require(string.buffer == expected.output);
    const std::string once = string.buffer;
    Require(tsprintfappend(string, format, arguments...) == 2 * length && string.buffer == once + once);
    const LStringShortTemplate<char> shortString(LStringPrintFormatTemplate<char>(format), arguments...);
    Require(shortString.text == once.substr(0, 259));
}

// Adds one argument after the other, each of the type that the format asks for next.
template <typename... Arguments>
void CheckWith(const Expectation& expected, size_t size, const char* format, Arguments... arguments) {
    constexpr size_t count = sizeof...(arguments);
    if (expected.kinds.size() == count) return Check(expected, size, format, arguments...);
    if constexpr (count < mostArguments) {
        if (expected.kinds[count] == 's') return CheckWith(expected, size, format, arguments..., text.c_str());
        if (expected.kinds[count] == 'f') return CheckWith(expected, size, format, arguments..., real);
        CheckWith(expected, size, format, arguments..., number);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string input(data + 1, data + size);
    const std::string format = input.c_str();  // up to the first zero
    const Expectation expected = Expect(format);
    if (expected.kinds.size() <= mostArguments) CheckWith(expected, data[0] + 1U, format.c_str());
    return 0;
}
