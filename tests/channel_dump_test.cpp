// A three-channel configuration: loaded, written out byte for byte, and
// read back into the same record.
#include <cstring>

#include "core/sections.h"
#include "kiv_test.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

// Channels 0 and 1 share one source table; channel 2 has a virtual mode.
// Every channel has two passes and a pyramid; most keys hold distinct values
// so that a field written under another key's name shows.
const char *const THREE = R"(
local shared = { vsrc_id = 0, mode = "3840x2160", fps = 29970, max_fps = 60000, hdr_mode = "2x",
  bits = 12, mirror = 1, bayer = 2, vsrc_status = 1, dg_mode = 3, vsrc_ctx_switch = 1,
  calib_data = "/etc/calib/sensor0.lua" }
local virt = { vsrc_id = 1, mode = "auto", fps = 25000, hdr_mode = "linear", bits = 10,
  virt_mode_cfg_enable = 1,
  virt_mode_cfg = { width = 2560, height = 1440, bits = 10, max_fps = 30000, default_fps = 25000,
    hdr_mode = "3x", video_type = "yuv_bt1120", sensor_id = 0x1234, agc_db_step = 6,
    hdr_offset_long = -2, hdr_offset_short1 = 1, hdr_offset_short2 = 2, hdr_offset_short3 = 3,
    dual_gain_mode = 1 } }
local function buf(w, h)
  return { max_output = {w, h}, input = {0, 0, 3840, 2160}, output = {0, 0, w, h} }
end
local function channel(id, src)
  return { id = id, vsrc = src, sensor_ctrl = 1, max_padding_width = 128, idsp_fps = 29970,
    idsp_fps_locked_enable = 1, vsrc_ctx = 3, use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 0xff,
    vsrc_ctx_pattern_mask = 7, vsrc_ctx_pattern_addr_offset = 16, img_stats_src_chan = "chan_1",
    app_img_profile = 4, packing_mode_enable = 1, raw_capture = 1, hdec_raw_format = 2,
    raw_dsp_priv_dram = 1, raw_manual_feed = 1, raw_feed_frame_num = 100, raw_cached_items = 9,
    mctf_cmpr = 1, expo_num = 3, dis_enable = 1, debug_disable_vin_12x_ds = 1,
    vsrc_region_num = 2, vsrc_region_map = 5, luma_alpha_blend = 1, invert_mode = 1,
    enable_tml_raw_packing = 1, srcbuf_to_fusion = 4, enable_group = 1, group_idx = 2,
    group_order_idx = id, group_sync = 1, extra_iso_cfg = 17, reuse_src_chan_iso_cfg = 1,
    lens_warp = 1, max_warp_input_width = 1920 * id, max_warp_output_width = 1280,
    max_vwarp_wait_lines = 1000, max_vwarp_blk_height = 100, lens_warp_hi_ef_factor = 6,
    blend_left_or_top = 1, srcbuf_to_skip_blend = 0x1a, rotate_cw = 1, vflip = 1,
    extra_downscale = 1, low_delay_vin_vout = 1, max_main_input_width = 3840, mc_mask_buf_ds = 2,
    eis_delay_count = 5, debug_stitch_slice_num = 9, mcts_crop_out_enable = 1,
    max_raw_height = 2160, max_cawarp_h_spacing = 6, trigger_led = 1,
    main = buf(1920, 1080), second = buf(720, 480), premain = id > 0 and buf(3840, 2160) or nil,
    pass_num = 2,
    pass_1 = { input_pass_id = 0, input_buf_id = 6, third = buf(640, 360),
      premain = id > 0 and buf(64, 32) or nil },
    pyramid = { input_buf_id = 1, scale_type = 2, buf_addr = 0x80001000 + id, buf_size = 0x100000,
      frame_rate = 14985, manual_feed = (id + 1) % 2, item_num = 4, set_min_unlocked_buf_num = 1,
      min_unlocked_buf_num = 2, cached_items = 3, rescale_size = {1920, 1080},
      max_rescale_size = {3840, 2160}, layer_map = 0x21, max_layer_map = 0x3f,
      enable_frame_tag = 1, frame_tag_value = 0xab, frame_tag_mask = 0xff,
      layers = { { crop_win = {0, 0, 1920, 1080} }, { crop_win = {9, 9, 9, 9} }, {}, {}, {},
                 { crop_win = {8, 8, 60, 34} } } } }
end
_resource_config_ = {
  version = 1,
  enable_hp_fps = 1,
  channels = { channel(2, virt), channel(0, shared), channel(1, shared) },
  -- Every buffer is bound but chan_2.second: the dump writes only zeros for it.
  canvas = {
    { type = "encode", size = {1920, 1080},
      source = { "chan_0.main", "chan_0.second", "chan_0.third_1" } },
    { type = "encode", size = {1920, 1080}, source = { "chan_1.main", "chan_1.second",
      "chan_1.premain", "chan_1.third_1", "chan_1.premain_1" } },
    { type = "encode", size = {1920, 1080},
      source = { "chan_2.main", "chan_2.premain", "chan_2.third_1", "chan_2.premain_1" } },
  },
  streams = { { id = 0, max_size = {1920, 1080} } },
}
)";

const char *const HDR = "-- options: \"linear\", \"2x\", \"3x\", \"wdr\", \n";

// The source tables of the dump: the virtual mode first, each source once.
const std::string SOURCES = std::string("virt_mode_cfg_1 = {\n"
                                        "\twidth = 2560,\n"
                                        "\theight = 1440,\n"
                                        "\tbits = 10,\n"
                                        "\thdr_mode = \"3x\", ") +
                            HDR +
                            "\tvideo_type = \"yuv_bt1120\", -- options: \"yuv_601\", \"yuv_656\", "
                            "\"rgb_601\", \"rgb_656\", \"rgb_raw\", \"yuv_bt1120\", "
                            "\"rgb_bt1120\", \n"
                            "\tdual_gain_mode = 1,\n"
                            "\tdefault_fps = 25000,\n"
                            "\tmax_fps = 30000,\n"
                            "\tsensor_id = 0x1234,\n"
                            "\tagc_db_step = 0x6,\n"
                            "\thdr_offset_long = -2,\n"
                            "\thdr_offset_short1 = 1,\n"
                            "\thdr_offset_short2 = 2,\n"
                            "\thdr_offset_short3 = 3,\n"
                            "}\n\n"
                            "vsrc_0 = {\n"
                            "\tvsrc_id = 0,\n"
                            "\tvsrc_status = 1,\n"
                            "\tmode = \"3840x2160\",\n"
                            "\thdr_mode = \"2x\", " +
                            HDR +
                            "\tdg_mode = 3,\n"
                            "\tfps = 29970,\n"
                            "\tmax_fps = 60000,\n"
                            "\tvsrc_ctx_switch = 1,\n"
                            "\tbits = 12,\n"
                            "\tmirror = 1,\n"
                            "\tbayer = 2,\n"
                            "\tvirt_mode_cfg_enable = 0,\n"
                            "}\n\n"
                            "vsrc_1 = {\n"
                            "\tvsrc_id = 1,\n"
                            "\tvsrc_status = 0,\n"
                            "\tmode = \"auto\",\n" // loads; the virtual mode replaces it
                            "\thdr_mode = \"linear\", " +
                            HDR +
                            "\tdg_mode = 0,\n"
                            "\tfps = 25000,\n"
                            "\tmax_fps = 0,\n"
                            "\tvsrc_ctx_switch = 0,\n"
                            "\tbits = 10,\n"
                            "\tmirror = 255,\n"
                            "\tbayer = 255,\n"
                            "\tvirt_mode_cfg_enable = 1,\n"
                            "\tvirt_mode_cfg = virt_mode_cfg_1,\n"
                            "}\n\n";

std::string buffer(const std::string &indent, const std::string &name, const std::string &input,
                   const std::string &max, const std::string &in, const std::string &out)
{
    const std::string i = indent + "\t";
    return indent + name + " = {\n" + i + "max_output = {" + max + "},\n" + i + input + " = {" +
           in + "},\n" + i + "output\t = {" + out + "},\n" + indent + "},\n";
}

std::string zeros(const std::string &indent, const std::string &name)
{
    return buffer(indent, name, "input \t", "0, 0", "0, 0, 0, 0", "0, 0, 0, 0");
}

const std::string FULL = "0, 0, 3840, 2160";
const std::string LAYER_0 = "\t\t\t{\n\t\t\t\tcrop_win = {0, 0, 0, 0},\n\t\t\t},\n";

// chan_2 with its pass-0 "second" unbound: zeros in place of its values.
const std::string CHAN_2 =
    "chan_2 = {\n"
    "\tid = 2,\n"
    "\tvsrc = vsrc_1,\n"
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
    "\tgroup_order_idx = 2,\n"
    "\tgroup_sync = 1,\n"
    "\textra_iso_cfg = 17,\n"
    "\treuse_src_chan_iso_cfg = 1,\n"
    "-- ================  dewarp cfg  ================\n"
    "\tlens_warp = 1,\n"
    "\tmax_padding_width = 128,\n"
    "\tmax_warp_input_width = 3840,\n"
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
    "\tpass_num = 2,\n" +
    buffer("\t", "premain", "input\t", "3840, 2160", FULL, FULL) +
    buffer("\t", "main", "input \t", "1920, 1080", FULL, "0, 0, 1920, 1080") +
    zeros("\t", "second") + zeros("\t", "third") + zeros("\t", "fourth") + zeros("\t", "fifth") +
    zeros("\t", "sixth") +
    "\tpass_1 = {\n"
    "\t\tinput_pass_id = 0,\n"
    "\t\tinput_buf_id = 6,\n" +
    buffer("\t\t", "premain", "input \t", "64, 32", FULL, "0, 0, 64, 32") + zeros("\t\t", "main") +
    zeros("\t\t", "second") +
    buffer("\t\t", "third", "input \t", "640, 360", FULL, "0, 0, 640, 360") +
    zeros("\t\t", "fourth") + zeros("\t\t", "fifth") + zeros("\t\t", "sixth") +
    "\t},\n"
    "-- ================ pyramid cfg ================\n"
    "\tpyramid = {\n"
    "\t\tinput_buf_id = 1,\n"
    "\t\tscale_type = 2,\n"
    "\t\tbuf_addr = 0xffffffff80001002,\n"
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
    "\t\tlayers = {\n"
    "\t\t\t{\n\t\t\t\tcrop_win = {0, 0, 1920, 1080},\n\t\t\t},\n" +
    LAYER_0 + LAYER_0 + LAYER_0 + LAYER_0 +
    "\t\t\t{\n\t\t\t\tcrop_win = {8, 8, 60, 34},\n\t\t\t},\n"
    "\t\t},\n"
    "\t},\n"
    "}\n\n";

std::string table(const std::string &text, const std::string &name)
{
    size_t at = text.find(name + " = {\n");
    return at == std::string::npos ? "" : text.substr(at, text.find("}\n\n", at) + 3 - at);
}

class ChannelDump : public Settings
{
};

} // namespace

TEST_F(ChannelDump, ThreeChannelsWrittenExactlyAndReadBackUnchanged)
{
    kiv_multi_chan_cfg first;
    auto r = load(THREE, &first);
    ASSERT_EQ(r.ret, 0) << r.log;
    ASSERT_EQ(first.chan_num, 3);
    const kiv_channel_cfg &c0 = first.channels[0];
    EXPECT_EQ(c0.idsp_fps, 30u);
    EXPECT_EQ(c0.vsrc.fps, 30u);
    EXPECT_STREQ(c0.vsrc.calib_data, "/etc/calib/sensor0.lua");
    EXPECT_EQ(memcmp(&c0.vsrc, &first.channels[1].vsrc, sizeof c0.vsrc), 0);
    EXPECT_EQ(first.channels[2].vsrc.mode, VIN_MODE_VIRTUAL);
    EXPECT_EQ(first.channels[2].pyramid.frame_rate, 15);

    std::string text = dump(first);
    EXPECT_EQ(text.substr(0, SOURCES.size()), SOURCES);
    EXPECT_EQ(table(text, "chan_2"), CHAN_2);
    // No multi-region warp: no premain; no manual feed: one item_num line.
    EXPECT_EQ(table(text, "chan_0").find("premain"), std::string::npos);
    EXPECT_NE(table(text, "chan_1").find("\t\tmanual_feed = 0,\n\t\titem_num = 0,\n\t\tcached_"),
              std::string::npos);
    EXPECT_LT(text.find("chan_2 = {"), text.find("_resource_config_ = {"));

    kiv_multi_chan_cfg second;
    const std::string path = script(text);
    std::string log = masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg(path.c_str(), &second), 0); });
    // The calibration path is not part of the dump.
    const std::string calib = "KIV_WARN:: kiv_get_vsrc_cfg(N): item(calib_data) doesn't exit, "
                              "set to 0.\n";
    EXPECT_EQ(log, calib + calib + calib);
    // Neither are the values of a buffer bound to no canvas.
    memset(&first.channels[2].src_buf[0][1], 0, offsetof(kiv_src_buf_cfg, canvas_id));
    for (int i = 0; i < 3; ++i)
        memset(first.channels[i].vsrc.calib_data, 0, sizeof first.channels[i].vsrc.calib_data);
    EXPECT_EQ(memcmp(&first, &second, sizeof first), 0);
    EXPECT_EQ(dump(second), text);
}
