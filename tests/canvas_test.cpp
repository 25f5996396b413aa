// Canvases in records that no script makes: counts beyond the record's three
// channels and two passes, as a caller may fill a record by hand.  What the
// canvas parser makes of scripts is in tests/cases/canvas.lua.
#include "kiv_test.h"

#include <cstring>

#include "canvas/canvas.h"
#include "core/sections.h"

using namespace kivtest;

namespace
{

using Canvas = Settings;

// A record as the channel parser leaves it: n channels of `passes` passes.
kiv_multi_chan_cfg chans(int n, int passes)
{
    kiv_multi_chan_cfg cfg = fresh();
    cfg.chan_num = static_cast<uint8_t>(n);
    for (int c = 0; c < n && c < 3; ++c)
        cfg.channels[c].pass_num = static_cast<uint32_t>(passes);
    return cfg;
}

} // namespace

// A source past the channels and passes the record holds, or in a record
// without channels, names no buffer.
TEST_F(Canvas, SourcesBeyondTheRecordNameNoBuffer)
{
    const struct {
        int chans, passes;
        std::string source;
    } cases[] = {{9, 7, "chan_3.main"}, {9, 7, "chan_2.main_2"}, {0, 1, "chan_0.main"}};
    for (const auto &c : cases) {
        kiv_multi_chan_cfg cfg = chans(c.chans, c.passes);
        auto r = parse(kiv_get_canvas_cfg,
                       "_resource_config_ = { canvas = { { type = 'encode', size = {1, 1}, "
                       "source = {'" +
                           c.source + "'} } } }",
                       &cfg);
        EXPECT_EQ(r.ret, -2);
        EXPECT_EQ(only(r.log, {"ERROR"}),
                  err("kiv_set_source_buffer_canvas_id",
                      "invalid string(" + c.source + ") in item(source)\n") +
                      err("kiv_get_canvas_cfg", "set canvas id(0) error\n"));
    }
}

// The extent counts the passes a channel has, up to the record's two, and
// the channels up to its three.
TEST_F(Canvas, ExtentOfAHandFilledRecord)
{
    kiv_multi_chan_cfg cfg = chans(2, 1);
    auto bind = [&](int c, int p, int b, uint32_t right, uint32_t bottom) {
        kiv_src_buf_cfg &buf = cfg.channels[c].src_buf[p][b];
        buf.canvas_id = 0, buf.output[2] = right, buf.output[3] = bottom;
    };
    bind(0, 0, 0, 1920, 1080);
    bind(1, 1, 6, 5000, 5000); // pass 1 of a channel of one pass
    uint32_t w = 1, h = 1;
    kiv_get_canvas_extent(&cfg, 0, &w, &h);
    EXPECT_EQ(vals({w, h}), vals({1920, 1080}));
    cfg.chan_num = 9, cfg.channels[1].pass_num = 7;
    kiv_get_canvas_extent(&cfg, 0, &w, &h);
    EXPECT_EQ(vals({w, h}), vals({5000, 5000}));
    cfg.chan_num = 0;
    kiv_get_canvas_extent(&cfg, 0, &w, &h);
    EXPECT_EQ(vals({w, h}), vals({0, 0}));
}

// A hand-filled record never leads the dump past its arrays; a type without
// a name is written so that reading it back fails clearly.
TEST_F(Canvas, DumpOfHandFilledRecord)
{
    kiv_multi_chan_cfg cfg = chans(1, 7);
    cfg.chan_num = 9, cfg.canvas_num = 40;
    cfg.canvas[0].type = 3, cfg.canvas[0].source_chan_num = 15, cfg.canvas[0].enable_order = 1;
    cfg.channels[0].src_buf[1][0].canvas_id = 0;
    std::string text = dumped(kiv_dump_canvas_cfg, cfg), twelve;
    for (int i = 0; i < 12; ++i)
        twelve += "\"chan_0.main_1\",";
    const std::string head = "\tcanvas = {\n\t\t{\n\t\t\ttype = \"3\",\n\t\t\tsize = {0, 0},\n"
                             "\t\t\tsource = {" +
                             twelve + "},\n";
    EXPECT_EQ(text.substr(0, head.size()), head);
    size_t canvases = 0;
    for (size_t at = 0; (at = text.find("\t\t{\n", at + 1)) != std::string::npos;)
        ++canvases;
    EXPECT_EQ(canvases, 12u);
    kiv_multi_chan_cfg back = chans(1, 1);
    auto r = parse(kiv_get_canvas_cfg, "_resource_config_ = {\n" + text + "}", &back);
    EXPECT_EQ(r.ret, -1);
    EXPECT_EQ(r.log, err("kiv_get_canvas_cfg", "invalid type(3) for canvas(0)\n"));
}
