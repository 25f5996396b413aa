// The picture of a configuration: the flow boxes and arrows, the input of
// every channel pass and every canvas drawn to one scale, each window where
// its record says and clipped to its frame, checked in the SVG text and,
// where libpng is at hand, in the picture a real renderer makes of it.  The
// records are the sample's and variants the loader would refuse.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
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

using change = std::function<void(kiv_multi_chan_cfg &)>;

// Canvas 1 at 720x480 and chan_1.main_1 bound to it at 3840x2160, far
// beyond its right and lower edges.
void window_outside(kiv_multi_chan_cfg &cfg)
{
    cfg.canvas[1].width = 720;
    cfg.canvas[1].height = 480;
    cfg.channels[1].src_buf[1][0].output[2] = 3840;
    cfg.channels[1].src_buf[1][0].output[3] = 2160;
}

change source(int32_t mode, uint32_t hdr)
{
    return [=](kiv_multi_chan_cfg &cfg) {
        cfg.chan_num = 1;
        kiv_vsrc_cfg &v = cfg.channels[0].vsrc;
        v.mode = mode;
        v.hdr_mode = v.virt_mode_cfg.hdr_mode = hdr;
        v.virt_mode_cfg.width = 640;
        v.virt_mode_cfg.height = 480;
    };
}

// Each variant of the sample and the text its picture holds: "N*TEXT" N
// times exactly, plain TEXT at least once; and how many colours its
// windows have, where that is the point.
const struct {
    const char *what;
    change apply;
    std::vector<std::string> holds;
    size_t colours = 0;
} VARIANTS[] = {
    {"the sample: chan_1.main is bound to no canvas",
     [](kiv_multi_chan_cfg &) {},
     {"2*<rect class=\"canvas\"", "3*<rect class=\"window\"", "4*<rect class=\"input\" ",
      "3*<rect class=\"input-frame\"", "11*<line class=\"flow\"", "0*data-outside"}},
    {"a mode by its name", source(65, 0), {">mode 3840x2160, linear<"}},
    {"a mode no row has", source(0x7777, 15), {">mode 0x7777, wdr<"}},
    {"an HDR mode without a name", source(40, 9), {">mode 1080p, hdr 9<"}},
    {"a virtual source", source(VIN_MODE_VIRTUAL, 1), {">virtual 640x480, 2x<"}},
    {"a window beyond its canvas", window_outside, {"1*data-outside=\"1\""}},
    {"a canvas of no size, a type without a name, counts beyond the arrays",
     [](kiv_multi_chan_cfg &cfg) {
         cfg.canvas[0].width = 0;
         cfg.canvas[1].type = 7;
         cfg.chan_num = 9;
         cfg.canvas_num = 200;
         cfg.stream_num = 200;
         cfg.streams[0].possible_enc_src_map = 0xffff;
     },
     {">canvas 1 (type 7)<", "12*<rect class=\"canvas\"",
      "1*<rect class=\"canvas\" data-canvas=\"0\" data-scale=\"0\""}},
    {"a fresh record",
     [](kiv_multi_chan_cfg &cfg) { kiv_init(&cfg); },
     {"0*<rect class=\"box\"", "0*<line"}},
    {"42 buffers bound to one canvas, each its own colour",
     [](kiv_multi_chan_cfg &cfg) {
         cfg.chan_num = 3;
         for (kiv_channel_cfg &ch : cfg.channels) {
             ch.pass_num = 2;
             for (auto &pass : ch.src_buf)
                 for (kiv_src_buf_cfg &sb : pass)
                     sb.canvas_id = 0, sb.output[2] = 64, sb.output[3] = 36;
         }
     },
     {"42*<rect class=\"window\""},
     42},
};

} // namespace

// The picture of the sample with a window beyond its canvas, as
// tests/cases/tool_layout.svg holds it: one scale for all canvases (the
// 1920x1080 one fills 640x360), the window clipped to its canvas and
// outlined red, every label.  KIV_REGENERATE=1 rewrites the file.
TEST(Layout, AsTheSvgFileSays)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    window_outside(cfg);
    std::string svg = kivtool::layout_svg(cfg),
                file = kivtest::example("../tests/cases/tool_layout.svg");
    if (getenv("KIV_REGENERATE"))
        std::ofstream(file) << svg;
    EXPECT_EQ(kivtest::read_file(file), svg) << "KIV_REGENERATE=1 rewrites " << file;
}

// Every picture is a whole SVG with its text dark and on no frame, where
// a window could cover it, and holds what its variant says.
TEST(Layout, VariantsOfTheSample)
{
    for (const auto &v : VARIANTS) {
        SCOPED_TRACE(v.what);
        kiv_multi_chan_cfg cfg = tooltest::sample();
        v.apply(cfg);
        std::string svg = kivtool::layout_svg(cfg);
        EXPECT_EQ(svg.rfind("<?xml", 0), 0u);
        EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
        for (const std::string &h : v.holds) {
            size_t star = h.find('*');
            if (star != std::string::npos && star < 3)
                EXPECT_EQ(tags(svg, h.substr(star + 1)).size(), std::stoul(h.substr(0, star))) << h;
            else
                EXPECT_NE(svg.find(h), std::string::npos) << h;
        }
        std::vector<rect> frames;
        for (const char *cls : {"canvas", "input-frame"})
            for (const std::string &t : tags(svg, std::string("<rect class=\"") + cls + "\""))
                frames.push_back(rect_of(t));
        std::set<std::string> fills;
        for (const auto &w : rects(svg, "window", "data-source"))
            fills.insert(w.second.fill);
        EXPECT_EQ(v.colours ? fills.size() : 0, v.colours);
        for (const std::string &t : tags(svg, "<text")) {
            EXPECT_TRUE(attr(t, "fill").empty() || attr(t, "fill") == "#222") << t;
            double x = std::stod(attr(t, "x")), y = std::stod(attr(t, "y"));
            for (const rect &f : frames)
                EXPECT_FALSE(x >= f.x && x <= f.x + f.w && y >= f.y && y - 14 <= f.y + f.h) << t;
        }
    }
}

#ifdef KIV_HAVE_PNG
// The windows land in the rendered picture where the SVG says, and the one
// beyond its canvas stops at the canvas's edge.
TEST(Layout, RendersWithEachWindowInPlace)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    window_outside(cfg);
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
