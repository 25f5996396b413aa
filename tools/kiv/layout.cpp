// kiv layout FILE -o OUT.svg.
#include "layout.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>
#include <vector>

#include "canvas/canvas.h"
#include "channel/srcbuf.h"
#include "common.h"
#include "vsrc/vsrc.h"

namespace kivtool
{

namespace
{

// Geometry of the picture, in SVG user units.
constexpr double MARGIN = 20;
constexpr double BOX_W = 170, BOX_H = 36, ROW = 48, COLUMN = 195;
constexpr double HEADER = 30;                      // column titles above the boxes
constexpr double FRAME_W = 640, FRAME_H = 360;     // the largest frame fits this
constexpr double LEGEND_X = MARGIN + FRAME_W + 20; // legends beside the frames
constexpr double CHAR_W = 7;                       // a wide estimate for 12 px text
constexpr double PAGE_W = MARGIN * 2 + COLUMN * 4 + BOX_W;
const char *const OUTSIDE = "#d00000"; // the outline of a window out of its frame

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

// "1:3" for a picture three times smaller than the pixels, "2:1" for one
// twice as large.
std::string ratio(double scale)
{
    return scale <= 1 ? "1:" + num(1 / scale) : num(scale) + ":1";
}

// Colour i of a picture: hues a golden angle apart never repeat, and the
// fixed saturation and lightness keep dark text readable on every one.
std::string colour(size_t i)
{
    const double s = 0.6, l = 0.62;
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

std::string buffer_name(int chan, int pass, int index)
{
    std::string name = "chan_" + std::to_string(chan) + "." + kiv_src_buf_names[index];
    return pass > 0 ? name + "_" + std::to_string(pass) : name;
}

// One source buffer that takes part in the picture.
struct buffer {
    int chan, pass, index;
    std::string name; // chan_<c>.<name> or chan_<c>.<name>_<p>
    const kiv_src_buf_cfg *cfg;
    std::string colour;
};

// A box of the flow diagram: column, row and two lines of text.
struct box {
    double x, y;
    std::string title, detail, fill;
};

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

// The one scale at which the largest of `frames` fits FRAME_W x FRAME_H;
// 0 when none has a size.
double fit(const std::vector<frame> &frames)
{
    double scale = 0;
    for (const frame &f : frames) {
        if (!f.width || !f.height)
            continue;
        double s = std::min(FRAME_W / static_cast<double>(f.width),
                            FRAME_H / static_cast<double>(f.height));
        scale = scale ? std::min(scale, s) : s;
    }
    return scale;
}

class svg_writer
{
  public:
    explicit svg_writer(const kiv_multi_chan_cfg &cfg) : cfg_(cfg), bufs_(buffers_of(cfg)) {}

    std::string write()
    {
        flow();
        std::vector<frame> inputs = input_frames(), canvases = canvas_frames();
        for (const std::vector<frame> *frames : {&inputs, &canvases}) {
            double scale = fit(*frames);
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
    std::ostringstream body_;
    double width_ = PAGE_W, height_ = MARGIN;
    int clips_ = 0;

    void text(double x, double y, const std::string &s, int size_px, const char *extra = "")
    {
        body_ << "<text x=\"" << num(x) << "\" y=\"" << num(y) << "\" font-size=\"" << size_px
              << "\"" << extra << ">" << esc(s) << "</text>\n";
    }

    void draw(const box &b)
    {
        body_ << "<rect class=\"box\" x=\"" << num(b.x) << "\" y=\"" << num(b.y) << "\" width=\""
              << num(BOX_W) << "\" height=\"" << num(BOX_H) << "\" rx=\"4\" fill=\"" << b.fill
              << "\" stroke=\"#333\"/>\n";
        text(b.x + 6, b.y + 15, b.title, 12, " font-weight=\"bold\"");
        text(b.x + 6, b.y + 30, b.detail, 11);
    }

    void arrow(const box &from, const box &to)
    {
        body_ << "<line class=\"flow\" x1=\"" << num(from.x + BOX_W) << "\" y1=\""
              << num(from.y + BOX_H / 2) << "\" x2=\"" << num(to.x) << "\" y2=\""
              << num(to.y + BOX_H / 2) << "\" stroke=\"#555\" marker-end=\"url(#arrow)\"/>\n";
    }

    static box at(int column, size_t row, std::string title, std::string detail,
                  std::string fill = "#f4f4f4")
    {
        return {MARGIN + COLUMN * column, MARGIN + HEADER + ROW * static_cast<double>(row),
                std::move(title), std::move(detail), std::move(fill)};
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

    // Video sources -> channels -> buffers -> canvases -> streams.
    void flow()
    {
        const char *titles[] = {"video sources", "channels", "source buffers", "canvases",
                                "streams"};
        for (int c = 0; c < 5; ++c)
            text(MARGIN + COLUMN * c, MARGIN + 14, titles[c], 14, " font-weight=\"bold\"");

        int chans = std::min<int>(cfg_.chan_num, 3);
        std::map<uint32_t, box> vsrcs; // one box per video source id
        std::vector<box> chan_boxes;
        for (int c = 0; c < chans; ++c) {
            const kiv_channel_cfg &ch = cfg_.channels[c];
            const kiv_vsrc_cfg &v = ch.vsrc;
            if (!vsrcs.count(v.vsrc_id))
                vsrcs.emplace(v.vsrc_id, at(0, vsrcs.size(),
                                            "vsrc " + std::to_string(v.vsrc_id) + ", " +
                                                std::to_string(v.fps) + " fps",
                                            vsrc_detail(v)));
            chan_boxes.push_back(at(1, static_cast<size_t>(c), "chan_" + std::to_string(c),
                                    std::to_string(ch.pass_num) + " pass(es), " +
                                        std::to_string(ch.idsp_fps) + " fps"));
        }
        std::vector<box> buf_boxes;
        for (const buffer &b : bufs_)
            buf_boxes.push_back(at(2, buf_boxes.size(), b.name,
                                   "max " + size(b.cfg->max_output[0], b.cfg->max_output[1]),
                                   b.colour));
        int canvases = std::min<int>(cfg_.canvas_num, 12);
        std::vector<box> canvas_boxes;
        for (int i = 0; i < canvases; ++i) {
            const kiv_canvas_cfg &cv = cfg_.canvas[i];
            std::string detail = size(cv.width, cv.height);
            if (cv.type == 2)
                detail += ", vout " + std::to_string(cv.vout_id);
            canvas_boxes.push_back(at(3, static_cast<size_t>(i),
                                      "canvas " + std::to_string(i) + " (" + type_name(cv) + ")",
                                      detail));
        }
        int streams = std::min<int>(cfg_.stream_num, 13);
        std::vector<box> stream_boxes;
        for (int s = 0; s < streams; ++s) {
            const kiv_stream_cfg &st = cfg_.streams[s];
            stream_boxes.push_back(at(4, static_cast<size_t>(s), "stream " + std::to_string(s),
                                      "max " + size(st.max_width, st.max_height)));
        }

        for (int c = 0; c < chans; ++c)
            arrow(vsrcs.at(cfg_.channels[c].vsrc.vsrc_id), chan_boxes[static_cast<size_t>(c)]);
        for (size_t i = 0; i < bufs_.size(); ++i) {
            arrow(chan_boxes[static_cast<size_t>(bufs_[i].chan)], buf_boxes[i]);
            int cv = bufs_[i].cfg->canvas_id;
            if (cv >= 0 && cv < canvases)
                arrow(buf_boxes[i], canvas_boxes[static_cast<size_t>(cv)]);
        }
        // A stream is fed by the canvases whose bits are set in its
        // possible_enc_src_map.
        for (int s = 0; s < streams; ++s)
            for (int i = 0; i < canvases; ++i)
                if (cfg_.streams[s].possible_enc_src_map & (1u << i))
                    arrow(canvas_boxes[static_cast<size_t>(i)],
                          stream_boxes[static_cast<size_t>(s)]);

        for (const auto &v : vsrcs)
            draw(v.second);
        for (const auto *list : {&chan_boxes, &buf_boxes, &canvas_boxes, &stream_boxes})
            for (const box &b : *list)
                draw(b);

        size_t rows = std::max({vsrcs.size(), chan_boxes.size(), buf_boxes.size(),
                                canvas_boxes.size(), stream_boxes.size(), size_t{1}});
        height_ = MARGIN + HEADER + ROW * static_cast<double>(rows) + MARGIN;
    }

    static std::string type_name(const kiv_canvas_cfg &cv)
    {
        return cv.type < KIV_CANVAS_TYPE_NUM ? kiv_canvas_type_names[cv.type]
                                             : "type " + std::to_string(cv.type);
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
                               .see_through = true});
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
        int canvases = std::min<int>(cfg_.canvas_num, 12);
        for (int i = 0; i < canvases; ++i) {
            const kiv_canvas_cfg &cv = cfg_.canvas[i];
            frame f{.title = "canvas " + std::to_string(i) + " (" + type_name(cv) + ")",
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
    // windows are clipped to the frame; one that reaches outside it is
    // outlined red (only a canvas can have one: an input frame is as large
    // as its windows reach).  A frame without a size is a small placeholder.
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
        std::string geometry = "x=\"" + num(MARGIN) + "\" y=\"" + num(y) + "\" width=\"" + num(w) +
                               "\" height=\"" + num(h) + "\"";
        body_ << "<rect " << f.attrs << " data-scale=\"" << data_scale.str() << "\" " << geometry
              << " fill=\"#eeeeee\" stroke=\"#333\"/>\n";
        std::string clip = "clip-" + std::to_string(clips_++);
        body_ << "<defs><clipPath id=\"" << clip << "\"><rect " << geometry
              << "/></clipPath></defs>\n<g clip-path=\"url(#" << clip << ")\">\n";

        std::ostringstream outlines, legend;
        double ly = y + 12;
        for (const auto &[b, r] : f.windows) {
            bool outside = uint64_t{r[0]} + r[2] > f.width || uint64_t{r[1]} + r[3] > f.height;
            double wx = MARGIN + r[0] * scale, wy = y + r[1] * scale;
            double ww = r[2] * scale, wh = r[3] * scale;
            body_ << "<rect class=\"" << f.window_class << "\" data-source=\"" << esc(b->name)
                  << "\" x=\"" << num(wx) << "\" y=\"" << num(wy) << "\" width=\"" << num(ww)
                  << "\" height=\"" << num(wh) << "\" fill=\"" << b->colour << "\" stroke=\""
                  << (outside         ? OUTSIDE
                      : f.see_through ? b->colour.c_str()
                                      : "#222")
                  << "\"" << (f.see_through ? " fill-opacity=\"0.3\"" : "")
                  << (outside ? " stroke-width=\"2\" data-outside=\"1\"" : "") << "/>\n";
            // The part inside the frame, outlined on top of every window.
            double ox = std::min(wx, MARGIN + w), oy = std::min(wy, y + h);
            double ow = std::min(wx + ww, MARGIN + w) - ox, oh = std::min(wy + wh, y + h) - oy;
            if (outside && ow > 2 && oh > 2)
                outlines << "<rect class=\"outside\" data-source=\"" << esc(b->name) << "\" x=\""
                         << num(ox + 1) << "\" y=\"" << num(oy + 1) << "\" width=\"" << num(ow - 2)
                         << "\" height=\"" << num(oh - 2) << "\" fill=\"none\" stroke=\"" << OUTSIDE
                         << "\" stroke-width=\"2\" stroke-dasharray=\"6 3\"/>\n";

            std::string line = b->name + ": at " + std::to_string(r[0]) + "," +
                               std::to_string(r[1]) + " size " + size(r[2], r[3]) +
                               (outside ? " (outside the canvas)" : "");
            legend << "<rect class=\"swatch\" x=\"" << num(LEGEND_X) << "\" y=\"" << num(ly - 10)
                   << "\" width=\"10\" height=\"10\" fill=\"" << b->colour << "\" stroke=\""
                   << (outside ? OUTSIDE : "#333") << "\"/>\n"
                   << "<text x=\"" << num(LEGEND_X + 16) << "\" y=\"" << num(ly)
                   << "\" font-size=\"12\" fill=\"#222\">" << esc(line) << "</text>\n";
            width_ = std::max(width_, LEGEND_X + 16 + CHAR_W * line.size() + MARGIN);
            ly += 16;
        }
        body_ << outlines.str() << "</g>\n" << legend.str();
        height_ = std::max(y + h, ly) + MARGIN;
    }
};

} // namespace

std::string layout_svg(const kiv_multi_chan_cfg &cfg)
{
    return svg_writer(cfg).write();
}

void add_layout(CLI::App &app, int &rc)
{
    struct options {
        std::string file, out;
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "layout", "Draw the configuration as SVG: the flow from video sources through channels "
                  "and source buffers to canvases and streams, the input windows of each "
                  "channel, and each canvas with the output windows of the buffers bound to it.");
    sub->add_option("FILE", opt->file, "Multi-channel configuration script")->required();
    sub->add_option("-o,--output", opt->out, "The SVG file to write (none or -: standard output)");
    add_log_options(sub);
    sub->callback([opt, &rc] {
        const script_model m = load_multi_chan(opt->file);
        const std::string svg = layout_svg(*m.cfg);
        write_output(
            opt->out,
            [](FILE *out, const void *text) {
                const auto *s = static_cast<const std::string *>(text);
                fwrite(s->data(), 1, s->size(), out);
            },
            &svg);
        rc = EXIT_OK;
    });
}

} // namespace kivtool
