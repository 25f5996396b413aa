// Streams, channel groups and the resource memory layout: each parser on a
// script of its own, the writers' exact text, and the loader around them.
#include <algorithm>
#include <cstring>

#include "core/log.h"
#include "core/run.h"
#include "core/sections.h"
#include "kiv_test.h"

using namespace kivtest;

namespace
{

class Sections : public Settings
{
  protected:
    kiv_multi_chan_cfg cfg;
    kiv_mem_cfg_resource &mem = cfg.resource_mem_layout;
    void SetUp() override
    {
        Settings::SetUp();
        kiv_init(&cfg);
    }
    // Runs one parser on `_resource_config_ = { <body> }`.
    load_result parse(int32_t (*parser)(lua_State *, kiv_multi_chan_cfg *), const std::string &body)
    {
        lua_script s("_resource_config_ = {" + body + "}");
        load_result r{};
        r.log = masked([&] { r.ret = parser(s.L(), &cfg); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        return r;
    }
    std::string dumped(int32_t (*writer)(const kiv_multi_chan_cfg *, FILE *))
    {
        return capture([&] { writer(&cfg, nullptr); });
    }
};

TEST_F(Sections, StreamsAbsentKeysWarnInReadingOrderAndGatedKeysFollowTheirSwitch)
{
    auto r = parse(kiv_get_stream_cfg,
                   "streams = {{ id = 2, max_size = {1920, 1080, 7}, used_for_vout_enable = 1,"
                   " efm_enable = 0, efm_buf_num = 5, dis_enable = 3, dis_cached_items = 200 }}");
    EXPECT_EQ(r.ret, 0);
    std::string warns;
    for (const char *k :
         {"max_M", "fast_seek_enable", "possible_enc_src_map", "two_ref_enable",
          "max_svct_layers_minus_1", "max_num_minus_1_ltrs", "codec_enable",
          "stream_mv_statis_enable", "stream_pic_statis_enable", "js_enable", "used_for_vout_id"})
        warns += std::string("KIV_WARN:: kiv_get_stream_cfg(N): item(") + k +
                 ") doesn't exist, set 0 by default.\n";
    EXPECT_EQ(r.log, warns);
    const kiv_stream_cfg &s = cfg.streams[2];
    EXPECT_EQ(cfg.stream_num, 1);
    EXPECT_EQ(s.id, 2u);
    EXPECT_EQ(s.max_width, 1920u);
    EXPECT_EQ(s.max_height, 1080u);
    EXPECT_EQ(s.used_for_vout_id, 1u); // its default, although the WARN says 0
    EXPECT_EQ(s.efm_buf_num, 0u);      // not read: efm_enable is 0
    EXPECT_EQ(s.dis_cached_items, 72u);

    // Entries go to the element their id names.
    r = parse(kiv_get_stream_cfg, "streams = {{ id = 1, max_size = {1, 2}, max_M = 300 },"
                                  " { id = 0, max_size = {3, 4} }}");
    EXPECT_EQ(cfg.stream_num, 2);
    EXPECT_EQ(cfg.streams[1].max_M, 44u);
    EXPECT_EQ(cfg.streams[0].max_height, 4u);
}

TEST_F(Sections, StreamsFailuresKeepWhatWasStoredBefore)
{
    kiv_set_log_level(0);
    const std::string e = "KIV_ERROR:: kiv_get_stream_cfg(N): ";
    const std::string first = "{ id = 3, max_size = {5, 6} }, ";
    const std::string efm = "{ id = 4, max_size = {1, 2}, efm_enable = 1";
    std::string fourteen;
    for (int i = 0; i < 14; ++i)
        fourteen += "{ id = 0, max_size = {1, 1} },";
    struct {
        std::string streams;
        int32_t ret;
        std::string log;
        int stream_num;
    } cases[] = {
        {"nil", -2, e + "no channel config found\n", 0},
        {"{}", -2, e + "no channel config found\n", 0},
        {"{" + fourteen + "}", -2,
         e + "stream_num(14) is larger than the max supported stream num(13)\n", 0},
        {"{" + first + "{ max_size = {1, 2} }}", -2, e + "item(id) doesn't exist.\n", 2},
        {"{" + first + "7}", -2, e + "item(id) doesn't exist.\n", 2},
        {"{" + first + "{ id = 13 }}", -1, e + "invalid stream id(13)\n", 2},
        {"{" + first + "{ id = -1 }}", -1, e + "invalid stream id(-1)\n", 2},
        {"{" + first + "{ id = 4, max_size = {1} }}", -2, e + "item(max_size) doesn't exist\n", 2},
        {"{" + first + efm + " }}", -2, e + "item(efm_buf_num) doesn't exist.\n", 2},
        {"{" + first + efm + ", efm_buf_num = 7, efm_size = {3} }}", -2,
         e + "item(efm_size) doesn't exist.\n", 2},
    };
    for (const auto &c : cases) {
        kiv_init(&cfg);
        cfg.streams[4].max_height = 99;
        auto r = parse(kiv_get_stream_cfg, "streams = " + c.streams);
        EXPECT_EQ(r.ret, c.ret) << c.streams;
        EXPECT_EQ(r.log, c.log) << c.streams;
        EXPECT_EQ(cfg.stream_num, c.stream_num) << c.streams;
        EXPECT_EQ(cfg.streams[3].max_height, c.stream_num ? 6u : 0u) << c.streams;
        // The failing entry wrote only what it read before the failure.
        const bool efm_read = c.streams.find(efm) != std::string::npos;
        EXPECT_EQ(cfg.streams[4].id, c.streams.find("id = 4") != std::string::npos ? 4u : 0u);
        EXPECT_EQ(cfg.streams[4].max_height, efm_read ? 2u : 99u) << c.streams;
        EXPECT_EQ(cfg.streams[4].efm_enable, efm_read ? 1u : 0u) << c.streams;
    }
    EXPECT_EQ(cfg.streams[4].efm_buf_num, 7u);
}

TEST_F(Sections, StreamsDumpWritesEveryFieldOfEachPositionUpToThirteen)
{
    auto dumped = [&] { return Sections::dumped(kiv_dump_stream_cfg); };
    EXPECT_EQ(dumped(), "");
    cfg.stream_num = 1;
    cfg.streams[0] = {7, 3, 1,  1, 1, 1, 1,  2,    1,    5,          1,   15,
                      1, 1, 99, 1, 1, 1, 72, 3840, 2160, 0xFFFFFFFF, 480, 0xFFFF};
    EXPECT_EQ(dumped(), "stream_0 = {\n\tid = 7,\n\tmax_size = {3840, 2160},\n\tmax_M = 3,\n"
                        "\tfast_seek_enable = 1,\n\ttwo_ref_enable = 1,\n"
                        "\tmax_svct_layers_minus_1 = 2,\n\tmax_num_minus_1_ltrs = 1,\n"
                        "\tpossible_enc_src_map = 65535,\n\tcodec_enable = 5,\n\tjs_enable = 1,\n"
                        "\tused_for_vout_enable = 1,\n\tused_for_vout_id = 1,\n"
                        "\tefm_enable = 1,\n\tefm_buf_num = 15,\n\tefm_size = {-1, 480},\n"
                        "\tefm_skip_waiting = 1,\n\tefm_extern_src_enable = 1,\n"
                        "\tefm_extern_src_stream = 99,\n\tstream_mv_statis_enable = 1,\n"
                        "\tstream_pic_statis_enable = 1,\n\tdis_enable = 1,\n"
                        "\tdis_cached_items = 72,\n}\n\n");
    cfg.stream_num = 200;
    std::string text = dumped();
    EXPECT_NE(text.find("stream_12 = {"), std::string::npos);
    EXPECT_EQ(text.find("stream_13"), std::string::npos);
}

const std::string CHAN = "{ mask_possible = 1, mc_mask_possible = 0, warp_possible = 1,"
                         " mask_buf_max_num = 64, mc_mask_buf_max_num = 5, mc_mask_buf_ds = 2,"
                         " warp_buf_max_num = 6, warp_area_max_num = 7, max_vin = {1920, 1080} }";
const std::string STREAM = "{ qpm_possible = 1, qpm_max_matrix_num = 9, qpm_buf_max_num = 17,"
                           " max_stream = {640, 480} }";

std::string layout(int chans, int streams, const std::string &chan_list,
                   const std::string &stream_list)
{
    return "resource_mem_layout = { max_chan_num = " + std::to_string(chans) +
           ", max_stream_num = " + std::to_string(streams) + ", channels_mem = {" + chan_list +
           "}, streams_mem = {" + stream_list + "} }";
}

TEST_F(Sections, MemLayoutReadsEntriesAndClearsTheCountsWhenAbsent)
{
    auto r =
        parse(kiv_get_mem_cfg_resource, layout(2, 1, CHAN + ", { max_vin = {1, 2, 3} }", STREAM));
    EXPECT_EQ(r.ret, 0);
    std::string warns;
    for (const char *k :
         {"mask_possible", "mc_mask_possible", "warp_possible", "mask_buf_max_num",
          "mc_mask_buf_max_num", "mc_mask_buf_ds", "warp_buf_max_num", "warp_area_max_num"})
        warns += std::string("KIV_WARN:: kiv_get_mem_cfg_resource(N): item(") + k +
                 ") doesn't exist, set 0 by default.\n";
    EXPECT_EQ(r.log, warns);
    // Built field by field on a zeroed record: an assigned aggregate could
    // carry indeterminate unused bits.
    kiv_mem_cfg_resource want;
    memset(&want, 0, sizeof want);
    want.max_chan_num = 2;
    want.max_stream_num = 1;
    kiv_chan_mem_cfg &c0 = want.channels_mem[0];
    c0.mask_possible = c0.warp_possible = 1;
    c0.mc_mask_buf_max_num = 5;
    c0.mc_mask_buf_ds = 2;
    c0.warp_buf_max_num = 6;
    c0.warp_area_max_num = 7;
    c0.max_vin[0] = 1920;
    c0.max_vin[1] = 1080;
    want.channels_mem[1].max_vin[0] = 1;
    want.channels_mem[1].max_vin[1] = 2;
    kiv_stream_mem_cfg &s0 = want.streams_mem[0];
    s0.qpm_possible = s0.qpm_max_matrix_num = s0.qpm_buf_max_num = 1;
    s0.max_stream[0] = 640;
    s0.max_stream[1] = 480;
    EXPECT_EQ(memcmp(&mem, &want, sizeof want), 0);

    // Absent, or not a table: both counts 0, the entries untouched.
    kiv_set_log_level(3);
    for (const char *text : {"", "resource_mem_layout = 5"}) {
        mem.max_chan_num = 2;
        mem.max_stream_num = 2;
        r = parse(kiv_get_mem_cfg_resource, text);
        EXPECT_EQ(r.ret, 0);
        EXPECT_EQ(r.log, "KIV_DEBUG:: kiv_is_item_exist_str(N): item(resource_mem_layout) doesn't "
                         "exist\nKIV_DEBUG:: kiv_get_mem_cfg_resource(N): "
                         "item(resource_mem_layout) doesn't exist\n");
        EXPECT_EQ(mem.max_chan_num + mem.max_stream_num, 0u);
        EXPECT_EQ(mem.channels_mem[0].max_vin[0], 1920u);
    }
}

TEST_F(Sections, MemLayoutFailuresKeepWhatWasStoredBefore)
{
    kiv_set_log_level(0);
    const std::string e = "KIV_ERROR:: kiv_get_mem_cfg_resource(N): ";
    const std::string top = "resource_mem_layout = { max_chan_num = ";
    const std::string short_chan = "{ max_vin = {1} }";
    struct {
        std::string text;
        int32_t ret;
        std::string log;
        uint32_t chans, streams, vin0, stream0;
    } cases[] = {
        {top + "nil }", -2, e + "item(max_chan_num) doesn't exist.\n", 0, 0, 0, 0},
        {top + "0 }", -1, e + "Invalid max_chan_num 0, should be in the range of (0,3]!\n", 0, 0, 0,
         0},
        {top + "4 }", -1, e + "Invalid max_chan_num 4, should be in the range of (0,3]!\n", 0, 0, 0,
         0},
        {top + "2 }", -2, e + "item(max_stream_num) doesn't exist.\n", 2, 0, 0, 0},
        {top + "2, max_stream_num = 14 }", -1,
         e + "Invalid max_stream_num 14, should be in the range of [0,13]!\n", 2, 0, 0, 0},
        {top + "2, max_stream_num = -1 }", -1,
         e + "Invalid max_stream_num -1, should be in the range of [0,13]!\n", 2, 0, 0, 0},
        {layout(2, 1, CHAN + "," + CHAN + "," + CHAN, STREAM), -2,
         e + "channel mem cfg num(3) must be the same as max(2)\n", 2, 1, 0, 0},
        {top + "1, max_stream_num = 0 }", -2,
         e + "channel mem cfg num(0) must be the same as max(1)\n", 1, 0, 0, 0},
        {layout(1, 2, CHAN, STREAM), -2, e + "stream mem cfg num(1) must be the same as max(2)\n",
         1, 2, 1920, 0},
        {layout(2, 1, CHAN + "," + short_chan, STREAM), -2, "", 2, 1, 1920, 0},
        {layout(2, 0, CHAN + ", true", ""), -2, "", 2, 0, 1920, 0},
        {layout(1, 2, CHAN, STREAM + ", { max_stream = {} }"), -2, "", 1, 2, 1920, 640},
    };
    for (const auto &c : cases) {
        kiv_init(&cfg);
        auto r = parse(kiv_get_mem_cfg_resource, c.text);
        EXPECT_EQ(r.ret, c.ret) << c.text;
        EXPECT_EQ(r.log, c.log) << c.text;
        EXPECT_EQ(mem.max_chan_num, c.chans) << c.text;
        EXPECT_EQ(mem.max_stream_num, c.streams) << c.text;
        EXPECT_EQ(mem.channels_mem[0].max_vin[0], c.vin0) << c.text;
        EXPECT_EQ(mem.streams_mem[0].max_stream[0], c.stream0) << c.text;
        EXPECT_EQ(mem.channels_mem[1].max_vin[0], 0u) << c.text;
    }
}

TEST_F(Sections, MemLayoutDumpWritesTheLayoutWhenBothCountsAreSet)
{
    auto dumped = [&] { return Sections::dumped(kiv_dump_mem_cfg_resource); };
    mem.max_chan_num = 1;
    EXPECT_EQ(dumped(), "");
    mem.max_stream_num = 1;
    mem.channels_mem[0] = {1, 0, 1, 63, 2, 3, 4, 7, {3840, 0xFFFFFFFF}};
    mem.streams_mem[0] = {1, 7, 15, {1920, 1080}};
    EXPECT_EQ(dumped(), "\tresource_mem_layout = {\n\t\tmax_chan_num = 1,\n"
                        "\t\tmax_stream_num = 1,\n\t\tchannels_mem = {\n\t\t\t{\n"
                        "\t\t\t\tmask_possible = 1,\n\t\t\t\tmc_mask_possible = 0,\n"
                        "\t\t\t\twarp_possible = 1,\n\t\t\t\tmask_buf_max_num = 63,\n"
                        "\t\t\t\tmc_mask_buf_max_num = 2,\n\t\t\t\tmc_mask_buf_ds = 7,\n"
                        "\t\t\t\twarp_buf_max_num = 3,\n\t\t\t\twarp_area_max_num = 4,\n"
                        "\t\t\t\tmax_vin = {3840, -1},\n\t\t\t},\n\t\t},\n"
                        "\t\tstreams_mem= {\n\t\t\t{\n\t\t\t\tqpm_possible = 1,\n"
                        "\t\t\t\tqpm_max_matrix_num = 7,\n\t\t\t\tqpm_buf_max_num = 15,\n"
                        "\t\t\t\tmax_stream = {1920, 1080},\n\t\t\t},\n\t\t},\n\t},\n");
    // Counts beyond the limits (a record filled by hand) are clipped.
    mem.max_chan_num = 31;
    mem.max_stream_num = 31;
    std::string text = dumped();
    EXPECT_NE(text.find("\t\tmax_chan_num = 3,\n\t\tmax_stream_num = 13,\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '{'), 1 + 2 + 3 * 2 + 13 * 2);
}

// Streams and memory layout loaded end to end load again from their dump.
TEST_F(Sections, LoadedStreamsAndLayoutLoadAgainFromTheirDump)
{
    auto r =
        load("_resource_config_ = { version = 1, " + std::string(CHANNEL_0) + ", " + CANVAS_0 +
                 ", streams = {"
                 " { id = 1, max_size = {1280, 720}, max_M = 1, efm_enable = 1, efm_buf_num = 4,"
                 "   efm_size = {640, 360}, efm_extern_src_stream = 9, dis_enable = 1,"
                 "   dis_cached_items = 12 },"
                 " { id = 0, max_size = {3840, 2160}, possible_enc_src_map = 0x8001,"
                 "   used_for_vout_enable = 1, used_for_vout_id = 1, js_enable = 1 } }, " +
                 layout(2, 2, CHAN + "," + CHAN, STREAM + "," + STREAM) + " }",
             &cfg);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(cfg.streams[1].efm_extern_src_stream, 9u);
    kiv_multi_chan_cfg again;
    r = load(dump(cfg), &again);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(again.stream_num, 2);
    EXPECT_EQ(memcmp(again.streams, cfg.streams, sizeof cfg.streams), 0);
    EXPECT_EQ(memcmp(&again.resource_mem_layout, &mem, sizeof mem), 0);
}

// Every exit of the loader closes the script's state exactly once; a faulty
// memory layout never fails the load.
TEST_F(Sections, LoaderClosesTheStateOnEveryPath)
{
    kiv_set_log_level(3);
    const std::string head =
        "_resource_config_ = { version = 1, " + std::string(CHANNEL_0) + ", " + CANVAS_0;
    const std::string ok = head + ", streams = {{ id = 0, max_size = {8, 8} }}";
    struct {
        std::string text;
        int32_t ret;
        const char *last_line;
    } cases[] = {
        {"_resource_config_ = {", -2, "lua error msg is"},
        {"x = 1", -1, "invalid multi_channel config file"},
        {"_resource_config_ = {}", -2, "item(version) doesn't exist."},
        {"_resource_config_ = { version = 2 }", -1, "current version is: 1"},
        {"_resource_config_ = { version = 1 }", -2, "get channel config error"},
        {"_resource_config_ = { version = 1, " + std::string(CHANNEL_0) +
             ", chan_groups = {{}, {}} }",
         -2, "get chan group config error"},
        {"_resource_config_ = { version = 1, " + std::string(CHANNEL_0) + " }", -2,
         "get canvas config error"},
        {head + " }", -2, "get stream config error"},
        {ok + ", resource_mem_layout = { max_chan_num = 9 } }", 0, "no resource mem cfg"},
        {ok + " }", 0, "kiv_get_mem_cfg_resource(N): item(resource_mem_layout) doesn't exist"},
        {ok + ", " + layout(1, 1, CHAN, STREAM) + " }", 0, ""},
    };
    for (const auto &c : cases) {
        kiv_run_counts before = kiv_get_run_counts();
        auto r = load(c.text, &cfg);
        kiv_run_counts after = kiv_get_run_counts();
        EXPECT_EQ(r.ret, c.ret) << c.text;
        EXPECT_EQ(after.created - before.created, 1u) << c.text;
        EXPECT_EQ(after.closed - before.closed, 1u) << c.text;
        std::string last = r.log.substr(r.log.rfind('\n', r.log.size() - 2) + 1);
        EXPECT_NE(last.find(c.last_line), std::string::npos) << c.text << ": " << last;
    }
    EXPECT_EQ(mem.max_chan_num, 1u);
}

// enable_group, group_idx and group_order_idx of the three channels.
std::string group_fields(const kiv_multi_chan_cfg &cfg)
{
    std::string s;
    for (const kiv_channel_cfg &ch : cfg.channels)
        s += std::to_string(ch.enable_group) + std::to_string(ch.group_idx) +
             std::to_string(ch.group_order_idx) + " ";
    return s;
}

// The channel parser is not involved: the record is filled by hand with the
// number of channels the groups may name.
TEST_F(Sections, GroupsListedChannelsCarryTheirGroupAndPosition)
{
    auto groups = [&](const std::string &text) { return parse(kiv_get_chan_grp_cfg, text); };
    cfg.chan_num = 3;
    auto r = groups("");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.log, "KIV_WARN:: kiv_get_array_item_num_str(N): array item(chan_groups) doesn't "
                     "exist\n");
    cfg.channels[2].group_idx = 3; // a channel not listed keeps its fields
    cfg.channels[2].group_order_idx = 6;
    struct {
        int chans;
        const char *groups;
        const char *fields;
    } cases[] = {
        {3, "{}", "000 000 036 "},
        {3, "{{}, {'chan_1', 'chan_0'}}", "111 110 036 "},
        {2, "{5, {'chan_0', 'chan_1', 'chan_0'}}", "112 111 036 "},
    };
    for (const auto &c : cases) {
        cfg.chan_num = static_cast<uint8_t>(c.chans);
        r = groups(std::string("chan_groups = ") + c.groups);
        EXPECT_EQ(r.ret, 0) << c.groups;
        EXPECT_EQ(r.log, "") << c.groups;
        EXPECT_EQ(group_fields(cfg), c.fields) << c.groups;
    }
}

TEST_F(Sections, GroupsFailuresKeepTheFieldsWrittenBefore)
{
    auto groups = [&](const std::string &text) { return parse(kiv_get_chan_grp_cfg, text); };
    const std::string e = "KIV_ERROR:: kiv_get_chan_grp_cfg(N): ";
    struct {
        int chans;
        std::string groups;
        int32_t ret;
        std::string log;
        const char *fields;
    } cases[] = {
        {2, "{{'chan_0'}, {}, {}}", -2, e + "chan group num(3) cannot exceed chan num(2).\n",
         "000 000 000 "},
        {3, "{{'chan_0', 'chan_3'}}", -1, e + "item chan_3 does not exist.\n", "100 000 000 "},
        {2, "{{'chan_2'}}", -1, e + "item chan_2 does not exist.\n", "000 000 000 "},
        {3, "{{'CHAN_0', 'chan_0'}}", -1, e + "item CHAN_0 does not exist.\n", "000 000 000 "},
        {3, "{{'chan_0" + std::string(100, 'x') + "'}}", -1,
         e + "item chan_0" + std::string(25, 'x') + " does not exist.\n", "000 000 000 "},
        {3, "{{'chan_0', {}}}", -2, e + "item of index(1) does not exist.\n", "100 000 000 "},
        {3, "{{'chan_0'}, {'chan_1', true}}", -2, e + "item of index(1) does not exist.\n",
         "100 110 000 "},
        {3, "{{'chan_0'}, {'chan_0', 'chan_1'}}", -1,
         e + "Can not specify the same channel to group 0[0x1] and group 1[0x3].\n",
         "110 111 000 "},
        {3, "{{'chan_2'}, {'chan_0'}, {'chan_1', 'chan_2'}}", -1,
         e + "Can not specify the same channel to group 0[0x4] and group 2[0x6].\n",
         "110 120 121 "},
        {3, "{{'chan_0'}, {'chan_1'}, {'chan_1'}}", -1,
         e + "Can not specify the same channel to group 1[0x2] and group 2[0x2].\n",
         "100 120 000 "},
    };
    for (const auto &c : cases) {
        kiv_init(&cfg);
        cfg.chan_num = static_cast<uint8_t>(c.chans);
        auto r = groups("chan_groups = " + c.groups);
        EXPECT_EQ(r.ret, c.ret) << c.groups;
        EXPECT_EQ(r.log, c.log) << c.groups;
        EXPECT_EQ(group_fields(cfg), c.fields) << c.groups;
    }
}

TEST_F(Sections, GroupsDumpWritesEachMemberOnceInOrderAndReadsBack)
{
    auto groups = [&](const std::string &text) { return parse(kiv_get_chan_grp_cfg, text); };
    auto dumped = [&] { return Sections::dumped(kiv_dump_chan_grp_cfg); };
    cfg.chan_num = 3;
    EXPECT_EQ(dumped(), "");
    ASSERT_EQ(groups("chan_groups = {{}, {'chan_2', 'chan_0'}}").ret, 0);
    const std::string text = dumped();
    EXPECT_EQ(text, "\tchan_groups = {\n\t\t{},\n\t\t{\"chan_2\",\"chan_0\",},\n\t},\n");
    kiv_multi_chan_cfg first = cfg;
    kiv_init(&cfg);
    cfg.chan_num = 3;
    ASSERT_EQ(groups(text.substr(1, text.size() - 3)).ret, 0);
    EXPECT_EQ(memcmp(cfg.channels, first.channels, sizeof cfg.channels), 0);

    // Order indices that are no list of positions (as the channels' own keys
    // may give them): ascending order index, ties by channel index.
    for (int c = 0; c < 3; ++c) {
        cfg.channels[c].enable_group = 1;
        cfg.channels[c].group_idx = 0;
    }
    cfg.channels[0].group_order_idx = 5;
    cfg.channels[1].group_order_idx = 2;
    cfg.channels[2].group_order_idx = 2;
    EXPECT_EQ(dumped(), "\tchan_groups = {\n\t\t{\"chan_1\",\"chan_2\",\"chan_0\",},\n\t},\n");
    // Only channels below chan_num, and never past the three the record holds.
    cfg.chan_num = 200;
    EXPECT_EQ(dumped(), "\tchan_groups = {\n\t\t{\"chan_1\",\"chan_2\",\"chan_0\",},\n\t},\n");
    cfg.chan_num = 1;
    EXPECT_EQ(dumped(), "\tchan_groups = {\n\t\t{\"chan_0\",},\n\t},\n");
    cfg.chan_num = 0;
    EXPECT_EQ(dumped(), "");
}

} // namespace
