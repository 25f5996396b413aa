// The custom AISP loader.
#include "fuzz_common.h"
#include "kiv.h"

void kivfuzz::run(const char *in)
{
    static kiv_aisp_cfg cfg;
    kiv_get_aisp_cfg(in, &cfg, 1);
}
