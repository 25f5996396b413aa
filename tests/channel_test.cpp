// Channels: the channels array read through the loader and on its own, its
// failure paths, and the chan_<n> tables of the dump read back.
#include <cstring>
#include <sstream>

#include "core/log.h"
#include "core/sections.h"
#include "kiv_test.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

const char *const MAIN = "main = { max_output = {1920, 1080}, input = {0, 0, 1920, 1080}, "
                         "output = {0, 0, 1920, 1080} }";
const char *const VSRC = "vsrc = { vsrc_id = 0, mode = '1080p', fps = 30, hdr_mode = 'linear' }";

// A channel table with the required items, an id and `extra` items.
std::string chan(int id, const std::string &extra = "")
{
    return "{ id = " + std::to_string(id) + ", sensor_ctrl = 1, max_padding_width = 64, " + MAIN +
           ", " + VSRC + ", " + extra + " }";
}

// The lines of `log` that contain `tag`.
std::string only(const std::string &log, const std::string &tag)
{
    std::istringstream in(log);
    std::string line, out;
    while (std::getline(in, line))
        if (line.find(tag) != std::string::npos)
            out += line + "\n";
    return out;
}

std::string err(const std::string &fn, const std::string &text)
{
    return "KIV_ERROR:: " + fn + "(N): " + text;
}

std::string warn0(const std::string &fn, const std::string &key)
{
    return "KIV_WARN:: " + fn + "(N): item(" + key + ") doesn't exist, set 0 by default.\n";
}

class Channel : public Settings
{
  protected:
    // Runs kiv_get_channel_cfg on `_resource_config_ = { channels = {...} }`.
    int32_t parse(const std::string &channels, std::string *log = nullptr)
    {
        lua_script s("_resource_config_ = { channels = { " + channels + " } }");
        kiv_init(&cfg);
        int32_t ret = 0;
        std::string text = masked([&] { ret = kiv_get_channel_cfg(s.L(), &cfg); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        if (log)
            *log = text;
        return ret;
    }
    kiv_multi_chan_cfg cfg;
};

} // namespace

TEST_F(Channel, RequiredItemsOnlyLoadWithDefaultsAndWarningsInOrder)
{
    auto r = load("_resource_config_ = { version = 1, channels = { " + chan(0) + " }, " +
                      NO_GROUPS + ", " + CANVAS_0 + ", " + STREAM_0 + " }",
                  &cfg);
    ASSERT_EQ(r.ret, 0) << r.log;

    const std::string loader = "kiv_get_multi_chan_cfg", ch = "kiv_get_channel_cfg";
    std::string expected = warn0(loader, "enable_hp_fps") + warn0(loader, "vin_short_line_detect");
    // Every absent optional key of the channel table, in reading order.
    std::istringstream keys(
        "vsrc_ctx app_img_profile low_delay_vin_vout packing_mode_enable raw_capture "
        "hdec_raw_format raw_dsp_priv_dram eis_delay_count raw_manual_feed raw_feed_frame_num "
        "raw_cached_items extra_iso_cfg reuse_src_chan_iso_cfg idsp_fps "
        "idsp_fps_locked_enable debug_stitch_slice_num mcts_crop_out_enable max_raw_height "
        "extra_downscale max_main_input_width lens_warp lens_warp_hi_ef_factor "
        "max_vwarp_wait_lines max_vwarp_blk_height expo_num blend_left_or_top "
        "blend_right_or_bot max_cawarp_h_spacing srcbuf_to_skip_blend mctf_cmpr "
        "mctf_10bit_ref main_burst_tile use_vsrc_ctx_pattern trigger_led enable_group "
        "invert_mode rotate_cw hflip vflip raw_vflip vcap_mode_flags dis_enable "
        "debug_default_hds_coeff debug_disable_vin_12x_ds vsrc_region_num vsrc_region_map "
        "luma_alpha_blend extract_mono is_still_fusion enable_tml_raw_packing enable_tml_proc "
        "srcbuf_to_fusion pass_num mc_mask_buf_ds ");
    for (std::string key; keys >> key;)
        expected += warn0(ch, key);
    expected += "KIV_WARN:: kiv_get_pyramid_cfg(N): item(pyramid) doesn't exist\n"
                "KIV_WARN:: kiv_get_channel_cfg(N): pyramid of channel(0) doen't exist\n";
    for (const char *key :
         {"vsrc_status", "max_fps", "dg_mode", "bits", "vsrc_ctx_switch", "mirror", "bayer"})
        expected += warn0("kiv_get_vsrc_cfg", key);
    expected += "KIV_WARN:: kiv_get_vsrc_cfg(N): item(calib_data) doesn't exit, set to 0.\n"
                "KIV_WARN:: kiv_get_vsrc_cfg(N): item(virt_mode_cfg_enable) doesn't exit, set to "
                "0.\n"
                "KIV_WARN:: kiv_get_img_stats_src_chan_id(N): item(img_stats_src_chan) of "
                "channel(0) doesn't exist, default to 0\n" +
                warn0("kiv_get_multi_region_warp", "max_warp_input_width") +
                warn0("kiv_get_multi_region_warp", "max_warp_output_width");
    EXPECT_EQ(r.log, expected);

    const kiv_channel_cfg &c = cfg.channels[0];
    EXPECT_EQ(cfg.chan_num, 1);
    EXPECT_EQ(c.id, 0);
    EXPECT_EQ(c.configured, 1u);
    EXPECT_EQ(c.sensor_ctrl, 1u);
    EXPECT_EQ(c.max_padding_width, 64u);
    EXPECT_EQ(c.vcap_mode_flags, 0x80);
    EXPECT_EQ(c.main_burst_tile, 1u);
    EXPECT_EQ(c.vsrc_region_num, 1u);
    EXPECT_EQ(c.pass_num, 1u);
    EXPECT_EQ(c.img_stats_src_chan, 0);
    EXPECT_EQ(c.src_buf[0][0].max_output[1], 1080u);
    EXPECT_EQ(c.src_buf[0][0].output[2], 1920u);
    EXPECT_EQ(c.vsrc.mode, 40);
    EXPECT_EQ(c.vsrc.mirror, 255);
    // Nothing else was written.
    kiv_multi_chan_cfg reset;
    kiv_init(&reset);
    EXPECT_EQ(memcmp(&cfg.channels[1], &reset.channels[1], 2 * sizeof reset.channels[1]), 0);
    EXPECT_EQ(
        memcmp(&c.src_buf[0][1], &reset.channels[0].src_buf[0][1], 13 * sizeof c.src_buf[0][1]), 0);
    EXPECT_EQ(memcmp(&c.pyramid, &reset.channels[0].pyramid, sizeof c.pyramid), 0);
}

TEST_F(Channel, KeysChecksSwitchesAndFrameRates)
{
    std::string log;
    ASSERT_EQ(parse(chan(0, "srcbuf_to_fusion = 6, srcbuf_to_skip_blend = 0x20, "
                            "vsrc_ctx = 0x1ff, use_vsrc_ctx_pattern = 2, vsrc_ctx_pattern = 9, "
                            "enable_group = 1, group_idx = 5, group_order_idx = 3, "
                            "idsp_fps = 30, img_stats_src_chan = 'chan_2'"),
                    &log),
              0);
    EXPECT_EQ(only(log, "srcbuf_to"),
              "KIV_WARN:: kiv_get_channel_cfg(N): item(srcbuf_to_skip_blend) shoulder not bigger "
              "than 0x1f.\n" +
                  err("kiv_get_channel_cfg", "item(srcbuf_to_fusion) should not bigger than 5.\n"))
        << log;
    const kiv_channel_cfg &c = cfg.channels[0];
    EXPECT_EQ(c.srcbuf_to_fusion, 0u);
    EXPECT_EQ(c.srcbuf_to_skip_blend, 0);
    EXPECT_EQ(c.vsrc_ctx, 0xff);
    EXPECT_EQ(c.vsrc_ctx_pattern, 0u); // bit 0 of the switch is clear: not read
    EXPECT_EQ(c.group_idx, 1u);
    EXPECT_EQ(c.group_order_idx, 3u);
    EXPECT_EQ(c.idsp_fps, 30u);
    EXPECT_EQ(c.idsp_fps_hp, 30000u);
    EXPECT_EQ(c.img_stats_src_chan, 2);

    kiv_set_hp_fps(1);
    ASSERT_EQ(parse(chan(0, "srcbuf_to_fusion = 9, srcbuf_to_skip_blend = 0x1f, idsp_fps = 29970, "
                            "use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 9, "
                            "vsrc_ctx_pattern_mask = 3"),
                    &log),
              0);
    EXPECT_EQ(only(log, "srcbuf_to"), "");
    EXPECT_EQ(c.srcbuf_to_fusion, 1u);
    EXPECT_EQ(c.srcbuf_to_skip_blend, 0x1f);
    EXPECT_EQ(c.idsp_fps, 30u);
    EXPECT_EQ(c.idsp_fps_hp, 29970u);
    EXPECT_EQ(c.vsrc_ctx_pattern, 9u);
    EXPECT_EQ(c.vsrc_ctx_pattern_addr_offset, 0u);
    ASSERT_EQ(parse(chan(0, "srcbuf_to_fusion = 5, srcbuf_to_skip_blend = -1"), &log), 0);
    EXPECT_EQ(c.srcbuf_to_fusion, 5u);
    EXPECT_EQ(c.srcbuf_to_skip_blend, 0);

    // Ids in any order; each table goes to the element its id names.
    ASSERT_EQ(parse(chan(1, "vsrc_ctx = 11") + ", " + chan(0, "vsrc_ctx = 10")), 0);
    EXPECT_EQ(cfg.chan_num, 2);
    EXPECT_EQ(cfg.channels[0].vsrc_ctx, 10);
    EXPECT_EQ(cfg.channels[1].vsrc_ctx, 11);
    EXPECT_EQ(cfg.channels[1].img_stats_src_chan, 1);
}

TEST_F(Channel, FailuresOfTheChannelTable)
{
    const std::string ch = "kiv_get_channel_cfg";
    const std::string no_vsrc =
        "{ id = 0, sensor_ctrl = 1, max_padding_width = 1, " + std::string(MAIN) + " }";
    struct failure {
        std::string channels;
        int32_t ret;
        std::string errors;
    } const failures[] = {
        {"", -2, err(ch, "no channel config found\n")},
        {"5", -2, err(ch, "item(id) doesn't exist.\n")},
        {"{ sensor_ctrl = 1 }", -2, err(ch, "item(id) doesn't exist.\n")},
        {chan(3), -1,
         err(ch, "invalid channel id(3) which is >= CONFIG_QUENTARIS_MAX_CHANNEL_NUM[3].\n")},
        {chan(-1), -1,
         err(ch, "invalid channel id(-1) which is >= CONFIG_QUENTARIS_MAX_CHANNEL_NUM[3].\n")},
        {"{ id = 0, max_padding_width = 1 }", -2, err(ch, "item(sensor_ctrl) doesn't exist.\n")},
        {"{ id = 0, sensor_ctrl = 1 }", -2, err(ch, "item(max_padding_width) doesn't exist.\n")},
        {chan(0, "use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 1"), -2,
         err(ch, "item(vsrc_ctx_pattern_mask) doesn't exist.\n")},
        {chan(0, "enable_group = 3"), -2, err(ch, "item(group_idx) doesn't exist.\n")},
        {"{ id = 0, sensor_ctrl = 1, max_padding_width = 1 }", -2,
         err("parse_src_buffer_cfg", "can't get source buffer(0) of pass 0 for channel(0).\n")},
        {no_vsrc, -2, err(ch, "get vsrc config of channel(0) error\n")},
        {chan(0, "img_stats_src_chan = 'chan_3'"), -2,
         err("kiv_get_img_stats_src_chan_id", "invalid item(img_stats_src_chan) value(chan_3)\n") +
             err(ch, "get img_stats_src_chan of channel(0) error\n")},
        {chan(0, "img_stats_src_chan = 'chan_0" + std::string(40, 'x') + "'"), -2,
         err("kiv_get_img_stats_src_chan_id",
             "invalid item(img_stats_src_chan) value(chan_0" + std::string(25, 'x') + ")\n") +
             err(ch, "get img_stats_src_chan of channel(0) error\n")},
        {chan(0) + "," + chan(1) + "," + chan(2) + "," + chan(0), -2,
         err(ch, "chan_num(4) is larger than the max supported channel num(3)\n")},
        {chan(0) + "," + chan(0), -1, err(ch, "invalid channel id(255) in channel(1)\n")},
        {chan(0) + "," + chan(2), -1, err(ch, "invalid channel id(255) in channel(1)\n")},
    };
    for (const failure &f : failures) {
        std::string log;
        EXPECT_EQ(parse(f.channels, &log), f.ret) << f.channels;
        EXPECT_EQ(only(log, "KIV_ERROR"), f.errors) << f.channels;
    }
    // A failing channel leaves chan_num alone and is not marked configured;
    // a failing numbering has stored chan_num already.
    parse(chan(0, "img_stats_src_chan = 'chan_3'"));
    EXPECT_EQ(cfg.chan_num, 0);
    EXPECT_EQ(cfg.channels[0].configured, 0u);
    EXPECT_EQ(cfg.channels[0].img_stats_src_chan, 0xFF);
    parse(chan(0) + "," + chan(0));
    EXPECT_EQ(cfg.chan_num, 2);

    // Through the loader every channel failure is the loader's -2.
    auto r = load("_resource_config_ = { version = 1, channels = { " + chan(3) + " } }", &cfg);
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(only(r.log, "get channel config error"),
              err("kiv_get_multi_chan_cfg", "get channel config error\n"));
}

TEST_F(Channel, SourceBufferPasses)
{
    std::string log;
    const std::string buf = "{ max_output = {640, 360}, input = {1, 2, 3, 4}, output = {5, 6, 7, "
                            "8} }";
    // Optional buffers stop at their first short array; pass 1 reads its own
    // buffers and the two pass ids.
    ASSERT_EQ(parse(chan(0, "second = { max_output = {320, 180, 99} }, third = 7, "
                            "fourth = { max_output = {1, 2}, input = {1, 2, 3, 4}, output = {9} }, "
                            "pass_num = 2, pass_1 = { input_pass_id = 0, input_buf_id = 1, "
                            "premain = " +
                                buf + " }"),
                    &log),
              0)
        << log;
    const kiv_channel_cfg &c = cfg.channels[0];
    EXPECT_EQ(c.configured, 1u);
    EXPECT_EQ(c.src_buf[0][1].max_output[0], 320u);
    EXPECT_EQ(c.src_buf[0][1].input[0], 0u);
    EXPECT_EQ(c.src_buf[0][3].input[3], 4u);
    EXPECT_EQ(c.src_buf[0][3].output[0], 0u);
    EXPECT_EQ(c.src_buf[1][6].output[3], 8u);
    EXPECT_EQ(c.src_buf[1][0].max_output[0], 0u);
    EXPECT_EQ(c.pass_cfg[1].input_buf_id, 1);
    EXPECT_EQ(only(log, "array item"),
              "KIV_WARN:: kiv_get_array_item_num_str(N): array item(input) doesn't exist\n");

    // "main" of pass 0 with a short array: what was read stays.
    EXPECT_EQ(parse(chan(0, "main = { max_output = {8, 9}, input = {1, 2, 3} }"), &log), -2);
    EXPECT_EQ(c.src_buf[0][0].max_output[1], 9u);
    EXPECT_EQ(c.src_buf[0][0].input[0], 0u);

    // Pass failures end the channel once its table has been read to the end.
    const std::string ch = "kiv_get_channel_cfg";
    struct failure {
        std::string extra;
        int32_t ret;
        std::string errors;
    } const failures[] = {
        {"pass_num = 2", -2, err(ch, "item(pass_1) doesn't exist!\n")},
        {"pass_num = 2, pass_1 = 'main'", -2, err(ch, "item(pass_1) doesn't exist!\n")},
        {"pass_num = 3, pass_1 = {}", -2, err(ch, "item(pass_2) doesn't exist!\n")},
        {"pass_num = 7, pass_1 = {}, pass_2 = {}", -1,
         err("parse_src_buffer_cfg", "invalid pass ID 2\n")},
    };
    for (const failure &f : failures) {
        EXPECT_EQ(parse(chan(0, f.extra + ", max_warp_output_width = 5"), &log), f.ret) << f.extra;
        EXPECT_EQ(only(log, "KIV_ERROR"), f.errors) << f.extra;
        EXPECT_EQ(c.configured, 0u);
        EXPECT_EQ(c.max_warp_output_width, 5u);
        EXPECT_EQ(cfg.chan_num, 0);
    }
    EXPECT_EQ(only(log, "input_pass_id"), warn0(ch, "input_pass_id"));
    // pass_num 0 loads; pass 0 is read all the same.
    ASSERT_EQ(parse(chan(0, "pass_num = 0")), 0);
    EXPECT_EQ(c.src_buf[0][0].max_output[0], 1920u);
}

TEST_F(Channel, SingleChannelExampleLoads)
{
    const std::string path = std::string(KIV_SOURCE_DIR) + "/examples/single_1080p.lua";
    std::string log = masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg(path.c_str(), &cfg), 0); });
    EXPECT_EQ(only(log, "KIV_ERROR"), "");
    const kiv_channel_cfg &c = cfg.channels[0];
    EXPECT_EQ(cfg.chan_num, 1);
    EXPECT_EQ(c.vsrc.mode, 40);
    EXPECT_EQ(c.idsp_fps, 30u);
    EXPECT_EQ(c.src_buf[0][2].max_output[0], 640u);
    EXPECT_EQ(c.pyramid.layers[2].crop_win[3], 1080u);
}
