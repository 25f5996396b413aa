// Canvases: picture surfaces composed from channel source buffers.  The
// canvas parser and writer (canvas.cpp) call the binding of source buffers
// to canvases (binding.cpp) at fixed points.
#ifndef KIV_CANVAS_CANVAS_H
#define KIV_CANVAS_CANVAS_H

#include <stdint.h>
#include <stdio.h>

#include <lua.h>

#include "kiv.h"

// The canvas type names, indexed by kiv_canvas_cfg.type.
#define KIV_CANVAS_TYPE_NUM 3
extern const char kiv_canvas_type_names[KIV_CANVAS_TYPE_NUM][16];

// Reads the `source` list of the canvas table on top of the stack and binds
// every named source buffer to canvas position `canvas`; records the feeding
// channels and, for two or more of them, reads `enable_order`.  0; -1 when a
// string names no buffer (or the list is empty); -2 when a buffer is
// already bound.
int32_t kiv_set_source_buffer_canvas_id(lua_State *L, kiv_multi_chan_cfg *cfg, int32_t canvas,
                                        kiv_canvas_cfg *canvas_cfg);

// The size covered by the buffers bound to canvas position `canvas`.
void kiv_get_canvas_extent(const kiv_multi_chan_cfg *cfg, int32_t canvas, uint32_t *width,
                           uint32_t *height);

// Writes the `source` line of canvas position `canvas`.
void kiv_dump_canvas_source(const kiv_multi_chan_cfg *cfg, int32_t canvas, FILE *out);

#endif
