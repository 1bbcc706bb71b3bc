// The OBJ text readers' compiled half: the float readers of a vertex line. A line of plain
// decimals is read from masks of its bytes and word loads; any other number by the general
// reader, which takes the text a standard stream's float extraction takes and rounds it as
// that extraction does. Both give the same float for the same text.
#include "leanOBJ/objtext.h"

#include <bit>
#include <charconv>
#include <limits>

#include "util/numtext.h"
#include "util/text.h"

namespace obj {

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr double kInvPow10[] = {1e-0,  1e-1,  1e-2,  1e-3,  1e-4,  1e-5,  1e-6,  1e-7,  1e-8,  1e-9,  1e-10, 1e-11,
                                1e-12, 1e-13, 1e-14, 1e-15, 1e-16, 1e-17, 1e-18, 1e-19, 1e-20, 1e-21, 1e-22};
constexpr uint64_t kTens[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

// The plain decimal m * 10^-k (m below 2^53, k at most 22) as the correctly rounded float. The
// product m * 10^-k in double (10^-k rounded once) lies within two units of the last place of the
// exact value, so rounding it to float gives the correctly rounded float unless it lies that
// close to a midpoint between two floats. Near a midpoint, m and 10^k are exact doubles and one
// division gives the correctly rounded double, which rounds to the right float unless it is the
// midpoint itself: then false, for the general parser.
inline bool roundDecimal(uint64_t m, int k, bool negative, float& out) {
    const double exact = static_cast<double>(static_cast<int64_t>(m));  // the signed conversion is one instruction
    double d = exact * kInvPow10[k];
    if ((std::bit_cast<uint64_t>(d) & 0x1FFFFFFF) - (0x10000000 - 4) <= 8) {  // near a midpoint
        d = exact / kPow10[k];
        if ((std::bit_cast<uint64_t>(d) & 0x1FFFFFFF) == 0x10000000) return false;  // on it
    }
    const float v = static_cast<float>(d);
    out = negative ? -v : v;
    return true;
}

// The common plain decimal ("-12.345678"): its digits form an integer m below 2^53 and it has at
// most 22 fraction digits (see roundDecimal). Any other form (an exponent, more digits) returns
// null for the general parser. The digits before and after the point are read eight bytes at a
// time when there are at most seven of each, in one word when eight at most.
const char* parseFastFloat(const char* p, const char* end, const char* readable, float& out) {
    const bool negative = p < end && *p == '-';
    if (negative) ++p;
    uint64_t m = 0;
    int digits = 0, fraction = -1;
    const uint64_t w = kv::loadWordUpTo(p, end, readable);
    const int whole = kv::leadingDigits(w);
    const bool point = whole < 8 && p + whole < end && p[whole] == '.';
    const uint64_t w2 = point ? kv::loadWordUpTo(p + whole + 1, end, readable) : 0;
    const int part = kv::leadingDigits(w2);
    if (whole < 8 && part < 8) {
        digits = whole + part;
        fraction = point ? part : -1;
        p += whole + (point ? 1 + part : 0);
        const auto keep = [](uint64_t word, int n) { return n ? word & (~uint64_t(0) >> (64 - 8 * n)) : 0; };
        if (digits == 0) {
        } else if (digits <= 8) {  // both runs in one word
            m = kv::digitsValue(keep(w, whole) | (whole < 8 ? keep(w2, part) << (8 * whole) : 0), digits);
        } else {
            m = kv::digitsValue(w, whole) * kTens[part] + kv::digitsValue(w2, part);
        }
    } else {
        for (; p < end; ++p) {
            if (*p >= '0' && *p <= '9') {
                if (++digits > 18) return nullptr;
                m = m * 10 + uint64_t(*p - '0');
                if (fraction >= 0) ++fraction;
            } else if (*p == '.' && fraction < 0) {
                fraction = 0;
            } else {
                break;
            }
        }
    }
    if (digits == 0 || m >= (uint64_t(1) << 53) || fraction > 22) return nullptr;
    if (p < end && !isSpace(*p)) return nullptr;  // an exponent or anything unusual
    return roundDecimal(m, fraction > 0 ? fraction : 0, negative, out) ? p : nullptr;
}

// A vertex line of at most 64 bytes, "v" and words that are all plain decimals between blanks:
// its words are found and checked with masks of the line's bytes, and each of the first three is
// read from one word with its point taken out, or from two, the digits before the point and
// after it, when it takes more than eight bytes (at most eight digits on either side, 16 bytes in
// all after the sign). False when the line has another form, or too few bytes can be read after
// it; the general reader then reads the line.
bool parsePlainVertex(std::string_view line, const char* readable, float (&xyz)[3]) {
    if (line.size() > 64 || readable - line.data() < 64 + 8) return false;
    const kv::ByteMasks m = kv::byteMasks(line.data(), line.size() <= 32 ? 2 : 4);
    const uint64_t inLine = line.size() == 64 ? ~uint64_t(0) : (uint64_t(1) << line.size()) - 1;
    const uint64_t text = ~m.blank & inLine;
    uint64_t starts = text & ~(text << 1), ends = text & ~(text >> 1);  // each word's first and last byte
    if ((text & ~(m.digit | m.point | m.minus) & ~uint64_t(1)) | (m.minus & inLine & ~starts) | (~ends & 1)) return false;
    starts &= starts - 1;  // the "v"
    ends &= ends - 1;
    for (float& c : xyz) {
        if (!starts) return false;
        const int first = std::countr_zero(starts), last = std::countr_zero(ends);
        const bool negative = (m.minus >> first) & 1;
        const int from = first + negative, length = last + 1 - from;
        const uint64_t point = m.point & (~uint64_t(0) << from) & (~uint64_t(0) >> (63 - last));
        if ((point & (point - 1)) || length > 16 || length == int(point != 0)) return false;
        const int whole = point ? std::countr_zero(point) - from : length;  // digits before the point
        const int fraction = point ? length - 1 - whole : 0;
        const uint64_t w = kv::loadWord(line.data() + from);
        uint64_t digits = 0;
        if (length <= 8) {
            const uint64_t low = whole == 8 ? ~uint64_t(0) : (uint64_t(1) << (8 * whole)) - 1;
            digits = kv::digitsValue((w & low) | ((w >> 8) & ~low), whole + fraction);
        } else {
            if (whole > 8 || fraction == 0 || fraction > 8) return false;
            const uint64_t after = kv::loadWord(line.data() + from + whole + 1);  // the digits after the point
            digits = (whole ? kv::digitsValue(w, whole) * kTens[fraction] : 0) + kv::digitsValue(after, fraction);
        }
        if (!roundDecimal(digits, fraction, negative, c)) return false;
        starts &= starts - 1;
        ends &= ends - 1;
    }
    return true;
}

// The text a stream's float extraction takes from p: an optional sign, digits with at most one
// decimal point, then, after at least one digit, 'e' or 'E' with an optional sign and digits.
const char* streamFloatText(const char* p, const char* end) {
    if (p < end && (*p == '+' || *p == '-')) ++p;
    bool digits = false, point = false;
    for (; p < end; ++p) {
        if (*p >= '0' && *p <= '9') {
            digits = true;
        } else if (*p == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (!digits || p == end || (*p != 'e' && *p != 'E')) return p;
    if (++p < end && (*p == '+' || *p == '-')) ++p;
    while (p < end && *p >= '0' && *p <= '9') ++p;
    return p;
}

// The decimal magnitude of a number text (its value lies near 10^magnitude): enough to tell an
// overflow from an underflow when the value is out of the float range.
int64_t decimalMagnitude(const char* p, const char* end) {
    if (*p == '+' || *p == '-') ++p;
    int64_t magnitude = 0;
    bool point = false, nonzero = false;
    for (; p < end && ((*p >= '0' && *p <= '9') || *p == '.'); ++p) {
        if (*p == '.') point = true;
        else if (*p != '0') nonzero = true;
        if (!point && nonzero) ++magnitude;
        if (point && !nonzero && *p == '0') --magnitude;
    }
    if (p == end) return magnitude;
    const bool negative = ++p < end && *p == '-';
    if (p < end && (*p == '+' || *p == '-')) ++p;
    int64_t exponent = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) exponent = std::min<int64_t>(exponent * 10 + (*p - '0'), 1 << 30);
    return magnitude + (negative ? -exponent : exponent);
}

// A float as a standard input stream extracts it: the text taken by streamFloatText must be a
// whole number, else the extraction fails (null). A value beyond the float range reads as the
// largest float of its sign and fails the extraction too (out is set, null returned); one below
// it reads as 0 and the reading goes on.
const char* parseStreamFloat(const char* p, const char* end, float& out) {
    const char* stop = streamFloatText(p, end);
    const char* from = p < stop && *p == '+' ? p + 1 : p;  // readFloat takes no '+'
    float v = 0;
    const auto r = kv::readFloat(from, stop, v);
    if (r.ec == std::errc::invalid_argument || r.ptr != stop) return nullptr;
    if (r.ec == std::errc()) {
        out = v;
        return stop;
    }
    const bool negative = *p == '-';
    if (decimalMagnitude(p, stop) > 0) {
        out = negative ? -std::numeric_limits<float>::max() : std::numeric_limits<float>::max();
        return nullptr;
    }
    out = negative ? -0.0f : 0.0f;
    return stop;
}

}  // namespace

vertexS parseVertex(std::string_view line, const char* readable) {
    const char* p = line.data();
    const char* end = p + line.size();
    if (!readable || readable < end) readable = end;
    if (float xyz[3]; kv::kFastByteMasks && parsePlainVertex(line, readable, xyz)) return {xyz[0], xyz[1], xyz[2]};
    while (p < end && isSpace(*p)) ++p;  // the first word ("v")
    while (p < end && !isSpace(*p)) ++p;
    float xyz[3] = {0, 0, 0};
    for (float& c : xyz) {
        while (p < end && isSpace(*p)) ++p;
        const char* q = p < end && *p == '+' ? p + 1 : p;  // the fast path takes no '+'
        const bool oneSign = q < end && (q == p || (*q != '-' && *q != '+'));
        const char* stop = oneSign ? parseFastFloat(q, end, readable, c) : nullptr;
        if (!stop) stop = parseStreamFloat(p, end, c);
        if (!stop) break;  // a failed extraction: this coordinate and the rest stay 0
        p = stop;
    }
    return {xyz[0], xyz[1], xyz[2]};
}

}  // namespace obj
