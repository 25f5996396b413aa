// The picture of a configuration: the flow boxes and arrows, the input of
// every channel pass and every canvas drawn to one scale, each window where
// its record says and clipped to its frame, checked in the SVG text and,
// where libpng is at hand, in the picture a real renderer makes of it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#ifdef KIV_HAVE_PNG
#include <png.h>
#endif

#include "kiv_test.h"
#include "layout.h"
#include "tool_test.h"
#include "vsrc/vsrc.h"

namespace
{

struct rect {
    double x, y, w, h;
    std::string fill;
};

// The tags of one kind, e.g. "<rect class=\"window\"" or "<text".
std::vector<std::string> tags(const std::string &svg, const std::string &start)
{
    std::vector<std::string> out;
    for (size_t at = svg.find(start); at != std::string::npos; at = svg.find(start, at + 1))
        out.push_back(svg.substr(at, svg.find('>', at) - at + 1));
    return out;
}

std::string attr(const std::string &tag, const char *name)
{
    std::smatch m;
    std::regex re(std::string(" ") + name + "=\"([^\"]*)\"");
    return std::regex_search(tag, m, re) ? m[1].str() : "";
}

rect rect_of(const std::string &tag)
{
    return {std::stod(attr(tag, "x")), std::stod(attr(tag, "y")), std::stod(attr(tag, "width")),
            std::stod(attr(tag, "height")), attr(tag, "fill")};
}

// The rectangles of one class, keyed by their data-<key> attribute.
std::map<std::string, rect> rects(const std::string &svg, const char *cls, const char *key)
{
    std::map<std::string, rect> out;
    for (const std::string &tag : tags(svg, std::string("<rect class=\"") + cls + "\""))
        out[attr(tag, key)] = rect_of(tag);
    return out;
}

size_t count(const std::string &s, const std::string &what)
{
    size_t n = 0;
    for (size_t at = s.find(what); at != std::string::npos; at = s.find(what, at + 1))
        ++n;
    return n;
}

// Where a window must be: the canvas origin plus the output window, scaled.
void expect_window(const rect &canvas, double scale, const rect &win, double x, double y, double w,
                   double h)
{
    EXPECT_NEAR(win.x, canvas.x + x * scale, 0.01);
    EXPECT_NEAR(win.y, canvas.y + y * scale, 0.01);
    EXPECT_NEAR(win.w, w * scale, 0.01);
    EXPECT_NEAR(win.h, h * scale, 0.01);
}

// The sample with canvas 1 at 720x480 and chan_1.main_1 bound to it at
// 3840x2160, far beyond its right and lower edges.
kiv_multi_chan_cfg with_window_outside()
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    cfg.canvas[1].width = 720;
    cfg.canvas[1].height = 480;
    cfg.channels[1].src_buf[1][0].output[2] = 3840;
    cfg.channels[1].src_buf[1][0].output[3] = 2160;
    return cfg;
}

} // namespace

TEST(Layout, CanvasesWindowsAndFlow)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    std::string svg = kivtool::layout_svg(cfg);
    ASSERT_EQ(svg.rfind("<?xml", 0), 0u);
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");

    auto canvases = rects(svg, "canvas", "data-canvas");
    auto windows = rects(svg, "window", "data-source");
    auto inputs = rects(svg, "input", "data-source");
    ASSERT_EQ(canvases.size(), 2u);
    ASSERT_EQ(windows.size(), 3u); // chan_1.main is bound to no canvas
    ASSERT_EQ(inputs.size(), 4u);
    EXPECT_EQ(count(svg, "<rect class=\"input-frame\""), 3u); // chan_1 has two passes
    // One scale for all canvases: the 1920x1080 one fills 640 x 360, the
    // 1280x720 one two thirds of it.
    const double scale = 640.0 / 1920;
    EXPECT_NEAR(canvases["0"].w, 640, 0.01);
    EXPECT_NEAR(canvases["0"].h, 360, 0.01);
    EXPECT_NEAR(canvases["1"].w, 1280 * scale, 0.01);
    EXPECT_NEAR(canvases["1"].h, 720 * scale, 0.01);
    expect_window(canvases["0"], scale, windows["chan_0.main"], 0, 0, 1920, 1080);
    expect_window(canvases["0"], scale, windows["chan_0.second"], 1280, 720, 640, 360);
    expect_window(canvases["1"], scale, windows["chan_1.main_1"], 0, 0, 1280, 720);
    EXPECT_GT(canvases["1"].y, canvases["0"].y + canvases["0"].h);
    EXPECT_NEAR(inputs["chan_1.main_1"].w, 640, 0.01);
    EXPECT_EQ(inputs["chan_0.second"].fill, windows["chan_0.second"].fill);
    EXPECT_EQ(count(svg, "data-outside"), 0u);

    for (const char *label :
         {">vsrc 0, 30 fps<", ">mode 1080p, linear<", ">chan_0<", ">chan_1<",
          ">2 pass(es), 30 fps<", ">chan_1.main<", ">chan_1.main_1<", ">canvas 0 (encode)<",
          ">canvas 1 (prev)<", ">1280x720, vout 1<", ">stream 1<",
          ">canvas 0 (encode), 1920x1080, scale 1:3<", ">canvas 1 (prev), 1280x720, scale 1:3<",
          ">chan_1 pass 1 (chan_1.main) input, 1920x1080, scale 1:3<",
          ">chan_0.second: at 1280,720 size 640x360<", ">chan_0.second: at 0,0 size 1920x1080<"})
        EXPECT_NE(svg.find(label), std::string::npos) << label;
    // vsrc -> 2 channels, channels -> 4 buffers, 3 bound buffers -> canvases,
    // canvas 0 -> 2 streams.
    EXPECT_EQ(count(svg, "<line class=\"flow\""), 11u);
}

TEST(Layout, SourceShowsItsModeByName)
{
    struct {
        int32_t mode;
        uint32_t hdr;
        const char *detail;
    } cases[] = {
        {65, 0, ">mode 3840x2160, linear<"},
        {0x7777, 15, ">mode 0x7777, wdr<"}, // no row has the mode
        {40, 9, ">mode 1080p, hdr 9<"},
        {VIN_MODE_VIRTUAL, 1, ">virtual 640x480, 2x<"},
    };
    for (const auto &c : cases) {
        kiv_multi_chan_cfg cfg = tooltest::sample();
        cfg.chan_num = 1;
        kiv_vsrc_cfg &v = cfg.channels[0].vsrc;
        v.mode = c.mode;
        v.hdr_mode = v.virt_mode_cfg.hdr_mode = c.hdr;
        v.virt_mode_cfg.width = 640;
        v.virt_mode_cfg.height = 480;
        EXPECT_NE(kivtool::layout_svg(cfg).find(c.detail), std::string::npos) << c.detail;
    }
}

// A window beyond its canvas is clipped to it and outlined red; no text lies
// on a frame, where a window could cover it.
TEST(Layout, WindowOutsideItsCanvasIsClippedAndOutlined)
{
    std::string svg = kivtool::layout_svg(with_window_outside());
    auto canvases = rects(svg, "canvas", "data-canvas");
    EXPECT_NEAR(canvases["1"].w, 240, 0.01); // 720 at the scale of the 1920 canvas
    EXPECT_NEAR(canvases["1"].h, 160, 0.01);

    EXPECT_EQ(count(svg, "data-outside=\"1\""), 1u);
    size_t at = svg.find("<rect class=\"window\" data-source=\"chan_1.main_1\"");
    ASSERT_NE(at, std::string::npos);
    std::string tag = svg.substr(at, svg.find('>', at) - at);
    EXPECT_EQ(attr(tag, "data-outside"), "1");
    EXPECT_EQ(attr(tag, "stroke"), "#d00000");
    // The group around the window clips to the canvas.
    size_t group = svg.rfind("<g clip-path=\"url(#", at);
    ASSERT_NE(group, std::string::npos);
    EXPECT_EQ(svg.find("</g>", group), svg.find("</g>", at));
    std::string id = svg.substr(group + 19, svg.find(')', group) - group - 19);
    size_t clip = svg.find("<clipPath id=\"" + id + "\"><rect ");
    ASSERT_NE(clip, std::string::npos) << id;
    size_t r = svg.find("<rect ", clip);
    rect area = rect_of(svg.substr(r, svg.find('>', r) - r));
    expect_window(canvases["1"], 1, area, 0, 0, canvases["1"].w, canvases["1"].h);

    std::vector<rect> frames;
    for (const char *cls : {"canvas", "input-frame"})
        for (const std::string &t : tags(svg, std::string("<rect class=\"") + cls + "\""))
            frames.push_back(rect_of(t));
    for (const std::string &t : tags(svg, "<text")) {
        double x = std::stod(attr(t, "x")), y = std::stod(attr(t, "y"));
        for (const rect &f : frames)
            EXPECT_FALSE(x >= f.x && x <= f.x + f.w && y >= f.y && y - 14 <= f.y + f.h) << t;
    }
}

TEST(Layout, EveryBufferHasItsOwnColour)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    cfg.chan_num = 3;
    for (kiv_channel_cfg &ch : cfg.channels) {
        ch.pass_num = 2;
        for (auto &pass : ch.src_buf)
            for (kiv_src_buf_cfg &sb : pass) {
                sb.canvas_id = 0;
                sb.output[2] = 64;
                sb.output[3] = 36;
            }
    }
    std::string svg = kivtool::layout_svg(cfg);
    std::set<std::string> fills;
    for (const auto &w : rects(svg, "window", "data-source"))
        fills.insert(w.second.fill);
    EXPECT_EQ(fills.size(), 42u);
    // Text is dark whatever the colour of its buffer.
    for (const std::string &t : tags(svg, "<text"))
        EXPECT_TRUE(attr(t, "fill").empty() || attr(t, "fill") == "#222") << t;
}

TEST(Layout, OddRecordsStillDraw)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    cfg.canvas[0].width = 0; // nothing to scale: a placeholder frame
    cfg.canvas[1].type = 7;  // no name in the type table
    cfg.chan_num = 9;        // clipped to the 3 channel records
    cfg.canvas_num = 200;
    cfg.stream_num = 200;
    cfg.streams[0].possible_enc_src_map = 0xffff;
    std::string svg = kivtool::layout_svg(cfg);
    EXPECT_NE(svg.find(">canvas 1 (type 7)<"), std::string::npos);
    EXPECT_EQ(rects(svg, "canvas", "data-canvas").size(), 12u);
    EXPECT_EQ(attr(svg.substr(svg.find("<rect class=\"canvas\"")), "data-scale"), "0");

    kiv_multi_chan_cfg empty;
    kiv_init(&empty);
    svg = kivtool::layout_svg(empty);
    EXPECT_EQ(count(svg, "<rect class=\"box\""), 0u);
    EXPECT_EQ(count(svg, "<line"), 0u);
}

#ifdef KIV_HAVE_PNG
// The windows land in the rendered picture where the SVG says, and the one
// beyond its canvas stops at the canvas's edge.
TEST(Layout, RendersWithEachWindowInPlace)
{
    std::string svg = kivtool::layout_svg(with_window_outside());
    std::string in = kivtest::script(""), out = in + ".png";
    std::ofstream(in) << svg;
    std::string cmd = "rsvg-convert -f png -o '" + out + "' '" + in + "' 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0) << "rsvg-convert (librsvg2-bin) must be installed";

    png_image img{};
    img.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&img, out.c_str())) << img.message;
    img.format = PNG_FORMAT_RGB;
    std::vector<unsigned char> px(PNG_IMAGE_SIZE(img));
    ASSERT_TRUE(png_image_finish_read(&img, nullptr, px.data(), 0, nullptr)) << img.message;
    std::remove(out.c_str());
    auto colour_at = [&](double x, double y) {
        size_t i = (static_cast<size_t>(y) * img.width + static_cast<size_t>(x)) * 3;
        char buf[8];
        snprintf(buf, sizeof buf, "#%02x%02x%02x", px[i], px[i + 1], px[i + 2]);
        return std::string(buf);
    };

    auto canvases = rects(svg, "canvas", "data-canvas");
    auto windows = rects(svg, "window", "data-source");
    // chan_0.second covers the lower right quarter of canvas 0, chan_0.main
    // the rest; chan_1.main_1 all of canvas 1 and far beyond it.
    const rect &c0 = canvases["0"], &c1 = canvases["1"];
    EXPECT_EQ(colour_at(c0.x + c0.w * 0.85, c0.y + c0.h * 0.85), windows["chan_0.second"].fill);
    EXPECT_EQ(colour_at(c0.x + c0.w * 0.30, c0.y + c0.h * 0.60), windows["chan_0.main"].fill);
    EXPECT_EQ(colour_at(c0.x + c0.w * 0.85, c0.y + c0.h * 0.40), windows["chan_0.main"].fill);
    EXPECT_EQ(colour_at(c1.x + c1.w * 0.5, c1.y + c1.h * 0.6), windows["chan_1.main_1"].fill);
    EXPECT_EQ(colour_at(c1.x + c1.w + 30, c1.y + c1.h * 0.5), "#ffffff");
    EXPECT_EQ(colour_at(c1.x + c1.w * 0.5, c1.y + c1.h + 10), "#ffffff");
    // Outside every canvas: the white page.
    EXPECT_EQ(colour_at(c0.x + c0.w + 5, c0.y + c0.h - 5), "#ffffff");
    EXPECT_NE(windows["chan_0.main"].fill, windows["chan_0.second"].fill);
}
#endif
