// Video sources: the parser the channel parser calls for each channel.
#ifndef KIV_VSRC_VSRC_H
#define KIV_VSRC_VSRC_H

#include <stdint.h>

#include <lua.h>

#include "kiv.h"

// The mode of a video source described by a virtual mode.
#define VIN_MODE_VIRTUAL 0xF001

// Reads the item vsrc of the channel table on top of the stack into vsrc.
// Returns 0, -1 or -2; the stack is left as it was found.
int32_t kiv_get_vsrc_cfg(lua_State *L, kiv_vsrc_cfg *vsrc);

#endif
