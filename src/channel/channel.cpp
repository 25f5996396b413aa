// Placeholder until the channel parser lands.
#include "core/sections.h"

int32_t kiv_get_channel_cfg(lua_State *, kiv_multi_chan_cfg *)
{
    return 0;
}
int32_t kiv_dump_channel_cfg(const kiv_multi_chan_cfg *, FILE *)
{
    return 0;
}

#include "channel/srcbuf.h"
const char kiv_src_buf_names[KIV_SRC_BUF_NUM][16] = {"main",  "second", "third",  "fourth",
                                                     "fifth", "sixth",  "premain"};
