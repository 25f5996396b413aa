// Virtual modes: an explicit description of a video input in place of a
// named input mode, read from a source's virt_mode_cfg table and written
// back as virt_mode_cfg_<id> tables.
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"
#include "vsrc/vsrc.h"

static const char FN[] = "kiv_get_virt_mode_cfg";

const kiv_name_id video_type_table[KIV_VIDEO_TYPE_NUM] = {
    {"yuv_601", 1}, {"yuv_656", 2},    {"rgb_601", 3},    {"rgb_656", 4},
    {"rgb_raw", 5}, {"yuv_bt1120", 6}, {"rgb_bt1120", 7},
};

static int32_t take_hdr(const char *fn, const char *, void *rec, const char *s)
{
    kiv_vsrc_cfg *vsrc = static_cast<kiv_vsrc_cfg *>(rec);
    return kiv_take_hdr_mode(fn, vsrc, s, &vsrc->virt_mode_cfg.hdr_mode);
}

static int32_t take_video_type(const char *fn, const char *, void *rec, const char *s)
{
    kiv_vsrc_cfg *vsrc = static_cast<kiv_vsrc_cfg *>(rec);
    const kiv_name_id *row = kiv_find_name(video_type_table, KIV_VIDEO_TYPE_NUM, s);
    if (!row) {
        KIV_ERR_AT(29, fn, "invalid video_type(%s) for vsrc(%d)\n", s, vsrc->vsrc_id);
        return -2;
    }
    vsrc->virt_mode_cfg.video_type = static_cast<uint32_t>(row->id);
    return 0;
}

// The record of these tables is the whole source: the messages name its id.
#define VIRT_INT(k, a, dflt)                                                                       \
    {                                                                                              \
#k, a, 0, dflt, KIV_FIELD(kiv_vsrc_cfg, virt_mode_cfg.k)                                   \
    }
#define VIRT_FPS(k)                                                                                \
    {                                                                                              \
#k, KIV_OPTIONAL, 0, 0, [](void *r, uint32_t v) {                                             \
         static_cast<kiv_vsrc_cfg *>(r)->virt_mode_cfg.k = kiv_fps_ceiling_from_script(v);         \
     }    \
    }

// The frame size and rates, read before default_fps is checked against
// max_fps: a default above the maximum ends the read there.
static const kiv_key size_keys[] = {
    VIRT_INT(width, KIV_REQUIRED, 0),
    VIRT_INT(height, KIV_REQUIRED, 0),
    VIRT_INT(bits, KIV_OPTIONAL, 8),
    VIRT_FPS(max_fps),
    VIRT_FPS(default_fps),
};

static const kiv_key mode_keys[] = {
    {.key = "hdr_mode", .absent = KIV_REQUIRED_QUIET, .str = take_hdr},
    VIRT_INT(hdr_offset_long, KIV_OPTIONAL, 0),
    VIRT_INT(hdr_offset_short1, KIV_OPTIONAL, 0),
    VIRT_INT(hdr_offset_short2, KIV_OPTIONAL, 0),
    VIRT_INT(hdr_offset_short3, KIV_OPTIONAL, 0),
    VIRT_INT(dual_gain_mode, KIV_OPTIONAL, 0),
    VIRT_INT(sensor_id, KIV_OPTIONAL, 0),
    VIRT_INT(agc_db_step, KIV_OPTIONAL, 0),
    {.key = "video_type", .absent = KIV_REQUIRED_QUIET, .str = take_video_type},
};

static int32_t read_virt_mode(lua_State *L, kiv_vsrc_cfg *vsrc)
{
    if (kiv_read_keys(L, FN, vsrc, size_keys) != 0)
        return -2;
    const kiv_virt_mode_cfg &virt = vsrc->virt_mode_cfg;
    // Both rates are compared, and printed, in thousandths of a frame per
    // second: the unit they are stored in.
    if (virt.default_fps > virt.max_fps) {
        KIV_ERR_AT(78, FN, "The default_fps[%d] can't be greater than max_fps[%d] for vsrc_(%d)\n",
                   virt.default_fps, virt.max_fps, vsrc->vsrc_id);
        return -2;
    }
    return kiv_read_keys(L, FN, vsrc, mode_keys) != 0 ? -2 : 0;
}

int32_t kiv_get_virt_mode_cfg(lua_State *L, kiv_vsrc_cfg *vsrc)
{
    KIV_STACK_GUARD(L);
    // A virt_mode_cfg that is not a table cannot be read: a faulty mode.
    if (!kiv_enter_str(L, "virt_mode_cfg"))
        return -2;
    int32_t ret = read_virt_mode(L, vsrc);
    kiv_leave(L);
    return ret;
}

static void dump_virt_mode(FILE *out, const kiv_vsrc_cfg &vsrc, uint32_t hp)
{
    const kiv_virt_mode_cfg &v = vsrc.virt_mode_cfg;
    kiv_out(out, "virt_mode_cfg_%d = {\n", vsrc.vsrc_id);
    kiv_out(out, "\twidth = %d,\n", v.width);
    kiv_out(out, "\theight = %d,\n", v.height);
    kiv_out(out, "\tbits = %d,\n", v.bits);
    kiv_dump_name_options(out, "hdr_mode", hdr_mode_table, KIV_HDR_MODE_NUM,
                          static_cast<int32_t>(v.hdr_mode));
    kiv_dump_name_options(out, "video_type", video_type_table, KIV_VIDEO_TYPE_NUM,
                          static_cast<int32_t>(v.video_type));
    kiv_out(out, "\tdual_gain_mode = %d,\n", v.dual_gain_mode);
    kiv_out(out, "\tdefault_fps = %d,\n", kiv_fps_ceiling_to_script(hp, v.default_fps));
    kiv_out(out, "\tmax_fps = %d,\n", kiv_fps_ceiling_to_script(hp, v.max_fps));
    kiv_out(out, "\tsensor_id = 0x%x,\n", v.sensor_id);
    kiv_out(out, "\tagc_db_step = 0x%x,\n", v.agc_db_step);
    kiv_out(out, "\thdr_offset_long = %d,\n", v.hdr_offset_long);
    kiv_out(out, "\thdr_offset_short1 = %d,\n", v.hdr_offset_short1);
    kiv_out(out, "\thdr_offset_short2 = %d,\n", v.hdr_offset_short2);
    kiv_out(out, "\thdr_offset_short3 = %d,\n", v.hdr_offset_short3);
    kiv_out_str(out, "}\n\n");
}

int32_t kiv_dump_virt_mode_cfg(const kiv_multi_chan_cfg *cfg, FILE *out, uint8_t hp_fps,
                               uint8_t chan_num)
{
    // The channel count comes from the caller; the record holds 3 channels.
    const int chans = chan_num < 3 ? chan_num : 3;
    for (int i = 0; i < chans; ++i) {
        const kiv_vsrc_cfg &vsrc = cfg->channels[i].vsrc;
        if (kiv_vsrc_first_of(cfg, i) && vsrc.virt_mode_cfg_enable)
            dump_virt_mode(out, vsrc, hp_fps);
    }
    return 0;
}
