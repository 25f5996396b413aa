// Canvases: the `canvas` array of _resource_config_ and its dump.
#include <string.h>

#include "canvas/canvas.h"
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"

static const char FN[] = "kiv_get_canvas_cfg";

// The record holds this many canvases.
static const int32_t MAX_CANVAS_NUM = 12;
// The type string is read into a buffer of this size.
static const size_t TYPE_CAP = 32;
static const uint32_t TYPE_PREV = 2;

const char kiv_canvas_type_names[KIV_CANVAS_TYPE_NUM][16] = {"off", "encode", "prev"};

#define OPTIONAL_KEY(key, field)                                                                   \
    {                                                                                              \
        key, KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_canvas_cfg, field), nullptr, nullptr                \
    }

// A frame rate is kept whole and in thousandths.
static void store_frame_rate(void *rec, uint32_t value)
{
    kiv_canvas_cfg *c = static_cast<kiv_canvas_cfg *>(rec);
    kiv_fps_pair fps = kiv_fps_from_script(value);
    c->frame_rate = fps.whole;
    c->frame_rate_hp = fps.thousandths;
}

// The integer keys of a canvas, in reading order.  `type` and `size` come
// first; the keys of a preview canvas follow them, and the `source` list is
// bound between clear_background and dsp_priv_dram.
static const kiv_key prev_keys[] = {
    {"vout_id", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_canvas_cfg, vout_id), nullptr, nullptr},
    OPTIONAL_KEY("vout_YUV422", vout_YUV422),
};

static const kiv_key keys_before_source[] = {
    OPTIONAL_KEY("manual_feed", manual_feed),
    OPTIONAL_KEY("feed_frame_num", feed_frame_num),
    OPTIONAL_KEY("extra_dram_buf", extra_dram_buf),
    OPTIONAL_KEY("min_unlocked_buf_num", min_unlocked_buf_num),
    OPTIONAL_KEY("set_min_unlocked_buf_num", set_min_unlocked_buf_num),
    OPTIONAL_KEY("cached_items", cached_items),
    OPTIONAL_KEY("enc_dummy_latency", enc_dummy_latency),
    {"frame_rate", KIV_OPTIONAL, 0, 0, store_frame_rate, nullptr, nullptr,
     "KIV_WARN:: %s(%d): item(%s) doesn't exist, set 0 by default, and will be the same as the "
     "idsp fps\n"},
    OPTIONAL_KEY("zero_fps", zero_fps),
    OPTIONAL_KEY("fps_locked_enable", fps_locked_enable),
    OPTIONAL_KEY("clear_background", clear_background),
};

static const kiv_key keys_after_source[] = {
    OPTIONAL_KEY("dsp_priv_dram", dsp_priv_dram),
    OPTIONAL_KEY("disable_yuv_dram", disable_yuv_dram),
    OPTIONAL_KEY("disable_me_dram", disable_me_dram),
    OPTIONAL_KEY("enable_frame_tag", enable_frame_tag),
    OPTIONAL_KEY("me_for_mf", me_for_mf),
    OPTIONAL_KEY("frame_tag_value", frame_tag_value),
    OPTIONAL_KEY("frame_tag_mask", frame_tag_mask),
};

// `type`: one of the names of the type table, compared exactly.
static int32_t read_type(lua_State *L, int32_t pos, kiv_canvas_cfg *c)
{
    // One byte more than the type buffer: a string of 32 characters or more
    // keeps 32 of them, is never cut down to a name of the table and is
    // rejected like any other unknown name.
    char type[TYPE_CAP + 1] = "";
    if (kiv_get_string_item_str(L, "type", type, sizeof type) != 0) {
        KIV_ERR_AT(77, FN, "item(%s) doesn't exist\n", "type");
        return -2;
    }
    for (uint32_t t = 0; t < KIV_CANVAS_TYPE_NUM; ++t) {
        if (strcmp(type, kiv_canvas_type_names[t]) == 0) {
            c->type = t;
            return 0;
        }
    }
    KIV_ERR_AT(86, FN, "invalid type(%s) for canvas(%d)\n", type, pos);
    return -1;
}

// The canvas table on top of the stack into canvas position pos.
static int32_t read_canvas(lua_State *L, kiv_multi_chan_cfg *cfg, int32_t pos)
{
    KIV_STACK_GUARD(L);
    kiv_canvas_cfg *c = &cfg->canvas[pos];
    int32_t ret = read_type(L, pos, c);
    if (ret != 0)
        return ret;

    // Two elements are needed; a shorter (or absent) `size` fails without a
    // line of its own.  Further elements are ignored.
    int32_t size[2];
    if (kiv_get_array_integers_str(L, "size", size, 2) < 2)
        return -2;
    c->width = static_cast<uint32_t>(size[0]);
    c->height = static_cast<uint32_t>(size[1]);

    if (c->type != TYPE_PREV)
        kiv_note_unread_keys(prev_keys); // a preview canvas's keys
    else if ((ret = kiv_read_keys(L, FN, c, prev_keys)) != 0)
        return ret;
    if ((ret = kiv_read_keys(L, FN, c, keys_before_source)) != 0)
        return ret;
    if (kiv_set_source_buffer_canvas_id(L, cfg, pos, c) != 0) {
        KIV_ERR_AT(114, FN, "set canvas id(%d) error\n", pos);
        return -2;
    }
    if ((ret = kiv_read_keys(L, FN, c, keys_after_source)) != 0)
        return ret;

    // A size with a 0 in it asks for the extent of the bound buffers, which
    // replaces both dimensions.
    if (c->width == 0 || c->height == 0)
        kiv_get_canvas_extent(cfg, pos, &c->width, &c->height);
    return 0;
}

int32_t kiv_get_canvas_cfg(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    KIV_STACK_GUARD(L);
    // A `canvas` that is not an array counts as absent.
    int32_t n = kiv_get_array_item_num_str(L, "canvas");
    if (n == 0) {
        KIV_ERR_AT(133, FN, "no canvas cfg found\n");
        return -2;
    }
    if (n > MAX_CANVAS_NUM) {
        KIV_ERR_AT(137, FN, "canvas num(%d) cannot exceed max(%d)\n", n, MAX_CANVAS_NUM);
        return -2;
    }
    cfg->canvas_num = static_cast<uint8_t>(n);

    if (!kiv_enter_str(L, "canvas"))
        return -2; // not reached: a counted array is a table
    int32_t ret = 0;
    for (int32_t i = 0; i < n && ret == 0; ++i) {
        cfg->canvas[i].id = i;
        if (kiv_enter_int(L, i)) {
            ret = read_canvas(L, cfg, i);
            kiv_leave(L);
        } else {
            // An element that is not a table has no keys: its required
            // `type` is missing.
            KIV_ERR_AT(153, FN, "item(%s) doesn't exist\n", "type");
            ret = -2;
        }
    }
    kiv_leave(L);
    return ret;
}

// The dump lines that follow the `source` line, in their fixed order, with
// the value each writes; the preview-only lines are left out for the other
// types.
struct canvas_line {
    const char *fmt;
    bool prev_only;
    uint32_t (*value)(const kiv_canvas_cfg &c, uint32_t hp_fps);
};

#define LINE_FMT(fmt, prev_only, field)                                                            \
    {                                                                                              \
        fmt, prev_only, [](const kiv_canvas_cfg &c, uint32_t) -> uint32_t { return c.field; }      \
    }
#define LINE(key, field) LINE_FMT("\t\t\t" key " = %d,\n", false, field)

static const canvas_line canvas_lines[] = {
    LINE("enable_order", enable_order),
    LINE_FMT("\t\t\tvout_id = %d,\n", true, vout_id),
    LINE_FMT("\t\t\tvout_YUV422 = %d,\n", true, vout_YUV422),
    LINE("extra_dram_buf", extra_dram_buf),
    LINE("cached_items", cached_items),
    LINE("enc_dummy_latency", enc_dummy_latency),
    // The rate in the form the record's own high-precision bit selects.
    {"\t\t\tframe_rate = %d,\n", false,
     [](const kiv_canvas_cfg &c, uint32_t hp_fps) {
         return kiv_fps_to_script(hp_fps, c.frame_rate, c.frame_rate_hp);
     }},
    LINE("zero_fps", zero_fps),
    LINE("fps_locked_enable", fps_locked_enable),
    LINE_FMT("\t\t\tclear_background = %d, \n", false, clear_background),
    LINE("manual_feed", manual_feed),
    LINE("feed_frame_num", feed_frame_num),
    LINE("set_min_unlocked_buf_num", set_min_unlocked_buf_num),
    LINE("min_unlocked_buf_num", min_unlocked_buf_num),
    LINE("dsp_priv_dram", dsp_priv_dram),
    LINE("disable_yuv_dram", disable_yuv_dram),
    LINE("disable_me_dram", disable_me_dram),
    LINE("me_for_mf", me_for_mf),
    LINE("enable_frame_tag", enable_frame_tag),
    LINE_FMT("\t\t\tframe_tag_value = 0x%x,\n", false, frame_tag_value),
    LINE_FMT("\t\t\tframe_tag_mask = 0x%x,\n", false, frame_tag_mask),
};

int32_t kiv_dump_canvas_cfg(const kiv_multi_chan_cfg *cfg, FILE *out)
{
    kiv_out_str(out, "\tcanvas = {\n");
    const int32_t n = cfg->canvas_num < MAX_CANVAS_NUM ? cfg->canvas_num : MAX_CANVAS_NUM;
    for (int32_t i = 0; i < n; ++i) {
        const kiv_canvas_cfg &c = cfg->canvas[i];
        kiv_out_str(out, "\t\t{\n");
        // A type outside the name table (only a hand-filled record has one)
        // has no name; its number is written in the name's place, so that
        // loading the script back fails clearly with an invalid type.
        if (c.type < KIV_CANVAS_TYPE_NUM)
            kiv_out(out, "\t\t\ttype = \"%s\",\n", kiv_canvas_type_names[c.type]);
        else
            kiv_out(out, "\t\t\ttype = \"%u\",\n", c.type);
        kiv_out(out, "\t\t\tsize = {%d, %d},\n", c.width, c.height);
        kiv_dump_canvas_source(cfg, i, out);
        for (const canvas_line &line : canvas_lines)
            if (!line.prev_only || c.type == TYPE_PREV)
                kiv_out(out, line.fmt, line.value(c, cfg->enable_hp_fps));
        kiv_out_str(out, "\t\t},\n");
    }
    kiv_out_str(out, "\t},\n");
    return 0;
}
