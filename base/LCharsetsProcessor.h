// Which vectors the processor has, for the sources of LCharsets that are made for an x86 one; asked once, when the
// program starts. Whoever is earlier than that, another static object, is told that there are none.
#pragma once

namespace LCharsetsDetail {

extern const bool hasSse41;
extern const bool hasAvx512;  ///< With all of its parts that are used here

}  // namespace LCharsetsDetail
