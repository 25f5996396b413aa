// Channels: the channels array and its pyramids, their checks and failure
// paths, and a three-channel configuration written out byte for byte and
// read back into the same record.
#include <cstring>
#include <sstream>

#include "channel/channel.h"
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
const std::string CH = "kiv_get_channel_cfg";

// A channel table with the required items, an id and `extra` items.
std::string chan(int id, const std::string &extra = "")
{
    return "{ id = " + std::to_string(id) + ", sensor_ctrl = 1, max_padding_width = 64, " + MAIN +
           ", " + VSRC + ", " + extra + " }";
}

class Channel : public Settings
{
  protected:
    // Runs kiv_get_channel_cfg on `_resource_config_ = { channels = {...} }`.
    int32_t parse(const std::string &channels, std::string *log = nullptr)
    {
        cfg = fresh();
        auto r = kivtest::parse(kiv_get_channel_cfg,
                                "_resource_config_ = { channels = { " + channels + " } }", &cfg);
        if (log)
            *log = r.log;
        return r.ret;
    }
    // Runs kiv_get_pyramid_cfg on `chan = { pyramid = { <items> } }`.
    int32_t pyramid(const std::string &items, std::string *log = nullptr)
    {
        chan_ = kiv_channel_cfg{};
        auto r = kivtest::parse(kiv_get_pyramid_cfg, "chan = { pyramid = " + items + " }", &chan_,
                                "chan");
        if (log)
            *log = r.log;
        return r.ret;
    }
    kiv_multi_chan_cfg cfg;
    kiv_channel_cfg chan_{};
};

} // namespace

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
              warn(CH, "item(srcbuf_to_skip_blend) shoulder not bigger than 0x1f.\n") +
                  err(CH, "item(srcbuf_to_fusion) should not bigger than 5.\n"))
        << log;
    const kiv_channel_cfg &c = cfg.channels[0];
    EXPECT_EQ(vals({c.srcbuf_to_fusion, c.srcbuf_to_skip_blend, c.vsrc_ctx}), vals({0, 0, 0xff}));
    EXPECT_EQ(c.vsrc_ctx_pattern, 0u); // bit 0 of the switch is clear: not read
    EXPECT_EQ(
        vals({c.group_idx, c.group_order_idx, c.idsp_fps, c.idsp_fps_hp, c.img_stats_src_chan}),
        vals({1, 3, 30, 30000, 2}));

    kiv_set_hp_fps(1);
    ASSERT_EQ(parse(chan(0, "srcbuf_to_fusion = 9, srcbuf_to_skip_blend = 0x1f, idsp_fps = 29970, "
                            "use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 9, "
                            "vsrc_ctx_pattern_mask = 3"),
                    &log),
              0);
    EXPECT_EQ(only(log, "srcbuf_to"), "");
    EXPECT_EQ(vals({c.srcbuf_to_fusion, c.srcbuf_to_skip_blend, c.idsp_fps, c.idsp_fps_hp,
                    c.vsrc_ctx_pattern, c.vsrc_ctx_pattern_addr_offset}),
              vals({1, 0x1f, 30, 29970, 9, 0}));
    ASSERT_EQ(parse(chan(0, "srcbuf_to_fusion = 5, srcbuf_to_skip_blend = -1"), &log), 0);
    EXPECT_EQ(c.srcbuf_to_fusion, 5u);
    EXPECT_EQ(c.srcbuf_to_skip_blend, 0);

    // Ids in any order; each table goes to the element its id names.
    ASSERT_EQ(parse(chan(1, "vsrc_ctx = 11") + ", " + chan(0, "vsrc_ctx = 10")), 0);
    EXPECT_EQ(vals({cfg.chan_num, cfg.channels[0].vsrc_ctx, cfg.channels[1].vsrc_ctx,
                    cfg.channels[1].img_stats_src_chan}),
              vals({2, 10, 11, 1}));
}

TEST_F(Channel, FailuresOfTheChannelTable)
{
    const std::string no_vsrc =
        "{ id = 0, sensor_ctrl = 1, max_padding_width = 1, " + std::string(MAIN) + " }";
    const std::string stats = "kiv_get_img_stats_src_chan_id";
    const std::string stats_err = err(CH, "get img_stats_src_chan of channel(0) error\n");
    auto bad_id = [](const std::string &id) {
        return err(CH, "invalid channel id(" + id +
                           ") which is >= CONFIG_QUENTARIS_MAX_CHANNEL_NUM[3].\n");
    };
    const std::tuple<std::string, int32_t, std::string> failures[] = {
        {"", -2, err(CH, "no channel config found\n")},
        {"5", -2, err(CH, "item(id) doesn't exist.\n")},
        {"{ sensor_ctrl = 1 }", -2, err(CH, "item(id) doesn't exist.\n")},
        {chan(3), -1, bad_id("3")},
        {chan(-1), -1, bad_id("-1")},
        {"{ id = 0, max_padding_width = 1 }", -2, err(CH, "item(sensor_ctrl) doesn't exist.\n")},
        {"{ id = 0, sensor_ctrl = 1 }", -2, err(CH, "item(max_padding_width) doesn't exist.\n")},
        {chan(0, "use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 1"), -2,
         err(CH, "item(vsrc_ctx_pattern_mask) doesn't exist.\n")},
        {chan(0, "enable_group = 3"), -2, err(CH, "item(group_idx) doesn't exist.\n")},
        {"{ id = 0, sensor_ctrl = 1, max_padding_width = 1 }", -2,
         err("parse_src_buffer_cfg", "can't get source buffer(0) of pass 0 for channel(0).\n")},
        {no_vsrc, -2, err(CH, "get vsrc config of channel(0) error\n")},
        {chan(0, "img_stats_src_chan = 'chan_3'"), -2,
         err(stats, "invalid item(img_stats_src_chan) value(chan_3)\n") + stats_err},
        {chan(0, "img_stats_src_chan = 'chan_0" + std::string(40, 'x') + "'"), -2,
         err(stats,
             "invalid item(img_stats_src_chan) value(chan_0" + std::string(25, 'x') + ")\n") +
             stats_err},
        {chan(0) + "," + chan(1) + "," + chan(2) + "," + chan(0), -2,
         err(CH, "chan_num(4) is larger than the max supported channel num(3)\n")},
        {chan(0) + "," + chan(0), -1, err(CH, "invalid channel id(255) in channel(1)\n")},
        {chan(0) + "," + chan(2), -1, err(CH, "invalid channel id(255) in channel(1)\n")},
    };
    for (const auto &[channels, ret, errors] : failures) {
        std::string log;
        EXPECT_EQ(parse(channels, &log), ret) << channels;
        EXPECT_EQ(only(log, "KIV_ERROR"), errors) << channels;
    }
    // A failing channel leaves chan_num alone and is not marked configured;
    // a failing numbering has stored chan_num already.
    parse(chan(0, "img_stats_src_chan = 'chan_3'"));
    EXPECT_EQ(vals({cfg.chan_num, cfg.channels[0].configured, cfg.channels[0].img_stats_src_chan}),
              vals({0, 0, 0xFF}));
    parse(chan(0) + "," + chan(0));
    EXPECT_EQ(cfg.chan_num, 2);
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
    EXPECT_EQ(vals({c.configured, c.src_buf[0][1].max_output[0], c.src_buf[0][1].input[0],
                    c.src_buf[0][3].input[3], c.src_buf[0][3].output[0], c.src_buf[1][6].output[3],
                    c.src_buf[1][0].max_output[0], c.pass_cfg[1].input_buf_id}),
              vals({1, 320, 0, 4, 0, 8, 0, 1}));
    EXPECT_EQ(only(log, "array item"), no_array("input"));

    // "main" of pass 0 with a short array: what was read stays.
    EXPECT_EQ(parse(chan(0, "main = { max_output = {8, 9}, input = {1, 2, 3} }"), &log), -2);
    EXPECT_EQ(c.src_buf[0][0].max_output[1], 9u);
    EXPECT_EQ(c.src_buf[0][0].input[0], 0u);

    // Pass failures end the channel once its table has been read to the end.
    const std::tuple<std::string, int32_t, std::string> failures[] = {
        {"pass_num = 2", -2, err(CH, "item(pass_1) doesn't exist!\n")},
        {"pass_num = 2, pass_1 = 'main'", -2, err(CH, "item(pass_1) doesn't exist!\n")},
        {"pass_num = 3, pass_1 = {}", -2, err(CH, "item(pass_2) doesn't exist!\n")},
        {"pass_num = 7, pass_1 = {}, pass_2 = {}", -1,
         err("parse_src_buffer_cfg", "invalid pass ID 2\n")},
    };
    for (const auto &[extra, ret, errors] : failures) {
        EXPECT_EQ(parse(chan(0, extra + ", max_warp_output_width = 5"), &log), ret) << extra;
        EXPECT_EQ(only(log, "KIV_ERROR"), errors) << extra;
        EXPECT_EQ(vals({c.configured, c.max_warp_output_width, cfg.chan_num}), vals({0, 5, 0}));
    }
    EXPECT_EQ(only(log, "input_pass_id"), absent(CH, "input_pass_id"));
    // pass_num 0 loads; pass 0 is read all the same.
    ASSERT_EQ(parse(chan(0, "pass_num = 0")), 0);
    EXPECT_EQ(c.src_buf[0][0].max_output[0], 1920u);
}

TEST_F(Channel, PyramidDefaultsLayersAndFrameRates)
{
    const std::string P = "kiv_get_pyramid_cfg", head = "{ input_buf_id = 1, layer_map = 0x5, "
                                                        "scale_type = 2, ";
    std::string log;
    kiv_set_hp_fps(1);
    ASSERT_EQ(pyramid(head + "buf_addr = 0x80001000, manual_feed = 0, item_num = 4, "
                             "rescale_size = {640, 480}, frame_rate = 14985, layers = { { "
                             "crop_win = {1, 2, 3, 4} }, { crop_win = {9, 9, 9, 9} }, { "
                             "crop_win = {5, 6, 7, 8, 99} } } }",
                      &log),
              0);
    EXPECT_EQ(log, absent(P, "max_layer_map buf_size cached_items") +
                       warn(P, "item(max_rescale_size) doesn't exist, set 640x480 by default.\n") +
                       absent(P, "enable_frame_tag frame_tag_value frame_tag_mask"));
    const kiv_pyramid_cfg &p = chan_.pyramid;
    EXPECT_EQ(p.buf_addr, static_cast<int64_t>(0xffffffff80001000ull));
    EXPECT_EQ(p.item_num, 0); // no manual feed: not read
    EXPECT_EQ(vals({p.cached_items, p.max_rescale_size[1], p.frame_rate, p.frame_rate_hp}),
              vals({1, 480, 15, 14985}));
    // Layers not selected by the map are not read.
    EXPECT_EQ(vals({p.layers[0].crop_win[3], p.layers[1].crop_win[0], p.layers[2].crop_win[0]}),
              vals({4, 0, 5}));

    kiv_set_hp_fps(0);
    ASSERT_EQ(
        pyramid(head + "manual_feed = 1, item_num = 260, frame_rate = 15, layers = 5 }", &log), 0);
    EXPECT_EQ(vals({p.item_num, p.frame_rate_hp, p.layers[0].crop_win[0]}), vals({4, 15000, 0}));
    EXPECT_NE(log.find(absent(P, "set_min_unlocked_buf_num cached_items") +
                       warn(P, "item(rescale_size) doesn't exist, set 0x0 by default.\n") +
                       warn(P, "item(max_rescale_size) doesn't exist, set 0x0 by default.\n")),
              std::string::npos);
}

TEST_F(Channel, PyramidFailuresKeepWhatWasRead)
{
    const std::string P = "kiv_get_pyramid_cfg", head = "{ input_buf_id = 1, layer_map = 0x5, "
                                                        "scale_type = 2, ";
    std::string log;
    EXPECT_EQ(pyramid("1", &log), -1);
    EXPECT_EQ(log, warn(P, "item(pyramid) doesn't exist\n"));
    const std::tuple<std::string, int32_t, std::string> failures[] = {
        {"{ layer_map = 1 }", -2, err(P, "item(input_buf_id) doesn't exist.\n")},
        {"{ input_buf_id = 1, scale_type = 1 }", -2, err(P, "item(layer_map) doesn't exist.\n")},
        {"{ input_buf_id = 1, layer_map = 1 }", -2, err(P, "item(scale_type) doesn't exist.\n")},
        {head + "rescale_size = {1} }", -1, err(P, "Wrong item num(1) in item(rescale_size).\n")},
        {head + "max_rescale_size = 3 }", -1,
         err(P, "Wrong item num(0) in item(max_rescale_size).\n")},
        {head + "layers = { { crop_win = {1, 2, 3, 4} }, {}, { crop_win = {1, 2, 3} } } }", -1,
         err(P, "Wrong item num(3) in item(crop_win) of index(2)\n")},
        {head + "layers = { { crop_win = {1, 2, 3, 4} } } }", -1,
         err(P, "Wrong item num(0) in item(crop_win) of index(2)\n")},
    };
    for (const auto &[items, ret, line] : failures) {
        EXPECT_EQ(pyramid(items, &log), ret) << items;
        EXPECT_EQ(only(log, "KIV_ERROR"), line) << items;
        EXPECT_EQ(chan_.pyramid.input_buf_id, items.find("{ input_buf_id") == 0 ? 1u : 0u);
    }
    EXPECT_EQ(chan_.pyramid.layers[0].crop_win[0], 1u); // read before the failing layer

    // A faulty pyramid never fails its channel.
    ASSERT_EQ(parse(chan(0, "pyramid = { input_buf_id = 1 }"), &log), 0);
    EXPECT_NE(log.find(err(P, "item(layer_map) doesn't exist.\n") +
                       warn(CH, "pyramid of channel(0) doen't exist\n")),
              std::string::npos);
}

namespace
{

// Channels 0 and 1 share one source table; channel 2 has a virtual mode.
// Every channel has two passes and a pyramid; most keys hold distinct values
// so that a field written under another key's name shows.  Streams and a
// memory layout complete the record for the round trip.
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
local mem = { mask_possible = 1, mc_mask_possible = 0, warp_possible = 1, mask_buf_max_num = 64,
  mc_mask_buf_max_num = 5, mc_mask_buf_ds = 2, warp_buf_max_num = 6, warp_area_max_num = 7,
  max_vin = {1920, 1080} }
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
  streams = {
    { id = 1, max_size = {1280, 720}, max_M = 1, efm_enable = 1, efm_buf_num = 4,
      efm_size = {640, 360}, efm_extern_src_stream = 9, dis_enable = 1, dis_cached_items = 12 },
    { id = 0, max_size = {3840, 2160}, possible_enc_src_map = 0x8001, used_for_vout_enable = 1,
      used_for_vout_id = 1, js_enable = 1 } },
  resource_mem_layout = { max_chan_num = 2, max_stream_num = 1, channels_mem = { mem, mem },
    streams_mem = { { qpm_possible = 1, qpm_max_matrix_num = 9, qpm_buf_max_num = 17,
                      max_stream = {640, 480} } } },
}
)";

// A hdr_mode line with its list of options.
std::string hdr(const std::string &mode)
{
    return "\thdr_mode = \"" + mode + "\", -- options: \"linear\", \"2x\", \"3x\", \"wdr\", \n";
}

// The source tables of the dump: the virtual mode first, each source once.
const std::string SOURCES =
    "virt_mode_cfg_1 = {\n" + lines("\t", "width = 2560; height = 1440; bits = 10") + hdr("3x") +
    "\tvideo_type = \"yuv_bt1120\", -- options: \"yuv_601\", \"yuv_656\", \"rgb_601\", "
    "\"rgb_656\", \"rgb_raw\", \"yuv_bt1120\", \"rgb_bt1120\", \n" +
    lines("\t", "dual_gain_mode = 1; default_fps = 25000; max_fps = 30000; sensor_id = 0x1234; "
                "agc_db_step = 0x6; hdr_offset_long = -2; hdr_offset_short1 = 1; "
                "hdr_offset_short2 = 2; hdr_offset_short3 = 3") +
    "}\n\nvsrc_0 = {\n" + lines("\t", "vsrc_id = 0; vsrc_status = 1; mode = \"3840x2160\"") +
    hdr("2x") +
    lines("\t", "dg_mode = 3; fps = 29970; max_fps = 60000; vsrc_ctx_switch = 1; bits = 12; "
                "mirror = 1; bayer = 2; virt_mode_cfg_enable = 0") +
    "}\n\nvsrc_1 = {\n" +
    // "auto" loads; the virtual mode replaces it.
    lines("\t", "vsrc_id = 1; vsrc_status = 0; mode = \"auto\"") + hdr("linear") +
    lines("\t", "dg_mode = 0; fps = 25000; max_fps = 0; vsrc_ctx_switch = 0; bits = 10; "
                "mirror = 255; bayer = 255; virt_mode_cfg_enable = 1; "
                "virt_mode_cfg = virt_mode_cfg_1") +
    "}\n\n";

std::string buffer(const std::string &indent, const std::string &name, const std::string &input,
                   const std::string &max, const std::string &in, const std::string &out)
{
    return indent + name + " = {\n" +
           lines(indent + "\t", "max_output = {" + max + "}; " + input + " = {" + in +
                                    "}; output\t = {" + out + "}") +
           indent + "},\n";
}

std::string zeros(const std::string &indent, const std::string &names)
{
    std::string out;
    std::istringstream in(names);
    for (std::string name; in >> name;)
        out += buffer(indent, name, "input \t", "0, 0", "0, 0, 0, 0", "0, 0, 0, 0");
    return out;
}

const std::string FULL = "0, 0, 3840, 2160";

std::string layer(const std::string &crop)
{
    return "\t\t\t{\n\t\t\t\tcrop_win = {" + crop + "},\n\t\t\t},\n";
}

// chan_2 with its pass-0 "second" unbound: zeros in place of its values.
const std::string CHAN_2 =
    "chan_2 = {\n" +
    lines("\t",
          "id = 2; vsrc = vsrc_1; -- =============== resampling cfg ===============; "
          "idsp_fps = 29970; idsp_fps_locked_enable = 1; "
          "-- ================ vsrc_ctx cfg ================; vsrc_ctx = 3; "
          "use_vsrc_ctx_pattern = 1; vsrc_ctx_pattern = 255; vsrc_ctx_pattern_mask = 7; "
          "vsrc_ctx_pattern_addr_offset = 16; -- ================    3A cfg    ================; "
          "sensor_ctrl = 1; img_stats_src_chan = \"chan_1\"; app_img_profile = 4; "
          "packing_mode_enable = 1; raw_capture = 1; hdec_raw_format = 2; raw_dsp_priv_dram = 1; "
          "raw_manual_feed = 1; raw_feed_frame_num = 100; raw_cached_items = 9; mctf_cmpr = 1; "
          "mctf_10bit_ref = 0; expo_num = 3; vcap_mode_flags = 128; dis_enable = 1; "
          "debug_default_hds_coeff = 0; debug_disable_vin_12x_ds = 1; vsrc_region_num = 2; "
          "vsrc_region_map = 5; luma_alpha_blend = 1; extract_mono = 0; invert_mode = 1; "
          "is_still_fusion = 0; enable_tml_raw_packing = 1; enable_tml_proc = 0; "
          "srcbuf_to_fusion = 4; enable_group = 1; group_idx = 2; group_order_idx = 2; "
          "group_sync = 1; extra_iso_cfg = 17; reuse_src_chan_iso_cfg = 1; "
          "-- ================  dewarp cfg  ================; lens_warp = 1; "
          "max_padding_width = 128; max_warp_input_width = 3840; max_warp_output_width = 1280; "
          "max_vwarp_wait_lines = 1000; max_vwarp_blk_height = 100; lens_warp_hi_ef_factor = 6; "
          "-- ================  blend cfg   ================; blend_left_or_top = 1; "
          "blend_right_or_bot = 0; srcbuf_to_skip_blend = 0x1a; "
          "-- ============== rotate/flip cfg ===============; rotate_cw = 1; hflip = 0; "
          "vflip = 1; raw_vflip = 0; -- ================   misc cfg   ================; "
          "extra_downscale = 1; low_delay_vin_vout = 1; main_burst_tile = 1; "
          "max_main_input_width = 3840; mc_mask_buf_ds = 2; eis_delay_count = 5; "
          "debug_stitch_slice_num = 9; mcts_crop_out_enable = 1; max_raw_height = 2160; "
          "max_cawarp_h_spacing = 6; trigger_led = 1; "
          "-- ================ src buf cfg  ================; pass_num = 2") +
    buffer("\t", "premain", "input\t", "3840, 2160", FULL, FULL) +
    buffer("\t", "main", "input \t", "1920, 1080", FULL, "0, 0, 1920, 1080") +
    zeros("\t", "second third fourth fifth sixth") + "\tpass_1 = {\n" +
    lines("\t\t", "input_pass_id = 0; input_buf_id = 6") +
    buffer("\t\t", "premain", "input \t", "64, 32", FULL, "0, 0, 64, 32") +
    zeros("\t\t", "main second") +
    buffer("\t\t", "third", "input \t", "640, 360", FULL, "0, 0, 640, 360") +
    zeros("\t\t", "fourth fifth sixth") +
    "\t},\n-- ================ pyramid cfg ================\n\tpyramid = {\n" +
    lines("\t\t", "input_buf_id = 1; scale_type = 2; buf_addr = 0xffffffff80001002; "
                  "buf_size = 0x100000; frame_rate = 14985; manual_feed = 1; item_num = 4; "
                  "set_min_unlocked_buf_num = 1; min_unlocked_buf_num = 2; cached_items = 3; "
                  "rescale_size = {1920, 1080}; max_rescale_size = {3840, 2160}; "
                  "layer_map = 0x21; max_layer_map = 0x3f; enable_frame_tag = 1; "
                  "frame_tag_value = 0xab; frame_tag_mask = 0xff") +
    "\t\tlayers = {\n" + layer("0, 0, 1920, 1080") + layer("0, 0, 0, 0") + layer("0, 0, 0, 0") +
    layer("0, 0, 0, 0") + layer("0, 0, 0, 0") + layer("8, 8, 60, 34") + "\t\t},\n\t},\n}\n\n";

std::string table(const std::string &text, const std::string &name)
{
    size_t at = text.find(name + " = {\n");
    return at == std::string::npos ? "" : text.substr(at, text.find("}\n\n", at) + 3 - at);
}

} // namespace

TEST_F(Channel, ThreeChannelsWrittenExactlyAndReadBackUnchanged)
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
    EXPECT_EQ(vals({first.channels[2].vsrc.mode, first.channels[2].pyramid.frame_rate,
                    first.streams[1].efm_extern_src_stream}),
              vals({VIN_MODE_VIRTUAL, 15, 9}));

    std::string text = dump(first);
    EXPECT_EQ(text.substr(0, SOURCES.size()), SOURCES);
    EXPECT_EQ(table(text, "chan_2"), CHAN_2);
    // No multi-region warp: no premain; no manual feed: one item_num line.
    EXPECT_EQ(table(text, "chan_0").find("premain"), std::string::npos);
    EXPECT_NE(table(text, "chan_1").find("\t\tmanual_feed = 0,\n\t\titem_num = 0,\n\t\tcached_"),
              std::string::npos);
    EXPECT_LT(text.find("chan_2 = {"), text.find("_resource_config_ = {"));

    kiv_multi_chan_cfg second;
    r = load(text, &second);
    EXPECT_EQ(r.ret, 0);
    // The calibration path is not part of the dump.
    const std::string calib =
        warn("kiv_get_vsrc_cfg", "item(calib_data) doesn't exit, set to 0.\n");
    EXPECT_EQ(r.log, calib + calib + calib);
    // Neither are the values of a buffer bound to no canvas.
    memset(&first.channels[2].src_buf[0][1], 0, offsetof(kiv_src_buf_cfg, canvas_id));
    for (int i = 0; i < 3; ++i)
        memset(first.channels[i].vsrc.calib_data, 0, sizeof first.channels[i].vsrc.calib_data);
    EXPECT_EQ(memcmp(&first, &second, sizeof first), 0);
    EXPECT_EQ(dump(second), text);
}
