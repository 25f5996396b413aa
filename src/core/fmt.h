// A small formatter for the log and the dump: the conversions their texts
// use, formatted without the general machinery of vsnprintf, which costs
// more than the whole read of a key.
#ifndef KIV_CORE_FMT_H
#define KIV_CORE_FMT_H

#include <stdarg.h>
#include <stddef.h>

// Formats `fmt` into buf exactly as vsnprintf would when every conversion
// in it is one of %d, %u, %x, %ld, %lu, %lx, %s or %% (no flags, width or
// precision): at most cap - 1 characters and a NUL are written (cap > 0)
// and the length of the whole text is returned.  Returns -1, with buf
// undefined and `ap` partly consumed, when fmt has any other conversion;
// the caller then formats a copy of its arguments with the C library.
int kiv_format(char *buf, size_t cap, const char *fmt, va_list ap);

// The decimal text of n, written so that it ends just before `end` (room
// for 11 characters before it); returns where it starts.
char *kiv_decimal(char *end, int n);

// The name `prefix` followed by the decimal n ("chan_3", "pass_1") into buf
// of cap > 0 bytes, as snprintf(buf, cap, "%s%d", prefix, n) would.
int kiv_format_name(char *buf, size_t cap, const char *prefix, int n);

#endif
