#include "kiv_test.h"

#include <array>
#include <cstring>
#include <vector>

#include "canvas/canvas.h"
#include "core/log.h"
#include "core/sections.h"

using namespace kivtest;

namespace
{

using Canvas = Settings;

// Every optional key, given, so that a log holds only the lines under test.
const std::string QUIET =
    "manual_feed = 0, feed_frame_num = 0, extra_dram_buf = 0, min_unlocked_buf_num = 0, "
    "set_min_unlocked_buf_num = 0, cached_items = 0, enc_dummy_latency = 0, frame_rate = 0, "
    "zero_fps = 0, fps_locked_enable = 0, clear_background = 0, dsp_priv_dram = 0, "
    "disable_yuv_dram = 0, disable_me_dram = 0, enable_frame_tag = 0, me_for_mf = 0, "
    "frame_tag_value = 0, frame_tag_mask = 0";
std::string cv(const std::string &keys)
{
    return "{" + keys + ", " + QUIET + "},";
}
const std::string ENC = "type = 'encode', size = {1, 1}, ";
const std::string CV = "kiv_get_canvas_cfg", SB = "kiv_set_source_buffer_canvas_id";

// A record as the channel parser leaves it: n channels of `passes` passes.
kiv_multi_chan_cfg chans(int n, int passes = 1)
{
    kiv_multi_chan_cfg cfg = fresh();
    cfg.chan_num = static_cast<uint8_t>(n);
    for (int c = 0; c < n && c < 3; ++c)
        cfg.channels[c].pass_num = static_cast<uint32_t>(passes);
    return cfg;
}

void set_output(kiv_multi_chan_cfg &cfg, int c, int p, int b, uint32_t x, uint32_t y, uint32_t w,
                uint32_t h)
{
    uint32_t *o = cfg.channels[c].src_buf[p][b].output;
    o[0] = x, o[1] = y, o[2] = w, o[3] = h;
}

// Runs the canvas parser on a canvas list, or (`whole`) on a whole script.
int32_t run(const std::string &list, kiv_multi_chan_cfg &cfg, std::string *log, bool whole = false)
{
    auto r = parse(kiv_get_canvas_cfg,
                   whole ? list : "_resource_config_ = { canvas = {" + list + "} }", &cfg);
    *log = r.log;
    return r.ret;
}

std::string dump_canvas(const kiv_multi_chan_cfg &cfg)
{
    return dumped(kiv_dump_canvas_cfg, cfg);
}

} // namespace

TEST_F(Canvas, FailuresGiveTheirResultAndLines)
{
    std::string thirteen, log;
    for (int i = 0; i < 13; ++i)
        thirteen += cv(ENC + "source = {'chan_0.main'}");
    const std::string long_str(40, 'e'), src = "source = {'chan_0.main'}";
    const std::string set0 = err(CV, "set canvas id(0) error\n");
    const std::string no_canvas = err(CV, "no canvas cfg found\n");
    const std::string no_source = err(SB, "no source buffer found in canvas(0)\n") + set0;
    auto bad = [&](const std::string &s) {
        return err(SB, "invalid string(" + s + ") in item(source)\n") + set0;
    };
    auto twice = [&](const std::string &buf, int pass, int chan, int canvas) {
        return err(SB, buf + " source buffer of pass " + std::to_string(pass) + " for channel" +
                           std::to_string(chan) + " cannot beassigned to multi canvas(0, " +
                           std::to_string(canvas) + ")\n") +
               err(CV, "set canvas id(" + std::to_string(canvas) + ") error\n");
    };
    struct {
        int chans, passes;
        std::string list;
        int32_t ret;
        std::string log;
    } cases[] = {
        // The list itself: the record is left untouched.
        {1, 1, "} and nil, x = {", -2, no_array("canvas") + no_canvas},
        {1, 1, "} and 5, x = {", -2, no_array("canvas") + no_canvas},
        {1, 1, "", -2, no_canvas},
        {1, 1, thirteen, -2, err(CV, "canvas num(13) cannot exceed max(12)\n")},
        // The canvas keys.
        {1, 1, cv("size = {1, 1}, " + src), -2, err(CV, "item(type) doesn't exist\n")},
        {1, 1, "5", -2, err(CV, "item(type) doesn't exist\n")},
        {1, 1, cv("type = 'Encode', size = {1, 1}, " + src), -1,
         err(CV, "invalid type(Encode) for canvas(0)\n")},
        {1, 1, cv("type = '" + long_str + "', size = {1, 1}, " + src), -1,
         err(CV, "invalid type(" + long_str.substr(0, 32) + ") for canvas(0)\n")},
        {1, 1, cv("type = 'prev', size = {1920}, " + src), -2, ""},
        {1, 1, cv("type = 'off', " + src), -2, no_array("size")},
        {1, 1, cv("type = 'prev', size = {1, 1}, " + src), -2,
         err(CV, "item(vout_id) doesn't exist.\n")},
        // The source list.
        {1, 1, cv(ENC + "x = 0"), -2, no_array("source") + no_source},
        {1, 1, cv(ENC + "source = 'chan_0.main'"), -2, no_array("source") + no_source},
        {1, 1, cv(ENC + "source = {}"), -2, no_source},
        {1, 1, cv(ENC + "source = {'chan_0.main_1'}"), -2, bad("chan_0.main_1")},
        {2, 2, cv(ENC + "source = {'chan_0.main_2'}"), -2, bad("chan_0.main_2")},
        {3, 1, cv(ENC + "source = {'chan_3.main'}"), -2, bad("chan_3.main")},
        // Counts beyond the record's three channels and two passes.
        {9, 7, cv(ENC + "source = {'chan_3.main'}"), -2, bad("chan_3.main")},
        {9, 7, cv(ENC + "source = {'chan_2.main_2'}"), -2, bad("chan_2.main_2")},
        {0, 1, cv(ENC + src), -2, bad("chan_0.main")},
        {1, 1, cv(ENC + "source = {'chan_0.main" + long_str + "'}"), -2,
         bad(("chan_0.main" + long_str).substr(0, 32))},
        {1, 1, cv(ENC + "source = {{}}"), -2,
         err("kiv_get_array_string_item_str",
             "array item(source) doesn't have item of index(0)\n") +
             bad("")},
        {1, 1, cv(ENC + "source = {'chan_0.main', 'chan_0.main'}"), -2, twice("main", 0, 0, 0)},
        {2, 2, cv(ENC + "source = {'chan_1.third_1'}") + cv(ENC + "source = {'chan_1.third_1'}"),
         -2, twice("third", 1, 1, 1)},
    };
    for (auto &t : cases) {
        const kiv_multi_chan_cfg before = chans(t.chans, t.passes);
        kiv_multi_chan_cfg cfg = before;
        EXPECT_EQ(run(t.list, cfg, &log), t.ret) << t.list;
        EXPECT_EQ(log, t.log) << t.list;
        if (t.log.find("canvas num") != std::string::npos ||
            t.log.find(no_canvas) != std::string::npos)
            EXPECT_EQ(memcmp(&cfg, &before, sizeof cfg), 0);
        else
            EXPECT_EQ(cfg.canvas[0].id, 0);
    }
}

// What a failing canvas keeps: everything stored before the failure.
TEST_F(Canvas, FailureKeepsWhatWasStored)
{
    std::string log;
    kiv_multi_chan_cfg cfg = chans(2, 2);
    cfg.canvas[1].canvas_id = 7; // an empty source writes none of the binding fields
    EXPECT_EQ(run(cv("type = 'prev', vout_id = 1, size = {3, 4}, source = {'chan_1.second'}") +
                      cv("type = 'off', size = {5, 6}, source = {}"),
                  cfg, &log),
              -2);
    EXPECT_EQ(cfg.canvas_num, 2);
    EXPECT_EQ(vals({cfg.canvas[0].width, cfg.canvas[0].height, cfg.canvas[0].vout_id}),
              vals({3, 4, 1}));
    EXPECT_EQ(vals({cfg.channels[1].src_buf[0][1].canvas_id, cfg.canvas[1].id, cfg.canvas[1].width,
                    cfg.canvas[1].canvas_id}),
              vals({0, 1, 5, 7}));

    // After an unknown or bound buffer the channel list and enable_order
    // are still written; earlier bindings stay.
    cfg = chans(2, 2);
    EXPECT_EQ(run(cv(ENC + "source = {'chan_1.main'}") +
                      cv(ENC + "enable_order = 1, source = {'chan_0.main', 'chan_1.main', 'x'}") +
                      cv(ENC + "source = {'chan_0.second', 'chan_0.x'}"),
                  cfg, &log),
              -2);
    EXPECT_EQ(vals({cfg.canvas[1].source_chan_num, cfg.canvas[1].source_chan_ids[1],
                    cfg.canvas[1].enable_order, cfg.channels[0].src_buf[0][0].canvas_id,
                    cfg.canvas[2].id}),
              vals({2, 1, 1, 1, -1}));
}

TEST_F(Canvas, SourceChannelsEnableOrderAndExtent)
{
    kiv_multi_chan_cfg cfg = chans(3, 2);
    cfg.channels[2].pass_num = 0; // skipped: no passes
    set_output(cfg, 0, 0, 0, 0, 0, 1920, 1080);
    set_output(cfg, 0, 0, 1, 1920, 0, 640, 360);
    set_output(cfg, 1, 1, 6, 100, 1000, 100, 100);
    set_output(cfg, 1, 0, 2, 5000, 5000, 1, 1);
    std::string log;
    EXPECT_EQ(run(cv("type = 'off', size = {0, 0}, enable_order = 3, source = {'chan_1.premain_1', "
                     "'chan_0.second', 'chan_1.main', 'chan_0.main'}") +
                      cv("type = 'off', size = {0, 1080}, enable_order = 1, "
                         "source = {'chan_1.third', 'chan_1.fifth'}") +
                      cv("type = 'off', size = {1280, 720}, source = {'chan_1.fourth'}"),
                  cfg, &log),
              0);
    EXPECT_EQ(log, "");
    const kiv_canvas_cfg &a = cfg.canvas[0], &b = cfg.canvas[1];
    EXPECT_EQ(a.canvas_id, 0u);
    EXPECT_EQ(a.source_chan_num, 2u);
    EXPECT_EQ(vals(a.source_chan_ids, a.source_chan_ids + 3), vals({1, 0, 0}));
    EXPECT_EQ(vals({a.enable_order, a.width, a.height, b.canvas_id, b.source_chan_num,
                    b.source_chan_ids[0]}),
              vals({1, 2560, 1100, 1, 1, 1}));
    EXPECT_EQ(b.enable_order, 0u); // one channel: not read
    EXPECT_EQ(b.width, 5001u);     // a 0 replaces both
    EXPECT_EQ(vals({b.height, cfg.canvas[2].width, cfg.canvas[2].height}), vals({5001, 1280, 720}));

    // Sums are unsigned 32-bit; only the passes a channel has count.
    uint32_t w = 1, h = 1;
    cfg.channels[1].pass_num = 1;
    set_output(cfg, 0, 0, 1, 0xffffffffu, 0, 3, 0);
    kiv_get_canvas_extent(&cfg, 0, &w, &h);
    EXPECT_EQ(w, 1920u);
    EXPECT_EQ(h, 1080u);
    cfg.chan_num = 0;
    kiv_get_canvas_extent(&cfg, 0, &w, &h);
    EXPECT_EQ(w + h, 0u);
}

TEST_F(Canvas, DumpText)
{
    kiv_multi_chan_cfg cfg = chans(2, 2);
    EXPECT_EQ(dump_canvas(cfg), "\tcanvas = {\n\t},\n");
    cfg.canvas_num = 1;
    kiv_canvas_cfg &a = cfg.canvas[0];
    a.type = 2, a.width = 1920, a.height = 1080, a.vout_id = 1, a.extra_dram_buf = 2;
    a.cached_items = 3, a.enc_dummy_latency = 4, a.frame_rate = 30, a.frame_rate_hp = 29970;
    a.clear_background = 1, a.feed_frame_num = 5, a.min_unlocked_buf_num = 6, a.me_for_mf = 1;
    a.frame_tag_value = 0xabcd, a.frame_tag_mask = 0xffffffff;
    a.source_chan_num = 2, a.source_chan_ids[0] = 1, a.enable_order = 1;
    for (auto [c, p, b] : {std::array{0, 0, 0}, {1, 0, 1}, {1, 1, 6}, {1, 0, 0}})
        cfg.channels[c].src_buf[p][b].canvas_id = 0;
    cfg.channels[0].src_buf[1][3].canvas_id = 1;
    EXPECT_EQ(dump_canvas(cfg),
              "\tcanvas = {\n\t\t{\n" +
                  lines("\t\t\t", "type = \"prev\"; size = {1920, 1080}; source = "
                                  "{\"chan_1.main\",\"chan_1.second\",\"chan_1.premain_1\","
                                  "\"chan_0.main\",}; enable_order = 1; vout_id = 1; "
                                  "vout_YUV422 = 0; extra_dram_buf = 2; cached_items = 3; "
                                  "enc_dummy_latency = 4; frame_rate = 30; zero_fps = 0; "
                                  "fps_locked_enable = 0") +
                  "\t\t\tclear_background = 1, \n" + // the space is part of the format
                  lines("\t\t\t", "manual_feed = 0; feed_frame_num = 5; "
                                  "set_min_unlocked_buf_num = 0; min_unlocked_buf_num = 6; "
                                  "dsp_priv_dram = 0; disable_yuv_dram = 0; disable_me_dram = 0; "
                                  "me_for_mf = 1; enable_frame_tag = 0; frame_tag_value = 0xabcd; "
                                  "frame_tag_mask = 0xffffffff") +
                  "\t\t},\n\t},\n");

    // Without enable_order: channel index order.  The record's own flag
    // picks the rate; the preview lines are written for "prev" only.
    a.enable_order = 0, a.type = 1, cfg.enable_hp_fps = 1;
    std::string out = dump_canvas(cfg);
    EXPECT_NE(out.find(lines("\t\t\t", "type = \"encode\"; size = {1920, 1080}; source = "
                                       "{\"chan_0.main\",\"chan_1.main\",\"chan_1.second\","
                                       "\"chan_1.premain_1\",}; enable_order = 0; "
                                       "extra_dram_buf = 2")),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("\t\t\tframe_rate = 29970,\n"), std::string::npos);
}

// A hand-filled record never leads the dump past its arrays; a type without
// a name is written so that reading it back fails clearly.
TEST_F(Canvas, DumpOfHandFilledRecord)
{
    kiv_multi_chan_cfg cfg = chans(1, 7);
    cfg.chan_num = 9, cfg.canvas_num = 40;
    cfg.canvas[0].type = 3, cfg.canvas[0].source_chan_num = 15, cfg.canvas[0].enable_order = 1;
    cfg.channels[0].src_buf[1][0].canvas_id = 0;
    std::string text = dump_canvas(cfg), twelve, log;
    for (int i = 0; i < 12; ++i)
        twelve += "\"chan_0.main_1\",";
    const std::string head =
        "\tcanvas = {\n\t\t{\n" +
        lines("\t\t\t", "type = \"3\"; size = {0, 0}; source = {" + twelve + "}");
    EXPECT_EQ(text.substr(0, head.size()), head);
    size_t canvases = 0;
    for (size_t at = 0; (at = text.find("\t\t{\n", at + 1)) != std::string::npos;)
        ++canvases;
    EXPECT_EQ(canvases, 12u);
    kiv_multi_chan_cfg back = chans(1);
    EXPECT_EQ(run("_resource_config_ = {\n" + text + "}", back, &log, true), -1);
    EXPECT_EQ(log, err(CV, "invalid type(3) for canvas(0)\n"));
}

// Values keep the low bits their fields hold; a dump read back on a record
// with the same channels gives the same canvases and bindings.
TEST_F(Canvas, DumpReadsBackToTheSameRecords)
{
    for (int hp : {0, 1}) {
        kiv_set_hp_fps(hp);
        kiv_multi_chan_cfg channels = chans(3, 2), cfg, back;
        channels.enable_hp_fps = hp;
        set_output(channels, 0, 0, 0, 0, 0, 1920, 1080);
        set_output(channels, 1, 0, 5, 0, 0, 320, 240);
        cfg = back = channels;
        std::string log;
        ASSERT_EQ(
            run("{ type = 'prev', size = {720, 480}, vout_id = 3, vout_YUV422 = 1, "
                "manual_feed = 1, feed_frame_num = 200, extra_dram_buf = -1, "
                "min_unlocked_buf_num = 257, set_min_unlocked_buf_num = 1, cached_items = 511, "
                "enc_dummy_latency = 17, frame_rate = 30, zero_fps = 1, "
                "fps_locked_enable = 1, clear_background = 1, enable_order = 1, "
                "source = {'chan_2.fourth_1', 'chan_0.second', 'chan_2.main'}, "
                "dsp_priv_dram = 1, disable_yuv_dram = 1, disable_me_dram = 1, "
                "enable_frame_tag = 1, me_for_mf = 1, frame_tag_value = 0x1deadbeef, "
                "frame_tag_mask = 0xffff0000 },"
                "{ type = 'encode', size = {0, 0}, frame_rate = 60, vout_id = 1, "
                "source = {'chan_0.main', 'chan_1.premain_1', 'chan_2.fourth'} },"
                "{ type = 'off', size = {16, 0}, source = {'chan_1.sixth'} },",
                cfg, &log),
            0);
        const kiv_canvas_cfg &c = cfg.canvas[0];
        EXPECT_EQ(vals({c.vout_id, c.feed_frame_num, c.min_unlocked_buf_num, c.cached_items,
                        c.enc_dummy_latency, c.extra_dram_buf, c.frame_tag_value}),
                  vals({1, 72, 1, 255, 1, 0xffffffffu, 0xdeadbeefu}));
        // The script's rate is whole frames, or thousandths with the flag.
        EXPECT_EQ(c.frame_rate, hp ? 1u : 30u);
        EXPECT_EQ(c.frame_rate_hp, hp ? 30u : 30000u);
        EXPECT_EQ(cfg.canvas[1].vout_id, 0u); // read for "prev" only

        std::string text = dump_canvas(cfg);
        EXPECT_EQ(run("_resource_config_ = {\n" + text + "}", back, &log, true), 0);
        EXPECT_EQ(memcmp(&back, &cfg, sizeof cfg), 0) << text;
    }
}
