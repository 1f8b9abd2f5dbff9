// SSE 4.1, which processors have had since 2008; without it nothing is taken in blocks, and where there is AVX-512 its
// decoder goes first. Which of them it is shows at run time.
//
// Decoding follows "Validating UTF-8 In Less Than One Instruction Per Byte" (Keiser, Lemire, 2020) for the checks and
// "Transcoding Unicode Characters with AVX2" (Lemire, Muła, 2022) for the spreading of sequences over lanes. Every
// block begins with a sequence, so nothing is carried from one to the next. Runs of one- and two-byte sequences, which
// most alphabets write, need neither: there each byte becomes a lane, and the lanes of first bytes are left out.
#include <immintrin.h>

#include "base/LCharsetsBlocks.h"
#include "base/LCharsetsBlocksAvx512.h"
#include "base/LCharsetsProcessor.h"
#include "base/LCharsetsWindow.h"

#define LCHARSETS_VECTOR __attribute__((target("sse4.1,popcnt")))

namespace LCharsetsDetail {
namespace {

constexpr size_t vectorBytes = 16;
constexpr size_t blockVectors = 4;
constexpr size_t blockBytes = blockVectors * vectorBytes;

constexpr WindowTables tables = makeWindowTables();
constexpr GatherTables gathers = makeGatherTables();

LCHARSETS_VECTOR inline __m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

LCHARSETS_VECTOR inline void store(void* to, __m128i lanes) {
    _mm_storeu_si128(static_cast<__m128i*>(to), lanes);
}

/// The top bit of each byte.
LCHARSETS_VECTOR inline uint64_t topBits(__m128i bytes) {
    return static_cast<uint16_t>(_mm_movemask_epi8(bytes));
}

LCHARSETS_VECTOR inline __m128i isTrailing(__m128i bytes) {
    return _mm_cmplt_epi8(bytes, _mm_set1_epi8(static_cast<char>(0xC0)));
}

LCHARSETS_VECTOR inline __m128i isAtLeast(__m128i bytes, uint8_t least) {
    return _mm_cmpeq_epi8(_mm_max_epu8(bytes, _mm_set1_epi8(static_cast<char>(least))), bytes);
}

// ---- Well-formedness

// What can be wrong with a byte and the one before it. The three tables each tell, by one half byte, what is not
// excluded; what all three leave is wrong.
enum : uint8_t {
    tooShort = 1 << 0,      // A first byte where a trailing one is due
    tooLong = 1 << 1,       // A trailing byte behind ASCII
    overlong3 = 1 << 2,     // 0xE0 and less than 0xA0
    tooLarge = 1 << 3,      // 0xF4 and 0x90 or more, or above 0xF4
    surrogate = 1 << 4,     // 0xED and 0xA0 or more
    overlong2 = 1 << 5,     // 0xC0 or 0xC1
    overlong4 = 1 << 6,     // 0xF0 and less than 0x90
    tooLarge1000 = 1 << 6,  // Above 0xF4 and less than 0x90
    twoTrailing = 1 << 7,   // Right only in third or fourth place
    carry = tooShort | tooLong | twoTrailing,
};

constexpr uint8_t large = carry | tooLarge | tooLarge1000;
constexpr uint8_t trailingSecond = tooLong | overlong2 | twoTrailing;

// clang-format off
constexpr uint8_t firstHigh[16] = {
    tooLong, tooLong, tooLong, tooLong, tooLong, tooLong, tooLong, tooLong,
    twoTrailing, twoTrailing, twoTrailing, twoTrailing,
    tooShort | overlong2, tooShort, tooShort | overlong3 | surrogate, tooShort | tooLarge | tooLarge1000 | overlong4};
constexpr uint8_t firstLow[16] = {
    carry | overlong2 | overlong3 | overlong4, carry | overlong2, carry, carry, carry | tooLarge, large, large, large,
    large, large, large, large, large, large | surrogate, large, large};
constexpr uint8_t secondHigh[16] = {
    tooShort, tooShort, tooShort, tooShort, tooShort, tooShort, tooShort, tooShort,
    trailingSecond | overlong3 | tooLarge1000 | overlong4, trailingSecond | overlong3 | tooLarge,
    trailingSecond | surrogate | tooLarge, trailingSecond | surrogate | tooLarge,
    tooShort, tooShort, tooShort, tooShort};
// clang-format on

LCHARSETS_VECTOR inline __m128i lookUp(const uint8_t (&table)[16], __m128i halfBytes) {
    return _mm_shuffle_epi8(load(table), _mm_and_si128(halfBytes, _mm_set1_epi8(0x0F)));
}

/// Not zero somewhere when `bytes`, with `before` before them, are ill-formed as far as they go. Without `upTo4` none
/// of them is 0xF0 or more.
template <bool upTo4>
LCHARSETS_VECTOR inline __m128i faults(__m128i bytes, __m128i before) {
    const __m128i previous1 = _mm_alignr_epi8(bytes, before, 15);
    const __m128i previous2 = _mm_alignr_epi8(bytes, before, 14);
    const __m128i pair =
        _mm_and_si128(_mm_and_si128(lookUp(firstHigh, _mm_srli_epi16(previous1, 4)), lookUp(firstLow, previous1)),
                      lookUp(secondHigh, _mm_srli_epi16(bytes, 4)));
    // In third place of three or four, and in fourth place, a second trailing byte in a row must stand.
    __m128i due = _mm_subs_epu8(previous2, _mm_set1_epi8(0xE0 - 0x80));
    if constexpr (upTo4) {
        const __m128i previous3 = _mm_alignr_epi8(bytes, before, 13);
        due = _mm_or_si128(due, _mm_subs_epu8(previous3, _mm_set1_epi8(0xF0 - 0x80)));
    }
    return _mm_xor_si128(_mm_and_si128(due, _mm_set1_epi8(static_cast<char>(0x80))), pair);
}

/// Whether a block, which begins with a sequence, is well formed as far as it goes.
template <bool upTo4, size_t vectors>
LCHARSETS_VECTOR inline bool isWellFormed(const __m128i (&bytes)[vectors]) {
    __m128i fault = faults<upTo4>(bytes[0], _mm_setzero_si128());
    for (size_t i = 1; i < vectors; ++i) fault = _mm_or_si128(fault, faults<upTo4>(bytes[i], bytes[i - 1]));
    return _mm_testz_si128(fault, fault) != 0;
}

// ---- Decoding

/// Eight lanes of 16 bits.
LCHARSETS_VECTOR inline void put8(unsigned short* out, __m128i lanes) {
    store(out, lanes);
}

LCHARSETS_VECTOR inline void put8(wchar_t* out, __m128i lanes) {
    store(out, _mm_cvtepu16_epi32(lanes));
    store(out + 4, _mm_unpackhi_epi16(lanes, _mm_setzero_si128()));
}

/// Sixteen bytes of ASCII.
template <typename TOut>
LCHARSETS_VECTOR inline void put16(TOut* out, __m128i bytes) {
    put8(out, _mm_cvtepu8_epi16(bytes));
    put8(out + 8, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
}

/// Four lanes of 32 bits, none above 0xFFFF.
LCHARSETS_VECTOR inline void put4(unsigned short* out, __m128i lanes) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi32(lanes, lanes));
}

LCHARSETS_VECTOR inline void put4(wchar_t* out, __m128i lanes) {
    store(out, lanes);
}

/// Four lanes of 32 bits, cut to the size of the output's.
LCHARSETS_VECTOR inline void put4Cut(unsigned short* out, __m128i lanes) {
    put4(out, _mm_and_si128(lanes, _mm_set1_epi32(0xFFFF)));
}

LCHARSETS_VECTOR inline void put4Cut(wchar_t* out, __m128i lanes) {
    store(out, lanes);
}

/// Sequences of one and two bytes, one in each lane of 16 bits.
LCHARSETS_VECTOR inline __m128i joinUpTo2(__m128i lanes) {
    return _mm_maddubs_epi16(_mm_and_si128(lanes, _mm_set1_epi16(0x1F7F)), _mm_set1_epi16(0x4001));
}

/// Sequences of up to three bytes, one in each lane of 32 bits: the last two are added up, then the first to them.
LCHARSETS_VECTOR inline __m128i joinUpTo3(__m128i lanes) {
    const __m128i payload = _mm_and_si128(lanes, _mm_set1_epi32(0x0F3F7F));
    const __m128i halves = _mm_maddubs_epi16(payload, _mm_set1_epi32(0x014001));
    return _mm_madd_epi16(halves, _mm_set1_epi32(0x10000001));
}

/// Sequences of up to four bytes. The first byte of three, 0b1110xxxx, stands where four have a trailing one,
/// 0b10xxxxxx: told by its bit 6, it has a bit 5 too much.
LCHARSETS_VECTOR inline __m128i joinUpTo4(__m128i lanes) {
    const __m128i last = _mm_and_si128(lanes, _mm_set1_epi32(0x7F));
    const __m128i third = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x3F00)), 2);
    const __m128i excess = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x400000)), 1);
    const __m128i second = _mm_xor_si128(_mm_and_si128(lanes, _mm_set1_epi32(0x3F0000)), excess);
    const __m128i first = _mm_srli_epi32(_mm_and_si128(lanes, _mm_set1_epi32(0x07000000)), 6);
    return _mm_or_si128(_mm_or_si128(last, third), _mm_or_si128(_mm_srli_epi32(second, 4), first));
}

/// Decodes the first few sequences of 16 bytes; bit i of `ends` says that byte i ends one. Returns the bytes taken.
template <typename TOut>
LCHARSETS_VECTOR inline size_t decodeWindow(const uint8_t* in, TOut*& out, uint64_t ends) {
    const __m128i bytes = load(in);
    if ((ends & 0xFFFF) == 0xFFFF) {
        put16(out, bytes);
        out += 16;
        return 16;
    }
    if ((ends & 0xFFF) == 0x924) {  // Three bytes each
        const __m128i order = _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1);
        put4(out, joinUpTo3(_mm_shuffle_epi8(bytes, order)));
        out += 4;
        return 12;
    }
    const Window window = tables.windows[ends & 0xFFF];
    const __m128i lanes = _mm_shuffle_epi8(bytes, load(tables.shuffles[window.pattern]));
    if (window.pattern < sixPatterns) {
        put8(out, joinUpTo2(lanes));
        out += 6;
    } else if (window.pattern < sixPatterns + fourPatterns) {
        put4(out, joinUpTo3(lanes));
        out += 4;
    } else {
        put4Cut(out, joinUpTo4(lanes));
        out += 3;
    }
    return window.bytes;
}

/// Decodes from a block as many sequences as end in it for certain; false when the block is ill-formed.
template <size_t vectors, typename TOut>
LCHARSETS_VECTOR inline bool decodeBlock(Place<uint8_t, TOut>& place) {
    __m128i bytes[vectors];
    __m128i highest = _mm_setzero_si128();
    for (size_t i = 0; i < vectors; ++i) highest = _mm_max_epu8(highest, bytes[i] = load(place.in + i * vectorBytes));
    if (topBits(highest) == 0) {
        for (size_t i = 0; i < vectors; ++i) put16(place.out + i * vectorBytes, bytes[i]);
        place.in += vectors * vectorBytes;
        place.out += vectors * vectorBytes;
        return true;
    }
    const bool upTo4 = topBits(isAtLeast(highest, 0xF0)) != 0;
    if (!(upTo4 ? isWellFormed<true>(bytes) : isWellFormed<false>(bytes))) return false;
    uint64_t trailing = 0;
    for (size_t i = 0; i < vectors; ++i) trailing |= topBits(isTrailing(bytes[i])) << (i * vectorBytes);
    constexpr uint64_t all = ~uint64_t{0} >> (blockBytes - vectors * vectorBytes);
    const uint64_t ends = (~trailing & all) >> 1;  // Of the last byte it is not known
    size_t at = 0;
    do {
        at += decodeWindow(place.in + at, place.out, ends >> at);
    } while (at <= (vectors - 1) * vectorBytes);
    place.in += at;
    return true;
}

/// Decodes sequences of one and two bytes from the first `count` of `bytes`, 8 or 16, which `place` begins with. False,
/// with the place unchanged, when there is anything else among them. What is right here is told by the masks alone.
template <unsigned count, typename TOut>
LCHARSETS_VECTOR inline bool decodeUpTo2(Place<uint8_t, TOut>& place, __m128i bytes) {
    constexpr uint64_t all = (uint64_t{1} << count) - 1;
    const __m128i isTrail = isTrailing(bytes);
    const uint64_t high = topBits(bytes);
    const uint64_t trailing = topBits(isTrail);
    const uint64_t first = topBits(isAtLeast(bytes, 0xC2));
    const uint64_t longer = topBits(isAtLeast(bytes, 0xE0));
    if (longer != 0 || (first | trailing) != high || trailing != ((first << 1) & all)) return false;

    const __m128i before = _mm_slli_si128(bytes, 1);
    const __m128i upper = _mm_and_si128(_mm_slli_epi16(before, 6), _mm_set1_epi8(static_cast<char>(0xC0)));
    const __m128i joined = _mm_or_si128(upper, _mm_and_si128(bytes, _mm_set1_epi8(0x3F)));
    const __m128i low = _mm_blendv_epi8(bytes, joined, isTrail);
    const __m128i top = _mm_and_si128(_mm_and_si128(_mm_srli_epi16(before, 2), _mm_set1_epi8(0x07)), isTrail);
    const size_t left = static_cast<size_t>(first & 0xFF);  // The first bytes are left out, the others follow up
    put8(place.out, _mm_shuffle_epi8(_mm_unpacklo_epi8(low, top), load(gathers.rows[left])));
    place.out += 8 - gathers.omitted[left];
    if constexpr (count == vectorBytes) {
        const size_t right = static_cast<size_t>(first >> 8);
        put8(place.out, _mm_shuffle_epi8(_mm_unpackhi_epi8(low, top), load(gathers.rows[right])));
        place.out += 8 - gathers.omitted[right];
    }
    place.in += count - (first >> (count - 1));  // One whose trailing byte comes later is left for the next step
    return true;
}

/// As many vectors as are well formed and have no longer sequences, until one is plain ASCII; false when none was.
template <typename TOut>
LCHARSETS_VECTOR inline bool decodeRunUpTo2(Place<uint8_t, TOut>& place, const uint8_t* end) {
    const uint8_t* const start = place.in;
    while (static_cast<size_t>(end - place.in) >= vectorBytes) {
        const __m128i bytes = load(place.in);
        if (topBits(bytes) == 0) {
            put16(place.out, bytes);
            place.in += vectorBytes;
            place.out += vectorBytes;
            return true;
        }
        if (!decodeUpTo2<vectorBytes>(place, bytes)) break;
    }
    return place.in != start;
}

/// Blocks of nothing but ASCII.
template <typename TOut>
LCHARSETS_VECTOR inline void decodeAsciiBlocks(Place<uint8_t, TOut>& place, const uint8_t* end) {
    while (static_cast<size_t>(end - place.in) >= blockBytes) {
        __m128i bytes[blockVectors];
        __m128i any = _mm_setzero_si128();
        for (size_t i = 0; i < blockVectors; ++i) any = _mm_or_si128(any, bytes[i] = load(place.in + i * vectorBytes));
        if (topBits(any) != 0) return;
        for (size_t i = 0; i < blockVectors; ++i) put16(place.out + i * vectorBytes, bytes[i]);
        place.in += blockBytes;
        place.out += blockBytes;
    }
}

template <typename TOut>
LCHARSETS_VECTOR __attribute__((noinline)) Place<uint8_t, TOut> decodeAny(Place<uint8_t, TOut> place,
                                                                          const uint8_t* end) {
    while (static_cast<size_t>(end - place.in) >= vectorBytes) {
        decodeAsciiBlocks(place, end);
        if (decodeRunUpTo2(place, end)) continue;
        if (static_cast<size_t>(end - place.in) < vectorBytes) break;
        do {  // Where one longer sequence stands, more are to be expected
            const bool whole = static_cast<size_t>(end - place.in) >= blockBytes;
            if (!(whole ? decodeBlock<blockVectors>(place) : decodeBlock<1>(place))) return place;
        } while (static_cast<size_t>(end - place.in) >= vectorBytes && *place.in >= 0xE0);
    }
    if (static_cast<size_t>(end - place.in) >= vectorBytes / 2) {
        decodeUpTo2<vectorBytes / 2>(place, _mm_loadl_epi64(reinterpret_cast<const __m128i*>(place.in)));
    }
    return place;
}

/// Names and paths are short and mostly ASCII: those of 16 to 64 bytes go without the rest's preparations. Two vectors
/// begin with the text and two end with it; what they share comes to the same place more than once.
template <typename TOut>
LCHARSETS_VECTOR Place<uint8_t, TOut> decodeVectors(Place<uint8_t, TOut> place, const uint8_t* end) {
    const size_t count = static_cast<size_t>(end - place.in);
    if (count < vectorBytes || count > blockBytes) return decodeAny(place, end);
    const size_t second = count > 2 * vectorBytes ? vectorBytes : 0;
    const size_t last = count - vectorBytes;
    const __m128i a = load(place.in);
    const __m128i b = load(place.in + second);
    const __m128i c = load(place.in + last - second);
    const __m128i d = load(place.in + last);
    if (topBits(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) != 0) return decodeAny(place, end);
    put16(place.out, a);
    put16(place.out + second, b);
    put16(place.out + last - second, c);
    put16(place.out + last, d);
    return {end, place.out + count};
}

// ---- Encoding

/// Sixteen values as bytes; false when one is not ASCII.
LCHARSETS_VECTOR inline bool packAscii(const unsigned short* in, char* out) {
    const __m128i first = load(in);
    const __m128i second = load(in + 8);
    if (!_mm_testz_si128(_mm_or_si128(first, second), _mm_set1_epi16(static_cast<short>(0xFF80)))) return false;
    store(out, _mm_packus_epi16(first, second));
    return true;
}

LCHARSETS_VECTOR inline bool packAscii(const wchar_t* in, char* out) {
    const __m128i a = load(in);
    const __m128i b = load(in + 4);
    const __m128i c = load(in + 8);
    const __m128i d = load(in + 12);
    const __m128i any = _mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d));
    if (!_mm_testz_si128(any, _mm_set1_epi32(~0x7F))) return false;
    store(out, _mm_packus_epi16(_mm_packus_epi32(a, b), _mm_packus_epi32(c, d)));
    return true;
}

template <typename TIn>
LCHARSETS_VECTOR Place<TIn, char> encodeVectors(Place<TIn, char> place, size_t count) {
    for (; count >= vectorBytes && packAscii(place.in, place.out); count -= vectorBytes) {
        place.in += vectorBytes;
        place.out += vectorBytes;
    }
    return place;
}

// ---- Measuring

/// Adds to `measure` the characters that end in the block behind it; false when it holds something out of order.
template <size_t vectors>
LCHARSETS_VECTOR inline bool measureBlock(const uint8_t* text, Measure& measure) {
    constexpr unsigned size = vectors * vectorBytes;
    constexpr uint64_t all = ~uint64_t{0} >> (blockBytes - size);
    uint64_t trailing = 0, atLeast2 = 0, atLeast3 = 0, atLeast4 = 0, atLeast5 = 0;
    for (size_t i = 0; i < vectors; ++i) {
        const __m128i bytes = load(text + measure.bytes + i * vectorBytes);
        trailing |= topBits(isTrailing(bytes)) << (i * vectorBytes);
        atLeast2 |= topBits(isAtLeast(bytes, 0xC0)) << (i * vectorBytes);
        atLeast3 |= topBits(isAtLeast(bytes, 0xE0)) << (i * vectorBytes);
        atLeast4 |= topBits(isAtLeast(bytes, 0xF0)) << (i * vectorBytes);
        atLeast5 |= topBits(isAtLeast(bytes, 0xF8)) << (i * vectorBytes);
    }
    if (atLeast5 != 0 || trailing != ((atLeast2 << 1 | atLeast3 << 2 | atLeast4 << 3) & all)) return false;
    const uint64_t first = ~trailing & all;
    const size_t characters = static_cast<size_t>(__builtin_popcountll(first));
    // The last sequence may go on behind the block: it is left for the next, which begins with it.
    const bool whole = ((atLeast2 >> (size - 1)) | (atLeast3 >> (size - 2)) | (atLeast4 >> (size - 3))) == 0;
    measure.bytes += whole ? size : 63u - static_cast<unsigned>(__builtin_clzll(first));
    measure.characters += whole ? characters : characters - 1;
    return true;
}

LCHARSETS_VECTOR Measure measureVectors(const uint8_t* text, size_t count, size_t most) {
    Measure measure{0, 0};
    while (count - measure.bytes >= blockBytes && most - measure.characters >= blockBytes) {
        if (!measureBlock<blockVectors>(text, measure)) return measure;
    }
    while (count - measure.bytes >= vectorBytes && most - measure.characters >= vectorBytes) {
        if (!measureBlock<1>(text, measure)) return measure;
    }
    return measure;
}

}  // namespace

DecodePlace32 decodeBlocks(DecodePlace32 place, const uint8_t* end) {
    if (hasAvx512) [[likely]]
        return decodeAvx512(place, end);
    return hasSse41 ? decodeVectors(place, end) : place;
}
DecodePlace16 decodeBlocks(DecodePlace16 place, const uint8_t* end) {
    if (hasAvx512) [[likely]]
        return decodeAvx512(place, end);
    return hasSse41 ? decodeVectors(place, end) : place;
}
EncodePlace32 encodeBlocks(EncodePlace32 place, size_t count) {
    return hasSse41 ? encodeVectors(place, count) : place;
}
EncodePlace16 encodeBlocks(EncodePlace16 place, size_t count) {
    return hasSse41 ? encodeVectors(place, count) : place;
}

Measure measureBlocks(const uint8_t* text, size_t count, size_t most) {
    return hasSse41 ? measureVectors(text, count, most) : Measure{0, 0};
}

}  // namespace LCharsetsDetail
