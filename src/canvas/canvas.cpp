// Placeholder until the canvas parser lands.
#include "core/out.h"
#include "core/sections.h"

int32_t kiv_get_canvas_cfg(lua_State *, kiv_multi_chan_cfg *)
{
    return 0;
}
int32_t kiv_dump_canvas_cfg(const kiv_multi_chan_cfg *, FILE *out)
{
    kiv_out_str(out, "\tcanvas = {\n\t},\n");
    return 0;
}
