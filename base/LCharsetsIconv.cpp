#include <iconv.h>

#include <cstring>

#include "base/LCharsets.h"
#include "base/LCharsetsRoom.h"
#include "base/LStringUtil.h"

using namespace LCharsetsDetail;

template <typename TOut, typename TIn>
void LCopyIconvFixedLength(TOut* out, const TIn* in, unsigned long size, const char* to, const char* from) {
    static_assert(sizeof(TOut) == 1 && sizeof(TIn) == 1);
    if (size == 0) return;
    out[0] = 0;
    const iconv_t conversion = iconv_open(to, from);
    if (conversion == reinterpret_cast<iconv_t>(-1)) return;
    // The terminator's place is kept back, so that a full output is terminated too. iconv does not change its input.
    TIn* text = const_cast<TIn*>(in);
    size_t textLeft = std::strlen(in);
    size_t outLeft = size - 1;
    (void)iconv(conversion, &text, &textLeft, &out, &outLeft);  // However it ends, what was converted stands in out
    *out = 0;
    iconv_close(conversion);
}

template <typename TOut, typename TIn>
void LCopyIconvFixedLength(TOut* out, const TIn* in, const char* to, const char* from) {
    LCopyIconvFixedLength(out, in, std::strlen(in) + 1, to, from);
}

template void LCopyIconvFixedLength<char, char>(char*, const char*, const char*, const char*);
template void LCopyIconvFixedLength<char, char>(char*, const char*, unsigned long, const char*, const char*);

namespace {

constexpr char utf8[] = "UTF-8";
constexpr char latin1[] = "ISO-8859-1";
constexpr char cyrillic[] = "ISO-8859-5";

using FixedCopy = void (*)(char*, const char*, unsigned long);

/// A long form by its fixed one. From a code page a byte may become as many as UTF-8 ever takes.
void copyLong(LStringLongTemplate<char>& out, const char* in, FixedCopy copy, unsigned long each) {
    copy(out.buffer, in, roomFor(out, std::strlen(in), each));
    takeLength(out);
}

}  // namespace

void LCopyFromISO88591(char* out, const char* in, unsigned long size) {
    LCopyIconvFixedLength(out, in, size, utf8, latin1);
}
void LCopyToISO88591(char* out, const char* in, unsigned long size) {
    LCopyIconvFixedLength(out, in, size, latin1, utf8);
}
void LCopyFromWIN1252(char* out, const char* in, unsigned long size) {
    LCopyIconvFixedLength(out, in, size, utf8, latin1);
}
void LCopyToWIN1252(char* out, const char* in, unsigned long size) {
    LCopyIconvFixedLength(out, in, size, latin1, utf8);
}
void LCopyFromISO88595(char* out, const char* in, unsigned long size) {
    LCopyIconvFixedLength(out, in, size, utf8, cyrillic);
}
void LCopyToISO88595(char* out, const char* in, unsigned long size) {
    LCopyIconvFixedLength(out, in, size, cyrillic, utf8);
}
void LCopyFromSHIFTJIS932(char* out, const char* in, unsigned long size) {
    LStrLCpy(out, in, size);
}
void LCopyToSHIFTJIS932(char* out, const char* in, unsigned long size) {
    LStrLCpy(out, in, size);
}
void LCopyFromEUCKR(char* out, const char* in, unsigned long size) {
    LStrLCpy(out, in, size);
}
void LCopyToEUCKR(char* out, const char* in, unsigned long size) {
    LStrLCpy(out, in, size);
}

void LCopyFromISO88591(char* out, const char* in) {
    LCopyIconvFixedLength(out, in, utf8, latin1);
}
void LCopyToISO88591(char* out, const char* in) {
    LCopyIconvFixedLength(out, in, latin1, utf8);
}

void LCopyFromISO88591(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyFromISO88591, longestUtf8);
}
void LCopyToISO88591(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyToISO88591, 1);
}
void LCopyFromWIN1252(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyFromWIN1252, longestUtf8);
}
void LCopyToWIN1252(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyToWIN1252, 1);
}
void LCopyFromISO88595(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyFromISO88595, longestUtf8);
}
void LCopyToISO88595(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyToISO88595, 1);
}
void LCopyFromSHIFTJIS932(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyFromSHIFTJIS932, longestUtf8);
}
void LCopyToSHIFTJIS932(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyToSHIFTJIS932, 1);
}
void LCopyFromEUCKR(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyFromEUCKR, longestUtf8);
}
void LCopyToEUCKR(LStringLongTemplate<char>& out, const char* in) {
    copyLong(out, in, LCopyToEUCKR, 1);
}

void LCopyFromISO88591(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyFromISO88591(out, textOf(in));
}
void LCopyToISO88591(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyToISO88591(out, textOf(in));
}
void LCopyFromWIN1252(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyFromWIN1252(out, textOf(in));
}
void LCopyToWIN1252(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyToWIN1252(out, textOf(in));
}
void LCopyFromISO88595(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyFromISO88595(out, textOf(in));
}
void LCopyToISO88595(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyToISO88595(out, textOf(in));
}
void LCopyFromSHIFTJIS932(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyFromSHIFTJIS932(out, textOf(in));
}
void LCopyToSHIFTJIS932(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyToSHIFTJIS932(out, textOf(in));
}
void LCopyFromEUCKR(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyFromEUCKR(out, textOf(in));
}
void LCopyToEUCKR(LStringLongTemplate<char>& out, const LStringLongTemplate<char>& in) {
    LCopyToEUCKR(out, textOf(in));
}
