// kiv layout FILE -o OUT.svg.
#include "layout.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
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
constexpr double HEADER = 30;                    // column titles above the boxes
constexpr double CANVAS_W = 640, CANVAS_H = 360; // a canvas is scaled to fit this
constexpr double PAGE_W = MARGIN * 2 + COLUMN * 4 + BOX_W;

const char *const PALETTE[] = {"#4e79a7", "#f28e2b", "#e15759", "#76b7b2", "#59a14f",
                               "#edc948", "#b07aa1", "#ff9da7", "#9c755f", "#8cd17d"};

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

std::string size(uint32_t w, uint32_t h)
{
    return std::to_string(w) + "x" + std::to_string(h);
}

// One source buffer that takes part in the picture.
struct buffer {
    int chan, pass, index;
    std::string name; // chan_<c>.<name> or chan_<c>.<name>_<p>
    const kiv_src_buf_cfg *cfg;
    const char *colour;
};

// A box of the flow diagram: column, row and two lines of text.
struct box {
    double x, y;
    std::string title, detail, fill;
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
                std::string name = "chan_" + std::to_string(c) + "." + kiv_src_buf_names[b];
                if (p > 0)
                    name += "_" + std::to_string(p);
                out.push_back({c, p, b, name, &sb, PALETTE[out.size() % 10]});
            }
        }
    }
    return out;
}

class svg_writer
{
  public:
    explicit svg_writer(const kiv_multi_chan_cfg &cfg) : cfg_(cfg), bufs_(buffers_of(cfg)) {}

    std::string write()
    {
        flow();
        canvases();
        std::ostringstream doc;
        doc << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << num(PAGE_W) << "\" height=\""
            << num(height_) << "\" viewBox=\"0 0 " << num(PAGE_W) << ' ' << num(height_)
            << "\" font-family=\"sans-serif\">\n"
            << "<defs><marker id=\"arrow\" viewBox=\"0 0 10 10\" refX=\"10\" refY=\"5\" "
               "markerWidth=\"7\" markerHeight=\"7\" orient=\"auto\"><path d=\"M0,0 L10,5 L0,10 "
               "z\" fill=\"#555\"/></marker></defs>\n"
            << "<rect x=\"0\" y=\"0\" width=\"" << num(PAGE_W) << "\" height=\"" << num(height_)
            << "\" fill=\"#ffffff\"/>\n"
            << body_.str() << "</svg>\n";
        return doc.str();
    }

  private:
    const kiv_multi_chan_cfg &cfg_;
    std::vector<buffer> bufs_;
    std::ostringstream body_;
    double height_ = MARGIN;

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
                  const char *fill = "#f4f4f4")
    {
        return {MARGIN + COLUMN * column, MARGIN + HEADER + ROW * static_cast<double>(row),
                std::move(title), std::move(detail), fill};
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
            if (!vsrcs.count(v.vsrc_id)) {
                std::string detail;
                if (v.mode == VIN_MODE_VIRTUAL) {
                    detail = "virtual " + size(v.virt_mode_cfg.width, v.virt_mode_cfg.height);
                } else {
                    char mode[16];
                    snprintf(mode, sizeof mode, "0x%x", static_cast<unsigned>(v.mode));
                    detail = std::string("mode ") + mode;
                }
                detail += ", " + std::to_string(v.fps) + " fps";
                vsrcs.emplace(v.vsrc_id,
                              at(0, vsrcs.size(), "vsrc " + std::to_string(v.vsrc_id), detail));
            }
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

    // Each canvas at its size, scaled to fit CANVAS_W x CANVAS_H, with the
    // output window of every buffer bound to it and a legend beside it.
    void canvases()
    {
        int canvases = std::min<int>(cfg_.canvas_num, 12);
        for (int i = 0; i < canvases; ++i) {
            const kiv_canvas_cfg &cv = cfg_.canvas[i];
            double y = height_ + 10;
            text(MARGIN, y + 14,
                 "canvas " + std::to_string(i) + " (" + type_name(cv) + "), " +
                     size(cv.width, cv.height),
                 14, " font-weight=\"bold\"");
            y += 24;
            double scale = 0;
            if (cv.width && cv.height)
                scale = std::min(CANVAS_W / cv.width, CANVAS_H / cv.height);
            double w = scale ? cv.width * scale : CANVAS_W / 4;
            double h = scale ? cv.height * scale : CANVAS_H / 4;
            body_ << "<rect class=\"canvas\" data-canvas=\"" << i << "\" data-scale=\"" << scale
                  << "\" x=\"" << num(MARGIN) << "\" y=\"" << num(y) << "\" width=\"" << num(w)
                  << "\" height=\"" << num(h) << "\" fill=\"#eeeeee\" stroke=\"#333\"/>\n";
            double legend = y + 12;
            for (const buffer &b : bufs_) {
                if (b.cfg->canvas_id != i)
                    continue;
                const uint32_t *o = b.cfg->output;
                double wx = MARGIN + o[0] * scale, wy = y + o[1] * scale;
                body_ << "<rect class=\"window\" data-source=\"" << esc(b.name) << "\" x=\""
                      << num(wx) << "\" y=\"" << num(wy) << "\" width=\"" << num(o[2] * scale)
                      << "\" height=\"" << num(o[3] * scale) << "\" fill=\"" << b.colour
                      << "\" stroke=\"#222\"/>\n";
                text(wx + 4, wy + 14, b.name, 12);
                text(MARGIN + CANVAS_W + 20, legend,
                     b.name + ": at " + std::to_string(o[0]) + "," + std::to_string(o[1]) +
                         " size " + size(o[2], o[3]),
                     12, (std::string(" fill=\"") + b.colour + "\"").c_str());
                legend += 16;
            }
            height_ = std::max(y + h, legend) + MARGIN;
        }
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
                  "and source buffers to canvases and streams, and each canvas with the output "
                  "windows of the buffers bound to it.");
    sub->add_option("FILE", opt->file, "Multi-channel configuration script")->required();
    sub->add_option("-o,--output", opt->out, "The SVG file to write")->required();
    sub->callback([opt, &rc] {
        require_writable(opt->out);
        auto cfg = std::make_unique<kiv_multi_chan_cfg>();
        load_multi_chan(opt->file, *cfg);
        std::ofstream out(opt->out, std::ios::binary | std::ios::trunc);
        out << layout_svg(*cfg);
        out.close();
        if (!out)
            throw io_error("cannot write " + opt->out + ": " + strerror(errno));
        rc = EXIT_OK;
    });
}

} // namespace kivtool
