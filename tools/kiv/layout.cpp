// kiv layout FILE [-o OUT] [--format svg|html]: the picture of a
// configuration.
#include "layout.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <vector>

#include "canvas/canvas.h"
#include "channel/srcbuf.h"
#include "common.h"
#include "report.h"
#include "vsrc/vsrc.h"

namespace kivtool
{

namespace
{

// Geometry of the picture, in SVG user units.
constexpr double MARGIN = 20;
constexpr double BOX_W = 180, BOX_H = 50, ROW = 60, COLUMN = 245;
constexpr double HEADER = 30;                      // column titles above the boxes
constexpr double FRAME_W = 640, FRAME_H = 360;     // the largest frame fits this
constexpr double LEGEND_X = MARGIN + FRAME_W + 20; // legends beside the frames
constexpr double CHAR_W = 7;                       // a wide estimate for 12 px text
constexpr double PAGE_W = MARGIN * 2 + COLUMN * 4 + BOX_W;
// How far beyond its canvas a window is drawn at most: enough to see the
// overhang, not so much that a wild size swamps the page.
constexpr double OVERHANG_W = FRAME_W / 2, OVERHANG_H = FRAME_H / 2;
constexpr double LAYER_W = 160, LAYER_H = 90; // the largest pyramid layer fits this
constexpr double THUMB_W = 64, THUMB_H = 36;  // the largest size of the memory layout fits this
const char *const OUTSIDE = "#d00000";        // what reaches outside its frame, or over a maximum

std::string esc(const std::string &s)
{
    std::string out;
    for (char c : s) {
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

std::string num(double v)
{
    char buf[32];
    snprintf(buf, sizeof buf, "%.2f", v);
    std::string s = buf;
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.')
        s.pop_back();
    return s;
}

std::string size(uint64_t w, uint64_t h)
{
    return std::to_string(w) + "x" + std::to_string(h);
}

std::string plural(uint64_t n, const std::string &what)
{
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

std::string hex(unsigned v)
{
    char buf[16];
    snprintf(buf, sizeof buf, "0x%02x", v);
    return buf;
}

// "1:3" for a picture three times smaller than the pixels, "2:1" for one
// twice as large.
std::string ratio(double scale)
{
    return scale <= 1 ? "1:" + num(1 / scale) : num(scale) + ":1";
}

// Colour i of a picture: hues a golden angle apart never repeat; the
// lightness takes turns of three, so that hues that come close again (8
// and 13 colours apart) differ in it; the saturation and lightness keep
// dark text readable on every one.
std::string colour(size_t i)
{
    const double s = 0.6, l = 0.62 + (i % 3 == 1 ? -0.08 : i % 3 == 2 ? 0.1 : 0);
    double h = std::fmod(210.0 + 137.50776405 * static_cast<double>(i), 360.0) / 60;
    double c = (1 - std::fabs(2 * l - 1)) * s, x = c * (1 - std::fabs(std::fmod(h, 2) - 1));
    double rgb[3][6] = {{c, x, 0, 0, x, c}, {x, c, c, x, 0, 0}, {0, 0, x, c, c, x}};
    int sector = std::min(static_cast<int>(h), 5);
    char buf[8];
    snprintf(buf, sizeof buf, "#%02x%02x%02x",
             static_cast<unsigned>(std::lround((rgb[0][sector] + l - c / 2) * 255)),
             static_cast<unsigned>(std::lround((rgb[1][sector] + l - c / 2) * 255)),
             static_cast<unsigned>(std::lround((rgb[2][sector] + l - c / 2) * 255)));
    return buf;
}

// The name of `id` in a name table, or `fallback` (a printf format of the
// id) when no row has it.
std::string name_of(const kiv_name_id *table, int n, int32_t id, const char *fallback)
{
    if (const kiv_name_id *row = kiv_find_id(table, n, id))
        return row->name;
    char buf[32];
    snprintf(buf, sizeof buf, fallback, static_cast<unsigned>(id));
    return buf;
}

// Frame rates.  The record keeps each rate whole and in thousandths; with
// enable_hp_fps the thousandths are what the script gave (29.97 fps), else
// the whole rate is.  A rate of 0 means the rate of what feeds it: a
// channel runs at its source's rate, a pyramid or a canvas at its
// channel's.
uint64_t milli(const kiv_multi_chan_cfg &cfg, uint32_t whole, uint32_t thousandths)
{
    return cfg.enable_hp_fps ? thousandths : uint64_t{whole} * 1000;
}

std::string fps(uint64_t milli)
{
    std::string s = std::to_string(milli / 1000);
    if (milli % 1000) {
        char buf[8];
        snprintf(buf, sizeof buf, ".%03u", static_cast<unsigned>(milli % 1000));
        s += buf;
        s.erase(s.find_last_not_of('0') + 1);
    }
    return s + " fps";
}

uint64_t channel_milli(const kiv_multi_chan_cfg &cfg, const kiv_channel_cfg &ch)
{
    uint64_t own = milli(cfg, ch.idsp_fps, ch.idsp_fps_hp);
    return own ? own : milli(cfg, ch.vsrc.fps, ch.vsrc.fps_hp);
}

std::string channel_rate(const kiv_multi_chan_cfg &cfg, const kiv_channel_cfg &ch)
{
    uint64_t own = milli(cfg, ch.idsp_fps, ch.idsp_fps_hp);
    return own ? fps(own) : fps(channel_milli(cfg, ch)) + " (source)";
}

std::string pyramid_rate(const kiv_multi_chan_cfg &cfg, const kiv_channel_cfg &ch)
{
    uint64_t own = milli(cfg, ch.pyramid.frame_rate, ch.pyramid.frame_rate_hp);
    return own ? fps(own) : fps(channel_milli(cfg, ch)) + " (channel)";
}

// One source buffer that takes part in the picture.
struct buffer {
    int chan, pass, index;
    std::string name; // chan_<c>.<name> or chan_<c>.<name>_<p>
    const kiv_src_buf_cfg *cfg;
    std::string colour;
};

bool has_pyramid(const kiv_pyramid_cfg &p)
{
    return p.layer_map || p.max_layer_map || p.rescale_size[0] || p.rescale_size[1];
}

// A box of the flow diagram: a bold title, up to two lines of detail, and
// the data attribute that names what it shows.
struct box {
    std::string title, detail, extra, fill = "#f4f4f4", attrs;
    double x = 0, y = 0;
};

// An arrow of the flow from box `from` of column `column` to box `to` of
// the next column.
struct link {
    size_t column, from, to;
};

// The row of each box of each column, so that arrows cross little: sweeps
// that sort each column by the mean row of the boxes it is linked to in
// the column before (downwards) or after (upwards), keeping the rows with
// the fewest crossings, then swaps of two neighbours that remove more.  A
// box without links keeps its row as its key; ties keep their order, so a
// picture without crossings stays as it is.  The work is bounded: a few
// sweeps and passes of swaps, each swap counting the crossings of the two
// gaps beside its column only.
std::vector<std::vector<size_t>> order_rows(const std::vector<size_t> &sizes,
                                            const std::vector<link> &links)
{
    std::vector<std::vector<size_t>> row(sizes.size());
    for (size_t c = 0; c < sizes.size(); ++c) {
        row[c].resize(sizes[c]);
        std::iota(row[c].begin(), row[c].end(), size_t{0});
    }
    std::vector<std::vector<link>> gaps(sizes.size()); // the links from each column
    for (const link &l : links)
        gaps[l.column].push_back(l);
    auto crossings = [&](size_t g) {
        size_t n = 0;
        const std::vector<link> &ls = gaps[g];
        for (size_t i = 0; i < ls.size(); ++i)
            for (size_t j = i + 1; j < ls.size(); ++j) {
                double d1 = static_cast<double>(row[g][ls[i].from]) -
                            static_cast<double>(row[g][ls[j].from]);
                double d2 = static_cast<double>(row[g + 1][ls[i].to]) -
                            static_cast<double>(row[g + 1][ls[j].to]);
                n += d1 * d2 < 0;
            }
        return n;
    };
    auto total = [&] {
        size_t n = 0;
        for (size_t g = 0; g + 1 < sizes.size(); ++g)
            n += crossings(g);
        return n;
    };
    std::vector<std::vector<size_t>> best = row;
    size_t fewest = total();
    for (int sweep = 0; sweep < 8 && fewest > 0; ++sweep) {
        bool down = sweep % 2 == 0;
        for (size_t k = 1; k < sizes.size(); ++k) {
            size_t c = down ? k : sizes.size() - 1 - k;
            std::vector<double> sum(sizes[c], 0), count(sizes[c], 0);
            for (const link &l : links) {
                if (down && l.column + 1 == c)
                    sum[l.to] += static_cast<double>(row[c - 1][l.from]), ++count[l.to];
                else if (!down && l.column == c)
                    sum[l.from] += static_cast<double>(row[c + 1][l.to]), ++count[l.from];
            }
            std::vector<size_t> boxes(sizes[c]);
            std::iota(boxes.begin(), boxes.end(), size_t{0});
            std::sort(boxes.begin(), boxes.end(),
                      [&](size_t a, size_t b) { return row[c][a] < row[c][b]; });
            auto key = [&](size_t i) {
                return count[i] ? sum[i] / count[i] : static_cast<double>(row[c][i]);
            };
            std::stable_sort(boxes.begin(), boxes.end(),
                             [&](size_t a, size_t b) { return key(a) < key(b); });
            for (size_t r = 0; r < boxes.size(); ++r)
                row[c][boxes[r]] = r;
        }
        if (size_t n = total(); n < fewest)
            best = row, fewest = n;
    }
    row = best;
    for (int pass = 0; pass < 8 && fewest > 0; ++pass) {
        bool better = false;
        for (size_t c = 0; c < sizes.size(); ++c) {
            auto beside = [&] {
                return (c > 0 ? crossings(c - 1) : 0) + (c + 1 < sizes.size() ? crossings(c) : 0);
            };
            std::vector<size_t> at(sizes[c]); // the box in each row
            for (size_t i = 0; i < sizes[c]; ++i)
                at[row[c][i]] = i;
            for (size_t r = 0; r + 1 < sizes[c]; ++r) {
                size_t before = beside();
                std::swap(row[c][at[r]], row[c][at[r + 1]]);
                if (size_t after = beside(); after < before)
                    fewest -= before - after, better = true, std::swap(at[r], at[r + 1]);
                else
                    std::swap(row[c][at[r]], row[c][at[r + 1]]);
            }
        }
        if (!better)
            break;
    }
    return row;
}

// A frame drawn to scale with windows in it: a canvas with the output
// windows bound to it, or the input of a channel pass with the input
// windows of its buffers.  Input windows often cover one another whole, so
// they are drawn see-through, each outlined in its colour.
struct frame {
    std::string title; // size and scale are added
    std::string attrs; // class and data attributes of the frame's rect
    const char *window_class;
    bool see_through;
    uint64_t width = 0, height = 0;
    std::string what = "canvas"; // what a window can reach outside of
    std::vector<std::pair<const buffer *, const uint32_t *>> windows = {}; // x, y, width, height
};

// The buffers of the channels in use: those bound to a canvas and those
// with an output size, in channel, pass and name table order.
std::vector<buffer> buffers_of(const kiv_multi_chan_cfg &cfg)
{
    std::vector<buffer> out;
    int chans = std::min<int>(cfg.chan_num, 3);
    for (int c = 0; c < chans; ++c) {
        int passes = std::min<int>(cfg.channels[c].pass_num, 2);
        for (int p = 0; p < passes; ++p) {
            for (int b = 0; b < KIV_SRC_BUF_NUM; ++b) {
                const kiv_src_buf_cfg &sb = cfg.channels[c].src_buf[p][b];
                if (sb.canvas_id < 0 && sb.max_output[0] == 0 && sb.output[2] == 0)
                    continue;
                out.push_back({c, p, b, buffer_name(c, p, b), &sb, colour(out.size())});
            }
        }
    }
    return out;
}

// The one scale at which the largest of `sizes` fits w x h; 0 when none
// has a size.
double fit(const std::vector<std::pair<uint64_t, uint64_t>> &sizes, double w, double h)
{
    double scale = 0;
    for (const auto &[sw, sh] : sizes) {
        if (!sw || !sh)
            continue;
        double s = std::min(w / static_cast<double>(sw), h / static_cast<double>(sh));
        scale = scale ? std::min(scale, s) : s;
    }
    return scale;
}

// Words of `s` in lines of at most `width` characters (a longer word is cut).
std::vector<std::string> wrap(const std::string &s, size_t width)
{
    std::vector<std::string> lines(1);
    std::istringstream words(s);
    for (std::string w; words >> w;) {
        for (; w.size() > width; w.erase(0, width))
            lines.push_back(w.substr(0, width));
        if (!lines.back().empty() && lines.back().size() + 1 + w.size() > width)
            lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : " ") + w;
    }
    return lines;
}

class svg_writer
{
  public:
    svg_writer(const kiv_multi_chan_cfg &cfg, std::string failure)
        : cfg_(cfg), bufs_(buffers_of(cfg)), failure_(std::move(failure))
    {
    }

    std::string write()
    {
        banner();
        flow();
        pyramids();
        memory();
        std::vector<frame> inputs = input_frames(), canvases = canvas_frames();
        for (const std::vector<frame> *frames : {&inputs, &canvases}) {
            std::vector<std::pair<uint64_t, uint64_t>> sizes;
            for (const frame &f : *frames)
                sizes.emplace_back(f.width, f.height);
            double scale = fit(sizes, FRAME_W, FRAME_H);
            for (const frame &f : *frames)
                draw(f, scale);
        }
        std::ostringstream doc;
        doc << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << num(width_) << "\" height=\""
            << num(height_) << "\" viewBox=\"0 0 " << num(width_) << ' ' << num(height_)
            << "\" font-family=\"sans-serif\">\n"
            << "<defs><marker id=\"arrow\" viewBox=\"0 0 10 10\" refX=\"10\" refY=\"5\" "
               "markerWidth=\"7\" markerHeight=\"7\" orient=\"auto\"><path d=\"M0,0 L10,5 L0,10 "
               "z\" fill=\"#555\"/></marker></defs>\n"
            << "<rect x=\"0\" y=\"0\" width=\"" << num(width_) << "\" height=\"" << num(height_)
            << "\" fill=\"#ffffff\"/>\n"
            << body_.str() << "</svg>\n";
        return doc.str();
    }

  private:
    const kiv_multi_chan_cfg &cfg_;
    std::vector<buffer> bufs_;
    std::string failure_;
    std::ostringstream body_;
    double width_ = PAGE_W, height_ = MARGIN;
    int ids_ = 0; // clip paths and patterns

    int chans() const { return std::min<int>(cfg_.chan_num, 3); }
    int canvases() const { return std::min<int>(cfg_.canvas_num, 12); }
    int streams() const { return std::min<int>(cfg_.stream_num, 13); }

    void text(double x, double y, const std::string &s, int size_px, const char *extra = "")
    {
        body_ << "<text x=\"" << num(x) << "\" y=\"" << num(y) << "\" font-size=\"" << size_px
              << "\"" << extra << ">" << esc(s) << "</text>\n";
        width_ = std::max(width_, x + CHAR_W * static_cast<double>(s.size()) + MARGIN);
    }

    void section(const std::string &title)
    {
        height_ += 10;
        text(MARGIN, height_ + 16, title, 16, " font-weight=\"bold\"");
        height_ += 24;
    }

    // The failure of the load, above all.
    void banner()
    {
        if (failure_.empty())
            return;
        std::vector<std::string> lines =
            wrap(failure_, static_cast<size_t>((PAGE_W - 2 * MARGIN - 20) / CHAR_W));
        double h = 30 + 16 * static_cast<double>(lines.size());
        body_ << "<rect class=\"banner\" x=\"" << num(MARGIN) << "\" y=\"" << num(height_)
              << "\" width=\"" << num(PAGE_W - 2 * MARGIN) << "\" height=\"" << num(h)
              << "\" fill=\"#fde8e8\" stroke=\"" << OUTSIDE << "\" stroke-width=\"2\"/>\n";
        text(MARGIN + 10, height_ + 19,
             "The configuration failed to load: this is what was read before the failure.", 14,
             " font-weight=\"bold\" fill=\"#222\"");
        for (size_t i = 0; i < lines.size(); ++i)
            text(MARGIN + 10, height_ + 37 + 16 * static_cast<double>(i), lines[i], 12,
                 " fill=\"#222\"");
        height_ += h + 10;
    }

    void draw(const box &b)
    {
        body_ << "<rect class=\"box\" " << b.attrs << " x=\"" << num(b.x) << "\" y=\"" << num(b.y)
              << "\" width=\"" << num(BOX_W) << "\" height=\"" << num(BOX_H)
              << "\" rx=\"4\" fill=\"" << b.fill << "\" stroke=\"#333\"/>\n";
        text(b.x + 6, b.y + 15, b.title, 12, " font-weight=\"bold\"");
        text(b.x + 6, b.y + 30, b.detail, 11);
        if (!b.extra.empty())
            text(b.x + 6, b.y + 44, b.extra, 11);
    }

    void arrow(const box &from, const box &to)
    {
        body_ << "<line class=\"flow\" x1=\"" << num(from.x + BOX_W) << "\" y1=\""
              << num(from.y + BOX_H / 2) << "\" x2=\"" << num(to.x) << "\" y2=\""
              << num(to.y + BOX_H / 2) << "\" stroke=\"#555\" marker-end=\"url(#arrow)\"/>\n";
    }

    // The input mode by name (a virtual source by its size) and the HDR mode.
    static std::string vsrc_detail(const kiv_vsrc_cfg &v)
    {
        if (v.mode == VIN_MODE_VIRTUAL)
            return "virtual " + size(v.virt_mode_cfg.width, v.virt_mode_cfg.height) + ", " +
                   name_of(hdr_mode_table, KIV_HDR_MODE_NUM,
                           static_cast<int32_t>(v.virt_mode_cfg.hdr_mode), "hdr %u");
        return "mode " + name_of(vin_mode_table, KIV_VIN_MODE_NUM, v.mode, "0x%x") + ", " +
               name_of(hdr_mode_table, KIV_HDR_MODE_NUM, static_cast<int32_t>(v.hdr_mode),
                       "hdr %u");
    }

    static std::string type_name(const kiv_canvas_cfg &cv)
    {
        return cv.type < KIV_CANVAS_TYPE_NUM ? kiv_canvas_type_names[cv.type]
                                             : "type " + std::to_string(cv.type);
    }

    // A canvas's rate: its own, or its channel's when it has none (and all
    // the channels bound to it run at one rate).
    std::string canvas_rate(int i) const
    {
        const kiv_canvas_cfg &cv = cfg_.canvas[i];
        if (uint64_t own = milli(cfg_, cv.frame_rate, cv.frame_rate_hp))
            return fps(own);
        std::set<uint64_t> rates;
        for (const buffer &b : bufs_)
            if (b.cfg->canvas_id == i)
                rates.insert(channel_milli(cfg_, cfg_.channels[b.chan]));
        return rates.size() == 1 ? fps(*rates.begin()) + " (channel)" : "channel rate";
    }

    // What a buffer feeds besides its canvas: a later pass, the pyramid.
    std::string feeds(const buffer &b) const
    {
        const kiv_channel_cfg &ch = cfg_.channels[b.chan];
        std::vector<std::string> what;
        if (ch.pass_num >= 2 && ch.pass_cfg[1].input_pass_id == b.pass &&
            ch.pass_cfg[1].input_buf_id == b.index && b.pass == 0)
            what.emplace_back("pass 1");
        if (has_pyramid(ch.pyramid) && b.pass == 0 &&
            ch.pyramid.input_buf_id == static_cast<uint32_t>(b.index))
            what.emplace_back("the pyramid");
        std::string out;
        for (const std::string &w : what)
            out += (out.empty() ? "feeds " : " and ") + w;
        return out.empty() && b.cfg->canvas_id < 0 ? "on no canvas" : out;
    }

    // Video sources -> channels -> buffers -> canvases -> streams, each
    // column ordered so that arrows cross little.
    void flow()
    {
        const char *titles[] = {"video sources", "channels", "source buffers", "canvases",
                                "streams"};
        double top = height_;
        for (int c = 0; c < 5; ++c)
            text(MARGIN + COLUMN * c, top + 14, titles[c], 14, " font-weight=\"bold\"");

        std::vector<std::vector<box>> col(5);
        std::vector<link> links;
        std::map<uint32_t, size_t> vsrcs; // box of each video source id
        for (int c = 0; c < chans(); ++c) {
            const kiv_channel_cfg &ch = cfg_.channels[c];
            const kiv_vsrc_cfg &v = ch.vsrc;
            if (!vsrcs.count(v.vsrc_id)) {
                vsrcs.emplace(v.vsrc_id, col[0].size());
                uint64_t ceiling = v.max_fps;
                col[0].push_back(
                    {"vsrc " + std::to_string(v.vsrc_id), vsrc_detail(v),
                     fps(milli(cfg_, v.fps, v.fps_hp)) + (ceiling ? ", max " + fps(ceiling) : ""),
                     "#f4f4f4", "data-vsrc=\"" + std::to_string(v.vsrc_id) + "\""});
            }
            // The pyramid's rate only when it has one of its own.
            std::string pyramid;
            if (has_pyramid(ch.pyramid))
                pyramid = "pyramid: " + plural(__builtin_popcount(ch.pyramid.layer_map), "layer") +
                          (ch.pyramid.frame_rate_hp || ch.pyramid.frame_rate
                               ? ", " + pyramid_rate(cfg_, ch)
                               : "");
            col[1].push_back({"chan_" + std::to_string(c),
                              std::to_string(ch.pass_num) +
                                  (ch.pass_num == 1 ? " pass, " : " passes, ") +
                                  channel_rate(cfg_, ch),
                              pyramid, "#f4f4f4", "data-channel=\"" + std::to_string(c) + "\""});
            links.push_back({0, vsrcs.at(v.vsrc_id), static_cast<size_t>(c)});
        }
        for (size_t i = 0; i < bufs_.size(); ++i) {
            const buffer &b = bufs_[i];
            col[2].push_back({b.name, "max " + size(b.cfg->max_output[0], b.cfg->max_output[1]),
                              feeds(b), b.colour, "data-source=\"" + esc(b.name) + "\""});
            links.push_back({1, static_cast<size_t>(b.chan), i});
            int cv = b.cfg->canvas_id;
            if (cv >= 0 && cv < canvases())
                links.push_back({2, i, static_cast<size_t>(cv)});
        }
        for (int i = 0; i < canvases(); ++i) {
            const kiv_canvas_cfg &cv = cfg_.canvas[i];
            col[3].push_back({"canvas " + std::to_string(i) + " (" + type_name(cv) + ")",
                              size(cv.width, cv.height) +
                                  (cv.type == 2 ? ", vout " + std::to_string(cv.vout_id) : ""),
                              canvas_rate(i), "#f4f4f4",
                              "data-canvas=\"" + std::to_string(i) + "\""});
        }
        // A stream is fed by the canvases whose bits are set in its
        // possible_enc_src_map, and runs at their rate.
        for (int s = 0; s < streams(); ++s) {
            const kiv_stream_cfg &st = cfg_.streams[s];
            std::vector<std::string> rates;
            for (int i = 0; i < canvases(); ++i)
                if (st.possible_enc_src_map & (1u << i)) {
                    links.push_back({3, static_cast<size_t>(i), static_cast<size_t>(s)});
                    if (std::string r = canvas_rate(i);
                        std::find(rates.begin(), rates.end(), r) == rates.end())
                        rates.push_back(r);
                }
            std::string detail = "max " + size(st.max_width, st.max_height);
            for (size_t r = 0; r < rates.size(); ++r)
                detail += (r ? " / " : ", ") + rates[r];
            col[4].push_back({"stream " + std::to_string(s), detail,
                              "max_M " + std::to_string(st.max_M) + ", codec_enable " +
                                  std::to_string(st.codec_enable),
                              "#f4f4f4", "data-stream=\"" + std::to_string(s) + "\""});
        }

        std::vector<size_t> sizes;
        for (const auto &c : col)
            sizes.push_back(c.size());
        std::vector<std::vector<size_t>> rows = order_rows(sizes, links);
        size_t most = 1;
        for (size_t c = 0; c < col.size(); ++c) {
            most = std::max(most, col[c].size());
            for (size_t i = 0; i < col[c].size(); ++i) {
                col[c][i].x = MARGIN + COLUMN * static_cast<double>(c);
                col[c][i].y = top + HEADER + ROW * static_cast<double>(rows[c][i]);
            }
        }
        for (const link &l : links)
            arrow(col[l.column][l.from], col[l.column + 1][l.to]);
        for (const auto &c : col)
            for (const box &b : c)
                draw(b);
        height_ = top + HEADER + ROW * static_cast<double>(most);
    }

    // Each channel's pyramid: the buffer it is built from and the layers
    // layer_map produces, each its crop window, all to one scale.
    void pyramids()
    {
        std::vector<std::pair<uint64_t, uint64_t>> sizes;
        for (int c = 0; c < chans(); ++c) {
            const kiv_pyramid_cfg &p = cfg_.channels[c].pyramid;
            if (!has_pyramid(p))
                continue;
            if (p.input_buf_id < KIV_SRC_BUF_NUM) {
                const kiv_src_buf_cfg &in = cfg_.channels[c].src_buf[0][p.input_buf_id];
                sizes.emplace_back(in.max_output[0], in.max_output[1]);
            }
            for (int l = 0; l < 6; ++l)
                if (p.layer_map & (1u << l))
                    sizes.emplace_back(p.layers[l].crop_win[2], p.layers[l].crop_win[3]);
        }
        bool any = false;
        double scale = fit(sizes, LAYER_W, LAYER_H);
        for (int c = 0; c < chans(); ++c) {
            const kiv_channel_cfg &ch = cfg_.channels[c];
            const kiv_pyramid_cfg &p = ch.pyramid;
            if (!has_pyramid(p))
                continue;
            if (!std::exchange(any, true))
                section("pyramids");
            std::string from = p.input_buf_id < KIV_SRC_BUF_NUM
                                   ? buffer_name(c, 0, static_cast<int>(p.input_buf_id))
                                   : "buffer " + std::to_string(p.input_buf_id);
            text(MARGIN, height_ + 14, "chan_" + std::to_string(c) + " pyramid, from " + from, 13,
                 " font-weight=\"bold\"");
            text(MARGIN, height_ + 30,
                 pyramid_rate(cfg_, ch) + ", layer_map " + hex(p.layer_map) + " (max " +
                     hex(p.max_layer_map) + "), rescale " +
                     size(p.rescale_size[0], p.rescale_size[1]) + " (max " +
                     size(p.max_rescale_size[0], p.max_rescale_size[1]) + "), scale_type " +
                     std::to_string(p.scale_type),
                 12);
            double top = height_ + 40;
            // The parts in a row, their bottoms on one line, names below.
            struct part {
                std::string attrs, fill, opacity;
                uint64_t w, h;
                std::vector<std::string> label;
                bool dashed = false;
            };
            std::vector<part> parts;
            const buffer *in = nullptr;
            for (const buffer &b : bufs_)
                if (b.chan == c && b.pass == 0 && b.index == static_cast<int>(p.input_buf_id))
                    in = &b;
            if (p.input_buf_id < KIV_SRC_BUF_NUM) {
                const kiv_src_buf_cfg &sb = ch.src_buf[0][p.input_buf_id];
                parts.push_back({"class=\"pyramid-input\" data-source=\"" + esc(from) + "\"",
                                 in ? in->colour : "#f4f4f4",
                                 "1",
                                 sb.max_output[0],
                                 sb.max_output[1],
                                 {from, "max " + size(sb.max_output[0], sb.max_output[1])}});
            }
            for (int l = 0; l < 6; ++l) {
                if (!(p.layer_map & (1u << l)))
                    continue;
                const uint32_t *crop = p.layers[l].crop_win;
                std::vector<std::string> label = {"layer " + std::to_string(l),
                                                  crop[2] && crop[3] ? size(crop[2], crop[3])
                                                                     : "no crop window"};
                if (crop[0] || crop[1])
                    label.push_back("at " + std::to_string(crop[0]) + "," +
                                    std::to_string(crop[1]));
                parts.push_back({"class=\"pyramid-layer\" data-pyramid=\"" + std::to_string(c) +
                                     "\" data-layer=\"" + std::to_string(l) + "\"",
                                 in ? in->colour : "#cccccc", "0.55", crop[2], crop[3], label,
                                 !(crop[2] && crop[3])});
            }
            double tallest = 0;
            for (const part &pt : parts)
                tallest = std::max(tallest, scale && pt.w && pt.h ? pt.h * scale : 12.0);
            double x = MARGIN, base = top + tallest;
            for (size_t i = 0; i < parts.size(); ++i) {
                const part &pt = parts[i];
                bool drawn = scale && pt.w && pt.h;
                double w = drawn ? pt.w * scale : 20, h = drawn ? pt.h * scale : 12;
                body_ << "<rect " << pt.attrs << " x=\"" << num(x) << "\" y=\"" << num(base - h)
                      << "\" width=\"" << num(w) << "\" height=\"" << num(h) << "\" fill=\""
                      << (pt.dashed ? "none" : pt.fill) << "\" fill-opacity=\"" << pt.opacity
                      << "\" stroke=\"#333\"" << (pt.dashed ? " stroke-dasharray=\"3 2\"" : "")
                      << "/>\n";
                size_t longest = 0;
                for (size_t k = 0; k < pt.label.size(); ++k) {
                    text(x, base + 14 + 13 * static_cast<double>(k), pt.label[k], 11,
                         k ? "" : " font-weight=\"bold\"");
                    longest = std::max(longest, pt.label[k].size());
                }
                double next = x + std::max(w, 6.5 * static_cast<double>(longest)) + 16;
                if (i == 0 && in)
                    body_ << "<line class=\"feed\" x1=\"" << num(x + w + 2) << "\" y1=\""
                          << num(base - h / 2) << "\" x2=\"" << num(next + 22) << "\" y2=\""
                          << num(base - h / 2)
                          << "\" stroke=\"#555\" marker-end=\"url(#arrow)\"/>\n",
                        next += 30;
                x = next;
            }
            width_ = std::max(width_, x + MARGIN);
            height_ = base + 14 + 13 * 3 + 6;
        }
    }

    // The channel and stream maxima the memory is reserved for, each beside
    // what the configuration asks: a thumbnail of the maximum (dashed) with
    // the size asked for in it, red when it does not fit.
    void memory()
    {
        const kiv_mem_cfg_resource &mem = cfg_.resource_mem_layout;
        int mc = std::min<int>(mem.max_chan_num, 12), ms = std::min<int>(mem.max_stream_num, 13);
        if (!mc && !ms) {
            section("memory layout: none");
            return;
        }
        std::string title = "memory layout: reserved for " + plural(mem.max_chan_num, "channel") +
                            " and " + plural(mem.max_stream_num, "stream");
        bool over = cfg_.chan_num > mem.max_chan_num || cfg_.stream_num > mem.max_stream_num;
        if (over)
            title += ", fewer than the " + std::to_string(cfg_.chan_num) + " and " +
                     std::to_string(cfg_.stream_num) + " configured";
        height_ += 10;
        text(MARGIN, height_ + 16, title, 16,
             over ? " font-weight=\"bold\" fill=\"#d00000\"" : " font-weight=\"bold\"");
        height_ += 24;

        struct row {
            std::string attr, title, asked, rest; // asked: the size the configuration asks
            uint64_t max_w, max_h, w, h;          // the maximum and what is asked (0: nothing)
        };
        std::vector<row> left, right;
        std::vector<std::pair<uint64_t, uint64_t>> sizes;
        for (int i = 0; i < mc; ++i) {
            const kiv_chan_mem_cfg &m = mem.channels_mem[i];
            uint64_t w = 0, h = 0;
            for (const buffer &b : bufs_)
                if (b.chan == i && b.pass == 0)
                    w = std::max(w, uint64_t{b.cfg->input[0]} + b.cfg->input[2]),
                    h = std::max(h, uint64_t{b.cfg->input[1]} + b.cfg->input[3]);
            std::string rest;
            if (m.mask_possible)
                rest += ", mask " + std::to_string(m.mask_buf_max_num);
            if (m.mc_mask_possible)
                rest += ", mc_mask " + std::to_string(m.mc_mask_buf_max_num) + " (ds " +
                        std::to_string(m.mc_mask_buf_ds) + ")";
            if (m.warp_possible)
                rest += ", warp " + std::to_string(m.warp_buf_max_num) + " bufs, " +
                        std::to_string(m.warp_area_max_num) + " areas";
            left.push_back(
                {"chan_" + std::to_string(i),
                 "chan_" + std::to_string(i) + ": max_vin " + size(m.max_vin[0], m.max_vin[1]),
                 i < chans() ? "inputs reach " + size(w, h) : "no such channel", rest, m.max_vin[0],
                 m.max_vin[1], w, h});
        }
        for (int s = 0; s < ms; ++s) {
            const kiv_stream_mem_cfg &m = mem.streams_mem[s];
            const kiv_stream_cfg &st = cfg_.streams[s];
            bool is = s < streams();
            right.push_back(
                {"stream_" + std::to_string(s),
                 "stream " + std::to_string(s) + ": max_stream " +
                     size(m.max_stream[0], m.max_stream[1]),
                 is ? "max_size " + size(st.max_width, st.max_height) : "no such stream",
                 m.qpm_possible ? ", qpm " + std::to_string(m.qpm_buf_max_num) + " bufs, " +
                                      std::to_string(m.qpm_max_matrix_num) + " matrices"
                                : ", no qpm",
                 m.max_stream[0], m.max_stream[1], is ? st.max_width : 0, is ? st.max_height : 0});
        }
        for (const auto *rows : {&left, &right})
            for (const row &r : *rows)
                sizes.emplace_back(r.max_w, r.max_h), sizes.emplace_back(r.w, r.h);
        double scale = fit(sizes, THUMB_W, THUMB_H);
        auto draw_rows = [&](const std::vector<row> &rows, double x) {
            double y = height_;
            for (const row &r : rows) {
                bool exceeds = r.w > r.max_w || r.h > r.max_h;
                body_ << "<rect class=\"memory\" data-memory=\"" << r.attr << "\" x=\"" << num(x)
                      << "\" y=\"" << num(y) << "\" width=\"520\" height=\"40\" fill=\"#ffffff\" "
                      << "fill-opacity=\"0\"/>\n";
                // What is asked, and the maximum's dashed outline on top.
                if (scale && r.w && r.h)
                    body_ << "<rect x=\"" << num(x) << "\" y=\"" << num(y) << "\" width=\""
                          << num(std::min(r.w * scale, THUMB_W + 8)) << "\" height=\""
                          << num(std::min(r.h * scale, THUMB_H + 4)) << "\" fill=\""
                          << (exceeds ? OUTSIDE : "#7fa7d9") << "\" fill-opacity=\"0.6\"/>\n";
                if (scale && r.max_w && r.max_h)
                    body_ << "<rect x=\"" << num(x) << "\" y=\"" << num(y) << "\" width=\""
                          << num(r.max_w * scale) << "\" height=\"" << num(r.max_h * scale)
                          << "\" fill=\"none\" stroke=\"#333\" stroke-dasharray=\"3 2\"/>\n";
                text(x + THUMB_W + 16, y + 14, r.title, 12, " font-weight=\"bold\"");
                text(x + THUMB_W + 16, y + 29,
                     r.asked + (exceeds ? " (over the maximum)" : "") + r.rest, 11,
                     exceeds ? " fill=\"#d00000\"" : "");
                y += 46;
            }
            return y;
        };
        double bottom = draw_rows(left, MARGIN);
        height_ = std::max(bottom, draw_rows(right, MARGIN + 560));
    }

    // The input of each channel pass that has buffers, as large as their
    // input windows reach.  Pass 0 reads the video source; a later pass
    // reads the output of the buffer its pass record names.
    std::vector<frame> input_frames() const
    {
        std::vector<frame> out;
        for (size_t i = 0; i < bufs_.size(); ++i) {
            const buffer &b = bufs_[i];
            if (i == 0 || b.chan != bufs_[i - 1].chan || b.pass != bufs_[i - 1].pass) {
                std::string title = "chan_" + std::to_string(b.chan);
                if (b.pass > 0) {
                    const kiv_pass_cfg &pc = cfg_.channels[b.chan].pass_cfg[b.pass];
                    title += " pass " + std::to_string(b.pass);
                    if (pc.input_buf_id < KIV_SRC_BUF_NUM && pc.input_pass_id < b.pass)
                        title +=
                            " (" + buffer_name(b.chan, pc.input_pass_id, pc.input_buf_id) + ")";
                }
                out.push_back({.title = title + " input",
                               .attrs = "class=\"input-frame\" data-channel=\"" +
                                        std::to_string(b.chan) + "\" data-pass=\"" +
                                        std::to_string(b.pass) + "\"",
                               .window_class = "input",
                               .see_through = true,
                               .what = "input"});
            }
            frame &f = out.back();
            const uint32_t *in = b.cfg->input;
            f.width = std::max(f.width, uint64_t{in[0]} + in[2]);
            f.height = std::max(f.height, uint64_t{in[1]} + in[3]);
            f.windows.emplace_back(&b, in);
        }
        return out;
    }

    std::vector<frame> canvas_frames() const
    {
        std::vector<frame> out;
        for (int i = 0; i < canvases(); ++i) {
            const kiv_canvas_cfg &cv = cfg_.canvas[i];
            frame f{.title = "canvas " + std::to_string(i) + " (" + type_name(cv) + ", " +
                             canvas_rate(i) + ")",
                    .attrs = "class=\"canvas\" data-canvas=\"" + std::to_string(i) + "\"",
                    .window_class = "window",
                    .see_through = false,
                    .width = cv.width,
                    .height = cv.height};
            for (const buffer &b : bufs_)
                if (b.cfg->canvas_id == i)
                    f.windows.emplace_back(&b, b.cfg->output);
            out.push_back(std::move(f));
        }
        return out;
    }

    // A frame at `scale` below what is drawn so far: its title above it and
    // a legend beside it, so that no text lies where a window can be.  The
    // part of a window inside the frame is clipped to it; the part outside
    // (only a canvas can have one: an input frame is as large as its
    // windows reach) is drawn beside it, dashed red, up to OVERHANG_W x
    // OVERHANG_H beyond its edges.  Windows of one place are filled with
    // stripes of their colours and outlined one inside the other, so that
    // each shows.  A frame without a size is a small placeholder.
    void draw(const frame &f, double scale)
    {
        if (!f.width || !f.height)
            scale = 0;
        double y = height_ + 10;
        text(MARGIN, y + 14,
             f.title + ", " + size(f.width, f.height) + (scale ? ", scale " + ratio(scale) : ""),
             14, " font-weight=\"bold\"");
        y += 24;
        double w = scale ? static_cast<double>(f.width) * scale : FRAME_W / 4;
        double h = scale ? static_cast<double>(f.height) * scale : FRAME_H / 4;
        std::ostringstream data_scale;
        data_scale << scale;
        auto geometry = [](double gx, double gy, double gw, double gh) {
            return "x=\"" + num(gx) + "\" y=\"" + num(gy) + "\" width=\"" + num(gw) +
                   "\" height=\"" + num(gh) + "\"";
        };
        body_ << "<rect " << f.attrs << " data-scale=\"" << data_scale.str() << "\" "
              << geometry(MARGIN, y, w, h) << " fill=\"#eeeeee\" stroke=\"#333\"/>\n";

        // Windows of one place, by rank.
        std::map<std::vector<uint32_t>, std::vector<size_t>> places;
        for (size_t i = 0; i < f.windows.size(); ++i) {
            const uint32_t *r = f.windows[i].second;
            places[{r[0], r[1], r[2], r[3]}].push_back(i);
        }
        std::ostringstream inside, outside;
        double right = MARGIN + w, bottom = y + h; // what is drawn, overhangs included
        std::vector<std::string> lines(f.windows.size());
        // See-through windows largest first, so that the outline of one
        // inside another is not under the other's fill; opaque ones in
        // record order, the later on top.
        std::vector<size_t> order(f.windows.size());
        std::iota(order.begin(), order.end(), size_t{0});
        auto area = [&](size_t i) {
            return uint64_t{f.windows[i].second[2]} * f.windows[i].second[3];
        };
        if (f.see_through)
            std::stable_sort(order.begin(), order.end(),
                             [&](size_t a, size_t b) { return area(a) > area(b); });
        for (size_t i : order) {
            const auto &[b, r] = f.windows[i];
            const std::vector<size_t> &same = places[{r[0], r[1], r[2], r[3]}];
            size_t rank = std::find(same.begin(), same.end(), i) - same.begin();
            bool out = uint64_t{r[0]} + r[2] > f.width || uint64_t{r[1]} + r[3] > f.height;
            double wx = MARGIN + r[0] * scale, wy = y + r[1] * scale;
            double ww = r[2] * scale, wh = r[3] * scale;
            std::string fill = b->colour;
            if (same.size() > 1) {
                // A stripe of its own in a pattern of as many stripes as
                // there are windows here.
                std::string id = "stripes-" + std::to_string(ids_++);
                double n = static_cast<double>(same.size()), s = 8;
                inside << "<defs><pattern id=\"" << id
                       << "\" patternUnits=\"userSpaceOnUse\" width=\"" << num(s * n)
                       << "\" height=\"" << num(s * n)
                       << "\" patternTransform=\"rotate(45)\"><rect x=\""
                       << num(s * static_cast<double>(rank)) << "\" y=\"0\" width=\"" << num(s)
                       << "\" height=\"" << num(s * n) << "\" fill=\"" << b->colour
                       << "\"/></pattern></defs>\n";
                fill = "url(#" + id + ")";
            }
            inside << "<rect class=\"" << f.window_class << "\" data-source=\"" << esc(b->name)
                   << "\" " << geometry(wx, wy, ww, wh) << " fill=\"" << fill << "\" stroke=\""
                   << (f.see_through ? b->colour : "#222") << "\""
                   << (f.see_through ? same.size() > 1 ? " fill-opacity=\"0.6\" stroke-width=\"2\""
                                                       : " fill-opacity=\"0.3\" stroke-width=\"2\""
                                     : "")
                   << (same.size() > 1 ? " data-same=\"" + std::to_string(rank + 1) + "/" +
                                             std::to_string(same.size()) + "\""
                                       : "")
                   << (out ? " data-outside=\"1\"" : "") << "/>\n";
            // Each window of a shared place outlined in its colour, the
            // later ones inside the earlier.
            double inset = 2.5 * static_cast<double>(rank) + 1;
            if (same.size() > 1 && ww > 2 * inset + 2 && wh > 2 * inset + 2)
                inside << "<rect class=\"same\" data-source=\"" << esc(b->name) << "\" "
                       << geometry(wx + inset, wy + inset, ww - 2 * inset, wh - 2 * inset)
                       << " fill=\"none\" stroke=\"" << b->colour << "\" stroke-width=\"2\""
                       << (rank % 2 ? " stroke-dasharray=\"5 3\"" : "") << "/>\n";
            if (out && scale) {
                // The whole window outlined, and the part beyond the frame
                // shaded, both dashed red and cut at the overhang's bounds.
                double ox = std::min(wx, MARGIN + w), oy = std::min(wy, y + h);
                double ow = std::min(wx + ww, MARGIN + w) - ox;
                double oh = std::min(wy + wh, y + h) - oy;
                double cx = std::min(wx + ww, MARGIN + w + OVERHANG_W);
                double cy = std::min(wy + wh, y + h + OVERHANG_H);
                right = std::max(right, cx);
                bottom = std::max(bottom, cy);
                std::string clip = "clip-" + std::to_string(ids_++);
                outside << "<defs><clipPath id=\"" << clip << "\"><rect "
                        << geometry(MARGIN - 2, y - 2, MARGIN + w + OVERHANG_W + 4 - MARGIN,
                                    h + OVERHANG_H + 4)
                        << "/></clipPath></defs>\n"
                        << "<g clip-path=\"url(#" << clip << ")\">\n"
                        << "<path class=\"overhang\" data-source=\"" << esc(b->name)
                        << "\" fill-rule=\"evenodd\" d=\"M" << num(wx) << ',' << num(wy) << " h"
                        << num(ww) << " v" << num(wh) << " h" << num(-ww) << " z M" << num(ox)
                        << ',' << num(oy) << " h" << num(std::max(ow, 0.0)) << " v"
                        << num(std::max(oh, 0.0)) << " h" << num(-std::max(ow, 0.0))
                        << " z\" fill=\"" << OUTSIDE << "\" fill-opacity=\"0.12\"/>\n"
                        << "<rect class=\"outside\" data-source=\"" << esc(b->name) << "\" "
                        << geometry(wx + 1, wy + 1, std::max(ww - 2, 0.0), std::max(wh - 2, 0.0))
                        << " fill=\"none\" stroke=\"" << OUTSIDE
                        << "\" stroke-width=\"2\" stroke-dasharray=\"6 3\"/>\n</g>\n";
            }

            std::string line = b->name + ": ";
            if (rank > 0)
                line += "the same window as " + f.windows[same[0]].first->name;
            else
                line += "at " + std::to_string(r[0]) + "," + std::to_string(r[1]) + " size " +
                        size(r[2], r[3]);
            if (out && rank == 0) {
                uint64_t dx = uint64_t{r[0]} + r[2] > f.width ? uint64_t{r[0]} + r[2] - f.width : 0;
                uint64_t dy =
                    uint64_t{r[1]} + r[3] > f.height ? uint64_t{r[1]} + r[3] - f.height : 0;
                line += ", " + std::to_string(dx) + " right and " + std::to_string(dy) +
                        " down outside the " + f.what;
            }
            lines[i] = line;
        }
        std::string clip = "clip-" + std::to_string(ids_++);
        body_ << "<defs><clipPath id=\"" << clip << "\"><rect " << geometry(MARGIN, y, w, h)
              << "/></clipPath></defs>\n<g clip-path=\"url(#" << clip << ")\">\n"
              << inside.str() << "</g>\n"
              << outside.str();
        // Where the overhang begins: the frame's edge, on top.
        if (!outside.str().empty())
            body_ << "<rect class=\"edge\" " << geometry(MARGIN, y, w, h)
                  << " fill=\"none\" stroke=\"#222\" stroke-width=\"2\"/>\n";

        double lx = std::max(LEGEND_X, right + 20), ly = y + 12;
        for (size_t i = 0; i < lines.size(); ++i) {
            const buffer *b = f.windows[i].first;
            const uint32_t *r = f.windows[i].second;
            bool out = uint64_t{r[0]} + r[2] > f.width || uint64_t{r[1]} + r[3] > f.height;
            body_ << "<rect class=\"swatch\" x=\"" << num(lx) << "\" y=\"" << num(ly - 10)
                  << "\" width=\"10\" height=\"10\" fill=\"" << b->colour << "\" stroke=\""
                  << (out ? OUTSIDE : "#333") << "\"/>\n";
            text(lx + 16, ly, lines[i], 12,
                 (" class=\"legend\" data-source=\"" + esc(b->name) + "\" fill=\"#222\"").c_str());
            ly += 16;
        }
        height_ = std::max(bottom, ly) + MARGIN;
    }
};

} // namespace

std::string buffer_name(int chan, int pass, int index)
{
    std::string name = "chan_" + std::to_string(chan) + "." + kiv_src_buf_names[index];
    return pass > 0 ? name + "_" + std::to_string(pass) : name;
}

std::string layout_svg(const kiv_multi_chan_cfg &cfg, const std::string &failure)
{
    return svg_writer(cfg, failure).write();
}

void add_layout(CLI::App &app, int &rc)
{
    struct options {
        std::string file, out, format = "svg";
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "layout", "Draw the configuration: the flow from video sources through channels and "
                  "source buffers to canvases and streams, the pyramids and the memory layout, "
                  "the input windows of each channel, and each canvas with the output windows of "
                  "the buffers bound to it.  A configuration that fails to load is drawn as far "
                  "as it was read, under a banner naming the failure (exit code 1).");
    sub->add_option("FILE", opt->file, "Multi-channel configuration script (-: standard input)")
        ->required();
    sub->add_option("-o,--output", opt->out, "The file to write (none or -: standard output)");
    sub->add_option("--format", opt->format,
                    "svg (the picture) or html (a page with the picture and a panel showing the "
                    "fields and findings of what is clicked)")
        ->check(CLI::IsMember({"svg", "html"}));
    add_script_input(sub);
    add_log_options(sub);
    sub->callback([opt, &rc] {
        std::string failure;
        const script_model m = load_multi_chan(opt->file, &failure);
        const std::string doc =
            opt->format == "html" ? layout_html(m, failure) : layout_svg(*m.cfg, failure);
        write_output(
            opt->out,
            [](FILE *out, const void *text) {
                const auto *s = static_cast<const std::string *>(text);
                fwrite(s->data(), 1, s->size(), out);
            },
            &doc);
        if (!failure.empty())
            std::cerr << "kiv: " << failure << '\n';
        rc = failure.empty() ? EXIT_OK : EXIT_FAILED;
    });
}

} // namespace kivtool
