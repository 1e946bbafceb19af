// wsfmt.cpp - printf-style formatting into UCChar buffers. Numbers are
// converted here (integers by hand, floating point with std::to_chars), so
// the output never depends on the C locale.
#include "ozmutil.h"

#include <charconv>
#include <climits>
#include <cstring>

namespace {

// Output sink that counts what it writes and never goes past its room
// (room excludes the terminator).
struct Sink {
    UCChar* buffer;
    size_t room;
    size_t used = 0;

    void Put(UCChar c) {
        if (used < room)
            buffer[used] = c;
        ++used;
    }
    void Repeat(UCChar c, long n) {
        for (; n > 0; --n)
            Put(c);
    }
    void PutAscii(const char* s, size_t n) {
        for (size_t i = 0; i < n; ++i)
            Put(static_cast<unsigned char>(s[i]));
    }
};

struct Directive {
    bool left = false;
    bool zero = false;
    long width = 0;
    long precision = -1;  // -1: none given
};

// Emits a converted number: sign (or nothing), then digits, padded to the
// width with spaces or, for the '0' flag, zeros between sign and digits.
void EmitNumber(Sink& out, const Directive& dv, const char* sign, const char* digits, size_t ndigits, long minDigits,
                bool zeroAllowed) {
    size_t signLen = std::strlen(sign);
    long leadZeros = minDigits > static_cast<long>(ndigits) ? minDigits - static_cast<long>(ndigits) : 0;
    long body = static_cast<long>(signLen + ndigits) + leadZeros;
    long pad = dv.width > body ? dv.width - body : 0;
    if (dv.zero && !dv.left && zeroAllowed) {
        leadZeros += pad;
        pad = 0;
    }
    if (!dv.left)
        out.Repeat(' ', pad);
    out.PutAscii(sign, signLen);
    out.Repeat('0', leadZeros);
    out.PutAscii(digits, ndigits);
    if (dv.left)
        out.Repeat(' ', pad);
}

void EmitInteger(Sink& out, const Directive& dv, unsigned long long magnitude, bool negative, unsigned base, bool upper) {
    char digits[32];
    const char* set = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    size_t n = 0;
    char reversed[32];
    // printf prints nothing for a zero with precision 0.
    if (!(magnitude == 0 && dv.precision == 0)) {
        do {
            reversed[n++] = set[magnitude % base];
            magnitude /= base;
        } while (magnitude);
    }
    for (size_t i = 0; i < n; ++i)
        digits[i] = reversed[n - 1 - i];
    EmitNumber(out, dv, negative ? "-" : "", digits, n, dv.precision, dv.precision < 0);
}

void EmitFixed(Sink& out, const Directive& dv, double value) {
    // The longest fixed form of a double has 309 integer digits; the
    // precision is capped so that the buffer always suffices.
    long precision = dv.precision < 0 ? 6 : dv.precision;
    if (precision > 100)
        precision = 100;
    char text[512];
    auto res = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, static_cast<int>(precision));
    size_t len = res.ec == std::errc() ? static_cast<size_t>(res.ptr - text) : 0;
    const char* digits = text;
    const char* sign = "";
    if (len > 0 && text[0] == '-') {
        sign = "-";
        ++digits;
        --len;
    }
    bool finite = len > 0 && digits[0] >= '0' && digits[0] <= '9';
    EmitNumber(out, dv, sign, digits, len, -1, finite);
}

void EmitText(Sink& out, const Directive& dv, const UCChar* text) {
    static const UCChar kNull[] = u"(null)";
    if (!text)
        text = kNull;
    size_t n = 0;
    while (text[n] && (dv.precision < 0 || n < static_cast<size_t>(dv.precision)))
        ++n;
    long pad = dv.width > static_cast<long>(n) ? dv.width - static_cast<long>(n) : 0;
    if (!dv.left)
        out.Repeat(' ', pad);
    for (size_t i = 0; i < n; ++i)
        out.Put(text[i]);
    if (dv.left)
        out.Repeat(' ', pad);
}

// Reads a decimal field width or precision; saturates instead of overflowing.
long ReadNumber(const UCChar*& p) {
    long v = 0;
    while (*p >= '0' && *p <= '9') {
        if (v < INT_MAX / 10)
            v = v * 10 + (*p - '0');
        else
            v = INT_MAX;
        ++p;
    }
    return v;
}

size_t Format(Sink& out, const UCChar* format, va_list args) {
    if (!format)
        return 0;
    const UCChar* p = format;
    while (*p) {
        if (*p != '%') {
            out.Put(*p++);
            continue;
        }
        const UCChar* start = p++;
        Directive dv;
        for (;; ++p) {
            if (*p == '-')
                dv.left = true;
            else if (*p == '0')
                dv.zero = true;
            else
                break;
        }
        if (*p == '*') {
            ++p;
            int w = va_arg(args, int);
            if (w < 0) {
                dv.left = true;
                dv.width = w == INT_MIN ? INT_MAX : -static_cast<long>(w);
            } else {
                dv.width = w;
            }
        } else {
            dv.width = ReadNumber(p);
        }
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                ++p;
                int prec = va_arg(args, int);
                dv.precision = prec < 0 ? -1 : prec;
            } else {
                dv.precision = ReadNumber(p);
            }
        }
        int longs = 0;
        while (*p == 'l' && longs < 2) {
            ++longs;
            ++p;
        }
        switch (*p) {
        case 'd':
        case 'i': {
            long long v = longs == 2 ? va_arg(args, long long) : longs == 1 ? va_arg(args, long) : va_arg(args, int);
            unsigned long long mag = v < 0 ? 0ULL - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
            EmitInteger(out, dv, mag, v < 0, 10, false);
            break;
        }
        case 'u':
        case 'x':
        case 'X': {
            unsigned long long v = longs == 2   ? va_arg(args, unsigned long long)
                                   : longs == 1 ? va_arg(args, unsigned long)
                                                : va_arg(args, unsigned int);
            EmitInteger(out, dv, v, false, *p == 'u' ? 10 : 16, *p == 'X');
            break;
        }
        case 'f':
            EmitFixed(out, dv, va_arg(args, double));
            break;
        case 's':
        case 'S':
            EmitText(out, dv, va_arg(args, const UCChar*));
            break;
        case 'c': {
            UCChar c[2] = {static_cast<UCChar>(va_arg(args, int)), 0};
            Directive one = dv;
            one.precision = -1;
            if (c[0] == 0) {
                // A zero unit is written as such, not taken as the end.
                long pad = dv.width > 1 ? dv.width - 1 : 0;
                if (!dv.left)
                    out.Repeat(' ', pad);
                out.Put(0);
                if (dv.left)
                    out.Repeat(' ', pad);
            } else {
                EmitText(out, one, c);
            }
            break;
        }
        case '%':
            out.Put('%');
            break;
        default:
            // Unknown or unfinished directive: copy it as it stands.
            for (const UCChar* q = start; q < p; ++q)
                out.Put(*q);
            if (*p)
                out.Put(*p);
            else
                continue;
            break;
        }
        ++p;
    }
    return out.used;
}

}  // namespace

int wsfmt(UCChar* buffer, const UCChar* format, ...) {
    va_list args;
    va_start(args, format);
    int n = vwsfmt(buffer, format, args);
    va_end(args);
    return n;
}

int vwsfmt(UCChar* buffer, const UCChar* format, va_list args) {
    if (!buffer)
        return 0;
    Sink out{buffer, static_cast<size_t>(-1)};
    size_t n = Format(out, format, args);
    buffer[n] = 0;
    return static_cast<int>(n);
}

int vwsnfmt(UCChar* buffer, int limit, const UCChar* format, va_list args) {
    if (limit < 1 || !buffer)
        return 0;
    Sink out{buffer, static_cast<size_t>(limit) - 1};
    size_t n = Format(out, format, args);
    if (n > out.room)
        n = out.room;
    buffer[n] = 0;
    return static_cast<int>(n);
}
