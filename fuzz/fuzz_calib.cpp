// The calibration loaders.
#include <stdlib.h>

#include "fuzz_common.h"
#include "kiv.h"

void kivfuzz::run(const char *in)
{
    int32_t n = kiv_get_calib_data_size(in);
    if (n < 0)
        abort();
    static kiv_calib_data_item items[4096];
    uint32_t want = n > 0 && n <= 4096 ? static_cast<uint32_t>(n) : 1;
    kiv_load_calib_data(in, items, want);
}
