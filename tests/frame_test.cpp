// The multi-channel loader's own steps, the dump frame, and the bounds every
// script runs within.
#include "kiv_test.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include <lauxlib.h>

#include "core/log.h"
#include "core/pool.h"
#include "core/run.h"
#include "hostile_scripts.h"

using namespace kivtest;

namespace
{

using Loader = Settings;
using Dump = Settings;
using Bounds = Settings;

// A record that holds something everywhere, to see what a load resets.
kiv_multi_chan_cfg dirty_record()
{
    kiv_multi_chan_cfg cfg;
    memset(&cfg, 0x5a, sizeof cfg);
    return cfg;
}

bool untouched(const kiv_multi_chan_cfg &cfg)
{
    const kiv_multi_chan_cfg dirty = dirty_record();
    return memcmp(&cfg, &dirty, sizeof cfg) == 0;
}

const std::string LOADER = "kiv_get_multi_chan_cfg";

int32_t read_nothing(lua_State *, void *)
{
    return 0;
}

} // namespace

TEST_F(Loader, InitResetsEverything)
{
    kiv_multi_chan_cfg cfg = dirty_record();
    EXPECT_EQ(kiv_init(&cfg), 0);
    kiv_multi_chan_cfg expected;
    memset(&expected, 0, sizeof expected);
    for (auto &chan : expected.channels) {
        chan.id = 0xFF;
        for (auto &pass : chan.src_buf)
            for (auto &buf : pass)
                buf.canvas_id = -1;
    }
    for (auto &canvas : expected.canvas)
        canvas.id = -1;
    EXPECT_EQ(memcmp(&cfg, &expected, sizeof cfg), 0);
    EXPECT_EQ(masked([] { EXPECT_EQ(kiv_init(nullptr), -1); }),
              err("kiv_init", "the 1st is NULL\n"));
}

// What the frame stores and sets stays in force when a section parser
// fails later.
TEST_F(Loader, TopLevelItems)
{
    kiv_multi_chan_cfg cfg = dirty_record();
    auto r = load("_resource_config_ = { version = 1, log_level = 3 }", &cfg);
    EXPECT_EQ(r.log.rfind("KIV_DEBUG:: kiv_is_item_exist_str(N): item(enable_hp_fps) doesn't "
                          "exist\n" +
                              absent(LOADER, "enable_hp_fps"),
                          0),
              0u)
        << r.log;
    EXPECT_EQ(kiv_get_log_level(), 3); // stays in force after the call
    EXPECT_EQ(cfg.version, 1);
    EXPECT_EQ(cfg.channels[1].id, 0xFF); // reset by the load

    // Only bit 0 of the switches counts; the process-wide flag follows.
    kiv_set_log_level(1);
    load("_resource_config_ = { version = 257, enable_hp_fps = 3, vin_short_line_detect = 2 }",
         &cfg);
    EXPECT_EQ(vals({cfg.version, cfg.enable_hp_fps, cfg.vin_short_line_detect}), vals({1, 1, 0}));
    EXPECT_EQ(kiv_get_hp_fps(), 1);
    // A later load without the item clears the flag again.
    load("_resource_config_ = { version = 0 }", &cfg);
    EXPECT_EQ(kiv_get_hp_fps(), 0);

    r = load("_resource_config_ = { version = 1, log_level = 4 }", &cfg);
    EXPECT_EQ(r.log.rfind(warn(LOADER, "log_level(4) should be less equal than 3, use default "
                                       "level(1)\n"),
                          0),
              0u)
        << r.log;
    EXPECT_EQ(kiv_get_log_level(), 1);
    for (int level : {-1, 0}) {
        load("_resource_config_ = { version = 1, log_level = " + std::to_string(level) + " }",
             &cfg);
        EXPECT_EQ(kiv_get_log_level(), level & 0xFF);
    }
}

// Every exit of the loader reports its failure and closes the script's state
// exactly once; a failure before the script has run leaves the record
// untouched; a faulty memory layout never fails the load.
TEST_F(Loader, StateIsClosedOnEveryPath)
{
    const std::string top = "_resource_config_ = { version = 1, ";
    const std::string head = top + CHANNEL_0 + ", " + CANVAS_0;
    const std::string ok = head + ", streams = {{ id = 0, max_size = {8, 8} }}";
    struct {
        std::string text;
        int32_t ret;
        std::string log; // the whole log, or (when `part`) a part of its last line
        bool part = false, untouched = false;
    } cases[] = {
        {"_resource_config_ = { version = 1 ", -2, "'}' expected", true, true},
        {"print('hello')", -2, "attempt to call a nil value (global 'print')", true, true},
        {"x = nil + 1", -2, "attempt to perform arithmetic on a nil value", true, true},
        {"other = {}", -1, err(LOADER, "invalid multi_channel config file\n")},
        {"_resource_config_ = 5", -1, err(LOADER, "invalid multi_channel config file\n")},
        {"_resource_config_ = { log_level = 3 }", -2,
         err(LOADER, "item(version) doesn't exist.\n")},
        {"_resource_config_ = { version = 2 }", -1,
         err(LOADER, "invalid multi-channel lua version: 2, current version is: 1\n")},
        {top + "channels = {} }", -2, err(LOADER, "get channel config error\n"), true},
        {top + CHANNEL_0 + ", chan_groups = {{}, {}} }", -2,
         err(LOADER, "get chan group config error\n"), true},
        {top + CHANNEL_0 + " }", -2, err(LOADER, "get canvas config error\n"), true},
        {head + " }", -2, err(LOADER, "get stream config error\n"), true},
        {ok + ", resource_mem_layout = { max_chan_num = 9 } }", 0, "", true},
        {ok + " }", 0, "", true},
    };
    for (const auto &c : cases) {
        kiv_multi_chan_cfg cfg = dirty_record();
        kiv_run_counts before = kiv_get_run_counts();
        auto r = load(c.text, &cfg);
        kiv_run_counts after = kiv_get_run_counts();
        EXPECT_EQ(r.ret, c.ret) << c.text;
        EXPECT_EQ(after.created - before.created, 1u) << c.text;
        EXPECT_EQ(after.closed - before.closed, 1u) << c.text;
        std::string last = r.log.substr(r.log.rfind('\n', r.log.size() - 2) + 1);
        if (c.part) {
            EXPECT_NE(last.find(c.log), std::string::npos) << c.text << ": " << r.log;
        } else {
            EXPECT_EQ(r.log, c.log) << c.text;
        }
        EXPECT_EQ(untouched(cfg), c.untouched) << c.text;
        EXPECT_EQ(cfg.channels[2].id, c.untouched ? 0x5a : 0xFF) << c.text; // reset or not
        EXPECT_EQ(kiv_get_log_level(), 1); // log_level is read after version
    }
    for (const char *path : {(const char *)nullptr, "x.lua"}) {
        kiv_multi_chan_cfg cfg = dirty_record();
        EXPECT_EQ(
            masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg(path, path ? nullptr : &cfg), -1); }),
            err(LOADER, "the 1st or 2nd param is NULL\n"));
    }
    kiv_multi_chan_cfg cfg = dirty_record();
    EXPECT_EQ(
        masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg("/nonexistent/d/cfg.lua", &cfg), -2); }),
        err(LOADER, "lua error msg is cannot open /nonexistent/d/cfg.lua: No such file or "
                    "directory.\n"));
    EXPECT_TRUE(untouched(cfg));
}

// Each hostile script ends with the message of the bound made for it and a
// negative result.  All but the timed ones run with the time limit off, so
// that each shows its own bound whatever the machine's speed; their times
// under the default bounds are measured by the benchmark.
TEST_F(Bounds, EveryHostileScriptEndsAtItsBound)
{
    kiv_multi_chan_cfg cfg;
    for (const hostile_script &h : hostile_scripts()) {
        kiv_set_run_limits({.time_ms = h.timed ? 0 : UINT32_MAX});
        auto r = load(h.text, &cfg);
        EXPECT_LT(r.ret, 0) << h.name;
        std::string line = only(r.log, "lua error msg is ");
        EXPECT_NE(line.find(h.message), std::string::npos) << h.name << ": " << line;
    }
}

// Reading is counted against the instruction budget, table access by table
// access.  An array is counted in full only where a line of the log shows
// its count (DEBUG): a buffer whose arrays have 100,000 elements reads within
// a small budget at log level 1, not at level 3, where the count is logged.
TEST_F(Bounds, ReadingCountsOnlyWhatTheLogShows)
{
    const std::string body = "local big = {} for i = 1, 100000 do big[i] = i end "
                             "_resource_config_ = { version = 1, log_level = ";
    const std::string rest = ", channels = { { id = 0, sensor_ctrl = 1, max_padding_width = 64, "
                             "main = { max_output = big, input = big, output = big }, vsrc = { "
                             "vsrc_id = 0, mode = '1080p', fps = 30, hdr_mode = 'linear' } } }, " +
                             std::string(CANVAS_0) + ", " + STREAM_0 + ", " + NO_GROUPS + " }";
    kiv_multi_chan_cfg cfg;
    kiv_set_run_limits({.instructions = 1'000'000});
    EXPECT_EQ(load(body + "1" + rest, &cfg).ret, 0);
    auto r = load(body + "3" + rest, &cfg);
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(only(r.log, "lua error msg"),
              err(LOADER, "lua error msg is reading the script's tables exceeded the instruction "
                          "limit.\n"));
    kiv_set_run_limits({});
    r = load(body + "3" + rest, &cfg);
    EXPECT_EQ(r.ret, 0);
    EXPECT_NE(r.log.find("item of index(100000) doesn't exist\n"), std::string::npos);
}

// The time limit holds while the script is parsed, while it runs, while a
// script living at the memory cap makes the collector run again and again,
// and while its tables are read; each says it was the time.
TEST_F(Bounds, TimeLimitHoldsInEveryPhase)
{
    const std::string comment = "--[[" + std::string(8 << 20, 'x') + "]]";
    const std::string at_cap = "local keep = {} for i = 1, 60000 do keep[i] = i end "
                               "while true do local t = {} end";
    auto spend_forever = [](lua_State *L, void *) -> int32_t {
        for (;;)
            kiv_run_spend(L, 1);
    };
    const struct {
        const std::string text;
        kiv_read_fn read;
        size_t mem;
        uint32_t ms;
    } cases[] = {{comment, read_nothing, 0, 2},
                 {"while true do end", read_nothing, 0, 20},
                 {at_cap, read_nothing, 2u << 20, 20},
                 {"x = 1", spend_forever, 0, 20}};
    for (const auto &c : cases) {
        kiv_set_run_limits({.mem_bytes = c.mem, .instructions = UINT64_MAX, .time_ms = c.ms});
        std::string path = script(c.text);
        int32_t ret = 0;
        std::string log =
            masked([&] { ret = kiv_run_script("run", path.c_str(), c.read, nullptr, -5, -7); });
        EXPECT_EQ(ret, -7);
        EXPECT_NE(log.find("script exceeded the time limit.\n"), std::string::npos) << log;
    }
    // Reading past the instruction budget.
    kiv_set_run_limits({.instructions = 1000});
    std::string path = script("x = 1");
    EXPECT_EQ(masked([&] { kiv_run_script("run", path.c_str(), spend_forever, nullptr, -5, -7); }),
              err("run", "lua error msg is reading the script's tables exceeded the instruction "
                         "limit.\n"));
}

// Precompiled chunks load unless the library takes text only.
TEST_F(Bounds, BinaryChunksOnlyWhereAllowed)
{
    lua_State *L = luaL_newstate();
    ASSERT_EQ(luaL_loadstring(L, "x = 1"), LUA_OK);
    std::string chunk;
    lua_dump(
        L,
        [](lua_State *, const void *p, size_t n, void *ud) {
            static_cast<std::string *>(ud)->append(static_cast<const char *>(p), n);
            return 0;
        },
        &chunk, 1);
    lua_close(L);
    std::string path = script(chunk);
    EXPECT_EQ(masked([&] {
                  EXPECT_EQ(kiv_run_script("run", path.c_str(), read_nothing, nullptr, -5, -7), 0);
              }),
              "");
    kiv_set_run_limits({.text_only = 1});
    EXPECT_EQ(masked([&] {
                  EXPECT_EQ(kiv_run_script("run", path.c_str(), read_nothing, nullptr, -5, -7), -7);
              }),
              err("run", "lua error msg is attempt to load a binary chunk (mode is 't').\n"));
}

TEST_F(Bounds, ReadingStepRunsOutOfMemoryCleanly)
{
    // A state so small that the reading step itself cannot allocate its key
    // strings: the Lua error is caught and reported like a failing script.
    kiv_multi_chan_cfg cfg;
    std::string path = script("_resource_config_ = { version = 1 }");
    int failures = 0;
    for (size_t limit = 2048; limit < 16384; limit += 256) {
        kiv_set_run_limits({.mem_bytes = limit});
        int32_t ret = 0;
        std::string log = masked([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
        if (ret != 0) {
            ++failures;
            EXPECT_EQ(ret, -2) << limit;
            EXPECT_NE(log.find(err(LOADER, "")), std::string::npos);
        }
    }
    EXPECT_GT(failures, 0);
}

TEST_F(Bounds, ErrorValuesWithoutText)
{
    // A reading step that raises a table: the message names the value's type.
    std::string path = script("x = 1");
    auto raise_table = [](lua_State *L, void *) -> int32_t {
        lua_newtable(L);
        lua_error(L);
        return 0;
    };
    int32_t ret = 0;
    std::string log =
        masked([&] { ret = kiv_run_script("reader", path.c_str(), raise_table, nullptr, -5, -7); });
    EXPECT_EQ(ret, -7);
    EXPECT_EQ(log, err("reader", "lua error msg is (error object is a table value).\n"));
}

TEST_F(Dump, FrameLinesAndErrors)
{
    EXPECT_EQ(masked([] { EXPECT_EQ(kiv_dump_multi_chan_cfg(nullptr, "x"), -1); }),
              err("kiv_dump_multi_chan_cfg", "the 1st param is NULL\n"));
    kiv_multi_chan_cfg cfg = fresh();
    EXPECT_EQ(dump(cfg), "_resource_config_ = {\n" +
                             lines("\t", "version = 1; log_level = 1; enable_hp_fps = 0; "
                                         "vin_short_line_detect = 0; channels = {\n\t}; "
                                         "canvas = {\n\t}; streams = {\n\t}") +
                             "}\n\nreturn _resource_config_\n");
    // The version written is the current one; the log level is the process's.
    cfg.version = 0;
    cfg.enable_hp_fps = 1;
    cfg.vin_short_line_detect = 1;
    kiv_set_log_level(3);
    std::string text = dump(cfg);
    EXPECT_NE(text.find(lines("\t", "version = 1; log_level = 3; enable_hp_fps = 1; "
                                    "vin_short_line_detect = 1")),
              std::string::npos);

    // A null path, or one that cannot be opened, writes to standard output.
    kiv_set_log_level(1);
    std::string out = capture([&] { EXPECT_EQ(kiv_dump_multi_chan_cfg(&cfg, nullptr), 0); });
    EXPECT_EQ(out, text.replace(text.find("log_level = 3"), 13, "log_level = 1"));
    out = masked([&] { EXPECT_EQ(kiv_dump_multi_chan_cfg(&cfg, "/nonexistent/dir/x.lua"), 0); });
    EXPECT_EQ(out, err("kiv_dump_multi_chan_cfg", "Open file [/nonexistent/dir/x.lua] error, "
                                                  "output to console\n") +
                       text);
}

// Every optional key that is absent warns, section by section in the order
// the loader reads them (two channels with their required items only, so
// that a canvas reads enable_order).
TEST_F(Loader, EveryAbsentKeyWarnsInReadingOrder)
{
    const std::string chan = "{ sensor_ctrl = 1, max_padding_width = 64, main = { max_output = "
                             "{8, 8}, input = {0, 0, 8, 8}, output = {0, 0, 8, 8} }, vsrc = { "
                             "vsrc_id = 0, mode = '1080p', fps = 30, hdr_mode = 'linear' }, id = ";
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, channels = { " + chan + "0 }, " + chan +
                      "1 } }, " + NO_GROUPS +
                      ", canvas = { { type = 'off', size = {8, 8}, source = {'chan_0.main', "
                      "'chan_1.main'} } }, streams = { { id = 0, max_size = {8, 8} } }, "
                      "resource_mem_layout = { max_chan_num = 1, max_stream_num = 1, "
                      "channels_mem = { { max_vin = {8, 8} } }, streams_mem = { { max_stream = "
                      "{8, 8} } } } }",
                  &cfg);
    ASSERT_EQ(r.ret, 0) << r.log;
    std::string want = absent(LOADER, "enable_hp_fps vin_short_line_detect");
    for (int id = 0; id < 2; ++id) {
        const std::string n = std::to_string(id);
        want +=
            absent("kiv_get_channel_cfg",
                   "vsrc_ctx app_img_profile low_delay_vin_vout packing_mode_enable raw_capture "
                   "hdec_raw_format raw_dsp_priv_dram eis_delay_count raw_manual_feed "
                   "raw_feed_frame_num raw_cached_items extra_iso_cfg reuse_src_chan_iso_cfg "
                   "idsp_fps idsp_fps_locked_enable debug_stitch_slice_num mcts_crop_out_enable "
                   "max_raw_height extra_downscale max_main_input_width lens_warp "
                   "lens_warp_hi_ef_factor max_vwarp_wait_lines max_vwarp_blk_height expo_num "
                   "blend_left_or_top blend_right_or_bot max_cawarp_h_spacing "
                   "srcbuf_to_skip_blend mctf_cmpr mctf_10bit_ref main_burst_tile "
                   "use_vsrc_ctx_pattern trigger_led enable_group invert_mode rotate_cw hflip "
                   "vflip raw_vflip vcap_mode_flags dis_enable debug_default_hds_coeff "
                   "debug_disable_vin_12x_ds vsrc_region_num vsrc_region_map luma_alpha_blend "
                   "extract_mono is_still_fusion enable_tml_raw_packing enable_tml_proc "
                   "srcbuf_to_fusion pass_num mc_mask_buf_ds") +
            warn("kiv_get_pyramid_cfg", "item(pyramid) doesn't exist\n") +
            warn("kiv_get_channel_cfg", "pyramid of channel(" + n + ") doen't exist\n") +
            absent("kiv_get_vsrc_cfg", "vsrc_status max_fps dg_mode bits vsrc_ctx_switch mirror "
                                       "bayer") +
            warn("kiv_get_vsrc_cfg", "item(calib_data) doesn't exit, set to 0.\n") +
            warn("kiv_get_vsrc_cfg", "item(virt_mode_cfg_enable) doesn't exit, set to 0.\n") +
            warn("kiv_get_img_stats_src_chan_id", "item(img_stats_src_chan) of channel(" + n +
                                                      ") doesn't exist, default to " + n + "\n") +
            absent("kiv_get_multi_region_warp", "max_warp_input_width max_warp_output_width");
    }
    const std::string cv = "kiv_get_canvas_cfg";
    want +=
        absent(cv, "manual_feed feed_frame_num extra_dram_buf min_unlocked_buf_num "
                   "set_min_unlocked_buf_num cached_items enc_dummy_latency") +
        warn(cv, "item(frame_rate) doesn't exist, set 0 by default, and will be the same as "
                 "the idsp fps\n") +
        absent(cv, "zero_fps fps_locked_enable clear_background") +
        absent("kiv_set_source_buffer_canvas_id", "enable_order") +
        absent(cv, "dsp_priv_dram disable_yuv_dram disable_me_dram enable_frame_tag me_for_mf "
                   "frame_tag_value frame_tag_mask") +
        absent("kiv_get_stream_cfg", "max_M fast_seek_enable possible_enc_src_map "
                                     "two_ref_enable max_svct_layers_minus_1 "
                                     "max_num_minus_1_ltrs codec_enable stream_mv_statis_enable "
                                     "stream_pic_statis_enable js_enable used_for_vout_enable "
                                     "efm_enable dis_enable") +
        absent("kiv_get_mem_cfg_resource", "mask_possible mc_mask_possible warp_possible "
                                           "mask_buf_max_num mc_mask_buf_max_num "
                                           "mc_mask_buf_ds warp_buf_max_num warp_area_max_num "
                                           "qpm_possible qpm_max_matrix_num qpm_buf_max_num");
    EXPECT_EQ(r.log, want);
}

// The state's allocator: contents survive every move between classes and
// to and from the C library, freed blocks are reused, the slab limit holds,
// and a block that shrinks always finds a place.
TEST(Pool, MovesReuseAndLimits)
{
    kiv_pool p;
    kiv_pool_init(&p, 64 * 1024);
    const size_t sizes[] = {1, 16, 17, 100, 512, 513, 4000, 300, 48, 2};
    char *b = static_cast<char *>(kiv_pool_realloc(&p, nullptr, 0, 5));
    memcpy(b, "abcde", 5);
    size_t held = 5;
    for (size_t n : sizes) {
        b = static_cast<char *>(kiv_pool_realloc(&p, b, held, n));
        ASSERT_NE(b, nullptr) << n;
        EXPECT_EQ(memcmp(b, "abcde", std::min<size_t>({n, held, 5})), 0) << n;
        if (n >= 5)
            memcpy(b, "abcde", 5);
        held = n;
    }
    kiv_pool_realloc(&p, b, held, 0);
    void *x = kiv_pool_realloc(&p, nullptr, 0, 40);
    kiv_pool_realloc(&p, x, 40, 0);
    EXPECT_EQ(kiv_pool_realloc(&p, nullptr, 0, 33), x); // the same class: the freed block
    // Past the slab limit: no new block, but a shrink still finds a place.
    std::vector<void *> held_blocks;
    while (void *q = kiv_pool_realloc(&p, nullptr, 0, 512))
        held_blocks.push_back(q);
    EXPECT_LE(held_blocks.size() * 512, 64u * 1024);
    EXPECT_NE(kiv_pool_realloc(&p, held_blocks.back(), 512, 16), nullptr);
    kiv_pool_release(&p);
}
