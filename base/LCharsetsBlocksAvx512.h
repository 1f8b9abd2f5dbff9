// Decoding in blocks with AVX-512, for processors that have it (base/LCharsetsProcessor.h).
#pragma once

#include "base/LCharsetsBlocks.h"

namespace LCharsetsDetail {

/// As decodeBlocks, which calls them.
DecodePlace32 decodeAvx512(DecodePlace32 place, const uint8_t* end);
DecodePlace16 decodeAvx512(DecodePlace16 place, const uint8_t* end);

}  // namespace LCharsetsDetail
