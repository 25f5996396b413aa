// Video sources and virtual modes: the vsrc table of a channel read on its
// own, the mode names, and the vsrc_<id> / virt_mode_cfg_<id> tables.
#include <cstring>

#include "core/log.h"
#include "core/sections.h"
#include "kiv_test.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

class Vsrc : public Settings
{
  protected:
    // Reads `chan = { vsrc = { <items> } }` into vsrc (zeroed first) and
    // returns the result; log gets the masked log.
    int32_t read(const std::string &items, std::string *log = nullptr)
    {
        lua_script s("chan = { vsrc = { " + items + " } }", "chan");
        vsrc = kiv_vsrc_cfg{};
        int32_t ret = 0;
        std::string text = masked([&] { ret = kiv_get_vsrc_cfg(s.L(), &vsrc); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        if (log)
            *log = text;
        return ret;
    }
    // The error line of the access layer-free failures, with its line masked.
    static std::string err(const std::string &fn, const std::string &text)
    {
        return "KIV_ERROR:: " + fn + "(N): " + text;
    }
    kiv_vsrc_cfg vsrc{};
};

const char *const BASE = "vsrc_id = 1, mode = '1080p', fps = 30, hdr_mode = 'linear', "
                         "mirror = 0, bayer = 1, calib_data = 'c.lua', virt_mode_cfg_enable = 0, "
                         "vsrc_status = 0, max_fps = 0, dg_mode = 0, bits = 12, "
                         "vsrc_ctx_switch = 0, ";

const char *const VIRT = "virt_mode_cfg_enable = 1, virt_mode_cfg = { width = 1920, "
                         "height = 1080, hdr_mode = '2x', video_type = 'rgb_raw', ";

} // namespace

TEST_F(Vsrc, ModeNamesFirstRowWinsAndLookupIsExact)
{
    EXPECT_STREQ(vin_mode_table[0].name, "0");
    EXPECT_STREQ(vin_mode_table[94].name, "poweroff");
    EXPECT_EQ(vin_mode_table[94].id, 0xF000);
    EXPECT_STREQ(vin_mode_table[95].name, "");
    EXPECT_EQ(kiv_get_vin_mode("vga"), 10);
    EXPECT_EQ(kiv_get_vin_mode("auto"), 0);
    EXPECT_EQ(kiv_get_vin_mode(""), 0);
    EXPECT_EQ(kiv_get_vin_mode("2560x2560"), 125);
    EXPECT_EQ(kiv_get_vin_mode("3264x1832"), 114);
    EXPECT_EQ(masked([] { EXPECT_EQ(kiv_get_vin_mode("VGA"), -2); }),
              err("kiv_get_vin_mode", "vin mode 'VGA' not found\n"));
    // The dump names an id by its first row.
    const std::pair<int32_t, const char *> shared[] = {
        {0, "0"},     {10, "640x480"}, {13, "480p"},  {14, "576p"}, {23, "xga"}, {27, "720p"},
        {28, "wxga"}, {34, "uxga"},    {40, "1080p"}, {46, "qxga"}, {55, "qhd"}, {57, "qsxga"},
    };
    for (auto [id, name] : shared)
        EXPECT_STREQ(kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, id)->name, name) << id;
    EXPECT_EQ(kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, VIN_MODE_VIRTUAL), nullptr);
}

TEST_F(Vsrc, StoresLowBitsDefaultsAndFrameRates)
{
    std::string log;
    ASSERT_EQ(read("vsrc_id = 2, mode = 'vga', fps = 30, max_fps = 60, hdr_mode = 'wdr', "
                   "bits = 40, vsrc_status = 9, dg_mode = 17, vsrc_ctx_switch = 3",
                   &log),
              0)
        << log;
    EXPECT_EQ(vsrc.vsrc_id, 2u);
    EXPECT_EQ(vsrc.mode, 10);
    EXPECT_EQ(vsrc.hdr_mode, 15u);
    EXPECT_EQ(vsrc.bits, 8u);
    EXPECT_EQ(vsrc.vsrc_status, 1u);
    EXPECT_EQ(vsrc.dg_mode, 1u);
    EXPECT_EQ(vsrc.vsrc_ctx_switch, 1u);
    EXPECT_EQ(vsrc.fps, 30u);
    EXPECT_EQ(vsrc.fps_hp, 30000u);
    EXPECT_EQ(vsrc.max_fps, 60000u);
    EXPECT_EQ(vsrc.mirror, 255);
    EXPECT_EQ(vsrc.bayer, 255);
    EXPECT_STREQ(vsrc.calib_data, "");
    EXPECT_EQ(log, "KIV_WARN:: kiv_get_vsrc_cfg(N): item(mirror) doesn't exist, set 0 by default.\n"
                   "KIV_WARN:: kiv_get_vsrc_cfg(N): item(bayer) doesn't exist, set 0 by default.\n"
                   "KIV_WARN:: kiv_get_vsrc_cfg(N): item(calib_data) doesn't exit, set to 0.\n"
                   "KIV_WARN:: kiv_get_vsrc_cfg(N): item(virt_mode_cfg_enable) doesn't exit, "
                   "set to 0.\n");

    kiv_set_hp_fps(1);
    ASSERT_EQ(read(std::string(BASE) + "fps = 29970, max_fps = 30000"), 0);
    EXPECT_EQ(vsrc.fps, 30u);
    EXPECT_EQ(vsrc.fps_hp, 29970u);
    EXPECT_EQ(vsrc.max_fps, 30000u);
    EXPECT_STREQ(vsrc.calib_data, "c.lua");
    EXPECT_EQ(vsrc.mirror, 0);
    EXPECT_EQ(vsrc.bayer, 1);
    // A fractional rate reads as 0.
    ASSERT_EQ(read(std::string(BASE) + "fps = 29.97"), 0);
    EXPECT_EQ(vsrc.fps_hp, 0u);
    // Without virt_mode_cfg_enable a virt_mode_cfg is not looked at.
    ASSERT_EQ(read("vsrc_id = 0, mode = '', fps = 1, hdr_mode = '3x', virt_mode_cfg = 5", &log), 0);
    EXPECT_EQ(vsrc.mode, 0);
    EXPECT_EQ(vsrc.virt_mode_cfg_enable, 0u);
}

TEST_F(Vsrc, FailuresOfTheSourceTable)
{
    std::string log;
    const std::string base = BASE;
    // Missing vsrc, or one that is no table: -2 without a line.
    {
        lua_script s("chan = { vsrc = 'vsrc_0' }", "chan");
        EXPECT_EQ(masked([&] { EXPECT_EQ(kiv_get_vsrc_cfg(s.L(), &vsrc), -2); }), "");
        EXPECT_EQ(lua_gettop(s.L()), s.top());
    }
    EXPECT_EQ(read("mode = '1080p'", &log), -2);
    EXPECT_EQ(log, err("kiv_get_vsrc_cfg", "item(vsrc_id) doesn't exist.\n"));
    EXPECT_EQ(read("vsrc_id = 3, mode = '1080p'", &log), -2);
    EXPECT_EQ(log, err("kiv_get_vsrc_cfg", "invalid vsrc_id(3), it must be less than 3.\n"));
    EXPECT_EQ(read("vsrc_id = -1", &log), -2);
    EXPECT_EQ(log,
              err("kiv_get_vsrc_cfg", "invalid vsrc_id(4294967295), it must be less than 3.\n"));

    // Required items without a line of their own.
    EXPECT_EQ(read("vsrc_id = 0, vsrc_status = 0, fps = 30, hdr_mode = 'linear'", &log), -2);
    EXPECT_EQ(log, "");
    EXPECT_EQ(read("vsrc_id = 0, vsrc_status = 0, mode = 'qhd', hdr_mode = 'linear'", &log), -2);
    EXPECT_EQ(log, "");
    EXPECT_EQ(vsrc.mode, 55);
    EXPECT_EQ(read("vsrc_id = 0, vsrc_status = 0, mode = 'qhd', fps = 5, max_fps = 5", &log), -2);
    EXPECT_EQ(log, "");
    EXPECT_EQ(vsrc.fps, 5u);

    EXPECT_EQ(read("vsrc_id = 0, vsrc_status = 0, mode = 'VGA', fps = 5", &log), -2);
    EXPECT_EQ(log, err("kiv_get_vin_mode", "vin mode 'VGA' not found\n"));
    EXPECT_EQ(vsrc.mode, -2);
    EXPECT_EQ(vsrc.fps, 0u);
    EXPECT_EQ(read("vsrc_id = 2, vsrc_status = 0, mode = 'qhd', fps = 5, max_fps = 5, "
                   "hdr_mode = '4x', bits = 10",
                   &log),
              -1);
    EXPECT_EQ(log, err("kiv_get_vsrc_cfg", "invalid hdr_mode(4x) for vsrc(2)\n"));
    EXPECT_EQ(vsrc.bits, 0u);

    // calib_data holds 255 characters; a longer path is refused.
    const std::string path255(255, 'p');
    ASSERT_EQ(read(base + "calib_data = '" + path255 + "'"), 0);
    EXPECT_EQ(std::string(vsrc.calib_data), path255);
    EXPECT_EQ(read(base + "calib_data = '" + std::string(256, 'p') + "'", &log), -2);
    EXPECT_EQ(log, err("kiv_get_vsrc_cfg", "item(calib_data) is longer than 255 characters.\n"));
    EXPECT_EQ(read(base + "calib_data = '" + std::string(5000, 'p') + "'", &log), -2);
    EXPECT_EQ(vsrc.virt_mode_cfg_enable, 0u);
}

TEST_F(Vsrc, VirtualMode)
{
    std::string log;
    const std::string base = BASE;
    ASSERT_EQ(read(base + VIRT + "max_fps = 30, default_fps = 25, sensor_id = 4660 }", &log), 0)
        << log;
    const kiv_virt_mode_cfg &v = vsrc.virt_mode_cfg;
    EXPECT_EQ(vsrc.mode, 61441);
    EXPECT_EQ(v.width, 1920u);
    EXPECT_EQ(v.bits, 8u);
    EXPECT_EQ(v.hdr_mode, 1u);
    EXPECT_EQ(v.video_type, 5u);
    EXPECT_EQ(v.max_fps, 30000u);
    EXPECT_EQ(v.default_fps, 25000u);
    EXPECT_EQ(v.sensor_id, 0x1234u);
    const std::string w = "KIV_WARN:: kiv_get_virt_mode_cfg(N): item(";
    const std::string d = ") doesn't exist, set 0 by default.\n";
    EXPECT_EQ(log, w + "bits" + d + w + "hdr_offset_long" + d + w + "hdr_offset_short1" + d + w +
                       "hdr_offset_short2" + d + w + "hdr_offset_short3" + d + w +
                       "dual_gain_mode" + d + w + "agc_db_step" + d);

    // Each failure: the item's own line (if any), then the source's line
    // without a line feed; the mode is VIN_MODE_VIRTUAL all the same.
    const std::string bad = err("kiv_get_vsrc_cfg", "The virtual mode config is incorrect for "
                                                    "vsrc_id[1]!");
    const std::pair<std::string, std::string> cases[] = {
        {"virt_mode_cfg_enable = 1", ""},
        {"virt_mode_cfg_enable = 1, virt_mode_cfg = 7", ""},
        {"virt_mode_cfg_enable = 1, virt_mode_cfg = { height = 1 }",
         err("kiv_get_virt_mode_cfg", "item(width) doesn't exist.\n")},
        {std::string(VIRT) + "bits = 10, max_fps = 25, default_fps = 30 }",
         err("kiv_get_virt_mode_cfg",
             "The default_fps[30000] can't be greater than max_fps[25000] for vsrc_(1)\n")},
        {std::string(VIRT) + "bits = 10, default_fps = 1, hdr_mode = 'HDR' }",
         "KIV_WARN:: kiv_get_virt_mode_cfg(N): item(max_fps) doesn't exist, set 0 by default.\n" +
             err("kiv_get_virt_mode_cfg",
                 "The default_fps[1000] can't be greater than max_fps[0] for vsrc_(1)\n")},
        {std::string(VIRT) + "bits = 10, max_fps = 1, default_fps = 1, hdr_mode = 'HDR' }",
         err("kiv_get_virt_mode_cfg", "invalid hdr_mode(HDR) for vsrc(1)\n")},
        {"virt_mode_cfg_enable = 1, virt_mode_cfg = { width = 1, height = 1, bits = 1, "
         "max_fps = 1, default_fps = 1, hdr_mode = 'linear', hdr_offset_long = 1, "
         "hdr_offset_short1 = 1, hdr_offset_short2 = 1, hdr_offset_short3 = 1, "
         "dual_gain_mode = 1, sensor_id = 1, agc_db_step = 1, video_type = 'RGB_RAW' }",
         err("kiv_get_virt_mode_cfg", "invalid video_type(RGB_RAW) for vsrc(1)\n")},
        {"virt_mode_cfg_enable = 1, virt_mode_cfg = { width = 1, height = 1, bits = 1, "
         "max_fps = 1, default_fps = 1, hdr_mode = 'linear', hdr_offset_long = 1, "
         "hdr_offset_short1 = 1, hdr_offset_short2 = 1, hdr_offset_short3 = 1, "
         "dual_gain_mode = 1, sensor_id = 1, agc_db_step = 1 }",
         ""},
    };
    for (const auto &[items, line] : cases) {
        EXPECT_EQ(read(base + items, &log), -2) << items;
        EXPECT_EQ(log, line + bad) << items;
        EXPECT_EQ(vsrc.mode, VIN_MODE_VIRTUAL) << items;
    }
    // The default is stored before it is checked.
    read(base + VIRT + "max_fps = 25, default_fps = 30 }");
    EXPECT_EQ(vsrc.virt_mode_cfg.default_fps, 30000u);
}

namespace
{
// A record of n channels whose sources are given.
kiv_multi_chan_cfg with_sources(std::initializer_list<kiv_vsrc_cfg> sources)
{
    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    for (const kiv_vsrc_cfg &v : sources)
        cfg.channels[cfg.chan_num++].vsrc = v;
    return cfg;
}

std::string sources_dump(const kiv_multi_chan_cfg &cfg, uint8_t hp)
{
    return capture([&] {
        kiv_dump_virt_mode_cfg(&cfg, nullptr, hp, cfg.chan_num);
        kiv_dump_vsrc_cfg(&cfg, nullptr);
    });
}
} // namespace

TEST_F(Vsrc, DumpWritesEachSourceOnceExactly)
{
    kiv_vsrc_cfg plain{};
    plain.vsrc_id = 0;
    plain.mode = 10;
    plain.fps = 30;
    plain.fps_hp = 29970;
    plain.max_fps = 60000;
    plain.hdr_mode = 15;
    plain.bits = 12;
    plain.dg_mode = 3;
    plain.vsrc_status = 2;
    plain.mirror = 255;
    plain.bayer = 3;
    kiv_vsrc_cfg virt = plain;
    virt.vsrc_id = 1;
    virt.mode = VIN_MODE_VIRTUAL;
    virt.hdr_mode = 7; // no row: only the options
    virt.virt_mode_cfg_enable = 1;
    virt.virt_mode_cfg = {3840, 2160, 2, -5, 1, 2, 3, 25000, 30000, 0x1234, 0xa, 10, 1, 6};

    // Channels 0 and 2 share source 0: written once, from channel 0.
    kiv_multi_chan_cfg cfg = with_sources({plain, virt, plain});
    cfg.channels[2].vsrc.fps = 99;
    EXPECT_EQ(sources_dump(cfg, 0),
              "virt_mode_cfg_1 = {\n"
              "\twidth = 3840,\n"
              "\theight = 2160,\n"
              "\tbits = 10,\n"
              "\thdr_mode = \"3x\", -- options: \"linear\", \"2x\", \"3x\", \"wdr\", \n"
              "\tvideo_type = \"yuv_bt1120\", -- options: \"yuv_601\", \"yuv_656\", "
              "\"rgb_601\", \"rgb_656\", \"rgb_raw\", \"yuv_bt1120\", \"rgb_bt1120\", \n"
              "\tdual_gain_mode = 1,\n"
              "\tdefault_fps = 25,\n"
              "\tmax_fps = 30,\n"
              "\tsensor_id = 0x1234,\n"
              "\tagc_db_step = 0xa,\n"
              "\thdr_offset_long = -5,\n"
              "\thdr_offset_short1 = 1,\n"
              "\thdr_offset_short2 = 2,\n"
              "\thdr_offset_short3 = 3,\n"
              "}\n\n"
              "vsrc_0 = {\n"
              "\tvsrc_id = 0,\n"
              "\tvsrc_status = 2,\n"
              "\tmode = \"640x480\",\n"
              "\thdr_mode = \"wdr\", -- options: \"linear\", \"2x\", \"3x\", \"wdr\", \n"
              "\tdg_mode = 3,\n"
              "\tfps = 30,\n"
              "\tmax_fps = 60,\n"
              "\tvsrc_ctx_switch = 0,\n"
              "\tbits = 12,\n"
              "\tmirror = 255,\n"
              "\tbayer = 3,\n"
              "\tvirt_mode_cfg_enable = 0,\n"
              "}\n\n"
              "vsrc_1 = {\n"
              "\tvsrc_id = 1,\n"
              "\tvsrc_status = 2,\n"
              "\tmode = \"auto\",\n"
              "\"linear\", \"2x\", \"3x\", \"wdr\", \n"
              "\tdg_mode = 3,\n"
              "\tfps = 30,\n"
              "\tmax_fps = 60,\n"
              "\tvsrc_ctx_switch = 0,\n"
              "\tbits = 12,\n"
              "\tmirror = 255,\n"
              "\tbayer = 3,\n"
              "\tvirt_mode_cfg_enable = 1,\n"
              "\tvirt_mode_cfg = virt_mode_cfg_1,\n"
              "}\n\n");

    // The record's own flag selects thousandths; a video type of 0 and a mode
    // without a row leave their first pieces out.
    cfg = with_sources({virt});
    cfg.channels[0].vsrc.virt_mode_cfg.video_type = 0;
    cfg.channels[0].vsrc.mode = 12345;
    std::string text = sources_dump(cfg, 1);
    EXPECT_NE(text.find("\tdefault_fps = 25000,\n\tmax_fps = 30000,\n"), std::string::npos);
    EXPECT_NE(text.find("\"rgb_raw\", \"yuv_bt1120\", \"rgb_bt1120\", \n\tdual_gain_mode"),
              std::string::npos);
    EXPECT_NE(text.find("\tvsrc_status = 2,\n\"linear\""), std::string::npos);
    EXPECT_EQ(text.find("video_type ="), std::string::npos);

    // Nothing for no channels; ids the parser refuses still dump without
    // reaching past anything, once each.
    EXPECT_EQ(sources_dump(with_sources({}), 0), "");
    kiv_vsrc_cfg far = virt;
    far.vsrc_id = 0xFFFFFFFF;
    cfg = with_sources({far, far, far});
    text = sources_dump(cfg, 0);
    EXPECT_EQ(text.find("virt_mode_cfg_-1 = {"), 0u);
    EXPECT_EQ(text.find("virt_mode_cfg_-1 = {", 1), std::string::npos);
    EXPECT_EQ(text.find("vsrc_-1 = {", text.find("vsrc_-1 = {") + 1), std::string::npos);
}
