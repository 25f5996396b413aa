// Video sources and virtual modes read on their own, the mode names, and the
// corners of the vsrc_<id> / virt_mode_cfg_<id> tables.
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
    // Reads `chan = { vsrc = { <items> } }` into a zeroed record.
    int32_t read(const std::string &items, std::string *log = nullptr)
    {
        vsrc = kiv_vsrc_cfg{};
        auto r = parse(kiv_get_vsrc_cfg, "chan = { vsrc = { " + items + " } }", &vsrc, "chan");
        if (log)
            *log = r.log;
        return r.ret;
    }
    kiv_vsrc_cfg vsrc{};
};

const std::string V = "kiv_get_vsrc_cfg", VM = "kiv_get_virt_mode_cfg";
// Every item present, so that the log holds only what a test provokes.
const std::string BASE = "vsrc_id = 1, vsrc_status = 9, mode = 'vga', fps = 30, max_fps = 60, "
                         "hdr_mode = 'wdr', dg_mode = 17, bits = 40, vsrc_ctx_switch = 3, "
                         "mirror = 0, bayer = 1, calib_data = 'c.lua', ";
const std::string OFFSETS = "hdr_offset_long = 1, hdr_offset_short1 = 1, hdr_offset_short2 = 1, "
                            "hdr_offset_short3 = 1, dual_gain_mode = 5, sensor_id = 4660, "
                            "agc_db_step = 3, ";
const std::string VIRT = "virt_mode_cfg_enable = 1, virt_mode_cfg = { width = 1920, "
                         "height = 1080, hdr_mode = '2x', video_type = 'rgb_raw', ";

} // namespace

// Names match exactly; where several names share an id, the first names it.
TEST_F(Vsrc, ModeNames)
{
    const std::pair<const char *, int32_t> modes[] = {
        {"vga", 10}, {"auto", 0}, {"", 0}, {"3264x1832", 114}, {"poweroff", 0xF000}};
    for (auto [name, id] : modes)
        EXPECT_EQ(kiv_get_vin_mode(name), id) << name;
    EXPECT_EQ(masked([] { EXPECT_EQ(kiv_get_vin_mode("VGA"), -2); }),
              err("kiv_get_vin_mode", "vin mode 'VGA' not found\n"));
    for (auto [id, name] : {std::pair{10, "640x480"}, {40, "1080p"}, {57, "qsxga"}})
        EXPECT_STREQ(kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, id)->name, name) << id;
    EXPECT_EQ(kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, VIN_MODE_VIRTUAL), nullptr);
}

TEST_F(Vsrc, SourceTable)
{
    std::string log;
    ASSERT_EQ(read(BASE, &log), 0);
    EXPECT_EQ(log, warn(V, "item(virt_mode_cfg_enable) doesn't exit, set to 0.\n"));
    EXPECT_EQ(vals({vsrc.mode, vsrc.hdr_mode, vsrc.bits, vsrc.vsrc_status, vsrc.dg_mode,
                    vsrc.fps_hp, vsrc.max_fps}),
              vals({10, 15, 8, 1, 1, 30000, 60000}));
    EXPECT_STREQ(vsrc.calib_data, "c.lua");
    kiv_set_hp_fps(1);
    ASSERT_EQ(read(BASE + "fps = 29970, max_fps = 30000, calib_data = '" + std::string(255, 'p') +
                   "', virt_mode_cfg = 5"),
              0);
    EXPECT_EQ(vals({vsrc.fps, vsrc.fps_hp, vsrc.max_fps}), vals({30, 29970, 30000}));
    EXPECT_EQ(std::string(vsrc.calib_data), std::string(255, 'p'));

    const std::tuple<std::string, int32_t, std::string> failures[] = {
        {"mode = '1080p'", -2, err(V, "item(vsrc_id) doesn't exist.\n")},
        {"vsrc_id = 3", -2, err(V, "invalid vsrc_id(3), it must be less than 3.\n")},
        {"vsrc_id = -1", -2, err(V, "invalid vsrc_id(4294967295), it must be less than 3.\n")},
        {"vsrc_id = 0, vsrc_status = 0", -2, ""},
        {"vsrc_id = 0, vsrc_status = 0, mode = 'VGA'", -2,
         err("kiv_get_vin_mode", "vin mode 'VGA' not found\n")},
        {"vsrc_id = 0, vsrc_status = 0, mode = 'qhd'", -2, ""},
        {"vsrc_id = 0, vsrc_status = 0, mode = 'qhd', fps = 5, max_fps = 1", -2, ""},
        {BASE + "hdr_mode = '4x'", -1, err(V, "invalid hdr_mode(4x) for vsrc(1)\n")},
        {BASE + "calib_data = '" + std::string(256, 'p') + "'", -2,
         err(V, "item(calib_data) is longer than 255 characters.\n")},
    };
    for (const auto &[items, ret, line] : failures) {
        EXPECT_EQ(read(items, &log), ret) << items;
        EXPECT_EQ(log, line) << items;
    }
    read(BASE + "hdr_mode = '4x'");
    EXPECT_EQ(vsrc.mode, 10); // stored before the failing item
    EXPECT_EQ(vsrc.bits, 0u); // after it: untouched
    read("vsrc_id = 0, vsrc_status = 0, mode = 'VGA'");
    EXPECT_EQ(vsrc.mode, -2);
    auto r = parse(kiv_get_vsrc_cfg, "chan = { vsrc = 'vsrc_0' }", &vsrc, "chan");
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "");
}

TEST_F(Vsrc, VirtualMode)
{
    std::string log;
    ASSERT_EQ(read(BASE + VIRT + OFFSETS + "max_fps = 30, default_fps = 25 }", &log), 0);
    EXPECT_EQ(log, absent(VM, "bits"));
    const kiv_virt_mode_cfg &v = vsrc.virt_mode_cfg;
    EXPECT_EQ(vals({vsrc.mode, v.bits, v.hdr_mode, v.video_type, v.dual_gain_mode, v.default_fps}),
              vals({61441, 8, 1, 5, 1, 25000}));

    // The item's own line (if any), then the source's line without a line
    // feed; the mode is VIN_MODE_VIRTUAL all the same.
    const std::pair<std::string, std::string> failures[] = {
        {"virt_mode_cfg_enable = 1", ""},
        {"virt_mode_cfg_enable = 1, virt_mode_cfg = 7", ""},
        {"virt_mode_cfg_enable = 1, virt_mode_cfg = { height = 1 }",
         err(VM, "item(width) doesn't exist.\n")},
        {VIRT + "bits = 1, max_fps = 25, default_fps = 30 }",
         err(VM, "The default_fps[30000] can't be greater than max_fps[25000] for vsrc_(1)\n")},
        {VIRT + "bits = 1, max_fps = 1, default_fps = 1, hdr_mode = 'HDR' }",
         err(VM, "invalid hdr_mode(HDR) for vsrc(1)\n")},
        {VIRT + OFFSETS + "bits = 1, max_fps = 1, video_type = 'RGB_RAW' }",
         absent(VM, "default_fps") + err(VM, "invalid video_type(RGB_RAW) for vsrc(1)\n")},
    };
    for (const auto &[items, line] : failures) {
        EXPECT_EQ(read(BASE + items, &log), -2) << items;
        EXPECT_EQ(log, line + err(V, "The virtual mode config is incorrect for vsrc_id[1]!"))
            << items;
        EXPECT_EQ(vsrc.mode, VIN_MODE_VIRTUAL) << items;
    }
    EXPECT_EQ(vsrc.virt_mode_cfg.default_fps, 0u);
    read(BASE + VIRT + "max_fps = 25, default_fps = 30 }");
    EXPECT_EQ(vsrc.virt_mode_cfg.default_fps, 30000u); // stored, then refused
}

TEST_F(Vsrc, DumpCorners)
{
    kiv_multi_chan_cfg cfg = fresh();
    auto sources = [&](uint8_t hp) {
        cfg.enable_hp_fps = hp;
        return capture([&] {
            kiv_dump_virt_mode_cfg(&cfg, nullptr, hp, cfg.chan_num);
            kiv_dump_vsrc_cfg(&cfg, nullptr);
        });
    };
    EXPECT_EQ(sources(0), "");
    // A record filled by hand: ids the parser refuses, ids without a row.
    cfg.chan_num = 3;
    for (kiv_channel_cfg &c : cfg.channels) {
        c.vsrc.vsrc_id = 0xFFFFFFFF;
        c.vsrc.mode = 12345;
        c.vsrc.hdr_mode = 7;
        c.vsrc.virt_mode_cfg.hdr_mode = 7;
        c.vsrc.max_fps = 29970;
        c.vsrc.virt_mode_cfg_enable = 1;
        c.vsrc.virt_mode_cfg.default_fps = 25000;
    }
    const std::string text = sources(1);
    EXPECT_EQ(text.find("virt_mode_cfg_-1 = {\n"), 0u);
    EXPECT_EQ(text.find("virt_mode_cfg_-1 = {", 1), std::string::npos);
    EXPECT_EQ(text.find("vsrc_-1 = {", text.find("vsrc_-1 = {") + 1), std::string::npos);
    for (const char *part :
         {"\tbits = 0,\n\"linear\", \"2x\", \"3x\", \"wdr\", \n\"yuv_601\", ",
          "\tdefault_fps = 25000,\n", "\tmax_fps = 29970,\n",
          "\tvsrc_status = 0,\n\"linear\", \"2x\", \"3x\", \"wdr\", \n\tdg_mode"})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    EXPECT_NE(sources(0).find("\tmax_fps = 29,\n"), std::string::npos);
}
