// Channels: the steps the channel parser runs at fixed points of a channel
// table's reading order, and the sections of the channel writer.
#ifndef KIV_CHANNEL_CHANNEL_H
#define KIV_CHANNEL_CHANNEL_H

#include <stdint.h>
#include <stdio.h>

#include <lua.h>

#include "kiv.h"

// Channels a record holds; the id of a channel is its element.
#define KIV_MAX_CHAN 3

// Reads the seven named source buffers of pass `pass_id` from the table on
// top of the stack (the channel table for pass 0, pass_<p> otherwise) into
// bufs.  "main" is required in pass 0 only.  Returns 0, -1 (a pass the
// record cannot hold; bufs is not touched) or -2.
int32_t parse_src_buffer_cfg(lua_State *L, int32_t chan_id, int32_t pass_id, kiv_src_buf_cfg *bufs);

// The passes after pass 0, for a channel whose pass_num is 2 or more.
// Returns 0, or the result that the channel ends with once the rest of its
// table has been read.
int32_t kiv_get_src_buf_passes(lua_State *L, kiv_channel_cfg *chan);

// Reads the optional pyramid of the channel table on top of the stack.
// Returns 0, or non-zero when it is absent or faulty.
int32_t kiv_get_pyramid_cfg(lua_State *L, kiv_channel_cfg *chan);

// Steps of the channel parser with messages of their own name.
int32_t kiv_get_img_stats_src_chan_id(lua_State *L, kiv_channel_cfg *chan);
int32_t kiv_get_multi_region_warp(lua_State *L, kiv_channel_cfg *chan);

// When the array field `key` of the table on top has at least n elements,
// stores the first n into dst.  Returns the number of elements.  n is at
// most KIV_UINT_ARRAY_MAX (the widest array of a channel, a rectangle); a
// larger n stores nothing.
#define KIV_UINT_ARRAY_MAX 4
int32_t kiv_read_uint_array(lua_State *L, const char *key, uint32_t *dst, int32_t n);

// Sections of a chan_<n> table; hp is the record's own enable_hp_fps bit.
void kiv_dump_src_buf_cfg(FILE *out, const kiv_channel_cfg &chan);
void kiv_dump_pyramid_cfg(FILE *out, const kiv_pyramid_cfg &pyramid, uint32_t hp);

#endif
