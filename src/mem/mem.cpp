// Placeholder until the resource memory layout parser lands.
#include "core/sections.h"

int32_t kiv_get_mem_cfg_resource(lua_State *, kiv_multi_chan_cfg *)
{
    return 0;
}
int32_t kiv_dump_mem_cfg_resource(const kiv_multi_chan_cfg *, FILE *)
{
    return 0;
}
