// The bounded printf formatter used by CMUtlvsnprintf and CMUtlsnprintf. The
// common conversions (integers, characters, strings) are formatted directly
// into the destination; the C library's formatter is set up only for the
// conversions whose text it defines (floating point, pointers) and for the
// rare formats handled whole by it.
#include "CMUtlFormat.h"

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <type_traits>
#include <utility>

#include "CMUtlInternal.h"

namespace kestrel::cmutl {
namespace {

// Destination of the formatter with the C library's truncation rule: the
// length keeps counting after the buffer is full.
struct Sink {
    char *dest;
    std::size_t capacity; // characters that can be stored, the terminator not counted
    std::size_t length = 0;

    void Put(const char *s, std::size_t n) {
        if (length < capacity) {
            const std::size_t room = capacity - length;
            CopySmall(dest + length, s, n < room ? n : room);
        }
        length += n;
    }
    void Fill(char c, std::size_t n) {
        if (length < capacity && n != 0) {
            const std::size_t room = capacity - length;
            std::memset(dest + length, c, n < room ? n : room);
        }
        length += n;
    }
    void PutChar(char c) {
        if (length < capacity) {
            dest[length] = c;
        }
        ++length;
    }
};

enum Flag : unsigned { kLeft = 1, kPlus = 2, kSpace = 4, kAlt = 8, kZero = 16 };

enum class Length { None, hh, h, l, ll, j, z, t, L };

struct Directive {
    unsigned flags = 0;
    long long width = -1;     // -1: none
    long long precision = -1; // -1: none
    Length length = Length::None;
    char conversion = 0;
};

constexpr char kDigitPairs[] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                               "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                               "8081828384858687888990919293949596979899";

// Writes the digits of v right-aligned ending at `end`; returns their start.
char *Digits(std::uint64_t v, unsigned base, bool upper, char *end) {
    char *p = end;
    if (base == 10) {
        while (v >= 100) {
            const unsigned pair = static_cast<unsigned>(v % 100) * 2;
            v /= 100;
            *--p = kDigitPairs[pair + 1];
            *--p = kDigitPairs[pair];
        }
        if (v >= 10) {
            const unsigned pair = static_cast<unsigned>(v) * 2;
            *--p = kDigitPairs[pair + 1];
            *--p = kDigitPairs[pair];
        } else {
            *--p = static_cast<char>('0' + v);
        }
        return p;
    }
    const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    const unsigned shift = base == 16 ? 4 : 3;
    do {
        *--p = digits[v & (base - 1)];
        v >>= shift;
    } while (v != 0);
    return p;
}

std::size_t PadFor(const Directive &dir, std::size_t body) {
    return dir.width > 0 && static_cast<unsigned long long>(dir.width) > body
               ? static_cast<std::size_t>(dir.width) - body
               : 0;
}

void PutInteger(Sink &out, const Directive &dir, std::uint64_t magnitude, bool negative) {
    const char conv = dir.conversion;
    const bool isSigned = conv == 'd' || conv == 'i';
    const unsigned base = (conv == 'x' || conv == 'X') ? 16 : (conv == 'o' ? 8 : 10);
    char buffer[24];
    char *end = buffer + sizeof buffer;
    char *first = end;
    if (!(dir.precision == 0 && magnitude == 0)) {
        first = Digits(magnitude, base, conv == 'X', end);
    }
    std::size_t digits = static_cast<std::size_t>(end - first);
    std::size_t zeros = dir.precision > 0 && static_cast<unsigned long long>(dir.precision) > digits
                            ? static_cast<std::size_t>(dir.precision) - digits
                            : 0;
    if (conv == 'o' && (dir.flags & kAlt) && zeros == 0 && (digits == 0 || *first != '0')) {
        zeros = 1; // the alternative form of octal starts with a zero
    }
    char prefix[2];
    std::size_t prefixLength = 0;
    if (isSigned) {
        if (negative) {
            prefix[prefixLength++] = '-';
        } else if (dir.flags & kPlus) {
            prefix[prefixLength++] = '+';
        } else if (dir.flags & kSpace) {
            prefix[prefixLength++] = ' ';
        }
    } else if (base == 16 && (dir.flags & kAlt) && magnitude != 0) {
        prefix[prefixLength++] = '0';
        prefix[prefixLength++] = conv;
    }
    const std::size_t pad = PadFor(dir, prefixLength + zeros + digits);
    if (dir.flags & kLeft) {
        out.Put(prefix, prefixLength);
        out.Fill('0', zeros);
        out.Put(first, digits);
        out.Fill(' ', pad);
    } else if ((dir.flags & kZero) && dir.precision < 0) {
        out.Put(prefix, prefixLength);
        out.Fill('0', pad + zeros);
        out.Put(first, digits);
    } else {
        out.Fill(' ', pad);
        out.Put(prefix, prefixLength);
        out.Fill('0', zeros);
        out.Put(first, digits);
    }
}

void PutText(Sink &out, const Directive &dir, const char *text, std::size_t n) {
    const std::size_t pad = PadFor(dir, n);
    if (!(dir.flags & kLeft)) {
        out.Fill(' ', pad);
    }
    out.Put(text, n);
    if (dir.flags & kLeft) {
        out.Fill(' ', pad);
    }
}

// ---- %f without the C library ----
// A double is m * 2^e exactly. Printed with P decimals it is the integer
// nearest to m * 2^e * 10^P, ties to even, with the decimal point put P
// digits from its end. For P up to 19 and results below 2^64 that integer
// comes from one 64 x 64 bit product and a shift, which is exact; all other
// values (and infinities and NaNs) are left to the C library. The rounding
// is the default one, to nearest; the runtime does not change it.

struct U128 {
    std::uint64_t hi;
    std::uint64_t lo;
};

U128 Multiply(std::uint64_t a, std::uint64_t b) {
    const std::uint64_t aLo = a & 0xFFFFFFFFu, aHi = a >> 32;
    const std::uint64_t bLo = b & 0xFFFFFFFFu, bHi = b >> 32;
    const std::uint64_t ll = aLo * bLo, lh = aLo * bHi, hl = aHi * bLo, hh = aHi * bHi;
    const std::uint64_t middle = (ll >> 32) + (lh & 0xFFFFFFFFu) + (hl & 0xFFFFFFFFu);
    return {hh + (lh >> 32) + (hl >> 32) + (middle >> 32), (middle << 32) | (ll & 0xFFFFFFFFu)};
}

constexpr std::uint64_t kPowersOfTen[20] = {1u,
                                            10u,
                                            100u,
                                            1000u,
                                            10000u,
                                            100000u,
                                            1000000u,
                                            10000000u,
                                            100000000u,
                                            1000000000u,
                                            10000000000u,
                                            100000000000u,
                                            1000000000000u,
                                            10000000000000u,
                                            100000000000000u,
                                            1000000000000000u,
                                            10000000000000000u,
                                            100000000000000000u,
                                            1000000000000000000u,
                                            10000000000000000000u};

// round(value * 10^precision) for |value| = m * 2^e, or false when it is
// not below 2^64.
bool ScaledRounded(std::uint64_t m, int e, unsigned precision, std::uint64_t &scaled) {
    const U128 product = Multiply(m, kPowersOfTen[precision]);
    if (e >= 0) {
        if (product.hi != 0 || e >= 64 || (e > 0 && (product.lo >> (64 - e)) != 0)) {
            return false;
        }
        scaled = product.lo << e;
        return true;
    }
    const unsigned k = static_cast<unsigned>(-e);
    if (k >= 118) {
        scaled = 0; // the product is below 2^117, less than half of 2^k
        return true;
    }
    // q = product >> k, r = the k bits shifted out, compared with half = 2^(k-1).
    std::uint64_t q, rHi, rLo, halfHi, halfLo;
    if (k < 64) {
        if ((product.hi >> k) != 0) {
            return false;
        }
        q = (product.hi << (64 - k)) | (product.lo >> k);
        rHi = 0;
        rLo = product.lo & ((std::uint64_t{1} << k) - 1);
        halfHi = 0;
        halfLo = std::uint64_t{1} << (k - 1);
    } else {
        const unsigned kh = k - 64;
        q = product.hi >> kh;
        rHi = kh == 0 ? 0 : product.hi & ((std::uint64_t{1} << kh) - 1);
        rLo = product.lo;
        halfHi = kh == 0 ? 0 : std::uint64_t{1} << (kh - 1);
        halfLo = kh == 0 ? std::uint64_t{1} << 63 : 0;
    }
    const bool above = rHi > halfHi || (rHi == halfHi && rLo > halfLo);
    const bool tie = rHi == halfHi && rLo == halfLo;
    if (above || (tie && (q & 1) != 0)) {
        if (q == UINT64_MAX) {
            return false;
        }
        ++q;
    }
    scaled = q;
    return true;
}

// %f and %F of a double; false when the C library must format it.
bool PutFixed(Sink &out, const Directive &dir, double value) {
    const unsigned precision = dir.precision < 0 ? 6u : static_cast<unsigned>(dir.precision);
    if (precision >= std::size(kPowersOfTen)) {
        return false;
    }
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const bool negative = (bits >> 63) != 0;
    const unsigned biased = static_cast<unsigned>(bits >> 52) & 0x7FFu;
    if (biased == 0x7FF) {
        return false; // infinity or NaN
    }
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
    const std::uint64_t m = biased != 0 ? fraction | (std::uint64_t{1} << 52) : fraction;
    const int e = (biased != 0 ? static_cast<int>(biased) : 1) - 1075;
    std::uint64_t scaled = 0;
    if (m != 0 && !ScaledRounded(m, e, precision, scaled)) {
        return false;
    }
    // The digits of the scaled value, with at least one before the point.
    char buffer[48];
    char *end = buffer + sizeof buffer;
    char *first = Digits(scaled, 10, false, end);
    while (static_cast<std::size_t>(end - first) < precision + 1) {
        *--first = '0';
    }
    const std::size_t integerDigits = static_cast<std::size_t>(end - first) - precision;
    const bool point = precision > 0 || (dir.flags & kAlt) != 0;
    char sign = 0;
    if (negative) {
        sign = '-';
    } else if (dir.flags & kPlus) {
        sign = '+';
    } else if (dir.flags & kSpace) {
        sign = ' ';
    }
    const std::size_t body = (sign != 0 ? 1 : 0) + integerDigits + (point ? 1 : 0) + precision;
    const std::size_t pad = PadFor(dir, body);
    const bool zeroPad = (dir.flags & kZero) != 0 && (dir.flags & kLeft) == 0;
    if (!zeroPad && !(dir.flags & kLeft)) {
        out.Fill(' ', pad);
    }
    if (sign != 0) {
        out.PutChar(sign);
    }
    if (zeroPad) {
        out.Fill('0', pad);
    }
    out.Put(first, integerDigits);
    if (point) {
        out.PutChar('.');
        out.Put(first + integerDigits, precision);
    }
    if (dir.flags & kLeft) {
        out.Fill(' ', pad);
    }
    return true;
}

// Rebuilds one conversion directive with '*' values resolved, for the C
// library. The buffer holds the longest one: five flags, two numbers below
// 2^31, a length letter and the conversion.
void BuildDirective(const Directive &dir, char *buffer) {
    char *p = buffer;
    *p++ = '%';
    for (auto [flag, c] : {std::pair{kLeft, '-'}, {kPlus, '+'}, {kSpace, ' '}, {kAlt, '#'}, {kZero, '0'}}) {
        if (dir.flags & flag) {
            *p++ = c;
        }
    }
    const auto putNumber = [&p](long long v) {
        char digits[24];
        char *end = digits + sizeof digits;
        char *first = Digits(static_cast<std::uint64_t>(v), 10, false, end);
        while (first != end) {
            *p++ = *first++;
        }
    };
    if (dir.width >= 0) {
        putNumber(dir.width);
    }
    if (dir.precision >= 0) {
        *p++ = '.';
        putNumber(dir.precision);
    }
    if (dir.length == Length::L) {
        *p++ = 'L';
    }
    *p++ = dir.conversion;
    *p = 0;
}

// Hands one conversion to the C library, writing straight into the rest of
// the destination. Returns false when the C library reports an error.
template <typename T> bool Delegate(Sink &out, const Directive &dir, T value) {
    char format[64];
    BuildDirective(dir, format);
    const std::size_t room = out.length < out.capacity ? out.capacity - out.length + 1 : 0;
    const int n = std::snprintf(room != 0 ? out.dest + out.length : nullptr, room, format, value);
    if (n < 0) {
        return false;
    }
    out.length += static_cast<std::size_t>(n);
    return true;
}

// Parses a decimal number of a directive; returns -2 on overflow.
long long ParseNumber(const char *&p) {
    long long v = 0;
    while (*p >= '0' && *p <= '9') {
        if (v > (LLONG_MAX - 9) / 10) {
            return -2;
        }
        v = v * 10 + (*p++ - '0');
    }
    return v;
}

enum class Step { Ok, Whole, Error };

// Formats the whole output; Step::Whole asks the caller to let the C library
// format everything, Step::Error reports an output that cannot be produced.
Step Run(Sink &out, const char *format, va_list *ap) {
    const char *p = format;
    for (;;) {
        // Each step adds less than 2^31 + 32 characters, so checking here
        // keeps the count from wrapping even with a 32-bit size_t.
        if (out.length > static_cast<std::size_t>(INT_MAX)) {
            return Step::Error;
        }
        const char *percent = std::strchr(p, '%');
        if (percent == nullptr) {
            out.Put(p, std::strlen(p));
            return Step::Ok;
        }
        out.Put(p, static_cast<std::size_t>(percent - p));
        p = percent + 1;
        if (*p == '%') {
            out.PutChar('%');
            ++p;
            continue;
        }
        Directive dir;
        for (;; ++p) {
            if (*p == '-') {
                dir.flags |= kLeft;
            } else if (*p == '+') {
                dir.flags |= kPlus;
            } else if (*p == ' ') {
                dir.flags |= kSpace;
            } else if (*p == '#') {
                dir.flags |= kAlt;
            } else if (*p == '0') {
                dir.flags |= kZero;
            } else {
                break;
            }
        }
        if (*p == '*') {
            const int w = va_arg(*ap, int);
            ++p;
            if (w < 0) {
                dir.flags |= kLeft;
                dir.width = -static_cast<long long>(w);
            } else {
                dir.width = w;
            }
        } else if (*p >= '1' && *p <= '9') {
            dir.width = ParseNumber(p);
            if (*p == '$') {
                return Step::Whole; // positional arguments
            }
        }
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                const int prec = va_arg(*ap, int);
                ++p;
                dir.precision = prec < 0 ? -1 : prec;
            } else {
                dir.precision = ParseNumber(p);
            }
        }
        if (dir.width == -2 || dir.precision == -2 || dir.width > INT_MAX || dir.precision > INT_MAX) {
            return Step::Error; // no output of that length can be reported
        }
        switch (*p) {
        case 'h':
            dir.length = p[1] == 'h' ? Length::hh : Length::h;
            p += p[1] == 'h' ? 2 : 1;
            break;
        case 'l':
            dir.length = p[1] == 'l' ? Length::ll : Length::l;
            p += p[1] == 'l' ? 2 : 1;
            break;
        case 'j':
            dir.length = Length::j;
            ++p;
            break;
        case 'z':
            dir.length = Length::z;
            ++p;
            break;
        case 't':
            dir.length = Length::t;
            ++p;
            break;
        case 'L':
            dir.length = Length::L;
            ++p;
            break;
        default:
            break;
        }
        dir.conversion = *p++;
        switch (dir.conversion) {
        case 'd':
        case 'i': {
            std::int64_t v = 0;
            switch (dir.length) {
            case Length::None:
                v = va_arg(*ap, int);
                break;
            case Length::hh:
                v = static_cast<signed char>(va_arg(*ap, int));
                break;
            case Length::h:
                v = static_cast<short>(va_arg(*ap, int));
                break;
            case Length::l:
                v = va_arg(*ap, long);
                break;
            case Length::ll:
                v = va_arg(*ap, long long);
                break;
            case Length::j:
                v = va_arg(*ap, std::intmax_t);
                break;
            case Length::z:
                v = static_cast<std::make_signed_t<std::size_t>>(va_arg(*ap, std::size_t));
                break;
            case Length::t:
                v = va_arg(*ap, std::ptrdiff_t);
                break;
            case Length::L:
                return Step::Whole;
            }
            const bool negative = v < 0;
            const std::uint64_t magnitude =
                negative ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
            PutInteger(out, dir, magnitude, negative);
            break;
        }
        case 'u':
        case 'o':
        case 'x':
        case 'X': {
            std::uint64_t v = 0;
            switch (dir.length) {
            case Length::None:
                v = va_arg(*ap, unsigned);
                break;
            case Length::hh:
                v = static_cast<unsigned char>(va_arg(*ap, int));
                break;
            case Length::h:
                v = static_cast<unsigned short>(va_arg(*ap, int));
                break;
            case Length::l:
                v = va_arg(*ap, unsigned long);
                break;
            case Length::ll:
                v = va_arg(*ap, unsigned long long);
                break;
            case Length::j:
                v = va_arg(*ap, std::uintmax_t);
                break;
            case Length::z:
                v = va_arg(*ap, std::size_t);
                break;
            case Length::t:
                v = static_cast<std::make_unsigned_t<std::ptrdiff_t>>(va_arg(*ap, std::ptrdiff_t));
                break;
            case Length::L:
                return Step::Whole;
            }
            PutInteger(out, dir, v, false);
            break;
        }
        case 'c': {
            if (dir.length != Length::None) {
                return Step::Whole; // wide character
            }
            const char c = static_cast<char>(va_arg(*ap, int));
            if (dir.flags & kZero) {
                // The C standard leaves '0' with %c open; the C library's answer is the one to give.
                if (!Delegate(out, dir, static_cast<int>(static_cast<unsigned char>(c)))) {
                    return Step::Error;
                }
                break;
            }
            PutText(out, dir, &c, 1);
            break;
        }
        case 's': {
            if (dir.length != Length::None) {
                return Step::Whole; // wide string
            }
            const char *s = va_arg(*ap, const char *);
            if (s == nullptr || (dir.flags & kZero)) {
                // What a null string prints as, and '0' with %s, are the C library's to say.
                if (!Delegate(out, dir, s)) {
                    return Step::Error;
                }
                break;
            }
            const std::size_t n =
                dir.precision >= 0 ? BoundedLength(s, static_cast<std::size_t>(dir.precision)) : std::strlen(s);
            PutText(out, dir, s, n);
            break;
        }
        case 'p':
            if (dir.length != Length::None || !Delegate(out, dir, va_arg(*ap, void *))) {
                return dir.length != Length::None ? Step::Whole : Step::Error;
            }
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A': {
            bool ok = false;
            if (dir.length == Length::L) {
                ok = Delegate(out, dir, va_arg(*ap, long double));
            } else if (dir.length == Length::None || dir.length == Length::l) {
                dir.length = Length::None;
                const double value = va_arg(*ap, double);
                ok = ((dir.conversion == 'f' || dir.conversion == 'F') && PutFixed(out, dir, value)) ||
                     Delegate(out, dir, value);
            } else {
                return Step::Whole;
            }
            if (!ok) {
                return Step::Error;
            }
            break;
        }
        default:
            return Step::Whole; // %n, a flagged %%, an unknown conversion or a missing one
        }
    }
}

} // namespace

std::ptrdiff_t FormatV(char *pszDest, std::size_t size, const char *pszFormat, va_list args) {
    va_list ap;
    va_copy(ap, args);
    Sink out{pszDest, size != 0 ? size - 1 : 0};
    const Step step = Run(out, pszFormat, &ap);
    va_end(ap);
    if (step == Step::Whole) {
        va_list again;
        va_copy(again, args);
        const int n = std::vsnprintf(size != 0 ? pszDest : nullptr, size, pszFormat, again);
        va_end(again);
        return n;
    }
    if (size != 0) {
        pszDest[out.length < out.capacity ? out.length : out.capacity] = 0;
    }
    if (step == Step::Error || out.length > static_cast<std::size_t>(INT_MAX)) {
        return -1;
    }
    return static_cast<std::ptrdiff_t>(out.length);
}

} // namespace kestrel::cmutl
