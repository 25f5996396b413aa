// Streams, channel groups and the resource memory layout: each parser on a
// script of its own, what a failure keeps, and the writers' exact text.
#include <algorithm>
#include <cstring>

#include "core/log.h"
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
        cfg = fresh();
    }
    // Runs one parser on `_resource_config_ = { <body> }`.
    load_result run(int32_t (*parser)(lua_State *, kiv_multi_chan_cfg *), const std::string &body)
    {
        return parse(parser, "_resource_config_ = {" + body + "}", &cfg);
    }
};

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

// enable_group, group_idx and group_order_idx of the three channels.
std::string group_fields(const kiv_multi_chan_cfg &cfg)
{
    std::string s;
    for (const kiv_channel_cfg &ch : cfg.channels)
        s += std::to_string(ch.enable_group) + std::to_string(ch.group_idx) +
             std::to_string(ch.group_order_idx) + " ";
    return s;
}

} // namespace

TEST_F(Sections, StreamsGatedKeysAndLowBits)
{
    auto r = run(kiv_get_stream_cfg,
                 "streams = {{ id = 2, max_size = {1920, 1080, 7}, used_for_vout_enable = 1,"
                 " efm_enable = 0, efm_buf_num = 5, dis_enable = 3, dis_cached_items = 200 },"
                 "{ id = 1, max_size = {1, 2}, max_M = 300 }}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(only(r.log, "used_for_vout_id") + only(r.log, "efm_buf_num"),
              absent("kiv_get_stream_cfg", "used_for_vout_id"));
    const kiv_stream_cfg &s = cfg.streams[2];
    EXPECT_EQ(vals({cfg.stream_num, s.id, s.max_width, s.max_height}), vals({2, 2, 1920, 1080}));
    EXPECT_EQ(s.used_for_vout_id, 1u); // its default, although the WARN says 0
    EXPECT_EQ(s.efm_buf_num, 0u);      // not read: efm_enable is 0
    EXPECT_EQ(s.dis_cached_items, 72u);
    EXPECT_EQ(cfg.streams[1].max_M, 44u); // entries go to the element their id names
}

TEST_F(Sections, StreamsFailuresKeepWhatWasStoredBefore)
{
    kiv_set_log_level(0);
    const std::string e = "kiv_get_stream_cfg";
    const std::string first = "{ id = 3, max_size = {5, 6} }, ";
    const std::string efm = "{ id = 4, max_size = {1, 2}, efm_enable = 1";
    std::string fourteen;
    for (int i = 0; i < 14; ++i)
        fourteen += "{ id = 0, max_size = {1, 1} },";
    const std::tuple<std::string, int32_t, std::string, int> cases[] = {
        {"nil", -2, err(e, "no channel config found\n"), 0},
        {"{}", -2, err(e, "no channel config found\n"), 0},
        {"{" + fourteen + "}", -2,
         err(e, "stream_num(14) is larger than the max supported stream num(13)\n"), 0},
        {"{" + first + "{ max_size = {1, 2} }}", -2, err(e, "item(id) doesn't exist.\n"), 2},
        {"{" + first + "7}", -2, err(e, "item(id) doesn't exist.\n"), 2},
        {"{" + first + "{ id = 13 }}", -1, err(e, "invalid stream id(13)\n"), 2},
        {"{" + first + "{ id = -1 }}", -1, err(e, "invalid stream id(-1)\n"), 2},
        {"{" + first + "{ id = 4, max_size = {1} }}", -2, err(e, "item(max_size) doesn't exist\n"),
         2},
        {"{" + first + efm + " }}", -2, err(e, "item(efm_buf_num) doesn't exist.\n"), 2},
        {"{" + first + efm + ", efm_buf_num = 7, efm_size = {3} }}", -2,
         err(e, "item(efm_size) doesn't exist.\n"), 2},
    };
    for (const auto &[streams, ret, log, stream_num] : cases) {
        cfg = fresh();
        cfg.streams[4].max_height = 99;
        auto r = run(kiv_get_stream_cfg, "streams = " + streams);
        EXPECT_EQ(r.ret, ret) << streams;
        EXPECT_EQ(r.log, log) << streams;
        EXPECT_EQ(cfg.stream_num, stream_num) << streams;
        EXPECT_EQ(cfg.streams[3].max_height, stream_num ? 6u : 0u) << streams;
        // The failing entry wrote only what it read before the failure.
        const bool efm_read = streams.find(efm) != std::string::npos;
        EXPECT_EQ(cfg.streams[4].id, streams.find("id = 4") != std::string::npos ? 4u : 0u);
        EXPECT_EQ(cfg.streams[4].max_height, efm_read ? 2u : 99u) << streams;
        EXPECT_EQ(cfg.streams[4].efm_enable, efm_read ? 1u : 0u) << streams;
    }
    EXPECT_EQ(cfg.streams[4].efm_buf_num, 7u);
}

TEST_F(Sections, StreamsDumpWritesEveryFieldOfEachPositionUpToThirteen)
{
    EXPECT_EQ(dumped(kiv_dump_stream_cfg, cfg), "");
    cfg.stream_num = 1;
    cfg.streams[0] = {7, 3, 1,  1, 1, 1, 1,  2,    1,    5,          1,   15,
                      1, 1, 99, 1, 1, 1, 72, 3840, 2160, 0xFFFFFFFF, 480, 0xFFFF};
    EXPECT_EQ(dumped(kiv_dump_stream_cfg, cfg),
              "stream_0 = {\n" +
                  lines("\t", "id = 7; max_size = {3840, 2160}; max_M = 3; fast_seek_enable = 1; "
                              "two_ref_enable = 1; max_svct_layers_minus_1 = 2; "
                              "max_num_minus_1_ltrs = 1; possible_enc_src_map = 65535; "
                              "codec_enable = 5; js_enable = 1; used_for_vout_enable = 1; "
                              "used_for_vout_id = 1; efm_enable = 1; efm_buf_num = 15; "
                              "efm_size = {-1, 480}; efm_skip_waiting = 1; "
                              "efm_extern_src_enable = 1; efm_extern_src_stream = 99; "
                              "stream_mv_statis_enable = 1; stream_pic_statis_enable = 1; "
                              "dis_enable = 1; dis_cached_items = 72") +
                  "}\n\n");
    cfg.stream_num = 200;
    std::string text = dumped(kiv_dump_stream_cfg, cfg);
    EXPECT_NE(text.find("stream_12 = {"), std::string::npos);
    EXPECT_EQ(text.find("stream_13"), std::string::npos);
}

TEST_F(Sections, MemLayoutReadsEntriesAndClearsTheCountsWhenAbsent)
{
    kiv_set_log_level(0);
    auto r =
        run(kiv_get_mem_cfg_resource, layout(2, 1, CHAN + ", { max_vin = {1, 2, 3} }", STREAM));
    EXPECT_EQ(r.ret, 0);
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
        r = run(kiv_get_mem_cfg_resource, text);
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
    const std::string e = "kiv_get_mem_cfg_resource";
    const std::string top = "resource_mem_layout = { max_chan_num = ";
    auto chans = [&](int n) {
        return err(e, "Invalid max_chan_num " + std::to_string(n) +
                          ", should be in the range of (0,3]!\n");
    };
    auto streams = [&](int n) {
        return err(e, "Invalid max_stream_num " + std::to_string(n) +
                          ", should be in the range of [0,13]!\n");
    };
    struct {
        std::string text;
        int32_t ret;
        std::string log;
        uint32_t chans, streams, vin0, stream0;
    } cases[] = {
        {top + "nil }", -2, err(e, "item(max_chan_num) doesn't exist.\n"), 0, 0, 0, 0},
        {top + "0 }", -1, chans(0), 0, 0, 0, 0},
        {top + "4 }", -1, chans(4), 0, 0, 0, 0},
        {top + "2 }", -2, err(e, "item(max_stream_num) doesn't exist.\n"), 2, 0, 0, 0},
        {top + "2, max_stream_num = 14 }", -1, streams(14), 2, 0, 0, 0},
        {top + "2, max_stream_num = -1 }", -1, streams(-1), 2, 0, 0, 0},
        {layout(2, 1, CHAN + "," + CHAN + "," + CHAN, STREAM), -2,
         err(e, "channel mem cfg num(3) must be the same as max(2)\n"), 2, 1, 0, 0},
        {top + "1, max_stream_num = 0 }", -2,
         err(e, "channel mem cfg num(0) must be the same as max(1)\n"), 1, 0, 0, 0},
        {layout(1, 2, CHAN, STREAM), -2,
         err(e, "stream mem cfg num(1) must be the same as max(2)\n"), 1, 2, 1920, 0},
        {layout(2, 1, CHAN + ", { max_vin = {1} }", STREAM), -2, "", 2, 1, 1920, 0},
        {layout(2, 0, CHAN + ", true", ""), -2, "", 2, 0, 1920, 0},
        {layout(1, 2, CHAN, STREAM + ", { max_stream = {} }"), -2, "", 1, 2, 1920, 640},
    };
    for (const auto &c : cases) {
        cfg = fresh();
        auto r = run(kiv_get_mem_cfg_resource, c.text);
        EXPECT_EQ(r.ret, c.ret) << c.text;
        EXPECT_EQ(r.log, c.log) << c.text;
        EXPECT_EQ(vals({mem.max_chan_num, mem.max_stream_num, mem.channels_mem[0].max_vin[0],
                        mem.streams_mem[0].max_stream[0], mem.channels_mem[1].max_vin[0]}),
                  vals({c.chans, c.streams, c.vin0, c.stream0, 0}))
            << c.text;
    }
}

TEST_F(Sections, MemLayoutDumpWritesTheLayoutWhenBothCountsAreSet)
{
    mem.max_chan_num = 1;
    EXPECT_EQ(dumped(kiv_dump_mem_cfg_resource, cfg), "");
    mem.max_stream_num = 1;
    mem.channels_mem[0] = {1, 0, 1, 63, 2, 3, 4, 7, {3840, 0xFFFFFFFF}};
    mem.streams_mem[0] = {1, 7, 15, {1920, 1080}};
    EXPECT_EQ(dumped(kiv_dump_mem_cfg_resource, cfg),
              "\tresource_mem_layout = {\n" +
                  lines("\t\t", "max_chan_num = 1; max_stream_num = 1") +
                  "\t\tchannels_mem = {\n\t\t\t{\n" +
                  lines("\t\t\t\t", "mask_possible = 1; mc_mask_possible = 0; warp_possible = 1; "
                                    "mask_buf_max_num = 63; mc_mask_buf_max_num = 2; "
                                    "mc_mask_buf_ds = 7; warp_buf_max_num = 3; "
                                    "warp_area_max_num = 4; max_vin = {3840, -1}") +
                  "\t\t\t},\n\t\t},\n\t\tstreams_mem= {\n\t\t\t{\n" +
                  lines("\t\t\t\t", "qpm_possible = 1; qpm_max_matrix_num = 7; "
                                    "qpm_buf_max_num = 15; max_stream = {1920, 1080}") +
                  "\t\t\t},\n\t\t},\n\t},\n");
    // Counts beyond the limits (a record filled by hand) are clipped.
    mem.max_chan_num = 31;
    mem.max_stream_num = 31;
    std::string text = dumped(kiv_dump_mem_cfg_resource, cfg);
    EXPECT_NE(text.find("\t\tmax_chan_num = 3,\n\t\tmax_stream_num = 13,\n"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '{'), 1 + 2 + 3 * 2 + 13 * 2);
}

// The channel parser is not involved: the record is filled by hand with the
// number of channels the groups may name.
TEST_F(Sections, GroupsListedChannelsCarryTheirGroupAndPosition)
{
    const std::string e = "kiv_get_chan_grp_cfg";
    struct {
        int chans;
        std::string groups;
        int32_t ret;
        std::string log;
        const char *fields;
    } cases[] = {
        {3, "nil", 0, no_array("chan_groups"), "000 000 036 "},
        {3, "{}", 0, "", "000 000 036 "},
        {3, "{{}, {'chan_1', 'chan_0'}}", 0, "", "111 110 036 "},
        {2, "{5, {'chan_0', 'chan_1', 'chan_0'}}", 0, "", "112 111 036 "},
        // Failures keep the fields written before.
        {2, "{{'chan_0'}, {}, {}}", -2, err(e, "chan group num(3) cannot exceed chan num(2).\n"),
         "000 000 036 "},
        {3, "{{'chan_0', 'chan_3'}}", -1, err(e, "item chan_3 does not exist.\n"), "100 000 036 "},
        {2, "{{'chan_2'}}", -1, err(e, "item chan_2 does not exist.\n"), "000 000 036 "},
        {3, "{{'CHAN_0', 'chan_0'}}", -1, err(e, "item CHAN_0 does not exist.\n"), "000 000 036 "},
        {3, "{{'chan_0" + std::string(100, 'x') + "'}}", -1,
         err(e, "item chan_0" + std::string(25, 'x') + " does not exist.\n"), "000 000 036 "},
        {3, "{{'chan_0', {}}}", -2, err(e, "item of index(1) does not exist.\n"), "100 000 036 "},
        {3, "{{'chan_0'}, {'chan_1', true}}", -2, err(e, "item of index(1) does not exist.\n"),
         "100 110 036 "},
        {3, "{{'chan_0'}, {'chan_0', 'chan_1'}}", -1,
         err(e, "Can not specify the same channel to group 0[0x1] and group 1[0x3].\n"),
         "110 111 036 "},
        {3, "{{'chan_2'}, {'chan_0'}, {'chan_1', 'chan_2'}}", -1,
         err(e, "Can not specify the same channel to group 0[0x4] and group 2[0x6].\n"),
         "110 120 121 "},
        {3, "{{'chan_0'}, {'chan_1'}, {'chan_1'}}", -1,
         err(e, "Can not specify the same channel to group 1[0x2] and group 2[0x2].\n"),
         "100 120 036 "},
    };
    for (const auto &c : cases) {
        cfg = fresh();
        cfg.channels[2].group_idx = 3; // a channel not listed keeps its fields
        cfg.channels[2].group_order_idx = 6;
        cfg.chan_num = static_cast<uint8_t>(c.chans);
        auto r = run(kiv_get_chan_grp_cfg, "chan_groups = " + c.groups);
        EXPECT_EQ(r.ret, c.ret) << c.groups;
        EXPECT_EQ(r.log, c.log) << c.groups;
        EXPECT_EQ(group_fields(cfg), c.fields) << c.groups;
    }
}

TEST_F(Sections, GroupsDumpWritesEachMemberOnceInOrderAndReadsBack)
{
    auto text = [&] { return dumped(kiv_dump_chan_grp_cfg, cfg); };
    auto list = [](const std::string &groups) { return "\tchan_groups = {\n" + groups + "\t},\n"; };
    cfg.chan_num = 3;
    EXPECT_EQ(text(), "");
    ASSERT_EQ(run(kiv_get_chan_grp_cfg, "chan_groups = {{}, {'chan_2', 'chan_0'}}").ret, 0);
    const std::string first_text = text();
    EXPECT_EQ(first_text, list("\t\t{},\n\t\t{\"chan_2\",\"chan_0\",},\n"));
    kiv_multi_chan_cfg first = cfg;
    cfg = fresh();
    cfg.chan_num = 3;
    ASSERT_EQ(run(kiv_get_chan_grp_cfg, first_text.substr(1, first_text.size() - 3)).ret, 0);
    EXPECT_EQ(memcmp(cfg.channels, first.channels, sizeof cfg.channels), 0);

    // Order indices that are no list of positions (as the channels' own keys
    // may give them): ascending order index, ties by channel index.
    for (int c = 0; c < 3; ++c) {
        cfg.channels[c].enable_group = 1;
        cfg.channels[c].group_idx = 0;
        cfg.channels[c].group_order_idx = c ? 2 : 5;
    }
    EXPECT_EQ(text(), list("\t\t{\"chan_1\",\"chan_2\",\"chan_0\",},\n"));
    // Only channels below chan_num, and never past the three the record holds.
    cfg.chan_num = 200;
    EXPECT_EQ(text(), list("\t\t{\"chan_1\",\"chan_2\",\"chan_0\",},\n"));
    cfg.chan_num = 1;
    EXPECT_EQ(text(), list("\t\t{\"chan_0\",},\n"));
    cfg.chan_num = 0;
    EXPECT_EQ(text(), "");
}
