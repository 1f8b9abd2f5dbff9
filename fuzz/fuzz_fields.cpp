// Comma-separated lines, command lines and field parsers: any text into buffers of exactly the promised size, and items
// that were written by the rules read back as they were. The first byte is the size of the buffers.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/LStringParser.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

// The non-empty pieces of `text` between the bytes 1, without what a quoted item cannot hold.
std::vector<std::string> ItemsOf(const std::string& text) {
    std::vector<std::string> items(1);
    for (const char c : text) {
        if (c == 1 && !items.back().empty()) items.emplace_back();
        if (std::strchr("\1\"\r\n", c) == nullptr) items.back() += c;
    }
    if (items.back().empty()) items.pop_back();
    return items;
}

void CheckAnyLine(const std::string& line, unsigned long size) {
    const std::unique_ptr<char[]> out(new char[size]);
    unsigned long pos = 0;
    for (unsigned long before = 0; line[pos] != 0 && line[pos] != '\n' && line[pos] != '\r'; before = pos) {
        const bool some = GetCSVListItem(line.c_str(), pos, out.get(), size);
        Require(pos > before && pos <= line.size());
        if (size != 0) Require(std::strlen(out.get()) < size && some == (out[0] != 0));
    }
    Require(!GetCSVListItem(line.c_str(), pos, out.get(), size));
}

void CheckLineOf(const std::vector<std::string>& items) {
    std::string line;
    for (const std::string& item : items) line += " \"" + item + "\" ,";
    unsigned long pos = 0;
    for (const std::string& item : items) {
        std::vector<char> out(item.size() + 1);
        Require(GetCSVListItem(line.c_str(), pos, out.data(), out.size()) && item == out.data());
    }
    Require(pos == line.size());
}

void CheckArgumentsOf(const std::vector<std::string>& items) {
    std::string line = "program";
    for (const std::string& item : items) {
        line += " \"";
        for (const char c : item) line += c == ' ' ? std::string("\\ ") : std::string(1, c);
        line += '"';
    }
    LCommandLineArgumentStringExpander expander(line.c_str());
    Require(expander.GetArgumentCount(line.c_str()) == static_cast<int>(items.size()) && expander.NextArgument());
    for (const std::string& item : items) Require(expander.NextArgument() && item == expander.argument.buffer);
    Require(!expander.NextArgument() && *expander.cursor == 0);
}

void CheckParsers(const std::string& text, unsigned long size) {
    const std::unique_ptr<char[]> token(new char[260]);
    LStringParserTemplate<char> parser(text.c_str());
    while (*parser.cursor != 0) {
        const size_t length = std::strcspn(parser.cursor, ",. ");
        const std::string expected(parser.cursor, std::min<size_t>(length, 259));
        parser.GetToCharacterAndSkip(",. ", token.get());
        Require(expected == token.get());
    }
    const std::unique_ptr<char[]> out(new char[size]);
    const size_t start = text.find("<");
    const bool found = LStringFindTextField(text.c_str(), "<", "/>", out.get(), size);
    Require(found == (start != std::string::npos));
    if (!found || size == 0) return;
    const std::string rest = text.substr(start + 1);
    Require(rest.substr(0, rest.find("/>")).substr(0, size - 1) == out.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const std::string input(data + 1, data + size);
    const std::string text = input.c_str();  // up to the first zero
    CheckAnyLine(text, data[0]);
    CheckParsers(text, data[0]);
    LCommandLineArgumentStringExpander expander(text.c_str());
    while (expander.NextArgument()) Require(std::strlen(expander.argument.buffer) == expander.argument.length);
    const std::vector<std::string> items = ItemsOf(text);
    CheckLineOf(items);
    CheckArgumentsOf(items);
    return 0;
}
