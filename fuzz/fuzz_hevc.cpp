// The HEVC scaling-list loader.
#include "fuzz_common.h"
#include "kiv.h"

void kivfuzz::run(const char *in)
{
    static kiv_hevc_scaling_cfg cfg;
    kiv_get_hevc_scaling_cfg(in, &cfg);
}
