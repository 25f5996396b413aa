// Placeholder until the stream parser lands.
#include "core/sections.h"

int32_t kiv_get_stream_cfg(lua_State *, kiv_multi_chan_cfg *)
{
    return 0;
}
int32_t kiv_dump_stream_cfg(const kiv_multi_chan_cfg *, FILE *)
{
    return 0;
}
