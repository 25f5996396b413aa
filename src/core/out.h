// Output of the dump: a writer given no stream writes to standard output.
#ifndef KIV_CORE_OUT_H
#define KIV_CORE_OUT_H

#include <stdio.h>

void kiv_out(FILE *out, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void kiv_out_str(FILE *out, const char *text);

#endif
