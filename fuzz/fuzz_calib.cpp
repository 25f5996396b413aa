// The calibration loaders.
#include <stdlib.h>

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
    const char *in = kivfuzz::scratch("calib.lua");
    if (!kivfuzz::write_file(in, data, size))
        return 0;
    int32_t n = kiv_get_calib_data_size(in);
    if (n < 0)
        abort();
    static kiv_calib_data_item items[4096];
    uint32_t want = n > 0 && n <= 4096 ? static_cast<uint32_t>(n) : 1;
    kiv_load_calib_data(in, items, want);
    return 0;
}
