// Text work beside the libraries that others would take: UTF-8 to UTF-32 and UTF-16, formatted printing, wildcards.
//
// The texts: ASCII is plain English; Latin mixes one accented letter in four, as German or French with many accents
// does; CJK is three-byte characters with an ASCII one in sixteen. 1 MiB is a document, 40 bytes is a name or a path.
// Every conversion takes a terminated text whose length it is not told, and terminates what it makes.
#include <benchmark/benchmark.h>
#include <fmt/printf.h>
#include <fnmatch.h>
#include <iconv.h>
#include <sqlite3.h>
#include <unicode/ustring.h>
#include <utf8.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/LCharsets.h"
#include "base/LFile.h"
#include "base/LPrint.h"

namespace {

enum Alphabet : int64_t { kAscii, kLatin, kCjk };

std::string MakeText(int64_t alphabet, size_t bytes) {
    static const char* const kPieces[] = {"the quick brown fox jumps over ",
                                          "gr\xc3\xb6\xc3\x9f\x65r \xc3\xa9t\xc3\xa9 ",
                                          "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e\xe3\x81\xae\xe6\x96\x87\xe7\xab\xa0 "};
    const std::string piece = kPieces[alphabet];
    std::string text;
    while (text.size() + piece.size() <= bytes) text += piece;
    text.append(bytes - text.size(), 'x');
    return text;
}

void Texts(benchmark::internal::Benchmark* bench) {
    for (const int64_t bytes : {40, 1 << 20}) {
        for (const int64_t alphabet : {kAscii, kLatin, kCjk}) bench->Args({alphabet, bytes});
    }
}

/// Runs `convert` over the terminated text of the two arguments and counts its bytes.
template <typename Unit, typename Convert>
void Converted(benchmark::State& state, Convert convert) {
    const std::string text = MakeText(state.range(0), static_cast<size_t>(state.range(1)));
    std::vector<Unit> out(text.size() + 1);
    for (auto _ : state) {
        convert(text, out);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(1));
}

void Utf32Ours(benchmark::State& state) {
    Converted<wchar_t>(state, [](const std::string& text, std::vector<wchar_t>& out) {
        LCopyUTF32FromUTF8(out.data(), text.c_str(), out.size());
    });
}

// The library's own unit is UTF-16. Its direct road to UTF-32 is the macro loop over the text, the one through its
// functions a conversion to UTF-16 and another from there.
void Utf32Icu(benchmark::State& state) {
    Converted<UChar32>(state, [](const std::string& text, std::vector<UChar32>& out) {
        const char* const in = text.c_str();
        const size_t room = out.size() - 1;
        int32_t at = 0;
        size_t count = 0;
        while (count < room) {
            UChar32 character;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"  // the library's macro, not ours
            U8_NEXT(in, at, -1, character);
#pragma GCC diagnostic pop
            if (character <= 0) break;  // the terminator, or an ill-formed sequence
            out[count++] = character;
        }
        out[count] = 0;
    });
}

void Utf32IcuCalls(benchmark::State& state) {
    std::vector<UChar> units(static_cast<size_t>(state.range(1)) + 1);
    Converted<UChar32>(state, [&units](const std::string& text, std::vector<UChar32>& out) {
        UErrorCode status = U_ZERO_ERROR;
        int32_t count = 0;
        u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &count, text.c_str(), -1, &status);
        u_strToUTF32(out.data(), static_cast<int32_t>(out.size()), nullptr, units.data(), count, &status);
    });
}

/// The text's end is looked for and one unit of room kept for the terminator, as by all the others.
template <typename Unit>
void Iconv(benchmark::State& state, const char* encoding) {
    const iconv_t descriptor = iconv_open(encoding, "UTF-8");
    Converted<Unit>(state, [descriptor](const std::string& text, std::vector<Unit>& out) {
        char* from = const_cast<char*>(text.c_str());
        char* to = reinterpret_cast<char*>(out.data());
        size_t fromLeft = std::strlen(from);
        size_t toLeft = (out.size() - 1) * sizeof(Unit);
        iconv(descriptor, &from, &fromLeft, &to, &toLeft);
        *reinterpret_cast<Unit*>(to) = 0;
    });
    iconv_close(descriptor);
}

void Utf32Iconv(benchmark::State& state) {
    Iconv<wchar_t>(state, "UTF-32LE");
}

/// utfcpp bounds no output; the rest is the same.
void Utf32Utfcpp(benchmark::State& state) {
    Converted<wchar_t>(state, [](const std::string& text, std::vector<wchar_t>& out) {
        const char* const in = text.c_str();
        *utf8::utf8to32(in, in + std::strlen(in), out.begin()) = 0;
    });
}

void Utf16Ours(benchmark::State& state) {
    Converted<unsigned short>(state, [](const std::string& text, std::vector<unsigned short>& out) {
        LCopyUnicodeFromUTF8(out.data(), text.c_str(), out.size());
    });
}

void Utf16Icu(benchmark::State& state) {
    Converted<UChar>(state, [](const std::string& text, std::vector<UChar>& out) {
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), nullptr, text.c_str(), -1, &status);
    });
}

/// For long texts the library is quicker when it is told the length.
void Utf16IcuLength(benchmark::State& state) {
    Converted<UChar>(state, [](const std::string& text, std::vector<UChar>& out) {
        UErrorCode status = U_ZERO_ERROR;
        u_strFromUTF8(out.data(), static_cast<int32_t>(out.size()), nullptr, text.c_str(),
                      static_cast<int32_t>(std::strlen(text.c_str())), &status);
    });
}

void Utf16Iconv(benchmark::State& state) {
    Iconv<unsigned short>(state, "UTF-16LE");
}

void Utf16Utfcpp(benchmark::State& state) {
    Converted<unsigned short>(state, [](const std::string& text, std::vector<unsigned short>& out) {
        const char* const in = text.c_str();
        *utf8::utf8to16(in, in + std::strlen(in), out.begin()) = 0;
    });
}

/// What no conversion can beat: the bytes read and four times as many written, or twice.
template <typename Unit>
void Memory(benchmark::State& state) {
    Converted<Unit>(state, [](const std::string& text, std::vector<Unit>& out) {
        std::memset(out.data(), text[text.size() / 2], text.size() * sizeof(Unit));
    });
}

BENCHMARK(Utf32Ours)->Name("utf32/ours")->Apply(Texts);
BENCHMARK(Utf32Icu)->Name("utf32/icu")->Apply(Texts);
BENCHMARK(Utf32IcuCalls)->Name("utf32/icu_calls")->Apply(Texts);
BENCHMARK(Utf32Iconv)->Name("utf32/iconv")->Apply(Texts);
BENCHMARK(Utf32Utfcpp)->Name("utf32/utfcpp")->Apply(Texts);
BENCHMARK_TEMPLATE(Memory, wchar_t)->Name("utf32/limit")->Apply(Texts);
BENCHMARK(Utf16Ours)->Name("utf16/ours")->Apply(Texts);
BENCHMARK(Utf16Icu)->Name("utf16/icu")->Apply(Texts);
BENCHMARK(Utf16IcuLength)->Name("utf16/icu_length")->Apply(Texts);
BENCHMARK(Utf16Iconv)->Name("utf16/iconv")->Apply(Texts);
BENCHMARK(Utf16Utfcpp)->Name("utf16/utfcpp")->Apply(Texts);
BENCHMARK_TEMPLATE(Memory, unsigned short)->Name("utf16/limit")->Apply(Texts);

// ---- Printing

template <typename Print>
void Printed(benchmark::State& state, Print print) {
    char out[260];
    unsigned number = 0;
    for (auto _ : state) {
        print(out, ++number % 100);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
}

constexpr char kNameFormat[] = "%s_%u";
constexpr char kDateFormat[] = "%.4d-%.2d-%.2d %.2d:%.2d";

void NameOurs(benchmark::State& state) {
    Printed(state, [](char* out, unsigned number) { tplsnprintf(out, 260, kNameFormat, "take", number); });
}
void NameC(benchmark::State& state) {
    Printed(state, [](char* out, unsigned number) { std::snprintf(out, 260, kNameFormat, "take", number); });
}
void NameFmt(benchmark::State& state) {
    Printed(state, [](char* out, unsigned number) { *fmt::format_to_n(out, 259, "{}_{}", "take", number).out = '\0'; });
}
void DateOurs(benchmark::State& state) {
    Printed(state, [](char* out, unsigned number) {
        const int n = static_cast<int>(number);
        tplsnprintf(out, 260, kDateFormat, 1970 + n, n % 12 + 1, n % 28 + 1, n % 24, n % 60);
    });
}
void DateC(benchmark::State& state) {
    Printed(state, [](char* out, unsigned number) {
        const int n = static_cast<int>(number);
        std::snprintf(out, 260, kDateFormat, 1970 + n, n % 12 + 1, n % 28 + 1, n % 24, n % 60);
    });
}
void DateFmt(benchmark::State& state) {
    Printed(state, [](char* out, unsigned number) {
        const int n = static_cast<int>(number);
        *fmt::format_to_n(out, 259, "{:04}-{:02}-{:02} {:02}:{:02}", 1970 + n, n % 12 + 1, n % 28 + 1, n % 24, n % 60)
             .out = '\0';
    });
}

BENCHMARK(NameOurs)->Name("print_name/ours");
BENCHMARK(NameC)->Name("print_name/snprintf");
BENCHMARK(NameFmt)->Name("print_name/fmt");
BENCHMARK(DateOurs)->Name("print_date/ours");
BENCHMARK(DateC)->Name("print_date/snprintf");
BENCHMARK(DateFmt)->Name("print_date/fmt");

// ---- Wildcards

/// range(0): 0 is "a*b*c" on 48 characters, otherwise that many a's under a*a*a*a*a*b, which they never match.
struct Match {
    explicit Match(int64_t letters)
        : pattern(letters == 0 ? "a*b*c" : "a*a*a*a*a*b"),
          name(letters == 0 ? "a" + std::string(22, 'x') + "b" + std::string(23, 'y') + "c"
                            : std::string(static_cast<size_t>(letters), 'a')) {}
    std::string pattern;
    std::string name;
};

template <typename Matches>
void Matched(benchmark::State& state, Matches matches) {
    const Match match(state.range(0));
    for (auto _ : state) benchmark::DoNotOptimize(matches(match.pattern.c_str(), match.name.c_str()));
}

void MatchOurs(benchmark::State& state) {
    Matched(state, [](const char* pattern, const char* name) { return LFile::IsMatch<char>(pattern, name); });
}
void MatchFnmatch(benchmark::State& state) {
    Matched(state, [](const char* pattern, const char* name) { return fnmatch(pattern, name, 0) == 0; });
}
void MatchSqlite(benchmark::State& state) {
    Matched(state, [](const char* pattern, const char* name) { return sqlite3_strglob(pattern, name) == 0; });
}

BENCHMARK(MatchOurs)->Name("match/ours")->Arg(0)->RangeMultiplier(8)->Range(64, 4096);
BENCHMARK(MatchFnmatch)->Name("match/fnmatch")->Arg(0)->RangeMultiplier(8)->Range(64, 4096);
BENCHMARK(MatchSqlite)->Name("match/sqlite")->Arg(0)->RangeMultiplier(8)->Range(64, 4096);

}  // namespace

BENCHMARK_MAIN();
