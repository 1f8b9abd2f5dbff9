#include <cstring>

#include "base/LCharsets.h"
#include "base/LCharsetsRoom.h"
#include "base/LStringUtil.h"

using namespace LCharsetsDetail;

namespace {

unsigned long encodeInto(LStringLongTemplate<char>& out, const unsigned short* in, unsigned long units) {
    const unsigned long size = roomFor(out, units, longestUtf8);
    LCopyUTF8FromUnicode(out.buffer, in, size);
    return takeLength(out);
}

}  // namespace

unsigned long LCopyUnicodeFromUTF8(LStringLongTemplate<unsigned short>& out, const LStringLongTemplate<char>& in) {
    const unsigned long size = roomFor(out, in.length, 1);
    LCopyUnicodeFromUTF8(out.buffer, textOf(in), size);
    return takeLength(out);
}

unsigned long LCopyUTF8FromUnicode(LStringLongTemplate<char>& out, const LStringLongTemplate<unsigned short>& in) {
    return encodeInto(out, textOf(in), in.length);
}

unsigned long LCopyFromUnicode(LStringLongTemplate<char>& out, const unsigned short* in) {
    return encodeInto(out, in, lstrlen(in));
}
