// UTF-8 for a terminal: how wide it shows, how to cut and pad it, and which known word was perhaps meant.
//
// Names come from the store, so from another program: control characters and broken UTF-8 are shown as visible
// escapes and never reach the terminal as they are.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace schedulectl {

/// `text` fit to print: control characters as \n, \t or \xHH, bytes that are no UTF-8 as \xHH, the marks that turn the
/// direction of writing (which could make one name look like another) as \u{HHHH}.
std::string Printable(std::string_view text);

/// Columns that printable UTF-8 takes on a terminal: two for wide characters, none for combining ones.
size_t DisplayWidth(std::string_view text);

/// `text` cut to at most `columns`, its last column an ellipsis when something was cut ("~" without `unicode`).
std::string CutToWidth(std::string_view text, size_t columns, bool unicode);

/// `text` with blanks after it (before it, with `right`) up to `columns`; longer text stays whole.
std::string Pad(std::string_view text, size_t columns, bool right = false);

/// `text` broken at blanks into lines of at most `columns`; words longer than a line stay whole.
std::vector<std::string> Wrap(std::string_view text, size_t columns);

/// The members of `known` that are near `given` (case apart, and by edits that a slip of the hand makes), likeliest
/// first, at most three.
std::vector<std::string> Likely(std::string_view given, const std::vector<std::string>& known);

/// "Did you mean A, B or C?", or nothing without suggestions.
std::string DidYouMean(const std::vector<std::string>& suggestions);

/// True when the two texts differ in nothing but the case of ASCII letters.
bool EqualIgnoringCase(std::string_view a, std::string_view b);

/// `text`, made printable, as one word of a shell's command line: in quotes where it needs them.
std::string ShellWord(std::string_view text);

std::string Lower(std::string_view text);
std::string Join(const std::vector<std::string>& parts, std::string_view between);
/// "1 schedule", "3 schedules".
std::string Count(size_t number, std::string_view noun);

}  // namespace schedulectl
