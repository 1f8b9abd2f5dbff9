// AVX-512 with the byte instructions of VBMI and VBMI2, which server processors have had since 2021.
//
// This follows "Transcoding Unicode Characters with AVX-512 Instructions" (Clausecker, Lemire, 2023). What the bytes of
// a block are becomes masks of 64 bits, one for each kind, and shifts of these tell whether the sequences are well
// formed. Then the places of the last bytes are pressed together, a character's in each lane, and from these places and
// the ones before them the bytes are fetched. Every block begins with a sequence, so nothing is carried from one to the
// next. A text's end is a block like any other: its bytes are read under a mask, and every output is written under one,
// which touches nothing outside.
#include "base/LCharsetsBlocksAvx512.h"

#pragma GCC diagnostic push
#ifndef __clang__  // GCC 12 warns of what its header leaves undefined on purpose
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#pragma GCC diagnostic pop

#define LCHARSETS_VECTOR __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,bmi2,popcnt")))

namespace LCharsetsDetail {
namespace {

constexpr size_t blockBytes = 64;
constexpr size_t groupLanes = 32;  // Characters in lanes of 16 bits
constexpr size_t wideLanes = 16;   // In lanes of 32

struct Places {
    alignas(blockBytes) uint8_t bytes[blockBytes];
};

constexpr Places makePlaces() {
    Places places{};
    for (size_t i = 0; i < blockBytes; ++i) places.bytes[i] = static_cast<uint8_t>(i);
    return places;
}

constexpr Places allPlaces = makePlaces();

/// The lowest `count` bits, 1 to 64.
constexpr uint64_t lowest(size_t count) {
    return ~uint64_t{0} >> (-count & 63);
}

LCHARSETS_VECTOR inline __m512i filled(uint8_t byte) {
    return _mm512_set1_epi8(static_cast<char>(byte));
}

LCHARSETS_VECTOR inline uint64_t topBits(__m512i bytes) {
    return _mm512_movepi8_mask(bytes);
}

LCHARSETS_VECTOR inline uint64_t isTrailing(__m512i bytes) {
    return _mm512_cmplt_epi8_mask(bytes, filled(0xC0));
}

LCHARSETS_VECTOR inline uint64_t isAtLeast(__m512i bytes, uint8_t least) {
    return _mm512_cmpge_epu8_mask(bytes, filled(least));
}

LCHARSETS_VECTOR inline uint64_t isEqual(__m512i bytes, uint8_t byte) {
    return _mm512_cmpeq_epi8_mask(bytes, filled(byte));
}

LCHARSETS_VECTOR inline __m256i lowHalf(__m512i lanes) {
    return _mm512_castsi512_si256(lanes);
}

LCHARSETS_VECTOR inline __m256i highHalf(__m512i lanes) {
    return _mm512_extracti64x4_epi64(lanes, 1);
}

// ---- Output: of 32 lanes of 16 bits the first `count`, or all of them when it is more

LCHARSETS_VECTOR inline uint32_t lanesKept(size_t count) {
    return _bzhi_u32(~0u, static_cast<unsigned>(count));
}

LCHARSETS_VECTOR inline void putWide(wchar_t* out, size_t count, __m512i low, __m512i high) {
    const uint32_t kept = lanesKept(count);
    _mm512_mask_storeu_epi32(out, static_cast<__mmask16>(kept), low);
    if (count > wideLanes) _mm512_mask_storeu_epi32(out + wideLanes, static_cast<__mmask16>(kept >> wideLanes), high);
}

LCHARSETS_VECTOR inline void put(wchar_t* out, size_t count, __m512i lanes) {
    putWide(out, count, _mm512_cvtepu16_epi32(lowHalf(lanes)), _mm512_cvtepu16_epi32(highHalf(lanes)));
}

LCHARSETS_VECTOR inline void put(unsigned short* out, size_t count, __m512i lanes) {
    _mm512_mask_storeu_epi16(out, lanesKept(count), lanes);
}

LCHARSETS_VECTOR inline __m512i join16(__m256i low, __m256i high) {
    return _mm512_or_si512(_mm512_cvtepu16_epi32(low), _mm512_slli_epi32(_mm512_cvtepu16_epi32(high), 16));
}

/// With the bits above the lower sixteen.
LCHARSETS_VECTOR inline void put(wchar_t* out, size_t count, __m512i lanes, __m512i upper) {
    putWide(out, count, join16(lowHalf(lanes), lowHalf(upper)), join16(highHalf(lanes), highHalf(upper)));
}

// ---- Well-formedness

/// Which bytes of a block are what, a bit for each.
struct Kinds {
    uint64_t trailing;
    uint64_t first2;  ///< The first byte of two or more
    uint64_t first3;  ///< Of three or more
    uint64_t first4;  ///< Of four, or no byte of UTF-8
};

LCHARSETS_VECTOR inline Kinds kindsOf(__m512i bytes) {
    return {isTrailing(bytes), isAtLeast(bytes, 0xC2), isAtLeast(bytes, 0xE0), isAtLeast(bytes, 0xF0)};
}

/// Whether the second bytes of sequences of three and four are those that their first bytes allow: with others they
/// would be overlong, surrogates or above U+10FFFF.
LCHARSETS_VECTOR inline bool areSecondsAllowed(__m512i bytes, const Kinds& kinds) {
    const uint64_t highest32 = isAtLeast(bytes, 0xA0);
    uint64_t wrong = (isEqual(bytes, 0xE0) << 1 & ~highest32) | (isEqual(bytes, 0xED) << 1 & highest32);
    if (kinds.first4 != 0) {
        const uint64_t highest48 = isAtLeast(bytes, 0x90);
        wrong |= (isEqual(bytes, 0xF0) << 1 & ~highest48) | (isEqual(bytes, 0xF4) << 1 & highest48);
        if (isAtLeast(bytes, 0xF5) != 0) return false;
    }
    return (wrong & kinds.trailing) == 0;
}

/// Whether a block, which begins with a sequence, is well formed as far as its bytes, `all`, go.
LCHARSETS_VECTOR inline bool isWellFormed(__m512i bytes, const Kinds& kinds, uint64_t all) {
    const uint64_t due = (kinds.first2 << 1 | kinds.first3 << 2 | kinds.first4 << 3) & all;
    if (kinds.trailing != due || (kinds.first2 | kinds.trailing) != topBits(bytes)) return false;
    return kinds.first3 == 0 || areSecondsAllowed(bytes, kinds);
}

/// How many of the `count` bytes of a well-formed block its whole sequences have: the last may go on behind it.
inline size_t wholeBytes(const Kinds& kinds, size_t count) {
    const size_t unused = blockBytes - count;
    const uint64_t goesOn =
        (kinds.first2 << unused >> 63) | (kinds.first3 << unused >> 62) | (kinds.first4 << unused >> 61);
    return goesOn == 0 ? count : 63 - static_cast<size_t>(__builtin_clzll(kinds.first2));
}

// ---- Decoding

/// The bytes that stand `before` the places, one in each lane of 16 bits.
LCHARSETS_VECTOR inline __m512i fetch(__m512i bytes, __m512i places, short before) {
    constexpr __mmask64 lowBytes = 0x5555555555555555;
    return _mm512_maskz_permutexvar_epi8(lowBytes, _mm512_sub_epi16(places, _mm512_set1_epi16(before)), bytes);
}

/// The bits above the lower sixteen, which are those of the first two bytes of four, where such a sequence ends.
LCHARSETS_VECTOR inline __m512i upperBits(__m512i bytes, __m512i places, uint64_t first4) {
    const __m512i first = _mm512_and_si512(bytes, filled(0x07));
    const __m512i second = _mm512_and_si512(bytes, filled(0x30));
    return _mm512_or_si512(_mm512_slli_epi16(fetch(_mm512_maskz_mov_epi8(first4, first), places, 3), 2),
                           _mm512_srli_epi16(fetch(_mm512_maskz_mov_epi8(first4 << 1, second), places, 2), 4));
}

/// Writes the characters whose last bytes are `ends`; what stands behind these is zero.
template <typename TOut>
LCHARSETS_VECTOR inline TOut* spread(TOut* out, __m512i bytes, const Kinds& kinds, uint64_t ends) {
    // Each kind of byte apart, so that a fetch from beyond a sequence's beginning finds zero.
    const __m512i last = _mm512_and_si512(bytes, filled(0x7F));
    const __m512i nextToLast = _mm512_maskz_mov_epi8(~ends, _mm512_and_si512(bytes, filled(0x3F)));
    const __m512i thirdToLast = _mm512_maskz_mov_epi8((kinds.first3 ^ kinds.first4) | kinds.first4 << 1, bytes);
    __m512i ordered = _mm512_maskz_compress_epi8(ends, _mm512_load_si512(allPlaces.bytes));
    for (size_t left = static_cast<size_t>(__builtin_popcountll(ends));; left -= groupLanes, out += groupLanes) {
        const __m512i places = _mm512_cvtepu8_epi16(lowHalf(ordered));
        __m512i lanes = _mm512_or_si512(fetch(last, places, 0), _mm512_slli_epi16(fetch(nextToLast, places, 1), 6));
        if (kinds.first3 != 0) {
            lanes = _mm512_or_si512(lanes, _mm512_slli_epi16(fetch(thirdToLast, places, 2), 12));
        }
        if constexpr (sizeof(TOut) > sizeof(uint16_t)) {
            if (kinds.first4 != 0) {
                put(out, left, lanes, upperBits(bytes, places, kinds.first4));
            } else {
                put(out, left, lanes);
            }
        } else {
            put(out, left, lanes);
        }
        if (left <= groupLanes) return out + left;
        ordered = _mm512_castsi256_si512(highHalf(ordered));
    }
}

/// Takes a block of `count` bytes when it is ASCII; false, with the place unchanged, when it is not.
template <typename TOut>
LCHARSETS_VECTOR inline bool decodeAscii(Place<uint8_t, TOut>& place, __m512i bytes, size_t count) {
    if (topBits(bytes) != 0) return false;
    put(place.out, count, _mm512_cvtepu8_epi16(lowHalf(bytes)));
    if (count > groupLanes) put(place.out + groupLanes, count - groupLanes, _mm512_cvtepu8_epi16(highHalf(bytes)));
    place.in += count;
    place.out += count;
    return true;
}

/// Takes the sequences that end in the next `count` bytes, 1 to 64; false, with the place unchanged, when there is none
/// or anything ill-formed.
template <typename TOut>
LCHARSETS_VECTOR inline bool decodeBlock(Place<uint8_t, TOut>& place, size_t count) {
    const uint64_t all = lowest(count);
    const __m512i bytes = _mm512_maskz_loadu_epi8(all, place.in);
    if (decodeAscii(place, bytes, count)) return true;
    const Kinds kinds = kindsOf(bytes);
    if (!isWellFormed(bytes, kinds, all)) return false;
    const size_t taken = wholeBytes(kinds, count);
    if (taken == 0) return false;
    const uint64_t whole = lowest(taken);
    const uint64_t ends = ~((kinds.trailing & whole) >> 1) & whole;  // What no trailing byte follows
    place.out = spread(place.out, _mm512_maskz_mov_epi8(whole, bytes), kinds, ends);
    place.in += taken;
    return true;
}

template <typename TOut>
LCHARSETS_VECTOR __attribute__((noinline)) Place<uint8_t, TOut> decodeAny(Place<uint8_t, TOut> place,
                                                                          const uint8_t* end) {
    while (place.in != end) {
        const size_t left = static_cast<size_t>(end - place.in);
        if (!decodeBlock(place, left < blockBytes ? left : blockBytes)) break;
    }
    return place;
}

/// Names and paths are short and mostly ASCII: they go without the rest's preparations.
template <typename TOut>
LCHARSETS_VECTOR inline Place<uint8_t, TOut> decode(Place<uint8_t, TOut> place, const uint8_t* end) {
    const size_t count = static_cast<size_t>(end - place.in);
    if (count == 0 || count > blockBytes) return decodeAny(place, end);
    const __m512i bytes = _mm512_maskz_loadu_epi8(lowest(count), place.in);
    return decodeAscii(place, bytes, count) ? place : decodeAny(place, end);
}

}  // namespace

LCHARSETS_VECTOR DecodePlace32 decodeAvx512(DecodePlace32 place, const uint8_t* end) {
    return decode(place, end);
}
LCHARSETS_VECTOR DecodePlace16 decodeAvx512(DecodePlace16 place, const uint8_t* end) {
    return decode(place, end);
}

}  // namespace LCharsetsDetail
