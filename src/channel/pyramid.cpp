// The image pyramid of a channel: the optional pyramid table and its section
// of the channel dump.
#include "channel/channel.h"
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"

static const char FN[] = "kiv_get_pyramid_cfg";
static const int LAYER_NUM = 6;

#define PYR_INT(k, a, dflt)                                                                        \
    {                                                                                              \
#k, a, 0, dflt, KIV_FIELD(kiv_pyramid_cfg, k)                                              \
    }

// The keys read before the rescale sizes.  item_num and the unlocked buffer
// keys belong to a manually fed pyramid only.
static const kiv_key head_keys[] = {
    PYR_INT(input_buf_id, KIV_REQUIRED, 0),
    PYR_INT(layer_map, KIV_REQUIRED, 0),
    PYR_INT(max_layer_map, KIV_OPTIONAL, 0),
    PYR_INT(scale_type, KIV_REQUIRED, 0),
    // The address is a 32-bit value, sign-extended into the 64-bit field.
    {"buf_addr", KIV_OPTIONAL, 0, 0,
     [](void *r, uint32_t v) {
         static_cast<kiv_pyramid_cfg *>(r)->buf_addr = static_cast<int32_t>(v);
     }},
    PYR_INT(buf_size, KIV_OPTIONAL, 0),
    {"manual_feed", KIV_OPTIONAL, 3, 0, KIV_FIELD(kiv_pyramid_cfg, manual_feed)},
    PYR_INT(item_num, KIV_OPTIONAL, 0),
    PYR_INT(min_unlocked_buf_num, KIV_OPTIONAL, 0),
    PYR_INT(set_min_unlocked_buf_num, KIV_OPTIONAL, 0),
    PYR_INT(cached_items, KIV_OPTIONAL, 1),
};

// The keys read after the rescale sizes.
static const kiv_key tail_keys[] = {
    {"frame_rate", KIV_OPTIONAL, 0, 0,
     [](void *r, uint32_t v) {
         kiv_fps_pair fps = kiv_fps_from_script(v);
         static_cast<kiv_pyramid_cfg *>(r)->frame_rate = static_cast<uint8_t>(fps.whole);
         static_cast<kiv_pyramid_cfg *>(r)->frame_rate_hp = fps.thousandths;
     },
     nullptr, nullptr,
     "KIV_WARN:: %s(%d): item(%s) doesn't exist, set 0 by default, and will be the same as the "
     "idsp fps\n"},
    PYR_INT(enable_frame_tag, KIV_OPTIONAL, 0),
    PYR_INT(frame_tag_value, KIV_OPTIONAL, 0),
    PYR_INT(frame_tag_mask, KIV_OPTIONAL, 0),
};

// A size given as {width, height}: 0 when it could be read, -1 for a short
// array.  An absent size is not read here.
static int32_t read_size(lua_State *L, const char *key, uint32_t *size)
{
    int32_t n = kiv_read_uint_array(L, key, size, 2);
    if (n < 2) {
        KIV_ERR_AT(59, FN, "Wrong item num(%d) in item(%s).\n", n, key);
        return -1;
    }
    return 0;
}

static int32_t read_sizes(lua_State *L, kiv_pyramid_cfg *p)
{
    if (kiv_is_item_exist_str(L, "rescale_size")) {
        if (read_size(L, "rescale_size", p->rescale_size) != 0)
            return -1;
    } else {
        KIV_WARN_AT(71, FN, "item(%s) doesn't exist, set 0x0 by default.\n", "rescale_size");
        p->rescale_size[0] = p->rescale_size[1] = 0;
    }
    if (kiv_is_item_exist_str(L, "max_rescale_size"))
        return read_size(L, "max_rescale_size", p->max_rescale_size);
    KIV_WARN_AT(76, FN, "item(%s) doesn't exist, set %dx%d by default.\n", "max_rescale_size",
                p->rescale_size[0], p->rescale_size[1]);
    p->max_rescale_size[0] = p->rescale_size[0];
    p->max_rescale_size[1] = p->rescale_size[1];
    return 0;
}

// The crop window of each layer that layer_map selects.  A layers item that
// is not a table is skipped like an absent one; a selected layer without a
// table element counts as a crop_win of 0 elements.
static int32_t read_layers(lua_State *L, kiv_pyramid_cfg *p)
{
    if (!kiv_enter_str(L, "layers"))
        return 0;
    for (int32_t i = 0; i < LAYER_NUM; ++i) {
        if (!(p->layer_map >> i & 1))
            continue;
        int32_t n = 0;
        if (kiv_enter_int(L, i)) {
            n = kiv_read_uint_array(L, "crop_win", p->layers[i].crop_win, 4);
            kiv_leave(L);
        }
        if (n < 4) {
            KIV_ERR_AT(99, FN, "Wrong item num(%d) in item(%s) of index(%d)\n", n, "crop_win", i);
            kiv_leave(L);
            return -1;
        }
    }
    kiv_leave(L);
    return 0;
}

static int32_t read_pyramid(lua_State *L, kiv_pyramid_cfg *p)
{
    int32_t ret = kiv_read_keys(L, FN, p, head_keys);
    if (ret == 0)
        ret = read_sizes(L, p);
    if (ret == 0)
        ret = kiv_read_keys(L, FN, p, tail_keys);
    if (ret == 0)
        ret = read_layers(L, p);
    return ret;
}

int32_t kiv_get_pyramid_cfg(lua_State *L, kiv_channel_cfg *chan)
{
    KIV_STACK_GUARD(L);
    // A pyramid item that is not a table is reported like an absent one.
    if (!kiv_enter_str(L, "pyramid")) {
        KIV_WARN_AT(125, FN, "item(%s) doesn't exist\n", "pyramid");
        return -1;
    }
    int32_t ret = read_pyramid(L, &chan->pyramid);
    kiv_leave(L);
    return ret;
}

void kiv_dump_pyramid_cfg(FILE *out, const kiv_pyramid_cfg &p, uint32_t hp)
{
    kiv_out_str(out, "-- ================ pyramid cfg ================\n");
    kiv_out_str(out, "\tpyramid = {\n");
    kiv_out(out, "\t\tinput_buf_id = %d,\n", p.input_buf_id);
    kiv_out(out, "\t\tscale_type = %d,\n", p.scale_type);
    kiv_out(out, "\t\tbuf_addr = 0x%lx,\n", static_cast<unsigned long>(p.buf_addr));
    kiv_out(out, "\t\tbuf_size = 0x%x,\n", p.buf_size);
    kiv_out(out, "\t\tframe_rate = %d,\n", kiv_fps_to_script(hp, p.frame_rate, p.frame_rate_hp));
    kiv_out(out, "\t\tmanual_feed = %d,\n", p.manual_feed);
    if (p.manual_feed) {
        kiv_out(out, "\t\titem_num = %d,\n", p.item_num);
        kiv_out(out, "\t\tset_min_unlocked_buf_num = %d,\n", p.set_min_unlocked_buf_num);
        kiv_out(out, "\t\tmin_unlocked_buf_num = %d,\n", p.min_unlocked_buf_num);
    } else {
        kiv_out_str(out, "\t\titem_num = 0,\n");
    }
    kiv_out(out, "\t\tcached_items = %d,\n", p.cached_items);
    kiv_out(out, "\t\trescale_size = {%d, %d},\n", p.rescale_size[0], p.rescale_size[1]);
    kiv_out(out, "\t\tmax_rescale_size = {%d, %d},\n", p.max_rescale_size[0],
            p.max_rescale_size[1]);
    kiv_out(out, "\t\tlayer_map = 0x%x,\n", p.layer_map);
    kiv_out(out, "\t\tmax_layer_map = 0x%x,\n", p.max_layer_map);
    kiv_out(out, "\t\tenable_frame_tag = %d,\n", p.enable_frame_tag);
    kiv_out(out, "\t\tframe_tag_value = 0x%x,\n", p.frame_tag_value);
    kiv_out(out, "\t\tframe_tag_mask = 0x%x,\n", p.frame_tag_mask);
    kiv_out_str(out, "\t\tlayers = {\n");
    for (int i = 0; i < LAYER_NUM; ++i) {
        static const kiv_pyramid_layer unselected{};
        const kiv_pyramid_layer &l = p.layer_map >> i & 1 ? p.layers[i] : unselected;
        kiv_out_str(out, "\t\t\t{\n");
        kiv_out(out, "\t\t\t\tcrop_win = {%d, %d, %d, %d},\n", l.crop_win[0], l.crop_win[1],
                l.crop_win[2], l.crop_win[3]);
        kiv_out_str(out, "\t\t\t},\n");
    }
    kiv_out_str(out, "\t\t},\n");
    kiv_out_str(out, "\t},\n");
}
