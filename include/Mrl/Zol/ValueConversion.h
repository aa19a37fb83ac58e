#pragma once
#include <cmath>
#include <cstdint>

namespace MrlZol {

// A float to integer conversion that stays defined for any bit pattern a file may hold:
// truncation toward zero, with values out of range (and NaN) taking the hardware's
// "integer indefinite" result instead of undefined behaviour.
inline int32_t TruncateToSigned(float value) {
    if (!(value >= -2147483648.0f && value < 2147483648.0f)) return INT32_MIN;
    return static_cast<int32_t>(value);
}

}  // namespace MrlZol
