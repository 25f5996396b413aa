// The HEVC scaling-list loader.
#include "fuzz_common.h"
#include "kiv.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    kivfuzz::setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (kivfuzz::is_binary_chunk(data, size))
        return -1;
    const char *in = kivfuzz::scratch("hevc.lua");
    if (!kivfuzz::write_file(in, data, size))
        return 0;
    static kiv_hevc_scaling_cfg cfg;
    kiv_get_hevc_scaling_cfg(in, &cfg);
    return 0;
}
