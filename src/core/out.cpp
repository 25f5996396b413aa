#include "core/out.h"

#include <stdarg.h>

void kiv_out(FILE *out, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    vfprintf(out ? out : stdout, fmt, ap);
    va_end(ap);
}

void kiv_out_str(FILE *out, const char *text)
{
    fputs(text, out ? out : stdout);
}
