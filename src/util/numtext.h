// Number text for large text outputs (mesh writers format millions of numbers), and the one
// integer-to-text conversion of the library.
// putG: single-precision values as printf("%g", (double)f) writes them, which is also what an
// output stream writes for the double by default and what std::to_chars gives in the general
// form with 6 digits; several times faster than that path for the usual range, and falling
// back to it for the rest. putUint/putInt: decimal integers, inline for the writers' loops.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <system_error>
#include <vector>

namespace kv {

namespace detail {
inline constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// The eight decimal digits of v < 10^8 (leading zeros included) as values 0..9 packed into a
// word, the first digit in the lowest byte: computed in lanes, without division loops.
inline uint64_t eightDigits(uint32_t v) {
    const uint64_t x = (v / 10000) | uint64_t(v % 10000) << 32;            // two halves, a 32-bit lane each
    const uint64_t hundreds = (x * 10486 >> 20) & 0x0000007F0000007Full;  // x / 100 in each lane
    const uint64_t y = hundreds | (x - hundreds * 100) << 16;              // four pairs, a 16-bit lane each
    const uint64_t tens = (y * 103 >> 10) & 0x000F000F000F000Full;        // y / 10 in each lane
    return tens | (y - tens * 10) << 8;
}
}  // namespace detail

// Writes f, widened to double, in printf's "%g" form (6 significant digits, fixed or exponent
// form as %g chooses, trailing zeros dropped, "-0", "nan", "inf" as std::to_chars writes them)
// at p and returns the end. p must have room for 16 characters (some past the end may be
// written).
char* putG(char* p, float f);

// Writes v in decimal at p and returns the end (what std::to_chars writes, without the call;
// for the integers of large text outputs). p must have room for 10 characters (some past the
// end may be written).
inline char* putUint(char* p, uint32_t v) {
    if constexpr (std::endian::native == std::endian::little) {
        if (v < 100000000) {  // the usual indices: eight digit places at once, then the used ones
            const uint64_t z = detail::eightDigits(v);
            const int zeros = z ? std::countr_zero(z) / 8 : 7;  // leading zeros dropped (0 keeps one)
            const uint64_t text = (z + 0x3030303030303030ull) >> (8 * zeros);
            std::memcpy(p, &text, 8);
            return p + 8 - zeros;
        }
    }
    const int n = v < 10 ? 1
                : v < 100 ? 2
                : v < 1000 ? 3
                : v < 10000 ? 4
                : v < 100000 ? 5
                : v < 1000000 ? 6
                : v < 10000000 ? 7
                : v < 100000000 ? 8
                : v < 1000000000 ? 9
                : 10;
    char* end = p + n;
    char* q = end;
    while (v >= 100) {
        const uint32_t pair = v % 100;
        v /= 100;
        q -= 2;
        q[0] = detail::kPairs[2 * pair];
        q[1] = detail::kPairs[2 * pair + 1];
    }
    if (v >= 10) {
        q[-2] = detail::kPairs[2 * v];
        q[-1] = detail::kPairs[2 * v + 1];
    } else {
        q[-1] = static_cast<char>('0' + v);
    }
    return end;
}

// The same for a signed value: what std::to_chars writes (21 characters of room).
inline char* putInt(char* p, int64_t v) {
    uint64_t u = static_cast<uint64_t>(v);
    if (v < 0) {
        *p++ = '-';
        u = 0 - u;
    }
    if (u <= UINT32_MAX) return putUint(p, static_cast<uint32_t>(u));
    // Above 32 bits: the leading part, then nine digits at a time.
    p = putInt(p, static_cast<int64_t>(u / 1000000000));
    uint32_t low = static_cast<uint32_t>(u % 1000000000);
    for (int i = 8; i >= 0; --i, low /= 10) p[i] = static_cast<char>('0' + low % 10);
    return p + 9;
}

// Appends v in decimal to a growing output buffer.
inline void appendInt(std::vector<char>& out, int64_t v) {
    char text[24];
    out.insert(out.end(), text, putInt(text, v));
}

// v in decimal, for names built from numbers.
std::string decimal(int64_t v);

// Where reading a number from text stopped, and how it ended (std::from_chars' report).
struct FloatRead {
    const char* ptr;
    std::errc ec;
};

// Reads a float from the decimal text at [first, last) as std::from_chars reads one, which is
// also what a standard input stream takes in the "C" locale, whatever locale the host process
// runs in: an optional '-', digits with at most one '.' among them (at least one digit), and an
// exponent ('e' or 'E', an optional sign, digits) when digits follow it. The value is rounded
// correctly (ties to even), however many digits the text has. No '+' in front, no "inf", "nan"
// or hexadecimal. invalid_argument (ptr = first) when no number starts at first;
// result_out_of_range, value left unchanged, when a nonzero value rounds to infinity or to 0.
FloatRead readFloat(const char* first, const char* last, float& value);

}  // namespace kv
