#include "base/LCharsetsProcessor.h"

namespace LCharsetsDetail {

const bool hasSse41 = __builtin_cpu_supports("sse4.1") && __builtin_cpu_supports("popcnt");

const bool hasAvx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                       __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
                       __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2") &&
                       __builtin_cpu_supports("popcnt");

}  // namespace LCharsetsDetail
