// Formatting of log texts and console lines (see LogFormat.h). The direct
// formatter exists because formatting dominates the cost of LogAdd: it
// writes straight into the ring slot and avoids the general machinery of
// vsnprintf for the handful of conversions log texts use.
#include "LogFormat.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kestrel::cmplog {
namespace {

// Output cursor that never writes past the end and always leaves room for the terminator.
struct Out {
    char *p;
    char *end; // last usable position (the terminator's place)
    void Put(char c) {
        if (p < end)
            *p++ = c;
    }
    void Put(const char *s, std::size_t n) {
        std::size_t room = static_cast<std::size_t>(end - p);
        if (n > room)
            n = room;
        std::memcpy(p, s, n);
        p += n;
    }
    void Fill(char c, int n) {
        while (n-- > 0)
            Put(c);
    }
};

struct Directive {
    bool left = false, zero = false, plus = false, space = false, alt = false;
    int width = 0;
    int precision = -1;
};

void PutPadded(Out &out, const Directive &dir, const char *prefix, std::size_t prefixLen, const char *digits,
               std::size_t len) {
    if (dir.width == 0 && dir.precision < 0 && prefixLen == 0) {
        out.Put(digits, len);
        return;
    }
    int zeros = 0;
    if (dir.precision >= 0 && static_cast<int>(len) < dir.precision)
        zeros = dir.precision - static_cast<int>(len);
    int total = static_cast<int>(prefixLen + len) + zeros;
    int pad = dir.width > total ? dir.width - total : 0;
    if (dir.zero && !dir.left && dir.precision < 0) {
        zeros += pad;
        pad = 0;
    }
    if (!dir.left)
        out.Fill(' ', pad);
    out.Put(prefix, prefixLen);
    out.Fill('0', zeros);
    out.Put(digits, len);
    if (dir.left)
        out.Fill(' ', pad);
}

// Digits of v in base 10, 16 or 8 written backwards from end; returns the first.
// The bases are constants to the compiler, so no division instruction runs,
// and values that fit 32 bits take the cheaper 32-bit path.
template <typename U> char *Digits(char *end, U v, unsigned base, const char *set) {
    switch (base) {
    case 16:
        do {
            *--end = set[v & 0xF];
            v >>= 4;
        } while (v != 0);
        break;
    case 8:
        do {
            *--end = static_cast<char>('0' + (v & 7));
            v >>= 3;
        } while (v != 0);
        break;
    default:
        do {
            *--end = static_cast<char>('0' + v % 10);
            v /= 10;
        } while (v != 0);
        break;
    }
    return end;
}

void PutUnsigned(Out &out, const Directive &dir, std::uint64_t v, unsigned base, bool upper, const char *prefix,
                 std::size_t prefixLen) {
    char digits[24];
    char *end = digits + sizeof(digits);
    const char *set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char *d = end;
    if (v != 0 || dir.precision != 0) // "%.0u" of 0 prints nothing
        d = v <= 0xFFFFFFFFu ? Digits(end, static_cast<std::uint32_t>(v), base, set) : Digits(end, v, base, set);
    PutPadded(out, dir, prefix, prefixLen, d, static_cast<std::size_t>(end - d));
}

} // namespace

std::size_t FormatText(char *buf, std::size_t size, const char *fmt, va_list args) {
    if (buf == nullptr || size == 0)
        return 0;
    if (fmt == nullptr) {
        buf[0] = '\0';
        return 0;
    }
    va_list original;
    va_copy(original, args);
    Out out{buf, buf + size - 1};
    const char *f = fmt;
    bool fallback = false;
    while (*f != '\0' && !fallback) {
        if (*f != '%') {
            // Literal runs in log texts are short: a plain loop beats strchr and
            // memcpy; the cursor is kept in a local so it stays in a register.
            char *p = out.p;
            do {
                if (p < out.end)
                    *p++ = *f;
                ++f;
            } while (*f != '\0' && *f != '%');
            out.p = p;
            continue;
        }
        ++f;
        // The plain conversions most log texts use, without flags or width.
        if (*f == 's') {
            const char *str = va_arg(args, const char *);
            if (str == nullptr)
                str = "(null)";
            char *p = out.p;
            while (*str != '\0' && p < out.end)
                *p++ = *str++;
            out.p = p;
            ++f;
            continue;
        }
        if (*f == 'd' || *f == 'u') {
            char digits[12];
            char *end = digits + sizeof(digits);
            char *d;
            if (*f == 'd') {
                int v = va_arg(args, int);
                auto mag = v < 0 ? 0u - static_cast<unsigned>(v) : static_cast<unsigned>(v);
                d = Digits(end, mag, 10, "0123456789");
                if (v < 0)
                    *--d = '-';
            } else {
                d = Digits(end, va_arg(args, unsigned), 10, "0123456789");
            }
            out.Put(d, static_cast<std::size_t>(end - d));
            ++f;
            continue;
        }
        Directive dir;
        for (;; ++f) {
            if (*f == '-')
                dir.left = true;
            else if (*f == '0')
                dir.zero = true;
            else if (*f == '+')
                dir.plus = true;
            else if (*f == ' ')
                dir.space = true;
            else if (*f == '#')
                dir.alt = true;
            else
                break;
        }
        if (*f == '*') {
            dir.width = va_arg(args, int);
            if (dir.width < 0) {
                dir.left = true;
                dir.width = -dir.width;
            }
            ++f;
        } else {
            while (*f >= '0' && *f <= '9')
                dir.width = dir.width * 10 + (*f++ - '0');
        }
        if (*f == '.') {
            ++f;
            dir.precision = 0;
            if (*f == '*') {
                dir.precision = va_arg(args, int);
                ++f;
            } else {
                while (*f >= '0' && *f <= '9')
                    dir.precision = dir.precision * 10 + (*f++ - '0');
            }
        }
        int length = 0; // 0 int, 1 long, 2 long long, 3 size_t, 4 intmax_t, 5 ptrdiff_t, -1 short, -2 char
        if (*f == 'h') {
            length = f[1] == 'h' ? -2 : -1;
            f += f[1] == 'h' ? 2 : 1;
        } else if (*f == 'l') {
            length = f[1] == 'l' ? 2 : 1;
            f += f[1] == 'l' ? 2 : 1;
        } else if (*f == 'z') {
            length = 3;
            ++f;
        } else if (*f == 'j') {
            length = 4;
            ++f;
        } else if (*f == 't') {
            length = 5;
            ++f;
        }
        char conv = *f;
        if (conv != '\0')
            ++f;
        switch (conv) {
        case 'd':
        case 'i': {
            std::int64_t v;
            switch (length) {
            case 1:
                v = va_arg(args, long);
                break;
            case 2:
                v = va_arg(args, long long);
                break;
            case 3:
                v = static_cast<std::int64_t>(va_arg(args, std::size_t));
                break;
            case 4:
                v = va_arg(args, std::intmax_t);
                break;
            case 5:
                v = va_arg(args, std::ptrdiff_t);
                break;
            case -1:
                v = static_cast<short>(va_arg(args, int));
                break;
            case -2:
                v = static_cast<signed char>(va_arg(args, int));
                break;
            default:
                v = va_arg(args, int);
                break;
            }
            const char *sign = v < 0 ? "-" : dir.plus ? "+" : dir.space ? " " : "";
            std::uint64_t mag = v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
            PutUnsigned(out, dir, mag, 10, false, sign, std::strlen(sign));
            break;
        }
        case 'u':
        case 'x':
        case 'X':
        case 'o': {
            std::uint64_t v;
            switch (length) {
            case 1:
                v = va_arg(args, unsigned long);
                break;
            case 2:
                v = va_arg(args, unsigned long long);
                break;
            case 3:
                v = va_arg(args, std::size_t);
                break;
            case 4:
                v = va_arg(args, std::uintmax_t);
                break;
            case 5:
                v = static_cast<std::uint64_t>(va_arg(args, std::ptrdiff_t));
                break;
            case -1:
                v = static_cast<unsigned short>(va_arg(args, unsigned int));
                break;
            case -2:
                v = static_cast<unsigned char>(va_arg(args, unsigned int));
                break;
            default:
                v = va_arg(args, unsigned int);
                break;
            }
            unsigned base = conv == 'o' ? 8 : conv == 'u' ? 10 : 16;
            const char *prefix = "";
            if (dir.alt && v != 0 && conv == 'x')
                prefix = "0x";
            else if (dir.alt && v != 0 && conv == 'X')
                prefix = "0X";
            if (dir.alt && conv == 'o' && v != 0 && dir.precision < 0)
                prefix = "0";
            PutUnsigned(out, dir, v, base, conv == 'X', prefix, std::strlen(prefix));
            break;
        }
        case 'c': {
            if (length != 0) {
                fallback = true; // wide characters
                break;
            }
            char c = static_cast<char>(va_arg(args, int));
            Directive s = dir;
            s.precision = -1;
            s.zero = false;
            PutPadded(out, s, "", 0, &c, 1);
            break;
        }
        case 's': {
            if (length != 0) {
                fallback = true; // wide strings
                break;
            }
            const char *s = va_arg(args, const char *);
            if (s == nullptr)
                s = "(null)";
            std::size_t n = 0;
            if (dir.precision >= 0) {
                while (n < static_cast<std::size_t>(dir.precision) && s[n] != '\0')
                    ++n;
            } else {
                n = std::strlen(s);
            }
            Directive sp = dir;
            sp.precision = -1;
            sp.zero = false;
            PutPadded(out, sp, "", 0, s, n);
            break;
        }
        case 'p': {
            void *p = va_arg(args, void *);
            Directive sp = dir;
            sp.zero = false;
            PutUnsigned(out, sp, reinterpret_cast<std::uintptr_t>(p), 16, false, "0x", 2);
            break;
        }
        case '%':
            out.Put('%');
            break;
        default:
            fallback = true;
            break;
        }
    }
    std::size_t written;
    if (fallback) {
        int n = std::vsnprintf(buf, size, fmt, original);
        written = n < 0 ? 0 : (static_cast<std::size_t>(n) < size ? static_cast<std::size_t>(n) : size - 1);
        if (n < 0)
            buf[0] = '\0';
    } else {
        *out.p = '\0';
        written = static_cast<std::size_t>(out.p - buf);
    }
    va_end(original);
    return written;
}

std::size_t FormatConsoleLine(char *buf, std::size_t size, const LogEntry &entry, RTS_UI32 ulMsOfDay) {
    if (buf == nullptr || size == 0)
        return 0;
    const char *level;
    switch (entry.classId) {
    case LOG_INFO:
        level = "INFO ";
        break;
    case LOG_WARNING:
        level = "WARN ";
        break;
    case LOG_ERROR:
        level = "ERROR";
        break;
    case LOG_EXCEPTION:
        level = "EXCPT";
        break;
    case LOG_DEBUG:
        level = "DEBUG";
        break;
    default:
        level = "     ";
        break;
    }
    unsigned ms = ulMsOfDay % 86400000u;
    int n = std::snprintf(buf, size, "%02u:%02u:%02u.%03u %s ", ms / 3600000u, ms / 60000u % 60u, ms / 1000u % 60u,
                          ms % 1000u, level);
    if (n < 0) {
        buf[0] = '\0';
        return 0;
    }
    Out out{buf + (static_cast<std::size_t>(n) < size ? n : size - 1), buf + size - 1};
    // Copy the text without markup tags: "<" + optional "/" + lower-case letters + ">".
    const char *t = entry.infoText;
    while (*t != '\0') {
        if (*t == '<') {
            const char *q = t + 1;
            if (*q == '/')
                ++q;
            const char *name = q;
            while (*q >= 'a' && *q <= 'z')
                ++q;
            if (q > name && *q == '>') {
                t = q + 1;
                continue;
            }
        }
        out.Put(*t++);
    }
    *out.p = '\0';
    return static_cast<std::size_t>(out.p - buf);
}

} // namespace kestrel::cmplog
