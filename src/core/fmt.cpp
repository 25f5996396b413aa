#include "core/fmt.h"

#include <string.h>

namespace
{

// Appends to a buffer the way vsnprintf fills one: what does not fit is
// counted but not stored.
struct sink {
    char *buf;
    size_t room; // characters that may be stored
    size_t len;  // characters of the whole text so far

    void put(const char *s, size_t n)
    {
        if (len < room)
            memcpy(buf + len, s, room - len < n ? room - len : n);
        len += n;
    }
    void put_digits(unsigned long v, unsigned base)
    {
        char tmp[24];
        char *end = tmp + sizeof tmp;
        char *d = end;
        do {
            *--d = "0123456789abcdef"[v % base];
            v /= base;
        } while (v != 0);
        put(d, static_cast<size_t>(end - d));
    }
    void put_signed(long v)
    {
        unsigned long u = static_cast<unsigned long>(v);
        if (v < 0) {
            put("-", 1);
            u = 0ul - u;
        }
        put_digits(u, 10);
    }
};

} // namespace

int kiv_format(char *buf, size_t cap, const char *fmt, va_list ap)
{
    sink out{buf, cap - 1, 0};
    const char *p = fmt;
    for (;;) {
        // The text up to the next conversion, byte by byte (the pieces of a
        // log or dump line are short), into the room there is.
        const char *pct = p;
        while (*pct && *pct != '%') {
            if (out.len < out.room)
                out.buf[out.len] = *pct;
            ++out.len;
            ++pct;
        }
        if (*pct == '\0')
            break;
        bool is_long = pct[1] == 'l';
        char conv = is_long ? pct[2] : pct[1];
        switch (conv) {
        case 'd':
            out.put_signed(is_long ? va_arg(ap, long) : va_arg(ap, int));
            break;
        case 'u':
            out.put_digits(is_long ? va_arg(ap, unsigned long) : va_arg(ap, unsigned), 10);
            break;
        case 'x':
            out.put_digits(is_long ? va_arg(ap, unsigned long) : va_arg(ap, unsigned), 16);
            break;
        case 's': {
            if (is_long)
                return -1;
            const char *s = va_arg(ap, const char *);
            if (!s)
                s = "(null)";
            out.put(s, strlen(s));
            break;
        }
        case '%':
            if (is_long)
                return -1;
            out.put("%", 1);
            break;
        default:
            return -1;
        }
        p = pct + (is_long ? 3 : 2);
    }
    buf[out.len < out.room ? out.len : out.room] = '\0';
    return out.len > 0x7fffffff ? -1 : static_cast<int>(out.len);
}

char *kiv_decimal(char *end, int n)
{
    char *d = end;
    unsigned u = n < 0 ? 0u - static_cast<unsigned>(n) : static_cast<unsigned>(n);
    do
        *--d = static_cast<char>('0' + u % 10);
    while ((u /= 10) != 0);
    if (n < 0)
        *--d = '-';
    return d;
}

int kiv_format_name(char *buf, size_t cap, const char *prefix, int n)
{
    char digits[12];
    const char *d = kiv_decimal(digits + sizeof digits, n);
    const size_t plen = strlen(prefix), dlen = static_cast<size_t>(digits + sizeof digits - d);
    const size_t p = plen < cap - 1 ? plen : cap - 1;
    const size_t k = dlen < cap - 1 - p ? dlen : cap - 1 - p;
    memcpy(buf, prefix, p);
    memcpy(buf + p, d, k);
    buf[p + k] = '\0';
    return static_cast<int>(plen + dlen);
}
