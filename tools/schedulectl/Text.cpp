#include "tools/schedulectl/Text.h"

#include <strings.h>
#include <wchar.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <numeric>

namespace schedulectl {
namespace {

struct Decoded {
    uint32_t character = 0;
    size_t bytes = 0;  // 0: what stands there is no UTF-8
};

Decoded Decode(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80) return {lead, 1};
    const size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
    if (length == 0 || lead > 0xF4 || text.size() < length) return {};
    uint32_t character = lead & (0xFFU >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {};
        character = character << 6 | (byte(i) & 0x3FU);
    }
    const uint32_t smallest = length == 4 ? 0x10000 : length == 3 ? 0x800 : 0x80;
    const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
    if (character < smallest || character > 0x10FFFF || surrogate) return {};
    return {character, length};
}

bool TurnsDirection(uint32_t c) {
    return c == 0x200E || c == 0x200F || c == 0x061C || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

std::string Escape(const char* format, uint32_t value) {
    char buffer[16];
    (void)snprintf(buffer, sizeof buffer, format, value);
    return buffer;
}

std::string PrintableCharacter(uint32_t c, std::string_view bytes) {
    if (c == '\n') return "\\n";
    if (c == '\t') return "\\t";
    if (c < 0x20 || (c >= 0x7F && c < 0xA0)) return Escape("\\x%02X", c);
    if (TurnsDirection(c)) return Escape("\\u{%X}", c);
    return std::string(bytes);
}

size_t CharacterWidth(uint32_t c) {
    const int width = wcwidth(static_cast<wchar_t>(c));
    return width < 0 ? 1 : static_cast<size_t>(width);  // unknown to this C library: most such characters are narrow
}

/// Insertions, deletions, exchanges and swaps of neighbours that lead from one text to the other.
size_t Edits(std::string_view a, std::string_view b) {
    std::vector<size_t> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
    std::iota(last.begin(), last.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        now[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const bool same = a[i - 1] == b[j - 1];
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) now[j] = std::min(now[j], before[j - 2] + 1);
        }
        before.swap(last);
        last.swap(now);
    }
    return last[b.size()];
}

}  // namespace

std::string Printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Decoded next = Decode(text);
        if (next.bytes == 0) {
            result += Escape("\\x%02X", static_cast<unsigned char>(text[0]));
            text.remove_prefix(1);
            continue;
        }
        result += PrintableCharacter(next.character, text.substr(0, next.bytes));
        text.remove_prefix(next.bytes);
    }
    return result;
}

size_t DisplayWidth(std::string_view text) {
    size_t width = 0;
    while (!text.empty()) {
        const Decoded next = Decode(text);
        width += next.bytes == 0 ? 1 : CharacterWidth(next.character);
        text.remove_prefix(std::max<size_t>(next.bytes, 1));
    }
    return width;
}

std::string CutToWidth(std::string_view text, size_t columns, bool unicode) {
    if (DisplayWidth(text) <= columns) return std::string(text);
    if (columns == 0) return {};
    size_t kept = 0, width = 0;
    while (kept < text.size()) {
        const Decoded next = Decode(text.substr(kept));
        const size_t wide = next.bytes == 0 ? 1 : CharacterWidth(next.character);
        if (width + wide > columns - 1) break;
        width += wide;
        kept += std::max<size_t>(next.bytes, 1);
    }
    return std::string(text.substr(0, kept)) + (unicode ? "\u2026" : "~");
}

std::string Pad(std::string_view text, size_t columns, bool right) {
    const size_t width = DisplayWidth(text);
    const std::string blanks(width < columns ? columns - width : 0, ' ');
    return right ? blanks + std::string(text) : std::string(text) + blanks;
}

std::vector<std::string> Wrap(std::string_view text, size_t columns) {
    std::vector<std::string> lines(1);
    while (!text.empty()) {
        const size_t blank = std::min(text.find(' '), text.size());
        const std::string_view word = text.substr(0, blank);
        text.remove_prefix(std::min(blank + 1, text.size()));
        std::string& line = lines.back();
        if (!line.empty() && DisplayWidth(line) + 1 + DisplayWidth(word) > columns) {
            lines.emplace_back(word);
        } else {
            if (!line.empty()) line += ' ';
            line += word;
        }
    }
    return lines;
}

std::vector<std::string> Likely(std::string_view given, const std::vector<std::string>& known) {
    const std::string wanted = Lower(given);
    std::vector<std::pair<size_t, std::string>> near;
    for (const std::string& word : known) {
        const std::string candidate = Lower(word);
        const size_t allowed = std::max<size_t>(1, std::min(wanted.size(), candidate.size()) / 3);
        size_t distance = Edits(wanted, candidate);
        const bool begins = wanted.size() >= 3 && candidate.compare(0, wanted.size(), wanted) == 0;
        if (begins) distance = std::min(distance, allowed);
        if (distance <= allowed && wanted.size() + candidate.size() > 2) near.emplace_back(distance, word);
    }
    std::stable_sort(near.begin(), near.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> result;
    for (auto& [distance, word] : near) {
        const bool listed = std::find(result.begin(), result.end(), word) != result.end();
        if (result.size() < 3 && !listed) result.push_back(std::move(word));
    }
    return result;
}

std::string DidYouMean(const std::vector<std::string>& suggestions) {
    if (suggestions.empty()) return {};
    std::string text = "Did you mean ";
    for (size_t i = 0; i < suggestions.size(); ++i) {
        if (i > 0) text += i + 1 == suggestions.size() ? " or " : ", ";
        text += "\"" + Printable(suggestions[i]) + "\"";
    }
    return text + "?";
}

bool EqualIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string ShellWord(std::string_view text) {
    const std::string word = Printable(text);
    const bool plain = std::all_of(word.begin(), word.end(), [](unsigned char c) {
        return c >= 0x80 || isalnum(c) != 0 ||
               std::string_view("_@%+=:,./-").find(static_cast<char>(c)) != std::string_view::npos;
    });
    if (plain && !word.empty()) return word;
    std::string result = "'";
    for (const char c : word) result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

std::string Lower(std::string_view text) {
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return result;
}

std::string Join(const std::vector<std::string>& parts, std::string_view between) {
    std::string result;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) result += between;
        result += parts[i];
    }
    return result;
}

std::string Count(size_t number, std::string_view noun) {
    return std::to_string(number) + ' ' + std::string(noun) + (number == 1 ? "" : "s");
}

}  // namespace schedulectl
