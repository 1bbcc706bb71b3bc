// Number text: a float as printf's %g writes it (six significant digits), and decimal integers.
#include "util/numtext.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
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

namespace kv {
namespace {

// A nonnegative integer of up to kWords 32-bit words (lowest first): room for the exact
// comparisons of readFloat, whose operands stay below 1100 bits.
class BigNumber {
public:
    explicit BigNumber(uint64_t v) {
        for (; v; v >>= 32) w_[n_++] = static_cast<uint32_t>(v);
    }
    void multiply(uint32_t m) {
        uint64_t carry = 0;
        for (int i = 0; i < n_; ++i) {
            const uint64_t t = uint64_t(w_[i]) * m + carry;
            w_[i] = static_cast<uint32_t>(t);
            carry = t >> 32;
        }
        if (carry) push(static_cast<uint32_t>(carry));
    }
    void add(uint32_t a) {
        uint64_t carry = a;
        for (int i = 0; i < n_ && carry; ++i) {
            const uint64_t t = uint64_t(w_[i]) + carry;
            w_[i] = static_cast<uint32_t>(t);
            carry = t >> 32;
        }
        if (carry) push(static_cast<uint32_t>(carry));
    }
    void multiplyPow5(int64_t e) {
        for (; e >= 13; e -= 13) multiply(1220703125);  // 5^13
        uint32_t rest = 1;
        for (; e > 0; --e) rest *= 5;
        multiply(rest);
    }
    void shiftLeft(int64_t bits) {
        if (n_ == 0 || bits <= 0) return;
        const int words = static_cast<int>(bits / 32), b = static_cast<int>(bits % 32);
        if (n_ + words + 1 > kWords) {  // cannot happen within readFloat's bounds; saturate
            n_ = kWords;
            std::fill(w_, w_ + kWords, UINT32_MAX);
            return;
        }
        uint32_t top = 0;
        if (b) {
            top = w_[n_ - 1] >> (32 - b);
            for (int i = n_ - 1; i > 0; --i) w_[i] = w_[i] << b | w_[i - 1] >> (32 - b);
            w_[0] <<= b;
        }
        for (int i = n_ - 1; i >= 0; --i) w_[i + words] = w_[i];
        std::fill(w_, w_ + words, 0u);
        n_ += words;
        if (top) w_[n_++] = top;
    }
    friend int compare(const BigNumber& a, const BigNumber& b) {
        if (a.n_ != b.n_) return a.n_ < b.n_ ? -1 : 1;
        for (int i = a.n_ - 1; i >= 0; --i)
            if (a.w_[i] != b.w_[i]) return a.w_[i] < b.w_[i] ? -1 : 1;
        return 0;
    }

private:
    static constexpr int kWords = 48;
    void push(uint32_t v) {
        if (n_ < kWords) w_[n_++] = v;
    }
    uint32_t w_[kWords] = {};
    int n_ = 0;
};

constexpr double kExactPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                  1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Significant digits kept: every float and every midpoint between two floats has fewer (at most
// 113), so the digits beyond them matter only as "more than zero".
constexpr int kKeptDigits = 200;

// The sign of digits * 10^e10 (plus a little more when sticky) minus m * 2^e2.
int compareExact(const char* digits, int count, int64_t e10, bool sticky, uint64_t m, int64_t e2) {
    BigNumber left(0), right(m);
    for (int i = 0; i < count; ++i) {
        left.multiply(10);
        left.add(static_cast<uint32_t>(digits[i] - '0'));
    }
    if (e10 >= 0) left.multiplyPow5(e10);
    else right.multiplyPow5(-e10);
    if (e10 > e2) left.shiftLeft(e10 - e2);  // 10^e10 = 5^e10 * 2^e10
    else right.shiftLeft(e2 - e10);
    const int c = compare(left, right);
    return c == 0 && sticky ? 1 : c;
}

}  // namespace

FloatRead readFloat(const char* first, const char* last, float& value) {
    const char* p = first;
    const bool negative = p < last && *p == '-';
    if (negative) ++p;
    char digits[kKeptDigits];
    int count = 0;          // significant digits kept
    uint64_t leading = 0;   // the first 19 of them
    int64_t e10 = 0;        // the value is digits * 10^e10
    bool any = false, point = false, sticky = false;
    for (; p < last; ++p) {
        const char c = *p;
        if (c == '.' && !point) {
            point = true;
            continue;
        }
        if (c < '0' || c > '9') break;
        any = true;
        if (count == 0 && c == '0') {  // a leading zero
            e10 -= point;
        } else if (count < kKeptDigits) {
            if (count < 19) leading = leading * 10 + static_cast<uint64_t>(c - '0');
            digits[count++] = c;
            e10 -= point;
        } else {
            sticky |= c != '0';
            e10 += !point;
        }
    }
    if (!any) return {first, std::errc::invalid_argument};
    if (p < last && (*p == 'e' || *p == 'E')) {
        const char* q = p + 1;
        const bool minus = q < last && *q == '-';
        if (q < last && (*q == '-' || *q == '+')) ++q;
        if (q < last && *q >= '0' && *q <= '9') {
            int64_t exponent = 0;
            for (; q < last && *q >= '0' && *q <= '9'; ++q) exponent = std::min<int64_t>(exponent * 10 + (*q - '0'), 1000000000);
            e10 += minus ? -exponent : exponent;
            p = q;
        }
    }
    if (count == 0) {
        value = negative ? -0.0f : 0.0f;
        return {p, std::errc()};
    }
    // The value lies in [10^(magnitude-1), 10^magnitude): beyond 10^39 it overflows, below
    // 10^-46 (under half the smallest float) it rounds to 0.
    const int64_t magnitude = e10 + count;
    if (magnitude > 39 || magnitude < -45) return {p, std::errc::result_out_of_range};

    // A close approximation in double (relative error below 2^-48) from the first 19 digits...
    const int used = std::min(count, 19);
    double d = static_cast<double>(leading);
    for (int64_t e = e10 + (count - used);;) {
        if (e > 22) {
            d *= 1e22, e -= 22;
        } else if (e < -22) {
            d /= 1e22, e += 22;
        } else {
            d = e >= 0 ? d * kExactPow10[e] : d / kExactPow10[-e];
            break;
        }
    }
    // ...names the two floats around the value (2^128 standing for infinity); the midpoint
    // between them decides, compared exactly when the approximation cannot tell.
    constexpr double kInfinity = 0x1p128;
    // (Positive floats in order have consecutive bit patterns, infinity after the largest.)
    const uint32_t nearest = std::bit_cast<uint32_t>(static_cast<float>(d));
    const auto asDouble = [&](uint32_t bits) {
        return bits >= 0x7F800000u ? kInfinity : static_cast<double>(std::bit_cast<float>(bits));
    };
    double low, high;
    if (nearest >= 0x7F800000u) {
        low = std::numeric_limits<float>::max(), high = kInfinity;
    } else if (asDouble(nearest) <= d) {
        low = asDouble(nearest), high = asDouble(nearest + 1);
    } else {  // above 0, as d is
        low = asDouble(nearest - 1), high = asDouble(nearest);
    }
    const double mid = low + (high - low) / 2;  // exact: 25 significant bits at most
    double chosen;
    if (std::fabs(d - mid) > mid * 0x1p-40) {
        chosen = d < mid ? low : high;
    } else {
        int e2 = 0;
        uint64_t m = static_cast<uint64_t>(std::ldexp(std::frexp(mid, &e2), 53));
        e2 -= 53;
        for (; (m & 1) == 0; m >>= 1) ++e2;
        const int c = compareExact(digits, count, e10, sticky, m, e2);
        const bool lowEven = (std::bit_cast<uint32_t>(static_cast<float>(low)) & 1) == 0;
        chosen = c < 0 || (c == 0 && lowEven) ? low : high;
    }
    if (chosen == 0 || chosen == kInfinity) return {p, std::errc::result_out_of_range};
    value = static_cast<float>(negative ? -chosen : chosen);
    return {p, std::errc()};
}

}  // namespace kv
