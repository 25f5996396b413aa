#include <string.h>

#include "core/export.h"
#include "core/log.h"
#include "kiv.h"

KIV_API int32_t kiv_init(kiv_multi_chan_cfg *cfg)
{
    if (!cfg) {
        KIV_ERR_AT(10, "kiv_init", "the 1st is NULL\n");
        return -1;
    }
    memset(cfg, 0, sizeof *cfg);
    for (kiv_channel_cfg &chan : cfg->channels) {
        chan.id = 0xFF;
        for (auto &pass : chan.src_buf)
            for (kiv_src_buf_cfg &buf : pass)
                buf.canvas_id = -1;
    }
    for (kiv_canvas_cfg &canvas : cfg->canvas)
        canvas.id = -1;
    return 0;
}
