// The picture of a configuration: the pictures of the examples and of the
// sample as reviewed, variants of the sample checked in the SVG text and,
// where libpng is at hand, in the picture a real renderer makes of it; the
// HTML page's objects against the picture; a load that fails drawn as far
// as it was read.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>

#include <nlohmann/json.hpp>

#ifdef KIV_HAVE_PNG
#include <png.h>
#endif

#include "kiv_test.h"
#include "layout.h"
#include "model/model.h"
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

// A fill's colour: a stripe pattern's is the colour of its stripe.
std::string colour_of(const std::string &svg, const std::string &fill)
{
    if (!fill.starts_with("url(#"))
        return fill;
    size_t at = svg.find("id=\"" + fill.substr(5, fill.size() - 6) + "\"");
    return at == std::string::npos ? "" : attr(svg.substr(svg.find("<rect", at)), "fill");
}

// Pairs of arrows of the flow that cross between the same two columns.
int crossings(const std::string &svg)
{
    std::vector<std::vector<double>> lines;
    for (const std::string &t : tags(svg, "<line class=\"flow\""))
        lines.push_back(
            {std::stod(attr(t, "x1")), std::stod(attr(t, "y1")), std::stod(attr(t, "y2"))});
    int n = 0;
    for (size_t i = 0; i < lines.size(); ++i)
        for (size_t j = i + 1; j < lines.size(); ++j)
            n += lines[i][0] == lines[j][0] &&
                 (lines[i][1] - lines[j][1]) * (lines[i][2] - lines[j][2]) < 0;
    return n;
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
// times exactly, plain TEXT at least once; how many colours its windows
// have, where that is the point; whether its arrows may cross.
const struct {
    const char *what;
    change apply;
    std::vector<std::string> holds;
    size_t colours = 0;
    bool crossing = false;
    std::string failure = "";
} VARIANTS[] = {
    {"the sample: chan_1.main is bound to no canvas, chan_0's inputs coincide",
     [](kiv_multi_chan_cfg &) {},
     {"2*<rect class=\"canvas\"", "3*<rect class=\"window\"", "4*<rect class=\"input\" ",
      "3*<rect class=\"input-frame\"", "11*<line class=\"flow\"", "0*data-outside",
      "1*data-same=\"1/2\"", "1*data-same=\"2/2\"",
      ">chan_0.second: the same window as chan_0.main<", ">memory layout: none<", "0*pyramid"}},
    {"a mode by its name", source(65, 0), {">mode 3840x2160, linear<"}},
    {"a mode no row has", source(0x7777, 15), {">mode 0x7777, wdr<"}},
    {"an HDR mode without a name", source(40, 9), {">mode 1080p, hdr 9<"}},
    {"a virtual source", source(VIN_MODE_VIRTUAL, 1), {">virtual 640x480, 2x<"}},
    {"a window beyond its canvas: drawn beyond it",
     window_outside,
     {"1*data-outside=\"1\"", "1*<path class=\"overhang\"", "1*<rect class=\"edge\"",
      ">chan_1.main_1: at 0,0 size 3840x2160, 3120 right and 1680 down outside the canvas<"}},
    {"rates of 0: the source's, the channel's",
     [](kiv_multi_chan_cfg &cfg) {
         cfg.channels[0].idsp_fps = 0;
         cfg.channels[0].vsrc.fps = 25;
         cfg.canvas[1].frame_rate = 0;
         cfg.canvas[1].frame_rate_hp = 0;
         cfg.streams[1].max_M = 3;
         cfg.streams[1].codec_enable = 2;
     },
     {">1 pass, 25 fps (source)<", ">30 fps (channel)<", ">canvas 1 (prev, 30 fps (channel)), ",
      ">max 1920x1080, 30 fps<", ">max_M 3, codec_enable 2<"}},
    {"rates in thousandths",
     [](kiv_multi_chan_cfg &cfg) {
         cfg.enable_hp_fps = 1;
         cfg.channels[1].idsp_fps_hp = 29970;
         cfg.canvas[0].frame_rate_hp = 14985;
         cfg.channels[0].vsrc.fps_hp = 30000;
         cfg.channels[0].vsrc.max_fps = 60000;
     },
     {">2 passes, 29.97 fps<", ">max 1920x1080, 14.985 fps<", ">30 fps, max 60 fps<"}},
    {"a pyramid of layers 0 and 2 from chan_0.main",
     [](kiv_multi_chan_cfg &cfg) {
         kiv_pyramid_cfg &p = cfg.channels[0].pyramid;
         p.layer_map = 0x5;
         p.max_layer_map = 0x7;
         p.layers[0] = {{0, 0, 1920, 1080}};
         p.layers[2] = {{8, 4, 480, 270}};
     },
     {"2*<rect class=\"pyramid-layer\"",
      "1*<rect class=\"pyramid-input\" data-source=\"chan_0.main\"",
      ">chan_0 pyramid, from chan_0.main<", ">layer 2<", ">480x270<", ">at 8,4<",
      ">feeds the pyramid<", ">pyramid: 2 layers<",
      ">30 fps (channel), layer_map 0x05 (max 0x07), rescale 0x0 (max 0x0), scale_type 0<"}},
    {"a memory layout smaller than the configuration",
     [](kiv_multi_chan_cfg &cfg) {
         kiv_mem_cfg_resource &mem = cfg.resource_mem_layout;
         mem.max_chan_num = 1;
         mem.max_stream_num = 1;
         mem.channels_mem[0].max_vin[0] = 1280;
         mem.channels_mem[0].max_vin[1] = 720;
         mem.channels_mem[0].warp_possible = 1;
         mem.channels_mem[0].warp_buf_max_num = 2;
         mem.streams_mem[0].max_stream[0] = 1920;
         mem.streams_mem[0].max_stream[1] = 1080;
     },
     {">memory layout: reserved for 1 channel and 1 stream, fewer than the 2 and 2 configured<",
      ">inputs reach 1920x1080 (over the maximum), warp 2 bufs, 0 areas<",
      ">max_size 1920x1080, no qpm<", "1*data-memory=\"chan_0\"", "1*data-memory=\"stream_0\""}},
    {"canvases swapped: the boxes are ordered so that no arrows cross",
     [](kiv_multi_chan_cfg &cfg) {
         cfg.channels[0].src_buf[0][0].canvas_id = 1;
         cfg.channels[1].src_buf[1][0].canvas_id = 0;
         cfg.channels[0].src_buf[0][0].output[2] = 720;
         cfg.channels[0].src_buf[0][0].output[3] = 480;
     },
     {"11*<line class=\"flow\""}},
    {"a failed load: the banner",
     [](kiv_multi_chan_cfg &) {},
     {"1*<rect class=\"banner\"", ">x.lua:3:1: error: version: no<"},
     0,
     false,
     "x.lua:3:1: error: version: no"},
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
      "1*<rect class=\"canvas\" data-canvas=\"0\" data-scale=\"0\""},
     0,
     true},
    {"a fresh record",
     [](kiv_multi_chan_cfg &cfg) { kiv_init(&cfg); },
     {"0*<rect class=\"box\"", "0*<line"}},
    {"42 buffers bound to one canvas at one place, each its own colour",
     [](kiv_multi_chan_cfg &cfg) {
         cfg.chan_num = 3;
         for (kiv_channel_cfg &ch : cfg.channels) {
             ch.pass_num = 2;
             for (auto &pass : ch.src_buf)
                 for (kiv_src_buf_cfg &sb : pass)
                     sb.canvas_id = 0, sb.output[2] = 64, sb.output[3] = 36;
         }
     },
     {"42*<rect class=\"window\"", "1*data-same=\"41/41\""},
     42,
     true},
};

const char *const EXAMPLES[] = {"single_1080p", "two_channel_encode_preview", "three_channel_4k",
                                "hdr_virtual_mode"};

} // namespace

// The pictures as reviewed: tests/cases/tool_layout.svg holds the sample's
// with a window beyond its canvas, tests/layout/NAME.svg each example's.
// KIV_REGENERATE=1 rewrites them; review the pictures (rsvg-convert F.svg
// -o F.png) before taking them.
TEST(Layout, PicturesAsReviewed)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    window_outside(cfg);
    std::vector<std::pair<std::string, std::string>> pictures = {
        {kivtest::example("../tests/cases/tool_layout.svg"), kivtool::layout_svg(cfg)}};
    for (const char *name : EXAMPLES) {
        kivtool::script_model m =
            kivtool::load_model(kivtest::example((std::string(name) + ".lua").c_str()));
        ASSERT_EQ(m.result, 0) << name;
        pictures.emplace_back(
            kivtest::example((std::string("../tests/layout/") + name + ".svg").c_str()),
            kivtool::layout_svg(*m.cfg));
    }
    for (const auto &[file, svg] : pictures) {
        if (getenv("KIV_REGENERATE"))
            std::ofstream(file) << svg;
        EXPECT_EQ(kivtest::read_file(file), svg) << "KIV_REGENERATE=1 rewrites " << file;
    }
}

// Every picture is a whole SVG with its text dark (red where it warns) and
// on no frame, where a window could cover it, and holds what its variant
// says.
TEST(Layout, VariantsOfTheSample)
{
    for (const auto &v : VARIANTS) {
        SCOPED_TRACE(v.what);
        kiv_multi_chan_cfg cfg = tooltest::sample();
        v.apply(cfg);
        std::string svg = kivtool::layout_svg(cfg, v.failure);
        EXPECT_EQ(svg.rfind("<?xml", 0), 0u);
        EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
        for (const std::string &h : v.holds) {
            size_t star = h.find('*');
            if (star != std::string::npos && star < 3)
                EXPECT_EQ(tags(svg, h.substr(star + 1)).size(), std::stoul(h.substr(0, star))) << h;
            else
                EXPECT_NE(svg.find(h), std::string::npos) << h;
        }
        if (!v.crossing) {
            EXPECT_EQ(crossings(svg), 0);
        }
        std::vector<rect> frames;
        for (const char *cls : {"canvas", "input-frame"})
            for (const std::string &t : tags(svg, std::string("<rect class=\"") + cls + "\""))
                frames.push_back(rect_of(t));
        std::set<std::string> fills;
        for (const auto &w : rects(svg, "window", "data-source"))
            fills.insert(colour_of(svg, w.second.fill));
        EXPECT_EQ(v.colours ? fills.size() : 0, v.colours);
        for (const std::string &t : tags(svg, "<text")) {
            std::string fill = attr(t, "fill");
            EXPECT_TRUE(fill.empty() || fill == "#222" || fill == "#d00000") << t;
            double x = std::stod(attr(t, "x")), y = std::stod(attr(t, "y"));
            for (const rect &f : frames)
                EXPECT_FALSE(x >= f.x && x <= f.x + f.w && y >= f.y && y - 14 <= f.y + f.h) << t;
        }
    }
}

// The page of --format html: nothing from outside, and an object for
// everything the picture names, with the findings of lint at their object.
TEST(Layout, HtmlPageNamesWhatThePictureDraws)
{
    std::string text = kivtest::read_file(kivtest::example("three_channel_4k.lua"));
    text.replace(text.find(" -- kiv-lint: disable=overlapping-windows"),
                 std::string(" -- kiv-lint: disable=overlapping-windows").size(), "");
    const kivtool::script_model m = kivtool::load_model_text("4k.lua", text);
    const std::string page = kivtool::layout_html(m);
    for (const char *outside : {" src=", " href=", "@import", "url(http", "<link"})
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;
    size_t at = page.find("id=\"kiv-data\">") + 14;
    const auto data = nlohmann::json::parse(page.substr(at, page.find("</script>", at) - at));
    const auto &objects = data["objects"];

    const std::pair<const char *, const char *> kinds[] = {
        {"data-source", "buffer"},   {"data-canvas", "canvas"}, {"data-stream", "stream"},
        {"data-pyramid", "pyramid"}, {"data-memory", "memory"}, {"data-vsrc", "vsrc"},
        {"data-channel", "channel"}};
    std::set<std::string> named;
    for (const auto &[attribute, kind] : kinds)
        for (const std::string &t : tags(page, std::string(attribute) + "=\""))
            named.insert(std::string(kind) + ":" + attr(" " + t, attribute));
    // 11 buffers, 5 canvases, 5 streams, 3 pyramids, 8 rows of the memory
    // layout, 2 sources, 3 channels.
    EXPECT_EQ(named.size(), 37u);
    for (const std::string &key : named)
        EXPECT_TRUE(objects.contains(key)) << key;

    EXPECT_EQ(objects["canvas:4"]["fields"]["width"], 1920);
    EXPECT_EQ(objects["buffer:chan_1.main"]["path"], "channels[1].src_buf[0][0]");
    const auto &found = objects["buffer:chan_1.main"]["findings"];
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(data["findings"][found[0].get<size_t>()]["rule"], "overlapping-windows");
    EXPECT_EQ(objects["channel:0"]["fields"].count("src_buf"), 0u);
}

// A load that fails is drawn as far as it was read, under a banner that
// names the failure, in either format; the exit code still says it failed.
// A script of another kind draws nothing.
TEST(Layout, FailedLoadIsDrawnAsRead)
{
    std::string text = kivtest::read_file(kivtest::example("single_1080p.lua"));
    text.replace(text.find("max_size = {1280, 720}, "), 24, "");
    const std::string in = kivtest::script(text), out = in + ".out";
    for (const char *format : {"svg", "html"}) {
        SCOPED_TRACE(format);
        tooltest::run_result r = tooltest::kiv({"layout", "-q", "--format", format, in, "-o", out});
        EXPECT_EQ(r.rc, 1);
        EXPECT_NE(r.err.find("kiv: " + in + ":"), std::string::npos) << r.err;
        const std::string picture = kivtest::read_file(out);
        EXPECT_NE(picture.find("<rect class=\"banner\""), std::string::npos);
        EXPECT_NE(picture.find("streams[1].max_size: item(max_size) doesn"), std::string::npos);
        EXPECT_NE(picture.find(">chan_0.third<"), std::string::npos);
    }
    std::remove(out.c_str());
    tooltest::run_result r =
        tooltest::kiv({"layout", kivtest::example("calib_table.lua"), "-o", out});
    EXPECT_EQ(r.rc, 1);
    EXPECT_NE(r.err.find("not a multi-channel script"), std::string::npos) << r.err;
    EXPECT_FALSE(std::ifstream(out).good());
}

#ifdef KIV_HAVE_PNG
// The windows land in the rendered picture where the SVG says; coincident
// windows show both their colours; the one beyond its canvas is its own
// colour inside the canvas and shaded red beyond it, up to the overhang's
// bound.
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
    EXPECT_EQ(colour_at(c0.x + c0.w + 5, c0.y + c0.h - 5), "#ffffff");
    // Beyond canvas 1: red over white at 0.12, to 320 x 180 beyond it.
    for (const auto &[x, y] : {std::pair{c1.x + c1.w + 30, c1.y + c1.h * 0.5},
                               std::pair{c1.x + c1.w * 0.5, c1.y + c1.h + 10}})
        EXPECT_EQ(colour_at(x, y), "#f9e0e0");
    EXPECT_EQ(colour_at(c1.x + c1.w + 330, c1.y + c1.h * 0.5), "#ffffff");
    EXPECT_EQ(colour_at(c1.x + c1.w * 0.5, c1.y + c1.h + 190), "#ffffff");

    // chan_0's input: stripes of both buffers, each 0.6 over the frame's
    // grey, give many pixels of either blend (to a rounding).
    const rect i0 = rects(svg, "input-frame", "data-channel")["0"];
    auto rgb = [](const std::string &c) {
        std::vector<unsigned> v(3);
        sscanf(c.c_str(), "#%02x%02x%02x", &v[0], &v[1], &v[2]);
        return v;
    };
    for (const char *b : {"chan_0.main", "chan_0.second"}) {
        std::vector<unsigned> want = rgb(windows[b].fill);
        int seen = 0;
        for (double x = i0.x + 20; x < i0.x + 60; ++x) {
            std::vector<unsigned> got = rgb(colour_at(x, i0.y + i0.h / 2));
            bool near = true;
            for (size_t k = 0; k < 3; ++k)
                near = near && std::abs(want[k] * 0.6 + 0xee * 0.4 - got[k]) < 2;
            seen += near;
        }
        EXPECT_GE(seen, 10) << b;
    }
}
#endif
