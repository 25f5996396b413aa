// The section parsers and writers where a whole script cannot reach them:
// the result each parser gives (the loader turns every failure into -2),
// records filled by hand beyond what a script loads, and the mode names.
// What scripts give is kept in tests/cases (channel, vsrc, streams, mem,
// groups).
#include <algorithm>

#include "channel/channel.h"
#include "core/log.h"
#include "core/sections.h"
#include "kiv_test.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

class Sections : public Settings
{
  protected:
    void SetUp() override
    {
        Settings::SetUp();
        kiv_set_log_level(0);
    }
};

// One parser of the whole record on `_resource_config_ = { <body> }`, with
// three channels counted for the groups.
int32_t whole(int32_t (*parser)(lua_State *, kiv_multi_chan_cfg *), const std::string &body)
{
    kiv_multi_chan_cfg cfg = fresh();
    cfg.chan_num = 3;
    return parse(parser, "_resource_config_ = {" + body + "}", &cfg).ret;
}

// One parser of a table inside a channel, on `chan = { <body> }`.
template <class R>
int32_t inner(int32_t (*parser)(lua_State *, R *), const std::string &body)
{
    R rec{};
    return parse(parser, "chan = {" + body + "}", &rec, "chan").ret;
}

int32_t channels(const std::string &b)
{
    return whole(kiv_get_channel_cfg, "channels = {" + b + "}");
}
int32_t vsrc(const std::string &b)
{
    return inner(kiv_get_vsrc_cfg, "vsrc = " + b);
}
int32_t pyramid(const std::string &b)
{
    return inner(kiv_get_pyramid_cfg, "pyramid = " + b);
}
int32_t streams(const std::string &b)
{
    return whole(kiv_get_stream_cfg, "streams = " + b);
}
int32_t mem(const std::string &b)
{
    return whole(kiv_get_mem_cfg_resource, b.empty() ? "" : "resource_mem_layout = " + b);
}
int32_t groups(const std::string &b)
{
    return whole(kiv_get_chan_grp_cfg, "chan_groups = " + b);
}

const std::string CHAN = "sensor_ctrl = 1, max_padding_width = 1, main = { max_output = {1, "
                         "1}, input = {0, 0, 1, 1}, output = {0, 0, 1, 1} }, vsrc = { vsrc_id "
                         "= 0, mode = 'vga', fps = 30, hdr_mode = 'linear' }";
const std::string PYRAMID = "{ input_buf_id = 1, layer_map = 1, scale_type = 1, ";

} // namespace

// -1 for a value out of its range, -2 for an item missing or of the wrong
// type; a parser leaves the Lua stack as it found it either way.
TEST_F(Sections, ParsersTellRangeFromPresence)
{
    const struct {
        int32_t (*parser)(const std::string &);
        std::string body;
        int32_t ret;
    } rows[] = {
        {channels, "{ id = 3, " + CHAN + " }", -1},
        {channels, "{ id = 0, sensor_ctrl = 1 }", -2},
        {channels, "{ id = 0, " + CHAN + " }, { id = 0, " + CHAN + " }", -1},
        {channels, "{ id = 0, pass_num = 7, pass_1 = {}, pass_2 = {}, " + CHAN + " }", -1},
        {channels, "{ id = 0, pass_num = 2, " + CHAN + " }", -2},
        {vsrc, "{ vsrc_id = 0, mode = 'vga', fps = 1, hdr_mode = '4x' }", -1},
        {vsrc, "{ vsrc_id = 3 }", -2},
        {vsrc, "{ mode = 'vga' }", -2},
        {pyramid, "1", -1},
        {pyramid, "{ input_buf_id = 1 }", -2},
        {pyramid, PYRAMID + "rescale_size = {1} }", -1},
        {pyramid, PYRAMID + "layers = {} }", -1},
        {streams, "{{ id = 13 }}", -1},
        {streams, "{{ max_size = {1, 1} }}", -2},
        {mem, "", 0},
        {mem, "{}", -2},
        {mem, "{ max_chan_num = 0 }", -1},
        {mem, "{ max_chan_num = 1, max_stream_num = 14 }", -1},
        {mem, "{ max_chan_num = 1, max_stream_num = 0 }", -2},
        {groups, "{{'chan_3'}}", -1},
        {groups, "{{'chan_0'}, {'chan_0'}}", -1},
        {groups, "{{{}}}", -2},
        {groups, "{{}, {}, {}, {}}", -2},
    };
    for (const auto &r : rows)
        EXPECT_EQ(r.parser(r.body), r.ret) << r.body;
}

// An absent layout clears both counts (a record may be reused) and says so
// at the debug level only.
TEST_F(Sections, MemLayoutAbsentClearsTheCounts)
{
    kiv_set_log_level(3);
    for (const char *text : {"", "resource_mem_layout = 5"}) {
        kiv_multi_chan_cfg cfg = fresh();
        cfg.resource_mem_layout.max_chan_num = 2;
        cfg.resource_mem_layout.max_stream_num = 2;
        cfg.resource_mem_layout.channels_mem[0].max_vin[0] = 1920;
        auto r = parse(kiv_get_mem_cfg_resource, std::string("_resource_config_ = {") + text + "}",
                       &cfg);
        EXPECT_EQ(r.ret, 0);
        EXPECT_EQ(r.log, "KIV_DEBUG:: kiv_is_item_exist_str(N): item(resource_mem_layout) doesn't "
                         "exist\nKIV_DEBUG:: kiv_get_mem_cfg_resource(N): "
                         "item(resource_mem_layout) doesn't exist\n");
        EXPECT_EQ(
            vals({cfg.resource_mem_layout.max_chan_num, cfg.resource_mem_layout.max_stream_num,
                  cfg.resource_mem_layout.channels_mem[0].max_vin[0]}),
            vals({0, 0, 1920}));
    }
}

// Counts no script can load: the writers clip them to what the record holds.
TEST_F(Sections, WritersClipHandFilledCounts)
{
    kiv_multi_chan_cfg cfg = fresh();
    EXPECT_EQ(dumped(kiv_dump_stream_cfg, cfg) + dumped(kiv_dump_chan_grp_cfg, cfg), "");
    cfg.stream_num = 200;
    std::string text = dumped(kiv_dump_stream_cfg, cfg);
    EXPECT_NE(text.find("stream_12 = {"), std::string::npos);
    EXPECT_EQ(text.find("stream_13"), std::string::npos);

    kiv_mem_cfg_resource &mem = cfg.resource_mem_layout;
    mem.max_chan_num = 1;
    EXPECT_EQ(dumped(kiv_dump_mem_cfg_resource, cfg), ""); // both counts or nothing
    mem.max_chan_num = 31;
    mem.max_stream_num = 31;
    text = dumped(kiv_dump_mem_cfg_resource, cfg);
    EXPECT_NE(text.find("\t\tmax_chan_num = 3,\n\t\tmax_stream_num = 13,\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '{'), 1 + 2 + 3 * 2 + 13 * 2);

    for (int c = 0; c < 3; ++c) {
        cfg.channels[c].enable_group = 1;
        cfg.channels[c].group_order_idx = 2 - c;
    }
    const std::pair<int, const char *> groups[] = {
        {200, "{\"chan_2\",\"chan_1\",\"chan_0\",}"}, {1, "{\"chan_0\",}"}, {0, ""}};
    for (const auto &[n, list] : groups) {
        cfg.chan_num = static_cast<uint8_t>(n);
        EXPECT_EQ(dumped(kiv_dump_chan_grp_cfg, cfg),
                  *list ? "\tchan_groups = {\n\t\t" + std::string(list) + ",\n\t},\n" : "")
            << n;
    }
}

// Sources filled by hand: ids the parser refuses, modes without a name.
TEST_F(Sections, SourceWritersOnHandFilledRecords)
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
    EXPECT_EQ(text.find("virt_mode_cfg_-1 = {\n"), 0u); // each source once
    EXPECT_EQ(text.find("virt_mode_cfg_-1 = {", 1), std::string::npos);
    EXPECT_EQ(text.find("vsrc_-1 = {", text.find("vsrc_-1 = {") + 1), std::string::npos);
    for (const char *piece :
         {"\tbits = 0,\n\"linear\", \"2x\", \"3x\", \"wdr\", \n\"yuv_601\", ",
          "\tdefault_fps = 25000,\n", "\tmax_fps = 29970,\n",
          "\tvsrc_status = 0,\n\"linear\", \"2x\", \"3x\", \"wdr\", \n\tdg_mode"})
        EXPECT_NE(text.find(piece), std::string::npos) << piece;
    EXPECT_NE(sources(0).find("\tmax_fps = 29,\n"), std::string::npos);
}

// Names match exactly; where several names share an id, the first names it.
TEST_F(Sections, ModeNames)
{
    const std::pair<const char *, int32_t> modes[] = {
        {"vga", 10}, {"auto", 0}, {"", 0}, {"3264x1832", 114}, {"poweroff", 0xF000}, {"VGA", -2}};
    for (auto [name, id] : modes)
        EXPECT_EQ(kiv_get_vin_mode(name), id) << name;
    for (auto [id, name] : {std::pair{10, "640x480"}, {40, "1080p"}, {57, "qsxga"}})
        EXPECT_STREQ(kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, id)->name, name) << id;
    EXPECT_EQ(kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, VIN_MODE_VIRTUAL), nullptr);
}
