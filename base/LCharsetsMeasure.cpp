#include <cstring>
#include <limits>

#include "base/LCharsets.h"
#include "base/LCharsetsBlocks.h"
#include "base/LCharsetsSequence.h"

using namespace LCharsetsDetail;

namespace {

constexpr size_t unlimited = std::numeric_limits<size_t>::max();

/// How many sequences go one by one before the next try in blocks.
constexpr int sequencesBetweenBlocks = 32;

/// Walks whole sequences of a text of `count` bytes while they, at the length that their first byte says, end at `room`
/// at the latest, at most `most`. The last may reach beyond `count`.
Measure walk(const char* in, size_t count, size_t room, size_t most) {
    const uint8_t* const text = reinterpret_cast<const uint8_t*>(in);
    const size_t inside = count < room ? count : room;
    Measure walked{0, 0};
    while (walked.bytes < inside && walked.characters < most) {
        const Measure plain = measureBlocks(text + walked.bytes, inside - walked.bytes, most - walked.characters);
        walked.bytes += plain.bytes;
        walked.characters += plain.characters;
        for (int i = 0; i < sequencesBetweenBlocks && walked.bytes < inside && walked.characters < most; ++i) {
            const size_t length = sequenceLength(text[walked.bytes]);
            if (length > room - walked.bytes) return walked;
            walked.bytes += length;
            ++walked.characters;
        }
    }
    return walked;
}

}  // namespace

unsigned long utf8strlcpy(char* out, const char* in, unsigned long size) {
    if (size == 0) return 0;
    const size_t count = strnlen(in, size);
    const size_t whole = walk(in, count, size - 1, unlimited).bytes;
    const size_t copied = whole < count ? whole : count;
    std::memcpy(out, in, copied);
    out[copied] = '\0';
    return copied;
}

unsigned long utf8strlen(const char* text) {
    return walk(text, std::strlen(text), unlimited, unlimited).characters;
}

unsigned long LCharsetsUTF8CharIndexToByteIndex(const char* text, unsigned long charIndex) {
    const size_t longest = 6;
    const size_t count = strnlen(text, charIndex < unlimited / longest ? charIndex * longest : unlimited);
    const size_t bytes = walk(text, count, unlimited, charIndex).bytes;
    return bytes < count ? bytes : count;
}

unsigned long LCharsetsUTF8ByteIndexToCharIndex(const char* text, unsigned long byteIndex) {
    return walk(text, strnlen(text, byteIndex), unlimited, unlimited).characters;
}
