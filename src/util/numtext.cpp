// Number text: a float as printf's %g writes it (six significant digits), and decimal integers.
#include "util/numtext.h"

#include <bit>
#include <charconv>
#include <cstring>
#include <string>

namespace kv {
namespace detail {

__extension__ typedef unsigned __int128 u128;

// Writes the n decimal digits of v (leading zeros included) at p.
inline void putDigits(char* p, uint32_t v, int n) {
    for (int i = n - 1; i >= 0; --i) {
        p[i] = static_cast<char>('0' + v % 10);
        v /= 10;
    }
}

// The six digits of v < 10^6 as characters packed into a word, the first digit in the lowest
// byte, the top two bytes zero.
inline uint64_t sixDigitsPacked(uint32_t v) { return (eightDigits(v) >> 16) + 0x303030303030ull; }

// Stores the eight bytes of w at p, lowest byte first.
inline void store8(char* p, uint64_t w) {
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(p, &w, 8);
    } else {
        for (int i = 0; i < 8; ++i) p[i] = static_cast<char>(w >> (8 * i));
    }
}

// 10^k for k = 0..26 (10^20 and above need more than 64 bits).
constexpr u128 pow10(int k) {
    u128 r = 1;
    for (int i = 0; i < k; ++i) r *= 10;
    return r;
}

// The powers of ten the fast path multiplies by, as a table.
struct Pow10Table {
    uint64_t low[20] = {};  // 10^0 .. 10^19
    u128 high[7] = {};      // 10^20 .. 10^26
    constexpr Pow10Table() {
        for (int k = 0; k < 20; ++k) low[k] = static_cast<uint64_t>(pow10(k));
        for (int k = 20; k < 27; ++k) high[k - 20] = pow10(k);
    }
};
inline constexpr Pow10Table kPow10{};

// floor(b * log10(2)) for the binary exponents b of the fast path (-67..22).
constexpr int log10Floor(int b) { return (b * 78913) >> 18; }

// For binary exponent b (|f| = m * 2^(b-23) with 2^23 <= m < 2^24): the smallest mantissa m
// with m * 2^(b-23) >= 10^(log10Floor(b) + 1), i.e. where the decimal exponent is one higher
// than the guess; 2^24 when no mantissa reaches it. Index b + 67.
struct DecadeTable {
    uint32_t first[91] = {};
    constexpr DecadeTable() {
        for (int b = -67; b <= 23; ++b) {
            const int k = log10Floor(b) + 1;  // the next decade: 10^k
            const int s = 23 - b;             // m >= 10^k * 2^s
            u128 need = 0;
            if (k >= 0) {
                need = s >= 0 ? pow10(k) << s : (pow10(k) + (u128(1) << -s) - 1) >> -s;
            } else {
                const u128 d = pow10(-k);
                need = ((u128(1) << s) + d - 1) / d;  // ceil(2^s / 10^-k)
            }
            first[b + 67] = need > (u128(1) << 24) ? (1u << 24) : static_cast<uint32_t>(need);
        }
    }
};
inline constexpr DecadeTable kDecades{};

// Writes q (six digits, 100000 <= q < 1000000) as the significant digits of a value with
// decimal exponent x (-20 <= x <= 5) in the "%g" form; returns the end.
inline char* putSixDigits(char* p, uint64_t q, int x) {
    // Six digits d0..d5, held in a register (byte i = digit i), stored with whole-word copies;
    // the trailing zeros are dropped (at most five: q >= 100000).
    const uint64_t digits = detail::sixDigitsPacked(static_cast<uint32_t>(q));
    const int len = 6 - std::countl_zero((digits ^ 0x303030303030u) << 16) / 8;
    if (x >= -4) {
        // Fixed form, chosen without branches (the forms alternate unpredictably in mesh data):
        // from 1 up, x + 1 integer digits, then "." and the rest when there is a rest; below 1,
        // "0." then -x - 1 zeros, then the digits. Bytes stored past the end are overwritten or
        // left beyond the returned end.
        const int intDigits = x >= 0 ? x + 1 : 0;
        const uint64_t low = (uint64_t(1) << (8 * intDigits)) - 1;
        const uint64_t pointed = (digits & low) | uint64_t('.') << (8 * intDigits) | (digits & ~low) << 8;
        const size_t fixedEnd = len > intDigits ? size_t(len) + 1 : size_t(intDigits);
        std::memcpy(p, "0.000000", 8);
        const size_t at = x >= 0 ? 0 : size_t(1 - x);
        detail::store8(p + at, x >= 0 ? pointed : digits);
        return p + (x >= 0 ? fixedEnd : at + size_t(len));
    }
    char text[8];
    detail::store8(text, digits);
    // Exponent form: d0[.d1...]e-XX (x <= -5 here, two exponent digits).
    *p++ = text[0];
    if (len > 1) {
        *p++ = '.';
        for (int i = 1; i < len; ++i) *p++ = text[i];
    }
    *p++ = 'e';
    *p++ = '-';
    detail::putDigits(p, static_cast<uint32_t>(-x), 2);
    return p + 2;
}

}  // namespace detail

// Writes f, widened to double, in printf's "%g" form (6 significant digits, fixed or exponent
// form as %g chooses, trailing zeros dropped, "-0", "nan", "inf" as std::to_chars writes them)
// at p and returns the end. p must have room for 16 characters (some past the end may be
// written).
char* putG(char* p, float f) {
    using detail::u128;
    const uint32_t bits = std::bit_cast<uint32_t>(f);
    const int biased = static_cast<int>((bits >> 23) & 0xFF);
    // f = m * 2^e exactly, m a 24-bit integer with its top bit set (normal numbers only).
    const int e = biased - 150;
    // The fast path covers normal numbers from about 1e-20 up to 1e6: there the six digits
    // follow from one product and a shift. Zeros, subnormals, large values, infinities and NaN
    // take the general path.
    if (biased == 0 || e >= 0 || e < -90)
        return std::to_chars(p, p + 16, static_cast<double>(f), std::chars_format::general, 6).ptr;
    const uint64_t m = (bits & 0x7FFFFFu) | 0x800000u;
    const unsigned shift = static_cast<unsigned>(-e);  // 1..90
    const int b = e + 23;                              // 2^b <= |f| < 2^(b+1)
    // x: decimal exponent, 10^x <= |f| < 10^(x+1).
    const int x0 = detail::log10Floor(b) + (m >= detail::kDecades.first[b + 67] ? 1 : 0);
    const int scale = 5 - x0;  // q = floor(|f| * 10^scale) has six digits
    if (scale < 0)
        return std::to_chars(p, p + 16, static_cast<double>(f), std::chars_format::general, 6).ptr;
    uint64_t q = 0;
    bool up = false;  // round the six digits up (half to even on the exact remainder)
    if (scale <= 10) {
        // Usual coordinates: the product has at most 24 + 34 bits.
        const uint64_t n = m * detail::kPow10.low[scale];
        q = n >> shift;
        const uint64_t rest = n & ((uint64_t(1) << shift) - 1);
        const uint64_t half = uint64_t(1) << (shift - 1);
        up = rest > half || (rest == half && (q & 1));
    } else {
        const u128 n = scale <= 19 ? u128(m) * detail::kPow10.low[scale] : m * detail::kPow10.high[scale - 20];
        q = static_cast<uint64_t>(n >> shift);
        const u128 rest = n & ((u128(1) << shift) - 1);
        const u128 half = u128(1) << (shift - 1);
        up = rest > half || (rest == half && (q & 1));
    }
    int x = x0;
    q += up;
    if (q == 1000000) {
        q = 100000;
        ++x;
        if (x > 5)  // rounded up to 1e+06: exponent form, left to the general path
            return std::to_chars(p, p + 16, static_cast<double>(f), std::chars_format::general, 6).ptr;
    }
    *p = '-';  // kept only for a negative value
    return detail::putSixDigits(p + (bits >> 31), q, x);
}

std::string decimal(int64_t v) {
    char text[24];
    return std::string(text, putInt(text, v));
}

}  // namespace kv
