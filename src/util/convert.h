// Conversions between the host's numbers and the library's integers.
// Every exported wrapper goes through these, so that truncation, saturation and NaN
// are handled in one place.
#pragma once

#include <cmath>
#include <cstdint>

namespace kv {

// "int": truncation toward zero, saturating at the 32-bit range; NaN gives INT32_MIN.
inline int32_t toInt(double d) {
    if (std::isnan(d)) return INT32_MIN;
    if (d >= 2147483647.0) return INT32_MAX;
    if (d <= -2147483648.0) return INT32_MIN;
    return static_cast<int32_t>(d);  // the cast truncates toward zero
}

// "uint": below 2^31 as toInt (reinterpreted); at or above 2^31 the top bit is taken off,
// the rest converted as toInt and the top bit put back, so the result saturates at 2^32-1.
// NaN gives 2^31.
inline uint32_t toUint(double d) {
    if (std::isnan(d)) return 0x80000000u;
    if (d < 2147483648.0) return static_cast<uint32_t>(toInt(d));
    return static_cast<uint32_t>(toInt(d - 2147483648.0)) + 0x80000000u;
}

// "single": rounded to the nearest float.
inline float toSingle(double d) { return static_cast<float>(d); }

// Results: the nearest float to a signed or unsigned 32-bit value.
inline float fromInt(int32_t v) { return static_cast<float>(v); }
inline float fromUint(uint32_t v) { return static_cast<float>(v); }

}  // namespace kv
