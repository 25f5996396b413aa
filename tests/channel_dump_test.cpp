// The chan_<n> tables of the dump, and a full configuration written and
// read back.
#include <cstring>

#include "core/log.h"
#include "core/sections.h"
#include "kiv_test.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

class ChannelDump : public Settings
{
};

// An unbound source buffer block of the dump.
std::string zeros(const std::string &indent, const std::string &name,
                  const std::string &input = "input \t")
{
    const std::string in = indent + "\t";
    return indent + name + " = {\n" + in + "max_output = {0, 0},\n" + in + input +
           " = {0, 0, 0, 0},\n" + in + "output\t = {0, 0, 0, 0},\n" + indent + "},\n";
}

} // namespace

TEST_F(ChannelDump, ChannelTableText)
{
    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    cfg.chan_num = 1;
    cfg.enable_hp_fps = 1;
    kiv_channel_cfg &c = cfg.channels[0];
    c.id = 0;
    c.vsrc.vsrc_id = 2;
    c.idsp_fps = 30;
    c.idsp_fps_hp = 29970;
    c.idsp_fps_locked_enable = 1;
    c.vsrc_ctx = 3;
    c.use_vsrc_ctx_pattern = 1;
    c.vsrc_ctx_pattern = 0xff;
    c.vsrc_ctx_pattern_mask = 7;
    c.vsrc_ctx_pattern_addr_offset = 16;
    c.sensor_ctrl = 1;
    c.img_stats_src_chan = 1;
    c.app_img_profile = 4;
    c.packing_mode_enable = 1;
    c.raw_capture = 1;
    c.hdec_raw_format = 2;
    c.raw_dsp_priv_dram = 1;
    c.raw_manual_feed = 1;
    c.raw_feed_frame_num = 100;
    c.raw_cached_items = 9;
    c.mctf_cmpr = 1;
    c.expo_num = 3;
    c.vcap_mode_flags = 0x80;
    c.dis_enable = 1;
    c.debug_disable_vin_12x_ds = 1;
    c.vsrc_region_num = 2;
    c.vsrc_region_map = 5;
    c.luma_alpha_blend = 1;
    c.invert_mode = 1;
    c.enable_tml_raw_packing = 1;
    c.srcbuf_to_fusion = 4;
    c.enable_group = 1;
    c.group_idx = 2;
    c.group_order_idx = 5;
    c.group_sync = 1;
    c.extra_iso_cfg = 17;
    c.reuse_src_chan_iso_cfg = 1;
    c.lens_warp = 1;
    c.max_padding_width = 128;
    c.max_warp_input_width = 1920;
    c.max_warp_output_width = 1280;
    c.max_vwarp_wait_lines = 1000;
    c.max_vwarp_blk_height = 100;
    c.lens_warp_hi_ef_factor = 6;
    c.blend_left_or_top = 1;
    c.srcbuf_to_skip_blend = 0x1a;
    c.rotate_cw = 1;
    c.vflip = 1;
    c.extra_downscale = 1;
    c.low_delay_vin_vout = 1;
    c.main_burst_tile = 1;
    c.max_main_input_width = 3840;
    c.mc_mask_buf_ds = 2;
    c.eis_delay_count = 5;
    c.debug_stitch_slice_num = 9;
    c.mcts_crop_out_enable = 1;
    c.max_raw_height = 2160;
    c.max_cawarp_h_spacing = 6;
    c.trigger_led = 1;
    c.pass_num = 2;
    c.pass_cfg[1] = {0, 6, {0, 0}};
    // Bound buffers are written with their values, unbound ones with zeros.
    c.src_buf[0][0] = {{1920, 1080}, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}, 0, 0};
    c.src_buf[0][1] = {{720, 480}, {1, 2, 3, 4}, {5, 6, 7, 8}, -1, 0};
    c.src_buf[0][6] = {{3840, 2160}, {0, 0, 3840, 2160}, {10, 20, 30, 40}, 1, 0};
    c.src_buf[1][2] = {{640, 360}, {0, 0, 1920, 1080}, {0, 0, 640, 360}, 2, 0};
    c.src_buf[1][6] = {{64, 32}, {1, 1, 1, 1}, {2, 2, 2, 2}, 2, 0};
    kiv_pyramid_cfg &p = c.pyramid;
    p.input_buf_id = 1;
    p.scale_type = 2;
    p.buf_addr = static_cast<int64_t>(0xffffffff80001000ull);
    p.buf_size = 0x100000;
    p.frame_rate = 15;
    p.frame_rate_hp = 14985;
    p.manual_feed = 1;
    p.item_num = 4;
    p.set_min_unlocked_buf_num = 1;
    p.min_unlocked_buf_num = 2;
    p.cached_items = 3;
    p.rescale_size[0] = 1920;
    p.rescale_size[1] = 1080;
    p.max_rescale_size[0] = 3840;
    p.max_rescale_size[1] = 2160;
    p.layer_map = 0x21;
    p.max_layer_map = 0x3f;
    p.enable_frame_tag = 1;
    p.frame_tag_value = 0xab;
    p.frame_tag_mask = 0xff;
    p.layers[0] = {{0, 0, 1920, 1080}};
    p.layers[1] = {{9, 9, 9, 9}}; // not selected: zeros
    p.layers[5] = {{8, 8, 60, 34}};

    const std::string layer0 = "\t\t\t{\n\t\t\t\tcrop_win = {0, 0, 1920, 1080},\n\t\t\t},\n";
    const std::string layer_zero = "\t\t\t{\n\t\t\t\tcrop_win = {0, 0, 0, 0},\n\t\t\t},\n";
    const std::string layer5 = "\t\t\t{\n\t\t\t\tcrop_win = {8, 8, 60, 34},\n\t\t\t},\n";
    const std::string expected =
        "chan_0 = {\n"
        "\tid = 0,\n"
        "\tvsrc = vsrc_2,\n"
        "-- =============== resampling cfg ===============\n"
        "\tidsp_fps = 29970,\n"
        "\tidsp_fps_locked_enable = 1,\n"
        "-- ================ vsrc_ctx cfg ================\n"
        "\tvsrc_ctx = 3,\n"
        "\tuse_vsrc_ctx_pattern = 1,\n"
        "\tvsrc_ctx_pattern = 255,\n"
        "\tvsrc_ctx_pattern_mask = 7,\n"
        "\tvsrc_ctx_pattern_addr_offset = 16,\n"
        "-- ================    3A cfg    ================\n"
        "\tsensor_ctrl = 1,\n"
        "\timg_stats_src_chan = \"chan_1\",\n"
        "\tapp_img_profile = 4,\n"
        "\tpacking_mode_enable = 1,\n"
        "\traw_capture = 1,\n"
        "\thdec_raw_format = 2,\n"
        "\traw_dsp_priv_dram = 1,\n"
        "\traw_manual_feed = 1,\n"
        "\traw_feed_frame_num = 100,\n"
        "\traw_cached_items = 9,\n"
        "\tmctf_cmpr = 1,\n"
        "\tmctf_10bit_ref = 0,\n"
        "\texpo_num = 3,\n"
        "\tvcap_mode_flags = 128,\n"
        "\tdis_enable = 1,\n"
        "\tdebug_default_hds_coeff = 0,\n"
        "\tdebug_disable_vin_12x_ds = 1,\n"
        "\tvsrc_region_num = 2,\n"
        "\tvsrc_region_map = 5,\n"
        "\tluma_alpha_blend = 1,\n"
        "\textract_mono = 0,\n"
        "\tinvert_mode = 1,\n"
        "\tis_still_fusion = 0,\n"
        "\tenable_tml_raw_packing = 1,\n"
        "\tenable_tml_proc = 0,\n"
        "\tsrcbuf_to_fusion = 4,\n"
        "\tenable_group = 1,\n"
        "\tgroup_idx = 2,\n"
        "\tgroup_order_idx = 5,\n"
        "\tgroup_sync = 1,\n"
        "\textra_iso_cfg = 17,\n"
        "\treuse_src_chan_iso_cfg = 1,\n"
        "-- ================  dewarp cfg  ================\n"
        "\tlens_warp = 1,\n"
        "\tmax_padding_width = 128,\n"
        "\tmax_warp_input_width = 1920,\n"
        "\tmax_warp_output_width = 1280,\n"
        "\tmax_vwarp_wait_lines = 1000,\n"
        "\tmax_vwarp_blk_height = 100,\n"
        "\tlens_warp_hi_ef_factor = 6,\n"
        "-- ================  blend cfg   ================\n"
        "\tblend_left_or_top = 1,\n"
        "\tblend_right_or_bot = 0,\n"
        "\tsrcbuf_to_skip_blend = 0x1a,\n"
        "-- ============== rotate/flip cfg ===============\n"
        "\trotate_cw = 1,\n"
        "\thflip = 0,\n"
        "\tvflip = 1,\n"
        "\traw_vflip = 0,\n"
        "-- ================   misc cfg   ================\n"
        "\textra_downscale = 1,\n"
        "\tlow_delay_vin_vout = 1,\n"
        "\tmain_burst_tile = 1,\n"
        "\tmax_main_input_width = 3840,\n"
        "\tmc_mask_buf_ds = 2,\n"
        "\teis_delay_count = 5,\n"
        "\tdebug_stitch_slice_num = 9,\n"
        "\tmcts_crop_out_enable = 1,\n"
        "\tmax_raw_height = 2160,\n"
        "\tmax_cawarp_h_spacing = 6,\n"
        "\ttrigger_led = 1,\n"
        "-- ================ src buf cfg  ================\n"
        "\tpass_num = 2,\n"
        "\tpremain = {\n"
        "\t\tmax_output = {3840, 2160},\n"
        "\t\tinput\t = {0, 0, 3840, 2160},\n"
        "\t\toutput\t = {10, 20, 30, 40},\n"
        "\t},\n"
        "\tmain = {\n"
        "\t\tmax_output = {1920, 1080},\n"
        "\t\tinput \t = {0, 0, 1920, 1080},\n"
        "\t\toutput\t = {0, 0, 1920, 1080},\n"
        "\t},\n" +
        zeros("\t", "second") + zeros("\t", "third") + zeros("\t", "fourth") +
        zeros("\t", "fifth") + zeros("\t", "sixth") +
        "\tpass_1 = {\n"
        "\t\tinput_pass_id = 0,\n"
        "\t\tinput_buf_id = 6,\n"
        "\t\tpremain = {\n"
        "\t\t\tmax_output = {64, 32},\n"
        "\t\t\tinput \t = {1, 1, 1, 1},\n"
        "\t\t\toutput\t = {2, 2, 2, 2},\n"
        "\t\t},\n" +
        zeros("\t\t", "main") + zeros("\t\t", "second") +
        "\t\tthird = {\n"
        "\t\t\tmax_output = {640, 360},\n"
        "\t\t\tinput \t = {0, 0, 1920, 1080},\n"
        "\t\t\toutput\t = {0, 0, 640, 360},\n"
        "\t\t},\n" +
        zeros("\t\t", "fourth") + zeros("\t\t", "fifth") + zeros("\t\t", "sixth") +
        "\t},\n"
        "-- ================ pyramid cfg ================\n"
        "\tpyramid = {\n"
        "\t\tinput_buf_id = 1,\n"
        "\t\tscale_type = 2,\n"
        "\t\tbuf_addr = 0xffffffff80001000,\n"
        "\t\tbuf_size = 0x100000,\n"
        "\t\tframe_rate = 14985,\n"
        "\t\tmanual_feed = 1,\n"
        "\t\titem_num = 4,\n"
        "\t\tset_min_unlocked_buf_num = 1,\n"
        "\t\tmin_unlocked_buf_num = 2,\n"
        "\t\tcached_items = 3,\n"
        "\t\trescale_size = {1920, 1080},\n"
        "\t\tmax_rescale_size = {3840, 2160},\n"
        "\t\tlayer_map = 0x21,\n"
        "\t\tmax_layer_map = 0x3f,\n"
        "\t\tenable_frame_tag = 1,\n"
        "\t\tframe_tag_value = 0xab,\n"
        "\t\tframe_tag_mask = 0xff,\n"
        "\t\tlayers = {\n" +
        layer0 + layer_zero + layer_zero + layer_zero + layer_zero + layer5 +
        "\t\t},\n"
        "\t},\n"
        "}\n\n";
    EXPECT_EQ(capture([&] { kiv_dump_channel_cfg(&cfg, nullptr); }), expected);

    // Without a multi-region warp no premain is written; without manual
    // feed the one item_num line; the record's flag clear gives whole rates.
    c.max_warp_input_width = 0;
    c.pyramid.manual_feed = 0;
    c.pass_num = 1;
    cfg.enable_hp_fps = 0;
    std::string text = capture([&] { kiv_dump_channel_cfg(&cfg, nullptr); });
    EXPECT_EQ(text.find("premain"), std::string::npos);
    EXPECT_EQ(text.find("pass_1"), std::string::npos);
    EXPECT_NE(text.find("\tidsp_fps = 30,\n"), std::string::npos);
    EXPECT_NE(text.find("\t\tframe_rate = 15,\n\t\tmanual_feed = 0,\n\t\titem_num = 0,\n\t\tcached_"
                        "items = 3,\n"),
              std::string::npos);
    EXPECT_NE(text.find("\tpass_num = 1,\n\tmain = {\n"), std::string::npos);

    // Counts beyond the record are clipped; nothing for no channels.
    cfg.chan_num = 9;
    text = capture([&] { kiv_dump_channel_cfg(&cfg, nullptr); });
    EXPECT_NE(text.find("chan_2 = {\n"), std::string::npos);
    EXPECT_EQ(text.find("chan_3"), std::string::npos);
    cfg.chan_num = 0;
    EXPECT_EQ(capture([&] { kiv_dump_channel_cfg(&cfg, nullptr); }), "");
}

namespace
{

// Three channels, each with two passes, a pyramid and a video source: 0 and 1
// share one source table, 2 has a virtual mode.
const char *const THREE = R"(
local shared = { vsrc_id = 0, mode = "3840x2160", fps = 29970, max_fps = 60000, hdr_mode = "2x",
  bits = 12, mirror = 1, bayer = 2, vsrc_status = 1, calib_data = "/etc/calib/sensor0.lua",
  virt_mode_cfg_enable = 0 }
local virt = { vsrc_id = 1, mode = "auto", fps = 25000, hdr_mode = "linear", bits = 10,
  virt_mode_cfg_enable = 1,
  virt_mode_cfg = { width = 2560, height = 1440, bits = 10, max_fps = 30000, default_fps = 25000,
    hdr_mode = "3x", video_type = "yuv_bt1120", sensor_id = 0x1234, agc_db_step = 6,
    hdr_offset_long = -2, dual_gain_mode = 1 } }
local function buf(w, h)
  return { max_output = {w, h}, input = {0, 0, 3840, 2160}, output = {0, 0, w, h} }
end
local function channel(id, src)
  return { id = id, vsrc = src, sensor_ctrl = 1, max_padding_width = 256, idsp_fps = 29970,
    img_stats_src_chan = "chan_0", max_warp_input_width = 1920 * (id + 1), max_warp_output_width = 7,
    enable_group = 1, group_idx = 1, group_order_idx = id, srcbuf_to_skip_blend = 0x3,
    main = buf(1920, 1080), second = buf(1280, 720), premain = buf(3840, 2160),
    pass_num = 2,
    pass_1 = { input_pass_id = 0, input_buf_id = 1, main = buf(640, 360), premain = buf(32, 32) },
    pyramid = { input_buf_id = 1, layer_map = 0x15, scale_type = 1, buf_addr = 0x80000000 + id,
      buf_size = 0x200000, manual_feed = id % 2, item_num = 4, min_unlocked_buf_num = 2,
      rescale_size = {1920, 1080}, frame_rate = 14985, enable_frame_tag = 1,
      frame_tag_value = 0x5, frame_tag_mask = 0xf,
      layers = { { crop_win = {0, 0, 1920, 1080} }, { crop_win = {1, 1, 1, 1} },
                 { crop_win = {0, 0, 960, 540} }, {}, { crop_win = {0, 0, 480, 270} } } } }
end
_resource_config_ = {
  version = 1,
  enable_hp_fps = 1,
  channels = { channel(2, virt), channel(0, shared), channel(1, shared) },
}
)";

// Binds every source buffer of every channel to a canvas, as the canvas
// binding would: the dump writes only bound buffers' values.
void bind_all(kiv_multi_chan_cfg &cfg)
{
    for (auto &c : cfg.channels)
        for (auto &pass : c.src_buf)
            for (auto &b : pass)
                b.canvas_id = 0;
}

} // namespace

TEST_F(ChannelDump, ThreeChannelsLoadDumpAndLoadBackUnchanged)
{
    kiv_multi_chan_cfg first;
    auto r = load(THREE, &first);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(first.chan_num, 3);
    const kiv_channel_cfg &c0 = first.channels[0], &c2 = first.channels[2];
    EXPECT_EQ(c0.idsp_fps, 30u);
    EXPECT_EQ(c0.idsp_fps_hp, 29970u);
    EXPECT_EQ(c0.vsrc.fps, 30u);
    EXPECT_EQ(c0.vsrc.mode, 65);
    EXPECT_STREQ(c0.vsrc.calib_data, "/etc/calib/sensor0.lua");
    EXPECT_EQ(memcmp(&c0.vsrc, &first.channels[1].vsrc, sizeof c0.vsrc), 0);
    EXPECT_EQ(c2.vsrc.mode, VIN_MODE_VIRTUAL);
    EXPECT_EQ(c2.vsrc.virt_mode_cfg.video_type, 6u);
    EXPECT_EQ(c2.src_buf[1][6].max_output[0], 32u);
    EXPECT_EQ(c2.pyramid.buf_addr, static_cast<int64_t>(0xffffffff80000002ull));
    EXPECT_EQ(c2.pyramid.frame_rate, 15);
    EXPECT_EQ(c2.pyramid.layers[2].crop_win[2], 960u);
    EXPECT_EQ(c2.pyramid.layers[1].crop_win[0], 0u);
    EXPECT_EQ(first.channels[1].pyramid.item_num, 4);
    EXPECT_EQ(c0.pyramid.item_num, 0);
    EXPECT_EQ(c0.group_order_idx, 0u);
    EXPECT_EQ(c2.group_order_idx, 2u);

    bind_all(first);
    const std::string text = dump(first);
    // Each shared source once, the virtual mode before the sources.
    EXPECT_EQ(text.find("virt_mode_cfg_1 = {\n"), 0u);
    EXPECT_LT(text.find("vsrc_0 = {\n"), text.find("vsrc_1 = {\n"));
    EXPECT_EQ(text.find("vsrc_0 = {", text.find("vsrc_0 = {") + 1), std::string::npos);
    EXPECT_NE(text.find("\tmode = \"auto\",\n\thdr_mode = \"linear\""), std::string::npos);
    EXPECT_LT(text.find("vsrc_1 = {\n"), text.find("chan_0 = {\n"));

    kiv_multi_chan_cfg second;
    std::string path = script(text);
    std::string log = masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg(path.c_str(), &second), 0); });
    // The calibration path is not part of the dump.
    EXPECT_EQ(log, "KIV_WARN:: kiv_get_vsrc_cfg(N): item(calib_data) doesn't exit, set to 0.\n"
                   "KIV_WARN:: kiv_get_vsrc_cfg(N): item(calib_data) doesn't exit, set to 0.\n"
                   "KIV_WARN:: kiv_get_vsrc_cfg(N): item(calib_data) doesn't exit, set to 0.\n");
    bind_all(second);
    for (int i = 0; i < 3; ++i) {
        memset(first.channels[i].vsrc.calib_data, 0, sizeof first.channels[i].vsrc.calib_data);
        memset(second.channels[i].vsrc.calib_data, 0, sizeof second.channels[i].vsrc.calib_data);
    }
    EXPECT_EQ(memcmp(&first, &second, sizeof first), 0);
    EXPECT_EQ(dump(second), text);
}
