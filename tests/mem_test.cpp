#include <cstring>

#include "core/log.h"
#include "core/run.h"
#include "core/sections.h"
#include "kiv_test.h"

using namespace kivtest;

namespace
{

class MemLayout : public Settings
{
  protected:
    kiv_multi_chan_cfg cfg;
    void SetUp() override
    {
        Settings::SetUp();
        kiv_init(&cfg);
    }
    load_result parse(const std::string &layout)
    {
        lua_script s("_resource_config_ = {" + layout + "}");
        load_result r{};
        r.log = masked([&] { r.ret = kiv_get_mem_cfg_resource(s.L(), &cfg); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        return r;
    }
    std::string dumped()
    {
        return capture([&] { kiv_dump_mem_cfg_resource(&cfg, nullptr); });
    }
    const kiv_mem_cfg_resource &mem() const { return cfg.resource_mem_layout; }
};

const char *const CHAN =
    "{ mask_possible = 1, mc_mask_possible = 1, warp_possible = 1, mask_buf_max_num = 64,"
    " mc_mask_buf_max_num = 5, mc_mask_buf_ds = 2, warp_buf_max_num = 6, warp_area_max_num = 7,"
    " max_vin = {1920, 1080, 5} }";
const char *const STREAM =
    "{ qpm_possible = 1, qpm_max_matrix_num = 9, qpm_buf_max_num = 17, max_stream = {640, 480} }";

std::string layout(int chans, int streams, const std::string &chan_list,
                   const std::string &stream_list)
{
    return "resource_mem_layout = { max_chan_num = " + std::to_string(chans) +
           ", max_stream_num = " + std::to_string(streams) + ", channels_mem = {" + chan_list +
           "}, streams_mem = {" + stream_list + "} }";
}

TEST_F(MemLayout, ReadsEntriesWithTheirLowBits)
{
    auto r = parse(layout(2, 1, std::string(CHAN) + ", { max_vin = {1, 2} }", STREAM));
    EXPECT_EQ(r.ret, 0);
    const std::string w = "KIV_WARN:: kiv_get_mem_cfg_resource(N): item(";
    const std::string e = ") doesn't exist, set 0 by default.\n";
    EXPECT_EQ(r.log, w + "mask_possible" + e + w + "mc_mask_possible" + e + w + "warp_possible" +
                         e + w + "mask_buf_max_num" + e + w + "mc_mask_buf_max_num" + e + w +
                         "mc_mask_buf_ds" + e + w + "warp_buf_max_num" + e + w +
                         "warp_area_max_num" + e);
    EXPECT_EQ(mem().max_chan_num, 2u);
    EXPECT_EQ(mem().max_stream_num, 1u);
    const kiv_chan_mem_cfg &c = mem().channels_mem[0];
    EXPECT_EQ(c.mask_possible + c.mc_mask_possible + c.warp_possible, 3u);
    EXPECT_EQ(c.mask_buf_max_num, 0u);
    EXPECT_EQ(c.mc_mask_buf_max_num, 5u);
    EXPECT_EQ(c.mc_mask_buf_ds, 2u);
    EXPECT_EQ(c.warp_buf_max_num, 6u);
    EXPECT_EQ(c.warp_area_max_num, 7u);
    EXPECT_EQ(c.max_vin[0], 1920u);
    EXPECT_EQ(c.max_vin[1], 1080u);
    EXPECT_EQ(mem().channels_mem[1].max_vin[1], 2u);
    const kiv_stream_mem_cfg &s = mem().streams_mem[0];
    EXPECT_EQ(s.qpm_possible, 1u);
    EXPECT_EQ(s.qpm_max_matrix_num, 1u);
    EXPECT_EQ(s.qpm_buf_max_num, 1u);
    EXPECT_EQ(s.max_stream[0], 640u);
    EXPECT_EQ(s.max_stream[1], 480u);
}

TEST_F(MemLayout, AbsentOrNonTableLayoutLeavesBothCountsZero)
{
    kiv_set_log_level(3);
    for (const char *text : {"", "resource_mem_layout = 5"}) {
        cfg.resource_mem_layout.max_chan_num = 2;
        cfg.resource_mem_layout.max_stream_num = 2;
        cfg.resource_mem_layout.channels_mem[0].max_vin[0] = 9;
        auto r = parse(text);
        EXPECT_EQ(r.ret, 0);
        EXPECT_EQ(r.log,
                  "KIV_DEBUG:: kiv_is_item_exist_str(N): item(resource_mem_layout) doesn't exist\n"
                  "KIV_DEBUG:: kiv_get_mem_cfg_resource(N): item(resource_mem_layout) doesn't "
                  "exist\n");
        EXPECT_EQ(mem().max_chan_num, 0u);
        EXPECT_EQ(mem().max_stream_num, 0u);
        EXPECT_EQ(mem().channels_mem[0].max_vin[0], 9u);
    }
}

TEST_F(MemLayout, FailuresKeepWhatWasStoredBefore)
{
    const std::string e = "KIV_ERROR:: kiv_get_mem_cfg_resource(N): ";
    struct {
        std::string text;
        int32_t ret;
        std::string log;
        uint32_t chans, streams;
    } cases[] = {
        {"resource_mem_layout = { max_stream_num = 1 }", -2,
         e + "item(max_chan_num) doesn't exist.\n", 0, 0},
        {"resource_mem_layout = { max_chan_num = 0 }", -1,
         e + "Invalid max_chan_num 0, should be in the range of (0,3]!\n", 0, 0},
        {"resource_mem_layout = { max_chan_num = 4 }", -1,
         e + "Invalid max_chan_num 4, should be in the range of (0,3]!\n", 0, 0},
        {"resource_mem_layout = { max_chan_num = 2 }", -2,
         e + "item(max_stream_num) doesn't exist.\n", 2, 0},
        {"resource_mem_layout = { max_chan_num = 2, max_stream_num = 14 }", -1,
         e + "Invalid max_stream_num 14, should be in the range of [0,13]!\n", 2, 0},
        {"resource_mem_layout = { max_chan_num = 2, max_stream_num = -1 }", -1,
         e + "Invalid max_stream_num -1, should be in the range of [0,13]!\n", 2, 0},
        {layout(2, 1, std::string(CHAN) + "," + CHAN + "," + CHAN, STREAM), -2,
         e + "channel mem cfg num(3) must be the same as max(2)\n", 2, 1},
        {"resource_mem_layout = { max_chan_num = 1, max_stream_num = 0 }", -2,
         "KIV_WARN:: kiv_get_array_item_num_str(N): array item(channels_mem) doesn't exist\n" + e +
             "channel mem cfg num(0) must be the same as max(1)\n",
         1, 0},
        {layout(1, 2, CHAN, STREAM), -2, e + "stream mem cfg num(1) must be the same as max(2)\n",
         1, 2},
    };
    for (const auto &c : cases) {
        kiv_init(&cfg);
        auto r = parse(c.text);
        EXPECT_EQ(r.ret, c.ret) << c.text;
        EXPECT_EQ(r.log, c.log) << c.text;
        EXPECT_EQ(mem().max_chan_num, c.chans) << c.text;
        EXPECT_EQ(mem().max_stream_num, c.streams) << c.text;
        // A count check fails before any entry of its own array is read.
        const bool chans_read = c.log.find("stream mem cfg num") != std::string::npos;
        EXPECT_EQ(mem().channels_mem[0].max_vin[0], chans_read ? 1920u : 0u) << c.text;
        EXPECT_EQ(mem().streams_mem[0].max_stream[0], 0u) << c.text;
    }
}

TEST_F(MemLayout, ShortSizeOrNonTableEntryEndsTheParseWithoutALineOfItsOwn)
{
    const std::string full_chan = "{ mask_possible = 0, mc_mask_possible = 0, warp_possible = 0,"
                                  " mask_buf_max_num = 0, mc_mask_buf_max_num = 0,"
                                  " mc_mask_buf_ds = 0, warp_buf_max_num = 0,"
                                  " warp_area_max_num = 0, max_vin = {1} }";
    auto r = parse(layout(2, 1, std::string(CHAN) + "," + full_chan, STREAM));
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(mem().channels_mem[0].max_vin[0], 1920u);
    EXPECT_EQ(mem().streams_mem[0].max_stream[0], 0u);

    kiv_init(&cfg);
    r = parse(layout(2, 0, std::string(CHAN) + ", true", ""));
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(mem().channels_mem[0].max_vin[0], 1920u);

    kiv_init(&cfg);
    r = parse(layout(1, 1, CHAN,
                     "{ qpm_possible = 1, qpm_max_matrix_num = 1,"
                     " qpm_buf_max_num = 1, max_stream = {} }"));
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "");
    EXPECT_EQ(mem().streams_mem[0].qpm_buf_max_num, 1u);
}

TEST_F(MemLayout, DumpWritesTheLayoutWhenBothCountsAreSet)
{
    EXPECT_EQ(dumped(), "");
    kiv_mem_cfg_resource &m = cfg.resource_mem_layout;
    m.max_chan_num = 1;
    EXPECT_EQ(dumped(), "");
    m.max_stream_num = 2;
    m.channels_mem[0] = {1, 0, 1, 63, 2, 3, 4, 7, {3840, 2160}};
    m.streams_mem[0] = {1, 7, 15, {1920, 1080}};
    m.streams_mem[1].max_stream[0] = 0xFFFFFFFF;
    EXPECT_EQ(dumped(), "\tresource_mem_layout = {\n"
                        "\t\tmax_chan_num = 1,\n"
                        "\t\tmax_stream_num = 2,\n"
                        "\t\tchannels_mem = {\n"
                        "\t\t\t{\n"
                        "\t\t\t\tmask_possible = 1,\n"
                        "\t\t\t\tmc_mask_possible = 0,\n"
                        "\t\t\t\twarp_possible = 1,\n"
                        "\t\t\t\tmask_buf_max_num = 63,\n"
                        "\t\t\t\tmc_mask_buf_max_num = 2,\n"
                        "\t\t\t\tmc_mask_buf_ds = 7,\n"
                        "\t\t\t\twarp_buf_max_num = 3,\n"
                        "\t\t\t\twarp_area_max_num = 4,\n"
                        "\t\t\t\tmax_vin = {3840, 2160},\n"
                        "\t\t\t},\n"
                        "\t\t},\n"
                        "\t\tstreams_mem= {\n"
                        "\t\t\t{\n"
                        "\t\t\t\tqpm_possible = 1,\n"
                        "\t\t\t\tqpm_max_matrix_num = 7,\n"
                        "\t\t\t\tqpm_buf_max_num = 15,\n"
                        "\t\t\t\tmax_stream = {1920, 1080},\n"
                        "\t\t\t},\n"
                        "\t\t\t{\n"
                        "\t\t\t\tqpm_possible = 0,\n"
                        "\t\t\t\tqpm_max_matrix_num = 0,\n"
                        "\t\t\t\tqpm_buf_max_num = 0,\n"
                        "\t\t\t\tmax_stream = {-1, 0},\n"
                        "\t\t\t},\n"
                        "\t\t},\n"
                        "\t},\n");

    // Counts beyond the limits (a record filled by hand) are clipped.
    m.max_chan_num = 31;
    m.max_stream_num = 31;
    std::string text = dumped();
    EXPECT_NE(text.find("\t\tmax_chan_num = 3,\n\t\tmax_stream_num = 13,\n"), std::string::npos);
    size_t entries = 0;
    for (size_t p = text.find("\t\t\t{\n"); p != std::string::npos;
         p = text.find("\t\t\t{\n", p + 1))
        ++entries;
    EXPECT_EQ(entries, 16u);
}

TEST_F(MemLayout, LoadedLayoutLoadsAgainFromItsDump)
{
    auto r = load(
        "_resource_config_ = { version = 1, streams = {{ id = 0, max_size = {8, 8} }}, " +
            layout(2, 2, std::string(CHAN) + "," + CHAN, std::string(STREAM) + "," + STREAM) + " }",
        &cfg);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(mem().max_stream_num, 2u);
    kiv_multi_chan_cfg again;
    r = load(dump(cfg), &again);
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(memcmp(&again.resource_mem_layout, &cfg.resource_mem_layout,
                     sizeof cfg.resource_mem_layout),
              0);
}

// Every exit of the loader closes the script's state exactly once; a faulty
// memory layout never fails the load.
TEST_F(MemLayout, LoaderClosesTheStateOnEveryPath)
{
    const std::string stream = "streams = {{ id = 0, max_size = {8, 8} }}";
    struct {
        const char *what;
        std::string text;
        int32_t ret;
        const char *last_line;
    } cases[] = {
        {"script error", "_resource_config_ = {", -2, "lua error msg is"},
        {"no table", "x = 1", -1, "invalid multi_channel config file"},
        {"no version", "_resource_config_ = {}", -2, "item(version) doesn't exist."},
        {"bad version", "_resource_config_ = { version = 2 }", -1, "current version is: 1"},
        {"group fails", "_resource_config_ = { version = 1, chan_groups = {{}} }", -2,
         "get chan group config error"},
        {"stream fails", "_resource_config_ = { version = 1 }", -2, "get stream config error"},
        {"layout fails",
         "_resource_config_ = { version = 1, " + stream +
             ", resource_mem_layout = { max_chan_num = 9 } }",
         0, "no resource mem cfg"},
        {"layout absent", "_resource_config_ = { version = 1, " + stream + " }", 0,
         "item(resource_mem_layout) doesn't exist"},
        {"layout read",
         "_resource_config_ = { version = 1, " + stream + ", " + layout(1, 1, CHAN, STREAM) + " }",
         0, ""},
    };
    for (const auto &c : cases) {
        kiv_set_log_level(3);
        kiv_run_counts before = kiv_get_run_counts();
        auto r = load(c.text, &cfg);
        kiv_run_counts after = kiv_get_run_counts();
        EXPECT_EQ(r.ret, c.ret) << c.what << "\n" << r.log;
        EXPECT_EQ(after.created - before.created, 1u) << c.what;
        EXPECT_EQ(after.closed - before.closed, 1u) << c.what;
        std::string last = r.log.substr(r.log.rfind('\n', r.log.size() - 2) + 1);
        EXPECT_NE(last.find(c.last_line), std::string::npos) << c.what << ": " << last;
    }
    EXPECT_EQ(mem().max_chan_num, 1u);

    kiv_run_counts before = kiv_get_run_counts();
    int32_t ret = 0;
    EXPECT_EQ(masked([&] { ret = kiv_get_multi_chan_cfg(nullptr, &cfg); }),
              "KIV_ERROR:: kiv_get_multi_chan_cfg(N): the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(kiv_get_run_counts().created, before.created);
}

} // namespace
