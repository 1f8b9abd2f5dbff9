// Small helpers on zero-terminated text, in place or into a caller's buffer. None allocates or locks, and texts are not
// null unless it is said. An output buffer that is not given a size needs the input's length and its terminator, and
// may be the input itself.
#pragma once

// ---- Measuring, comparing, numbers

/// Number of 16-bit units before the zero unit.
unsigned long lstrlen(const unsigned short* text);

/// Value of the leading hexadecimal digits, wrapping at 32 bits; no sign, no "0x", 0 when there are none.
unsigned atoh(const char* text);
unsigned wtoh(const wchar_t* text);

/// 0 when `text` ends with `suffix`, -1 when `suffix` is the longer one, otherwise strcmp of the end with `suffix`.
int tstrcmpend(const char* text, const char* suffix);

/// 0 when one of the two begins with the other, otherwise -1. The empty string therefore equals every string.
int wstrcmp(const wchar_t* left, const wchar_t* right);

// ---- Copying with a limit

/// Copies as much of `text` as fits into `size` characters with the terminator; 0 writes nothing. Returns the length of
/// `text`: the copy is whole when that is below `size`.
unsigned long LStrLCpy(char* out, const char* text, unsigned long size);
unsigned long LWcsLCpy(wchar_t* out, const wchar_t* text, unsigned long size);

// ---- Changing in place

/// Lower or upper case of the letters A to Z, as the C locale has it, whatever the user's locale: the other bytes of
/// UTF-8 text stay as they are. Returns its argument.
char* strlwr(char* text);
char* strupr(char* text);

/// Replaces every `from`, which is not 0, by `to`; returns `text`.
template <typename T>
T* LStringReplaceChar(T* text, T from, T to) {
    for (T* place = text; *place != 0; ++place) {
        if (*place == from) *place = to;
    }
    return text;
}

/// Ends `text` at its first tab. Returns where the tab was, null if there was none.
char* LStripFromFirstTabToEnd(char* text);

/// Removes the first occurrence of "name=" in `query`, with what follows it up to the next '&' or the end, and with a
/// '&' right before it: "a=1&b=2&c=3" loses "b" as "a=1&c=3", and "a" as "&b=2&c=3". A name above 260 characters is
/// searched without the "=" and by its first 261.
void LRemoveHTTPItem(const char* name, char* query);

// ---- Menu texts

/// Drops each single '&' and makes "&&" one '&'. A null `text` gives an empty `out`.
void LStripAmpersand(char* out, const char* text);

/// Leaves out every "(&" with all that follows up to the next ')', or to the end when there is none. A null `text`
/// gives an empty `out`.
void LStripJPStyleAmpersand(char* out, const char* text);

/// `LStripAmpersand`, then ends `out` at its first tab; returns as `LStripFromFirstTabToEnd`.
char* LPrepareForMenuItem(char* out, const char* text);

/// `LStripAmpersand`.
void LPrepareForDisplay(char* out, const char* text);

// ---- Random letters (of the C library's generator: not for secrets)

/// Seeds the C library's generator, which the whole process shares, from the time of day.
void randomize();

/// `randomize`, then `count` letters a to z and a terminator; `out` has `count` + 1 characters. Returns `count`.
unsigned long LStringGenerateRandomPassword(char* out, unsigned long count);
