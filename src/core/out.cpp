#include "core/out.h"

#include <stdarg.h>

#include "core/fmt.h"

// A dump line is formatted on the stack and written in one piece; a line
// the formatter does not handle, or one longer than the buffer, goes through
// the C library's own formatting with the same result.  The stream is the
// dump's own, or standard output locked by the dump for its whole text:
// lines are written without taking the stream's lock each.
void kiv_out(FILE *out, const char *fmt, ...)
{
    FILE *stream = out ? out : stdout;
    char buf[512];
    va_list ap, copy;
    va_start(ap, fmt);
    va_copy(copy, ap);
    int n = kiv_format(buf, sizeof buf, fmt, ap);
    if (n >= 0 && static_cast<size_t>(n) < sizeof buf)
        fwrite_unlocked(buf, 1, static_cast<size_t>(n), stream);
    else
        vfprintf(stream, fmt, copy);
    va_end(copy);
    va_end(ap);
}

void kiv_out_str(FILE *out, const char *text)
{
    fputs_unlocked(text, out ? out : stdout);
}
