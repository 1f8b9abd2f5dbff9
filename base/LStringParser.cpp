#include "base/LStringParser.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr unsigned long fieldMaximum = 259;

bool IsLineEnd(char character) {
    return character == 0 || character == '\n' || character == '\r';
}

}  // namespace

template <typename T>
unsigned long LParseGetToCharacters(const T* text, const T* stops, T* out) {
    const unsigned long count = std::strcspn(text, stops);
    const unsigned long copied = std::min(count, fieldMaximum);
    std::copy_n(text, copied, out);
    out[copied] = 0;
    return count;
}

template unsigned long LParseGetToCharacters<char>(const char* text, const char* stops, char* out);

template <typename T>
bool LStringFindTextFieldTemplate(const T* text, const T* start, const T* end, T* out, unsigned long size) {
    const T* field = std::strstr(text, start);
    if (field != nullptr) field += std::strlen(start);
    if (size == 0) return field != nullptr;
    unsigned long count = 0;
    if (field != nullptr) {
        const T* fieldEnd = std::strstr(field, end);
        const unsigned long length =
            fieldEnd == nullptr ? std::strlen(field) : static_cast<unsigned long>(fieldEnd - field);
        count = std::min(length, size - 1);
        std::copy_n(field, count, out);
    }
    out[count] = 0;
    return field != nullptr;
}

template bool LStringFindTextFieldTemplate<char>(const char* text, const char* start, const char* end, char* out,
                                                 unsigned long size);

bool LStringFindTextField(const char* text, const char* start, const char* end, char* out, unsigned long size) {
    return LStringFindTextFieldTemplate<char>(text, start, end, out, size);
}

bool GetCSVListItem(const char* line, unsigned long& pos, char* out, unsigned long size) {
    const unsigned long maximum = size == 0 ? 0 : size - 1;
    bool inQuotes = false;
    unsigned long written = 0;
    unsigned long kept = 0;  // what is written without the spaces at its end
    while (!IsLineEnd(line[pos])) {
        const char character = line[pos++];
        if (character == '"') {
            inQuotes = !inQuotes;
            continue;
        }
        if (character == ',' && !inQuotes) break;
        const bool isText = inQuotes || character != ' ';
        if (written >= maximum || (written == 0 && !isText)) continue;
        out[written++] = character;
        if (isText) kept = written;
    }
    if (size != 0) out[kept] = 0;
    return kept != 0;
}

void LCommandLineArgumentStringExpander::AddToArgument(char character) {
    argument.GrowToSize(argument.length + 2UL);
    argument.buffer[argument.length++] = character;
    argument.buffer[argument.length] = 0;
}

bool LCommandLineArgumentStringExpander::NextArgument() {
    if (argument.buffer != nullptr) argument.buffer[0] = 0;
    argument.length = 0;
    while (*cursor >= 1 && *cursor <= ' ') ++cursor;
    bool inQuotes = false;
    while (*cursor != 0) {
        const char character = *cursor++;
        if (character == ' ' && !inQuotes) break;
        if (character == '"') {
            if (inQuotes) break;
            inQuotes = true;
        } else if (character == '\\' && *cursor == ' ') {
            AddToArgument(*cursor++);
        } else {
            AddToArgument(character);
        }
    }
    return argument.length != 0;
}

int LCommandLineArgumentStringExpander::GetArgumentCount(const char* commandLine) const {
    LCommandLineArgumentStringExpander expander(commandLine);
    expander.NextArgument();
    int count = 0;
    while (expander.NextArgument()) ++count;
    return count;
}
