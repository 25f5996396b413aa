// Placeholder until the scaling-list loader lands.
#include "core/export.h"
#include "kiv.h"

KIV_API int32_t kiv_get_hevc_scaling_cfg(const char *, kiv_hevc_scaling_cfg *)
{
    return -1;
}
