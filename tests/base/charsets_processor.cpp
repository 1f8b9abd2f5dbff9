// A processor that has no more than SSE 4.1: takes the place of the library's answer.
#include "base/LCharsetsProcessor.h"

const bool LCharsetsDetail::hasSse41 = __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("popcnt");
const bool LCharsetsDetail::hasAvx512 = false;
