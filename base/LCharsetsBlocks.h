// The fast roads of LCharsets: many characters in one step, where the text is plain enough. None of them decides
// anything: each takes whole, well-formed characters as far as it likes and leaves the rest, which may be all, to the
// character-by-character code. LCharsetsBlocksPlain.cpp has them for any machine, LCharsetsBlocksX86.cpp with vectors
// chosen at run time; the build takes one of the two.
#pragma once

#include <cstddef>
#include <cstdint>

namespace LCharsetsDetail {

/// A place in an input and the one in its output.
template <typename TIn, typename TOut>
struct Place {
    const TIn* in;
    TOut* out;
};

using DecodePlace32 = Place<uint8_t, wchar_t>;
using DecodePlace16 = Place<uint8_t, unsigned short>;

/// Decodes from `place` on, reading only before `end` and writing at most as many characters as it has bytes to read
/// there (more than it reports: what lies behind the returned place may have been written to). Stops at a sequence's
/// beginning, before an ill-formed one at the latest.
DecodePlace32 decodeBlocks(DecodePlace32 place, const uint8_t* end);
DecodePlace16 decodeBlocks(DecodePlace16 place, const uint8_t* end);

using EncodePlace32 = Place<wchar_t, char>;
using EncodePlace16 = Place<unsigned short, char>;

/// Encodes ASCII from `place` on: of at most `count` values, as many blocks as hold nothing else.
EncodePlace32 encodeBlocks(EncodePlace32 place, size_t count);
EncodePlace16 encodeBlocks(EncodePlace16 place, size_t count);

struct Measure {
    size_t bytes;
    size_t characters;
};

/// Counts characters of up to four bytes that have all their trailing bytes among the `count` bytes, at most `most`.
Measure measureBlocks(const uint8_t* text, size_t count, size_t most);

}  // namespace LCharsetsDetail
