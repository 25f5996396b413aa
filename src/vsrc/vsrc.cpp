// Placeholder until the video source parser lands.
#include "core/sections.h"

int32_t kiv_dump_vsrc_cfg(const kiv_multi_chan_cfg *, FILE *)
{
    return 0;
}
int32_t kiv_dump_virt_mode_cfg(const kiv_multi_chan_cfg *, FILE *, uint8_t, uint8_t)
{
    return 0;
}

#include "vsrc/vsrc.h"
int32_t kiv_get_vsrc_cfg(lua_State *, kiv_vsrc_cfg *)
{
    return 0;
}
