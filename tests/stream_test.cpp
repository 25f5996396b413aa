#include <cstring>

#include "core/run.h"
#include "core/sections.h"
#include "kiv_test.h"

using namespace kivtest;

namespace
{

class Streams : public Settings
{
  protected:
    kiv_multi_chan_cfg cfg;
    void SetUp() override
    {
        Settings::SetUp();
        kiv_init(&cfg);
    }
    // Runs the stream parser on `_resource_config_ = { <body> }`.
    load_result parse(const std::string &body)
    {
        lua_script s("_resource_config_ = {" + body + "}");
        load_result r{};
        r.log = masked([&] { r.ret = kiv_get_stream_cfg(s.L(), &cfg); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        return r;
    }
    std::string dumped()
    {
        return capture([&] { kiv_dump_stream_cfg(&cfg, nullptr); });
    }
};

const std::string W = "KIV_WARN:: kiv_get_stream_cfg(N): item(";
const std::string W_END = ") doesn't exist, set 0 by default.\n";
std::string warns(std::initializer_list<const char *> keys)
{
    std::string s;
    for (const char *k : keys)
        s += W + k + W_END;
    return s;
}

TEST_F(Streams, AbsentKeysWarnInReadingOrderAndTakeDefaults)
{
    auto r = parse("streams = {{ id = 2, max_size = {1920, 1080, 7} }}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.log, warns({"max_M", "fast_seek_enable", "possible_enc_src_map", "two_ref_enable",
                            "max_svct_layers_minus_1", "max_num_minus_1_ltrs", "codec_enable",
                            "stream_mv_statis_enable", "stream_pic_statis_enable", "js_enable",
                            "used_for_vout_enable", "efm_enable", "dis_enable"}));
    EXPECT_EQ(cfg.stream_num, 1);
    const kiv_stream_cfg &s = cfg.streams[2];
    EXPECT_EQ(s.id, 2u);
    EXPECT_EQ(s.max_width, 1920u);
    EXPECT_EQ(s.max_height, 1080u);
    EXPECT_EQ(s.used_for_vout_id, 0u);

    // The vout id defaults to 1 (the WARN still says 0).
    r = parse("streams = {{ id = 0, max_size = {1, 2}, max_M = 1, fast_seek_enable = 1,"
              " possible_enc_src_map = 1, two_ref_enable = 1, max_svct_layers_minus_1 = 1,"
              " max_num_minus_1_ltrs = 1, codec_enable = 1, stream_mv_statis_enable = 1,"
              " stream_pic_statis_enable = 1, js_enable = 1, used_for_vout_enable = 1,"
              " efm_enable = 1, efm_buf_num = 3, efm_size = {8, 9}, dis_enable = 1 }}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(r.log, warns({"used_for_vout_id", "efm_skip_waiting", "efm_extern_src_enable",
                            "efm_extern_src_stream", "dis_cached_items"}));
    EXPECT_EQ(cfg.streams[0].used_for_vout_id, 1u);
    EXPECT_EQ(cfg.streams[0].efm_width, 8u);
    EXPECT_EQ(cfg.streams[0].efm_height, 9u);
}

TEST_F(Streams, ValuesKeepTheirLowBitsAndGatedKeysAreReadOnlyWhenSwitchedOn)
{
    kiv_stream_cfg &s = cfg.streams[1];
    s.used_for_vout_id = 1;
    s.efm_buf_num = 9;
    s.efm_width = 77;
    s.dis_cached_items = 5;
    auto r = parse("streams = {{ id = 1, max_size = {-1, 4294967298}, max_M = 300,"
                   " possible_enc_src_map = 0x12345, codec_enable = 9, dis_enable = 2,"
                   " dis_cached_items = 100, efm_enable = 0, efm_buf_num = 5, efm_size = {1, 2},"
                   " used_for_vout_enable = 0, used_for_vout_id = 0 }}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(s.max_width, 0xFFFFFFFFu);
    EXPECT_EQ(s.max_height, 2u);
    EXPECT_EQ(s.max_M, 44u);
    EXPECT_EQ(s.possible_enc_src_map, 0x2345u);
    EXPECT_EQ(s.codec_enable, 1u);
    EXPECT_EQ(s.dis_enable, 0u);
    EXPECT_EQ(s.dis_cached_items, 5u);
    EXPECT_EQ(s.efm_buf_num, 9u);
    EXPECT_EQ(s.efm_width, 77u);
    EXPECT_EQ(s.used_for_vout_id, 1u);

    r = parse("streams = {{ id = 1, max_size = {1, 2}, dis_enable = 1, dis_cached_items = 200 }}");
    EXPECT_EQ(s.dis_cached_items, 72u);
}

TEST_F(Streams, EntriesGoToTheElementTheirIdNames)
{
    auto r = parse("streams = {{ id = 1, max_size = {10, 11} }, { id = 0, max_size = {20, 21} },"
                   " { id = 1, max_size = {30, 31}, max_M = 4 }}");
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(cfg.stream_num, 3);
    EXPECT_EQ(cfg.streams[0].max_width, 20u);
    EXPECT_EQ(cfg.streams[1].max_width, 30u);
    EXPECT_EQ(cfg.streams[1].max_M, 4u);
}

TEST_F(Streams, NoStreams)
{
    auto r = parse("");
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "KIV_WARN:: kiv_get_array_item_num_str(N): array item(streams) doesn't exist\n"
                     "KIV_ERROR:: kiv_get_stream_cfg(N): no channel config found\n");
    r = parse("streams = {}");
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "KIV_ERROR:: kiv_get_stream_cfg(N): no channel config found\n");
    r = parse("streams = 4");
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(cfg.stream_num, 0);
}

TEST_F(Streams, MoreEntriesThanTheRecordHoldsAreRefusedBeforeAnythingIsWritten)
{
    std::string list;
    for (int i = 0; i < 14; ++i)
        list += "{ id = " + std::to_string(i % 13) + ", max_size = {1, 1} },";
    auto r = parse("streams = {" + list + "}");
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "KIV_ERROR:: kiv_get_stream_cfg(N): stream_num(14) is larger than the max "
                     "supported stream num(13)\n");
    kiv_multi_chan_cfg fresh;
    kiv_init(&fresh);
    EXPECT_EQ(memcmp(&cfg, &fresh, sizeof cfg), 0);
}

TEST_F(Streams, FailingEntriesKeepWhatWasStoredBefore)
{
    // A complete entry (no WARN lines) before the failing one.
    const std::string first =
        "{ id = 3, max_size = {5, 6}, max_M = 7, fast_seek_enable = 0, possible_enc_src_map = 0,"
        " two_ref_enable = 0, max_svct_layers_minus_1 = 0, max_num_minus_1_ltrs = 0,"
        " codec_enable = 0, stream_mv_statis_enable = 0, stream_pic_statis_enable = 0,"
        " js_enable = 0, used_for_vout_enable = 0, efm_enable = 0, dis_enable = 0 },";
    struct {
        std::string entry;
        int32_t ret;
        std::string log;
    } cases[] = {
        {"{ max_size = {1, 2} }", -2,
         "KIV_ERROR:: kiv_get_stream_cfg(N): item(id) doesn't exist.\n"},
        {"7", -2, "KIV_ERROR:: kiv_get_stream_cfg(N): item(id) doesn't exist.\n"},
        {"{ id = 13 }", -1, "KIV_ERROR:: kiv_get_stream_cfg(N): invalid stream id(13)\n"},
        {"{ id = -1 }", -1, "KIV_ERROR:: kiv_get_stream_cfg(N): invalid stream id(-1)\n"},
        {"{ id = 4, max_size = {1} }", -2,
         "KIV_ERROR:: kiv_get_stream_cfg(N): item(max_size) doesn't exist\n"},
        {"{ id = 4 }", -2,
         "KIV_WARN:: kiv_get_array_item_num_str(N): array item(max_size) doesn't exist\n"
         "KIV_ERROR:: kiv_get_stream_cfg(N): item(max_size) doesn't exist\n"},
        {"{ id = 4, max_size = {1, 2}, max_M = 1, fast_seek_enable = 1, possible_enc_src_map = 1,"
         " two_ref_enable = 1, max_svct_layers_minus_1 = 1, max_num_minus_1_ltrs = 1,"
         " codec_enable = 1, stream_mv_statis_enable = 1, stream_pic_statis_enable = 1,"
         " js_enable = 1, used_for_vout_enable = 0, efm_enable = 1 }",
         -2, "KIV_ERROR:: kiv_get_stream_cfg(N): item(efm_buf_num) doesn't exist.\n"},
        {"{ id = 4, max_size = {1, 2}, max_M = 1, fast_seek_enable = 1, possible_enc_src_map = 1,"
         " two_ref_enable = 1, max_svct_layers_minus_1 = 1, max_num_minus_1_ltrs = 1,"
         " codec_enable = 1, stream_mv_statis_enable = 1, stream_pic_statis_enable = 1,"
         " js_enable = 1, used_for_vout_enable = 0, efm_enable = 1, efm_buf_num = 2,"
         " efm_size = {3} }",
         -2, "KIV_ERROR:: kiv_get_stream_cfg(N): item(efm_size) doesn't exist.\n"},
    };
    for (const auto &c : cases) {
        kiv_init(&cfg);
        // Element 4 holds something already: the failing entry overwrites
        // only what it reads before the failure.
        cfg.streams[4].max_height = 99;
        kiv_multi_chan_cfg before;
        auto r = parse("streams = {" + first + c.entry + "}");
        EXPECT_EQ(r.ret, c.ret) << c.entry;
        EXPECT_EQ(r.log, c.log) << c.entry;
        EXPECT_EQ(cfg.stream_num, 2);
        EXPECT_EQ(cfg.streams[3].max_M, 7u);
        EXPECT_EQ(cfg.streams[4].max_height,
                  c.entry.find("id = 4, max_size = {1, 2}") != std::string::npos ? 2u : 99u)
            << c.entry;
        if (c.ret == -1 || c.entry.find("id = 4") == std::string::npos) {
            // Nothing of the failing entry was written.
            kiv_init(&before);
            before.streams[4].max_height = 99;
            EXPECT_EQ(memcmp(&cfg.streams[4], &before.streams[4], sizeof before.streams[4]), 0);
        }
    }
    // The efm switch and buffer count read before the short efm_size stay.
    EXPECT_EQ(cfg.streams[4].id, 4u);
    EXPECT_EQ(cfg.streams[4].efm_enable, 1u);
    EXPECT_EQ(cfg.streams[4].efm_buf_num, 2u);
}

TEST_F(Streams, DumpWritesEveryFieldOfEachPosition)
{
    EXPECT_EQ(dumped(), "");
    cfg.stream_num = 2;
    kiv_stream_cfg &s = cfg.streams[0];
    s.id = 0;
    s.max_width = 3840;
    s.max_height = 2160;
    s.max_M = 3;
    s.fast_seek_enable = 1;
    s.two_ref_enable = 1;
    s.max_svct_layers_minus_1 = 2;
    s.max_num_minus_1_ltrs = 1;
    s.possible_enc_src_map = 0xFFFF;
    s.codec_enable = 5;
    s.js_enable = 1;
    s.used_for_vout_enable = 1;
    s.used_for_vout_id = 1;
    s.efm_enable = 1;
    s.efm_buf_num = 15;
    s.efm_width = 0xFFFFFFFF;
    s.efm_height = 480;
    s.efm_skip_waiting = 1;
    s.efm_extern_src_enable = 1;
    s.efm_extern_src_stream = 127;
    s.stream_mv_statis_enable = 1;
    s.stream_pic_statis_enable = 1;
    s.dis_enable = 1;
    s.dis_cached_items = 100;
    cfg.streams[1].id = 7; // written as the record holds it
    const char *zero = "\tmax_M = 0,\n\tfast_seek_enable = 0,\n\ttwo_ref_enable = 0,\n"
                       "\tmax_svct_layers_minus_1 = 0,\n\tmax_num_minus_1_ltrs = 0,\n"
                       "\tpossible_enc_src_map = 0,\n\tcodec_enable = 0,\n\tjs_enable = 0,\n"
                       "\tused_for_vout_enable = 0,\n\tused_for_vout_id = 0,\n"
                       "\tefm_enable = 0,\n\tefm_buf_num = 0,\n\tefm_size = {0, 0},\n"
                       "\tefm_skip_waiting = 0,\n\tefm_extern_src_enable = 0,\n"
                       "\tefm_extern_src_stream = 0,\n\tstream_mv_statis_enable = 0,\n"
                       "\tstream_pic_statis_enable = 0,\n\tdis_enable = 0,\n"
                       "\tdis_cached_items = 0,\n";
    EXPECT_EQ(dumped(), "stream_0 = {\n"
                        "\tid = 0,\n"
                        "\tmax_size = {3840, 2160},\n"
                        "\tmax_M = 3,\n"
                        "\tfast_seek_enable = 1,\n"
                        "\ttwo_ref_enable = 1,\n"
                        "\tmax_svct_layers_minus_1 = 2,\n"
                        "\tmax_num_minus_1_ltrs = 1,\n"
                        "\tpossible_enc_src_map = 65535,\n"
                        "\tcodec_enable = 5,\n"
                        "\tjs_enable = 1,\n"
                        "\tused_for_vout_enable = 1,\n"
                        "\tused_for_vout_id = 1,\n"
                        "\tefm_enable = 1,\n"
                        "\tefm_buf_num = 15,\n"
                        "\tefm_size = {-1, 480},\n"
                        "\tefm_skip_waiting = 1,\n"
                        "\tefm_extern_src_enable = 1,\n"
                        "\tefm_extern_src_stream = 127,\n"
                        "\tstream_mv_statis_enable = 1,\n"
                        "\tstream_pic_statis_enable = 1,\n"
                        "\tdis_enable = 1,\n"
                        "\tdis_cached_items = 100,\n"
                        "}\n\n"
                        "stream_1 = {\n"
                        "\tid = 7,\n"
                        "\tmax_size = {0, 0},\n" +
                            std::string(zero) + "}\n\n");

    // A count above the record's 13 streams is clipped.
    cfg.stream_num = 200;
    std::string text = dumped();
    EXPECT_NE(text.find("stream_12 = {"), std::string::npos);
    EXPECT_EQ(text.find("stream_13"), std::string::npos);
}

const char *const STREAMS_SCRIPT = R"(
_resource_config_ = {
    version = 1,
    streams = {
        { id = 1, max_size = {1280, 720}, max_M = 1, codec_enable = 3, efm_enable = 1,
          efm_buf_num = 4, efm_size = {640, 360}, efm_extern_src_enable = 1,
          efm_extern_src_stream = 9, dis_enable = 1, dis_cached_items = 12 },
        { id = 0, max_size = {3840, 2160}, max_M = 3, two_ref_enable = 1,
          possible_enc_src_map = 0x8001, used_for_vout_enable = 1, used_for_vout_id = 1,
          js_enable = 1, stream_pic_statis_enable = 1 },
    },
}
)";

TEST_F(Streams, LoadedStreamsLoadAgainFromTheirDump)
{
    auto r = load(STREAMS_SCRIPT, &cfg);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(cfg.streams[0].possible_enc_src_map, 0x8001u);
    EXPECT_EQ(cfg.streams[1].efm_extern_src_stream, 9u);
    std::string text = dump(cfg);
    EXPECT_NE(text.find("\tstreams = {\n\t\tstream_0,\n\t\tstream_1,\n\t},\n"), std::string::npos);
    kiv_multi_chan_cfg again;
    r = load(text, &again);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(again.stream_num, cfg.stream_num);
    EXPECT_EQ(memcmp(again.streams, cfg.streams, sizeof cfg.streams), 0);
}

TEST_F(Streams, LoaderFailsWithTheStreamParserAndClosesTheState)
{
    kiv_run_counts before = kiv_get_run_counts();
    auto r = load("_resource_config_ = { version = 1, enable_hp_fps = 0,"
                  " vin_short_line_detect = 0, chan_groups = {},"
                  " streams = {{ id = 13, max_size = {1, 1} }} }",
                  &cfg);
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "KIV_ERROR:: kiv_get_stream_cfg(N): invalid stream id(13)\n"
                     "KIV_ERROR:: kiv_get_multi_chan_cfg(N): get stream config error\n");
    kiv_run_counts after = kiv_get_run_counts();
    EXPECT_EQ(after.created - before.created, 1u);
    EXPECT_EQ(after.closed - before.closed, 1u);
}

} // namespace
