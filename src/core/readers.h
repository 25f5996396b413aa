// The reading steps of the exported loaders (kiv_read_fn, run by
// kiv_run_script once the script has run), each with what it reads into.
// The loaders run them on a state of their own; kiv_load_any (any.h) runs
// the one a script's kind calls for.  Including it includes core/run.h.
#ifndef KIV_CORE_READERS_H
#define KIV_CORE_READERS_H

#include <stdint.h>

#include <lua.h>

#include "aisp/aisp.h"
#include "core/run.h"
#include "kiv.h"

// kiv_get_multi_chan_cfg: ctx is the kiv_multi_chan_cfg.
int32_t kiv_read_multi_chan(lua_State *L, void *ctx);
// kiv_get_calib_data_size: ctx is the int32_t count.
int32_t kiv_read_calib_count(lua_State *L, void *ctx);
// kiv_load_calib_data: ctx is a kiv_calib_load.
struct kiv_calib_load {
    kiv_calib_data_item *items;
    uint32_t data_size;
};
int32_t kiv_read_calib_items(lua_State *L, void *ctx);
// kiv_get_hevc_scaling_cfg: ctx is the kiv_hevc_scaling_cfg.
int32_t kiv_read_hevc(lua_State *L, void *ctx);
// kiv_get_aisp_cfg: ctx is a kiv_aisp_read.
struct kiv_aisp_read {
    kiv_aisp_cfg *cfg;
    uint8_t type;
    kiv_aisp_fill fill;
};
int32_t kiv_read_aisp(lua_State *L, void *ctx);

#endif
