// The parsers the multi-channel loader calls and the writers the dump calls,
// in the order they run.  Each subsystem implements its own.
#ifndef KIV_CORE_SECTIONS_H
#define KIV_CORE_SECTIONS_H

#include <stdint.h>
#include <stdio.h>

#include <lua.h>

#include "kiv.h"

// Parsers: called with _resource_config_ on top of the Lua stack, they
// leave the stack as they found it and return 0 on success.
int32_t kiv_get_channel_cfg(lua_State *L, kiv_multi_chan_cfg *cfg);
int32_t kiv_get_chan_grp_cfg(lua_State *L, kiv_multi_chan_cfg *cfg);
int32_t kiv_get_canvas_cfg(lua_State *L, kiv_multi_chan_cfg *cfg);
int32_t kiv_get_stream_cfg(lua_State *L, kiv_multi_chan_cfg *cfg);
// Ends the loader's use of the state (the run frame closes it).
int32_t kiv_get_mem_cfg_resource(lua_State *L, kiv_multi_chan_cfg *cfg);

// The whole script the dump writes for the record at ctx, to `out` (null:
// standard output); a kiv_text_fn for kiv_write_file.
void kiv_write_script(FILE *out, const void *ctx);

// Writers: `out` is the open output, or null for standard output.
int32_t kiv_dump_virt_mode_cfg(const kiv_multi_chan_cfg *cfg, FILE *out, uint8_t hp_fps,
                               uint8_t chan_num);
int32_t kiv_dump_vsrc_cfg(const kiv_multi_chan_cfg *cfg, FILE *out);
int32_t kiv_dump_channel_cfg(const kiv_multi_chan_cfg *cfg, FILE *out);
int32_t kiv_dump_stream_cfg(const kiv_multi_chan_cfg *cfg, FILE *out);
int32_t kiv_dump_chan_grp_cfg(const kiv_multi_chan_cfg *cfg, FILE *out);
int32_t kiv_dump_canvas_cfg(const kiv_multi_chan_cfg *cfg, FILE *out);
int32_t kiv_dump_mem_cfg_resource(const kiv_multi_chan_cfg *cfg, FILE *out);

#endif
