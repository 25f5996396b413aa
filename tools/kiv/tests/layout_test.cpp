// The picture of a configuration: the flow boxes and arrows, every canvas
// at its size and every bound buffer where its output window says, checked
// in the SVG text and, where libpng is at hand, in the picture a real
// renderer makes of it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>

#ifdef KIV_HAVE_PNG
#include <png.h>
#endif

#include "kiv_test.h"
#include "layout.h"
#include "tool_test.h"

namespace
{

struct rect {
    double x, y, w, h;
    std::string fill;
};

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
    std::regex re(std::string("<rect class=\"") + cls + "\"[^>]*>");
    for (auto it = std::sregex_iterator(svg.begin(), svg.end(), re); it != std::sregex_iterator();
         ++it)
        out[attr(it->str(), key)] = rect_of(it->str());
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

} // namespace

TEST(Layout, CanvasesWindowsAndFlow)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    std::string svg = kivtool::layout_svg(cfg);
    ASSERT_EQ(svg.rfind("<?xml", 0), 0u);
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");

    auto canvases = rects(svg, "canvas", "data-canvas");
    auto windows = rects(svg, "window", "data-source");
    ASSERT_EQ(canvases.size(), 2u);
    ASSERT_EQ(windows.size(), 3u); // chan_1.main is bound to no canvas
    // Both canvases are 16:9 and fill the 640 x 360 frame.
    EXPECT_NEAR(canvases["0"].w, 640, 0.01);
    EXPECT_NEAR(canvases["0"].h, 360, 0.01);
    EXPECT_NEAR(canvases["1"].w, 640, 0.01);
    expect_window(canvases["0"], 640.0 / 1920, windows["chan_0.main"], 0, 0, 1920, 1080);
    expect_window(canvases["0"], 640.0 / 1920, windows["chan_0.second"], 1280, 720, 640, 360);
    expect_window(canvases["1"], 640.0 / 1280, windows["chan_1.main_1"], 0, 0, 1280, 720);
    EXPECT_GT(canvases["1"].y, canvases["0"].y + canvases["0"].h);

    for (const char *label :
         {">vsrc 0<", ">mode 0x28, 30 fps<", ">chan_0<", ">chan_1<", ">2 pass(es), 30 fps<",
          ">chan_1.main<", ">chan_1.main_1<", ">canvas 0 (encode)<", ">canvas 1 (prev)<",
          ">1280x720, vout 1<", ">stream 1<", ">chan_0.second: at 1280,720 size 640x360<"})
        EXPECT_NE(svg.find(label), std::string::npos) << label;
    // vsrc -> 2 channels, channels -> 4 buffers, 3 bound buffers -> canvases,
    // canvas 0 -> 2 streams.
    EXPECT_EQ(count(svg, "<line class=\"flow\""), 11u);
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
// The window rectangles land in the rendered picture where the SVG says.
TEST(Layout, RendersWithEachWindowInPlace)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    std::string svg = kivtool::layout_svg(cfg);
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
    // the rest; chan_1.main_1 all of canvas 1.  Points away from labels.
    const rect &c0 = canvases["0"], &c1 = canvases["1"];
    EXPECT_EQ(colour_at(c0.x + c0.w * 0.85, c0.y + c0.h * 0.85), windows["chan_0.second"].fill);
    EXPECT_EQ(colour_at(c0.x + c0.w * 0.30, c0.y + c0.h * 0.60), windows["chan_0.main"].fill);
    EXPECT_EQ(colour_at(c0.x + c0.w * 0.85, c0.y + c0.h * 0.40), windows["chan_0.main"].fill);
    EXPECT_EQ(colour_at(c1.x + c1.w * 0.5, c1.y + c1.h * 0.6), windows["chan_1.main_1"].fill);
    // Outside every canvas: the white page.
    EXPECT_EQ(colour_at(c0.x + c0.w + 5, c0.y + c0.h - 5), "#ffffff");
    EXPECT_NE(windows["chan_0.main"].fill, windows["chan_0.second"].fill);
}
#endif
