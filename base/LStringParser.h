// Small parsers that cut fields out of text into a caller's buffer. Outputs are zero-terminated and cut in bytes where
// the buffer ends; nothing here reports a cut. No text may be null. Nothing locks: a parser belongs to one thread at a
// time.
#pragma once

#include "base/LString.h"

/// Copies `text` up to the first character that occurs in `stops`, or to its end, into `out`, 260 characters, of which
/// the text gets 259. Returns how many characters came before the stop, those that were cut off included. For `char`.
template <typename T>
unsigned long LParseGetToCharacters(const T* text, const T* stops, T* out);

extern template unsigned long LParseGetToCharacters<char>(const char* text, const char* stops, char* out);

/// Walks a text token by token. For `char`.
///
///     LStringParserTemplate<char> parser("2.13");
///     parser.GetToCharacterAndSkip(".", out);  // "2"
///     parser.GetToCharacterAndSkip(".", out);  // "13", then "" for ever
template <typename T>
struct LStringParserTemplate {
    const T* cursor;  ///< into the text, which is not owned

    explicit LStringParserTemplate(const T* text) : cursor(text) {}

    /// The next token, up to one of `stops`, into `out` (260 characters). The cursor moves past the token and the one
    /// stop character behind it.
    void GetToCharacterAndSkip(const T* stops, T* out) {
        cursor += LParseGetToCharacters<T>(cursor, stops, out);
        if (*cursor != 0) ++cursor;
    }
};

/// Puts into `out` what stands in `text` between the first `start` and the next `end` after it, or all that follows
/// `start` when there is no `end`, at most `size` - 1 characters. False, and "" in `out`, when `start` does not occur.
/// A `size` of 0 leaves `out` untouched.
bool LStringFindTextField(const char* text, const char* start, const char* end, char* out, unsigned long size);

template <typename T>
bool LStringFindTextFieldTemplate(const T* text, const T* start, const T* end, T* out, unsigned long size);

extern template bool LStringFindTextFieldTemplate<char>(const char* text, const char* start, const char* end, char* out,
                                                        unsigned long size);

/// The next item of a comma-separated line, without its quotes and without the unquoted spaces around it; of a longer
/// one the first `size` - 1 characters. `pos` is where to read in `line`; it starts at 0 and moves behind the item's
/// comma. The line ends at the terminator or at a line end, where `pos` stays.
///
/// True when the item is not empty. False is therefore either an empty item or the end: look at line[pos]. A `size` of
/// 0 leaves `out` untouched and gives false, but `pos` moves.
bool GetCSVListItem(const char* line, unsigned long& pos, char* out, unsigned long size);

/// Splits a command line into its arguments. Spaces separate; double quotes keep them, a closing quote ends the
/// argument; a backslash before a space keeps that space; a backslash elsewhere is an ordinary character.
///
/// Out of memory is std::bad_alloc; the argument then holds, terminated, what was read of it.
struct LCommandLineArgumentStringExpander {
    const char* cursor;                  ///< into the command line, which is not owned
    LStringLongTemplate<char> argument;  ///< the current argument; no buffer until one has been read

    explicit LCommandLineArgumentStringExpander(const char* commandLine = "") : cursor(commandLine) {}

    /// Reads the next argument. False when it is empty: at the end of the line, or an empty pair of quotes.
    bool NextArgument();

    /// Number of arguments of `commandLine` behind the first, which is the program's name, up to the first empty one.
    /// The expander's own line plays no part.
    int GetArgumentCount(const char* commandLine) const;

  private:
    void AddToArgument(char character);
};
