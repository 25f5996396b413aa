// Video sources: the parser the channel parser calls for each channel, the
// name tables of input modes, HDR modes and video types, and virtual modes.
#ifndef KIV_VSRC_VSRC_H
#define KIV_VSRC_VSRC_H

#include <stdint.h>
#include <stdio.h>

#include <lua.h>

#include "kiv.h"

// The mode of a video source described by a virtual mode.
#define VIN_MODE_VIRTUAL 0xF001

// Source ids a record can carry: one per channel at most.  The dump keeps
// one table per id, and the parser refuses larger ids.
#define KIV_VSRC_ID_NUM 3

// One row of a name table: a script name and the id stored for it.
struct kiv_name_id {
    const char *name;
    int32_t id;
};

#define KIV_VIN_MODE_NUM 96
#define KIV_HDR_MODE_NUM 4
#define KIV_VIDEO_TYPE_NUM 7
extern const kiv_name_id vin_mode_table[KIV_VIN_MODE_NUM];
extern const kiv_name_id hdr_mode_table[KIV_HDR_MODE_NUM];
extern const kiv_name_id video_type_table[KIV_VIDEO_TYPE_NUM];

// Row of `table` (n rows) whose name is `name` / whose id is `id`, first in
// table order; null when there is none.
const kiv_name_id *kiv_find_name(const kiv_name_id *table, int n, const char *name);
const kiv_name_id *kiv_find_id(const kiv_name_id *table, int n, int32_t id);

// Mode id of the input mode named `name`, or -2 (after an error line).
int32_t kiv_get_vin_mode(const char *name);

// Reads the item vsrc of the channel table on top of the stack into vsrc.
// Returns 0, -1 or -2; the stack is left as it was found.
int32_t kiv_get_vsrc_cfg(lua_State *L, kiv_vsrc_cfg *vsrc);

// Reads the item virt_mode_cfg of the source table on top of the stack into
// vsrc->virt_mode_cfg (vsrc_id already set).  Returns 0 or -2.
int32_t kiv_get_virt_mode_cfg(lua_State *L, kiv_vsrc_cfg *vsrc);

// A string key naming a row of hdr_mode_table, for the source and virtual
// mode tables (the record is the kiv_vsrc_cfg; `field` the one to fill).
int32_t kiv_take_hdr_mode(const char *fn, const kiv_vsrc_cfg *vsrc, const char *s, uint32_t *field);

// Writes "<key> = \"<name>\", -- options: \"a\", \"b\", ...\n" for a named
// id: the first piece is left out when no row has the id.
void kiv_dump_name_options(FILE *out, const char *key, const kiv_name_id *table, int n, int32_t id);

// Whether channel i is the first of channels 0 .. i that carries its source
// id: the dump writes each distinct source (and its virtual mode) once, from
// that channel.  Comparing with the earlier channels rather than keeping a
// mark per id never indexes out of range, whatever id a record holds.
bool kiv_vsrc_first_of(const kiv_multi_chan_cfg *cfg, int i);

#endif
