// Placeholder until the calibration loaders land.
#include "core/export.h"
#include "kiv.h"

KIV_API int32_t kiv_get_calib_data_size(const char *)
{
    return 0;
}
KIV_API int32_t kiv_load_calib_data(const char *, kiv_calib_data_item *, uint32_t)
{
    return -1;
}
