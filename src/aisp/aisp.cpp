// Placeholder until the AISP loader lands.
#include "core/export.h"
#include "kiv.h"

KIV_API int32_t kiv_get_aisp_cfg(const char *, kiv_aisp_cfg *, uint8_t)
{
    return -1;
}
