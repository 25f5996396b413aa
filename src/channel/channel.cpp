// Channels: the channels array of _resource_config_, read element by element
// into the record named by each element's id, and the chan_<n> tables of the
// dump.
#include <stdio.h>
#include <string.h>

#include "channel/channel.h"
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"
#include "vsrc/vsrc.h"

static const char FN[] = "kiv_get_channel_cfg";

// The largest value srcbuf_to_fusion may hold.  Values above 5 have always
// been refused, so 6 is refused too, and the message names the bound that
// is enforced.
static const uint32_t SRCBUF_TO_FUSION_MAX = 5;
static const uint32_t SRCBUF_TO_SKIP_BLEND_MAX = 0x1f;

// Out-of-range values are set to 0 and the channel goes on.
static int32_t check_skip_blend(const char *fn, const char *key, uint32_t *value)
{
    if (*value > SRCBUF_TO_SKIP_BLEND_MAX) {
        KIV_WARN_AT(27, fn, "item(%s) shoulder not bigger than 0x1f.\n", key);
        *value = 0;
    }
    return 0;
}

static int32_t check_fusion(const char *fn, const char *key, uint32_t *value)
{
    *value &= 7; // the field's width decides first
    if (*value > SRCBUF_TO_FUSION_MAX) {
        KIV_ERR_AT(37, fn, "item(%s) should not bigger than %d.\n", key, SRCBUF_TO_FUSION_MAX);
        *value = 0;
    }
    return 0;
}

#define OPT(k)                                                                                     \
    {                                                                                              \
#k, KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_channel_cfg, k)                                      \
    }
#define OPT_DFLT(k, d)                                                                             \
    {                                                                                              \
#k, KIV_OPTIONAL, 0, d, KIV_FIELD(kiv_channel_cfg, k)                                      \
    }
#define REQ(k)                                                                                     \
    {                                                                                              \
#k, KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_channel_cfg, k)                                      \
    }
// A switch whose bit 0 decides whether the next n keys are read.
#define SWITCH(k, n)                                                                               \
    {                                                                                              \
#k, KIV_OPTIONAL, n, 0, KIV_FIELD(kiv_channel_cfg, k)                                      \
    }
#define CHECKED(k, c)                                                                              \
    {                                                                                              \
#k, KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_channel_cfg, k), c                                   \
    }

// The keys of a channel table up to pass_num, in reading order.  The order
// is that of the log's WARN lines for absent keys.
static const kiv_key chan_keys[] = {
    OPT(vsrc_ctx),
    OPT(app_img_profile),
    OPT(low_delay_vin_vout),
    OPT(packing_mode_enable),
    OPT(raw_capture),
    OPT(hdec_raw_format),
    OPT(raw_dsp_priv_dram),
    OPT(eis_delay_count),
    OPT(raw_manual_feed),
    OPT(raw_feed_frame_num),
    OPT(raw_cached_items),
    OPT(extra_iso_cfg),
    REQ(sensor_ctrl),
    OPT(reuse_src_chan_iso_cfg),
    {"idsp_fps", KIV_OPTIONAL, 0, 0,
     [](void *r, uint32_t v) {
         kiv_fps_pair fps = kiv_fps_from_script(v);
         static_cast<kiv_channel_cfg *>(r)->idsp_fps = fps.whole;
         static_cast<kiv_channel_cfg *>(r)->idsp_fps_hp = fps.thousandths;
     }},
    OPT(idsp_fps_locked_enable),
    REQ(max_padding_width),
    OPT(debug_stitch_slice_num),
    OPT(mcts_crop_out_enable),
    OPT(max_raw_height),
    OPT(extra_downscale),
    OPT(max_main_input_width),
    OPT(lens_warp),
    OPT(lens_warp_hi_ef_factor),
    OPT(max_vwarp_wait_lines),
    OPT(max_vwarp_blk_height),
    OPT(expo_num),
    OPT(blend_left_or_top),
    OPT(blend_right_or_bot),
    OPT(max_cawarp_h_spacing),
    CHECKED(srcbuf_to_skip_blend, check_skip_blend),
    OPT(mctf_cmpr),
    OPT(mctf_10bit_ref),
    OPT_DFLT(main_burst_tile, 1),
    SWITCH(use_vsrc_ctx_pattern, 3),
    REQ(vsrc_ctx_pattern),
    REQ(vsrc_ctx_pattern_mask),
    OPT(vsrc_ctx_pattern_addr_offset),
    OPT(trigger_led),
    SWITCH(enable_group, 3),
    REQ(group_idx),
    OPT(group_order_idx),
    OPT(group_sync),
    OPT(invert_mode),
    OPT(rotate_cw),
    OPT(hflip),
    OPT(vflip),
    OPT(raw_vflip),
    OPT_DFLT(vcap_mode_flags, 0x80),
    OPT(dis_enable),
    OPT(debug_default_hds_coeff),
    OPT(debug_disable_vin_12x_ds),
    OPT_DFLT(vsrc_region_num, 1),
    OPT(vsrc_region_map),
    OPT(luma_alpha_blend),
    OPT(extract_mono),
    OPT(is_still_fusion),
    OPT(enable_tml_raw_packing),
    OPT(enable_tml_proc),
    CHECKED(srcbuf_to_fusion, check_fusion),
    OPT_DFLT(pass_num, 1),
};

// Read between the source buffers of pass 0 and the further passes.
static const kiv_key mc_mask_keys[] = {OPT(mc_mask_buf_ds)};

static const kiv_key warp_keys[] = {OPT(max_warp_input_width), OPT(max_warp_output_width)};

// The id selects the record the rest of the table goes to.
struct chan_id {
    int32_t id;
};

static int32_t check_chan_id(const char *fn, const char *, uint32_t *value)
{
    int32_t id = static_cast<int32_t>(*value);
    if (id < 0 || id >= KIV_MAX_CHAN) {
        KIV_ERR_AT(150, fn,
                   "invalid channel id(%d) which is >= CONFIG_QUENTARIS_MAX_CHANNEL_NUM[%d].\nYou "
                   "might need to increase CONFIG_QUENTARIS_MAX_CHANNEL_NUM through menuconfig.\n",
                   id, KIV_MAX_CHAN);
        return -1;
    }
    return 0;
}

static const kiv_key id_keys[] = {
    {"id", KIV_REQUIRED, 0, 0, KIV_FIELD(chan_id, id), check_chan_id}};

int32_t kiv_get_img_stats_src_chan_id(lua_State *L, kiv_channel_cfg *chan)
{
    static const char SFN[] = "kiv_get_img_stats_src_chan_id";
    static const char KEY[] = "img_stats_src_chan";
    KIV_STACK_GUARD(L);
    // Channel names are short: a value cut to the buffer names no channel.
    char value[32];
    if (kiv_get_string_item_str(L, KEY, value, sizeof value) != 0) {
        chan->img_stats_src_chan = chan->id;
        KIV_WARN_AT(171, SFN, "item(%s) of channel(%d) doesn't exist, default to %d\n", KEY,
                    chan->id, chan->id);
        return 0;
    }
    for (int i = 0; i < KIV_MAX_CHAN; ++i) {
        char name[32];
        kiv_format_name(name, sizeof name, "chan_", i);
        if (strncmp(value, name, sizeof name) == 0) {
            chan->img_stats_src_chan = static_cast<uint8_t>(i);
            return 0;
        }
    }
    KIV_ERR_AT(183, SFN, "invalid item(%s) value(%s)\n", KEY, value);
    chan->img_stats_src_chan = 0xFF;
    return -2;
}

int32_t kiv_get_multi_region_warp(lua_State *L, kiv_channel_cfg *chan)
{
    return kiv_read_keys(L, "kiv_get_multi_region_warp", chan, warp_keys);
}

// One channel table, on top of the stack.
static int32_t read_channel(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    chan_id id{};
    int32_t ret = kiv_read_keys(L, FN, &id, id_keys);
    if (ret != 0)
        return ret;
    kiv_channel_cfg &chan = cfg->channels[id.id];
    chan.id = static_cast<uint8_t>(id.id);

    ret = kiv_read_keys(L, FN, &chan, chan_keys);
    if (ret != 0)
        return ret;
    chan.pass_cfg[0].input_pass_id = 0;
    chan.pass_cfg[0].input_buf_id = 0;
    if (parse_src_buffer_cfg(L, id.id, 0, chan.src_buf[0]) != 0)
        return -2;
    kiv_read_keys(L, FN, &chan, mc_mask_keys);
    // A faulty further pass fails the channel only once the rest of its table
    // has been read.
    int32_t pass_ret = 0;
    if (chan.pass_num >= 2) {
        pass_ret = kiv_get_src_buf_passes(L, &chan);
    } else {
        static const char *const FURTHER[] = {"pass_1"};
        kiv_note_unread(FURTHER, 1);
    }
    if (kiv_get_pyramid_cfg(L, &chan) != 0)
        KIV_WARN_AT(221, FN, "pyramid of channel(%d) doen't exist\n", chan.id);
    if (kiv_get_vsrc_cfg(L, &chan.vsrc) != 0) {
        KIV_ERR_AT(223, FN, "get vsrc config of channel(%d) error\n", chan.id);
        return -2;
    }
    if (kiv_get_img_stats_src_chan_id(L, &chan) != 0) {
        KIV_ERR_AT(227, FN, "get img_stats_src_chan of channel(%d) error\n", chan.id);
        return -2;
    }
    kiv_get_multi_region_warp(L, &chan);
    if (pass_ret != 0)
        return pass_ret;
    chan.configured = 1;
    return 0;
}

int32_t kiv_get_channel_cfg(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    KIV_STACK_GUARD(L);
    const int32_t n = kiv_get_array_item_num_str(L, "channels");
    if (n == 0 || !kiv_enter_str(L, "channels")) {
        KIV_ERR_AT(242, FN, "no channel config found\n");
        return -2;
    }
    for (int32_t k = 0; k < n; ++k) {
        int32_t ret;
        if (kiv_enter_int(L, k)) {
            ret = read_channel(L, cfg);
            kiv_leave(L);
        } else {
            // An element that is not a table is a channel without an id.
            KIV_ERR_AT(252, FN, "item(%s) doesn't exist.\n", "id");
            ret = -2;
        }
        if (ret != 0) {
            kiv_leave(L);
            return ret;
        }
    }
    kiv_leave(L);

    if (n > KIV_MAX_CHAN) {
        KIV_ERR_AT(263, FN, "chan_num(%d) is larger than the max supported channel num(%d)\n", n,
                   KIV_MAX_CHAN);
        return -2;
    }
    cfg->chan_num = static_cast<uint8_t>(n);
    // The ids of the n tables must be exactly 0 .. n-1, in any order.
    for (int32_t i = 0; i < n; ++i) {
        if (cfg->channels[i].id >= n) {
            KIV_ERR_AT(271, FN, "invalid channel id(%d) in channel(%d)\n", cfg->channels[i].id, i);
            return -1;
        }
    }
    return 0;
}

// One line of a chan_<n> table: a format with one value, or a comment line
// (no value) that opens a group of lines.
struct chan_line {
    const char *fmt;
    uint32_t (*load)(const void *chan);
};

#define LINE(fmt, k)                                                                               \
    {                                                                                              \
        fmt, [](const void *r) -> uint32_t { return static_cast<const kiv_channel_cfg *>(r)->k; }  \
    }
#define COMMENT(text)                                                                              \
    {                                                                                              \
        text, nullptr                                                                              \
    }

// The lines after idsp_fps up to the source buffer section, in order.
static const chan_line chan_lines[] = {
    LINE("\tidsp_fps_locked_enable = %d,\n", idsp_fps_locked_enable),
    COMMENT("-- ================ vsrc_ctx cfg ================\n"),
    LINE("\tvsrc_ctx = %d,\n", vsrc_ctx),
    LINE("\tuse_vsrc_ctx_pattern = %u,\n", use_vsrc_ctx_pattern),
    LINE("\tvsrc_ctx_pattern = %u,\n", vsrc_ctx_pattern),
    LINE("\tvsrc_ctx_pattern_mask = %u,\n", vsrc_ctx_pattern_mask),
    LINE("\tvsrc_ctx_pattern_addr_offset = %u,\n", vsrc_ctx_pattern_addr_offset),
    COMMENT("-- ================    3A cfg    ================\n"),
    LINE("\tsensor_ctrl = %d,\n", sensor_ctrl),
    LINE("\timg_stats_src_chan = \"chan_%d\",\n", img_stats_src_chan),
    LINE("\tapp_img_profile = %d,\n", app_img_profile),
    LINE("\tpacking_mode_enable = %u,\n", packing_mode_enable),
    LINE("\traw_capture = %d,\n", raw_capture),
    LINE("\thdec_raw_format = %d,\n", hdec_raw_format),
    LINE("\traw_dsp_priv_dram = %d,\n", raw_dsp_priv_dram),
    LINE("\traw_manual_feed = %d,\n", raw_manual_feed),
    LINE("\traw_feed_frame_num = %d,\n", raw_feed_frame_num),
    LINE("\traw_cached_items = %d,\n", raw_cached_items),
    LINE("\tmctf_cmpr = %d,\n", mctf_cmpr),
    LINE("\tmctf_10bit_ref = %d,\n", mctf_10bit_ref),
    LINE("\texpo_num = %u,\n", expo_num),
    LINE("\tvcap_mode_flags = %u,\n", vcap_mode_flags),
    LINE("\tdis_enable = %u,\n", dis_enable),
    LINE("\tdebug_default_hds_coeff = %u,\n", debug_default_hds_coeff),
    LINE("\tdebug_disable_vin_12x_ds = %u,\n", debug_disable_vin_12x_ds),
    LINE("\tvsrc_region_num = %u,\n", vsrc_region_num),
    LINE("\tvsrc_region_map = %u,\n", vsrc_region_map),
    LINE("\tluma_alpha_blend = %u,\n", luma_alpha_blend),
    LINE("\textract_mono = %u,\n", extract_mono),
    LINE("\tinvert_mode = %u,\n", invert_mode),
    LINE("\tis_still_fusion = %u,\n", is_still_fusion),
    LINE("\tenable_tml_raw_packing = %u,\n", enable_tml_raw_packing),
    LINE("\tenable_tml_proc = %u,\n", enable_tml_proc),
    LINE("\tsrcbuf_to_fusion = %d,\n", srcbuf_to_fusion),
    LINE("\tenable_group = %u,\n", enable_group),
    LINE("\tgroup_idx = %u,\n", group_idx),
    LINE("\tgroup_order_idx = %u,\n", group_order_idx),
    LINE("\tgroup_sync = %u,\n", group_sync),
    LINE("\textra_iso_cfg = %d,\n", extra_iso_cfg),
    LINE("\treuse_src_chan_iso_cfg = %d,\n", reuse_src_chan_iso_cfg),
    COMMENT("-- ================  dewarp cfg  ================\n"),
    LINE("\tlens_warp = %d,\n", lens_warp),
    LINE("\tmax_padding_width = %d,\n", max_padding_width),
    LINE("\tmax_warp_input_width = %d,\n", max_warp_input_width),
    LINE("\tmax_warp_output_width = %d,\n", max_warp_output_width),
    LINE("\tmax_vwarp_wait_lines = %d,\n", max_vwarp_wait_lines),
    LINE("\tmax_vwarp_blk_height = %d,\n", max_vwarp_blk_height),
    LINE("\tlens_warp_hi_ef_factor = %d,\n", lens_warp_hi_ef_factor),
    COMMENT("-- ================  blend cfg   ================\n"),
    LINE("\tblend_left_or_top = %d,\n", blend_left_or_top),
    LINE("\tblend_right_or_bot = %d,\n", blend_right_or_bot),
    LINE("\tsrcbuf_to_skip_blend = 0x%x,\n", srcbuf_to_skip_blend),
    COMMENT("-- ============== rotate/flip cfg ===============\n"),
    LINE("\trotate_cw = %u,\n", rotate_cw),
    LINE("\thflip = %u,\n", hflip),
    LINE("\tvflip = %u,\n", vflip),
    LINE("\traw_vflip = %u,\n", raw_vflip),
    COMMENT("-- ================   misc cfg   ================\n"),
    LINE("\textra_downscale = %d,\n", extra_downscale),
    LINE("\tlow_delay_vin_vout = %u,\n", low_delay_vin_vout),
    LINE("\tmain_burst_tile = %d,\n", main_burst_tile),
    LINE("\tmax_main_input_width = %d,\n", max_main_input_width),
    LINE("\tmc_mask_buf_ds = %d,\n", mc_mask_buf_ds),
    LINE("\teis_delay_count = %d,\n", eis_delay_count),
    LINE("\tdebug_stitch_slice_num = %u,\n", debug_stitch_slice_num),
    LINE("\tmcts_crop_out_enable = %u,\n", mcts_crop_out_enable),
    LINE("\tmax_raw_height = %u,\n", max_raw_height),
    LINE("\tmax_cawarp_h_spacing = %u,\n", max_cawarp_h_spacing),
    LINE("\ttrigger_led = %u,\n", trigger_led),
};

static void dump_channel(FILE *out, int i, const kiv_channel_cfg &chan, uint32_t hp)
{
    kiv_out(out, "chan_%d = {\n", i);
    kiv_out(out, "\tid = %d,\n", chan.id);
    kiv_out(out, "\tvsrc = vsrc_%d,\n", chan.vsrc.vsrc_id);
    kiv_out_str(out, "-- =============== resampling cfg ===============\n");
    kiv_out(out, "\tidsp_fps = %d,\n", kiv_fps_to_script(hp, chan.idsp_fps, chan.idsp_fps_hp));
    for (const chan_line &line : chan_lines) {
        if (line.load)
            kiv_out(out, line.fmt, line.load(&chan));
        else
            kiv_out_str(out, line.fmt);
    }
    kiv_dump_src_buf_cfg(out, chan);
    kiv_dump_pyramid_cfg(out, chan.pyramid, hp);
    kiv_out_str(out, "}\n\n");
}

int32_t kiv_dump_channel_cfg(const kiv_multi_chan_cfg *cfg, FILE *out)
{
    const int chans = cfg->chan_num < KIV_MAX_CHAN ? cfg->chan_num : KIV_MAX_CHAN;
    for (int i = 0; i < chans; ++i)
        dump_channel(out, i, cfg->channels[i], cfg->enable_hp_fps);
    return 0;
}
