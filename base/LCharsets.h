// LCharsets: text between the encodings of this library, and UTF-8 measured and cut by whole characters.
//
// UTF-8 is text in `char`; UTF-16 in host byte order, "Unicode" in the names, in `unsigned short`; UTF-32, "Native" in
// the names, in `wchar_t`; "Ansi" is one byte a character. UTF-16 goes unit for unit: surrogate pairs are neither
// formed nor joined, a character above U+FFFF keeps its low 16 bits.
//
// `size` is that of the output in its own units (bytes, units, characters), the terminator's included. Every output is
// terminated; with size 0 nothing is written at all. Inputs end at their terminator and nothing behind it is read,
// however the text is formed; of an output, what lies behind its terminator but inside `size` is unspecified. An output
// never shares its buffer with the input, and arguments are never null.
//
// The length of a UTF-8 sequence is told by its first byte: below 0xC0 one byte, below 0xE0 two, 0xF0 three, 0xF8 four,
// 0xFC five, above six.
//
// Any number of threads may call these functions. Running out of memory throws std::bad_alloc before anything is
// written; a long string that would need more than 2^32 - 1 characters is out of memory.
#pragma once

#include "base/LString.h"

static_assert(sizeof(wchar_t) == 4 && sizeof(unsigned short) == 2);

/// What the core conversions return.
enum LCharsetsResult : unsigned long {
    kLCharsetsWhole = 0,      ///< The whole input was converted.
    kLCharsetsCut = 1,        ///< The limit ended the conversion; also the result whenever size is 0.
    kLCharsetsIllFormed = 2,  ///< An ill-formed sequence ended it, or the encoder replaced a value above U+10FFFF.
};

// ---- UTF-8 and UTF-32

/// Decodes. `limit` bounds the input: it ends the conversion before the sequence whose last byte would be number
/// `limit` or later, a bound that `limit` characters of output always satisfy. Ill-formed are stray and missing
/// continuation bytes, overlong forms, surrogates, values above U+10FFFF and sequences of five and six bytes.
unsigned long LCopyUTF32FromUTF8Native(wchar_t* out, const char* in, unsigned long limit);
unsigned long LCopyUTF32FromUTF8(wchar_t* out, const char* in, unsigned long limit);

/// Encodes, ending before the character that does not fit. Surrogates become three bytes like any other value; a value
/// above U+10FFFF becomes U+FFFD and the conversion goes on.
unsigned long LCopyUTF8FromUTF32Native(char* out, const wchar_t* in, unsigned long size);
unsigned long LCopyUTF8FromUTF32(char* out, const wchar_t* in, unsigned long size);

// ---- UTF-8 and UTF-16. The forms without a size take 260. Results as above.

/// The decoder with limit `size`, each value cut to 16 bits.
unsigned long LCopyUnicodeFromUTF8(unsigned short* out, const char* in, unsigned long size);
unsigned long LCopyUnicodeFromUTF8(unsigned short* out, const char* in);
/// The encoder, each unit a value.
unsigned long LCopyUTF8FromUnicode(char* out, const unsigned short* in, unsigned long size);
unsigned long LCopyUTF8FromUnicode(char* out, const unsigned short* in);

// ---- UTF-16 and UTF-32: at most size - 1 characters; both return `out`

unsigned short* LCopyUnicodeFromUTF32(unsigned short* out, const wchar_t* in, unsigned long size);
wchar_t* LCopyUTF32FromUnicode(wchar_t* out, const unsigned short* in, unsigned long size);

/// A field of `count` big-endian units, filled up with spaces; returns `count`. With `terminate` the text is followed
/// by a zero unit instead (`out` then has count + 1 units), and the number of units before it is returned.
unsigned long LCopyToBigEndianUnicode(unsigned short* out, const unsigned short* in, unsigned long count,
                                      bool terminate);

// ---- Long strings: room for the worst case is reserved at once, the length is set and returned

unsigned long LCopyUnicodeFromUTF8(LStringLongTemplate<unsigned short>& out, const LStringLongTemplate<char>& in);
unsigned long LCopyUTF8FromUnicode(LStringLongTemplate<char>& out, const LStringLongTemplate<unsigned short>& in);
unsigned long LCopyFromUnicode(LStringLongTemplate<char>& out, const unsigned short* in);

// ---- Ansi. To Ansi is to ISO Latin 1, from Ansi is from Windows Latin 1. A text that the target cannot hold, or with
// a byte that is no character, gives "".

unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& out, const unsigned short* in);
unsigned long LCopyAnsiFromUnicode(LStringLongTemplate<char>& out, const LStringLongTemplate<unsigned short>& in);
/// Always the whole text.
unsigned long LCopyUnicodeFromAnsi(LStringLongTemplate<unsigned short>& out, const LStringLongTemplate<char>& in);
/// As much of `in` as the decoder takes with limit `size`.
void LCopyAnsiFromUTF8(char* out, const char* in, unsigned long size);
/// As much of `in` as fits in `size` bytes, whole characters.
void LCopyUTF8FromAnsi(char* out, const char* in, unsigned long size);

// ---- Code pages, through iconv. "From" is to UTF-8, "To" from UTF-8. A character that the target does not have, an
// ill-formed one and the end of the room end the conversion there. The Windows 1252 copies use ISO 8859-1. The long
// forms set the length. SHIFTJIS932 and EUCKR copy the bytes as they are.

void LCopyFromISO88591(char* out, const char* in, unsigned long size);
void LCopyToISO88591(char* out, const char* in, unsigned long size);
void LCopyFromWIN1252(char* out, const char* in, unsigned long size);
void LCopyToWIN1252(char* out, const char* in, unsigned long size);
void LCopyFromISO88595(char* out, const char* in, unsigned long size);
void LCopyToISO88595(char* out, const char* in, unsigned long size);
void LCopyFromSHIFTJIS932(char* out, const char* in, unsigned long size);
void LCopyToSHIFTJIS932(char* out, const char* in, unsigned long size);
void LCopyFromEUCKR(char* out, const char* in, unsigned long size);
void LCopyToEUCKR(char* out, const char* in, unsigned long size);

/// These two take an output as large as the input, the terminator's place included.
void LCopyFromISO88591(char* out, const char* in);
void LCopyToISO88591(char* out, const char* in);

void LCopyFromISO88591(LStringLongTemplate<char>& out, const char* in);
void LCopyToISO88591(LStringLongTemplate<char>& out, const char* in);
void LCopyFromWIN1252(LStringLongTemplate<char>& out, const char* in);
void LCopyToWIN1252(LStringLongTemplate<char>& out, const char* in);
void LCopyFromISO88595(LStringLongTemplate<char>& out, const char* in);
void LCopyToISO88595(LStringLongTemplate<char>& out, const char* in);
void LCopyFromSHIFTJIS932(LStringLongTemplate<char>& out, const char* in);
void LCopyToSHIFTJIS932(LStringLongTemplate<char>& out, const char* in);
void LCopyFromEUCKR(LStringLongTemplate<char>& out, const char* in);
void LCopyToEUCKR(LStringLongTemplate<char>& out, const char* in);

void LCopyFromISO88591(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyToISO88591(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyFromWIN1252(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyToWIN1252(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyFromISO88595(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyToISO88595(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyFromSHIFTJIS932(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyToSHIFTJIS932(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyFromEUCKR(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);
void LCopyToEUCKR(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in);

/// Any two code pages that iconv knows by these names; an unknown one gives "". Without a size the output is as large
/// as the input, the terminator's place included. The output is terminated however the conversion ends. Made for
/// `char`.
template <typename TOut, typename TIn>
void LCopyIconvFixedLength(TOut* out, const TIn* in, const char* to, const char* from);
template <typename TOut, typename TIn>
void LCopyIconvFixedLength(TOut* out, const TIn* in, unsigned long size, const char* to, const char* from);

extern template void LCopyIconvFixedLength<char, char>(char*, const char*, const char*, const char*);
extern template void LCopyIconvFixedLength<char, char>(char*, const char*, unsigned long, const char*, const char*);

// ---- UTF-8 measures. The text need not be well formed: a sequence is as long as its first byte says, and one that the
// terminator cuts short is a character as long as what is left of it.

/// Copies whole sequences while they, at the length that their first byte says, and the terminator fit in `size` bytes.
/// Returns the bytes copied.
unsigned long utf8strlcpy(char* out, const char* in, unsigned long size);
/// Number of characters.
unsigned long utf8strlen(const char* text);
/// Offset of the byte with which character number `charIndex` begins, or the length of a text with fewer characters.
unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* text, unsigned long charIndex);
/// Number of characters that begin before `byteIndex`.
unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* text, unsigned long byteIndex);
