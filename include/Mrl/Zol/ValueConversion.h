#pragma once
#include <cmath>
#include <cstdint>

namespace MrlZol {

// Float to integer conversions that stay defined for any bit pattern a file may hold:
// truncation toward zero, with values out of range (and NaN) taking the hardware's
// "integer indefinite" result instead of undefined behaviour.
inline int32_t TruncateToSigned(float value) {
    if (!(value >= -2147483648.0f && value < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

inline uint32_t TruncateToUnsigned(float value) {
    if (!(value > -9.2e18f && value < 9.2e18f)) return 0;
    return static_cast<uint32_t>(static_cast<int64_t>(value));
}

}  // namespace MrlZol
