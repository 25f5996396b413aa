/* Compiled as C99 with -Wpedantic -Werror: the public header is plain C. */
#include "kiv.h"

int kiv_header_c_check(void);
int kiv_header_c_check(void)
{
    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    return (int)sizeof(cfg);
}
