// What the rules share: adding a finding, numbers and sizes as text, the
// record's channels, canvases and buffers, and the library's own verdict
// (explain.cpp).  Internal to the model.
#ifndef KIV_TOOL_MODEL_RULE_KIT_H
#define KIV_TOOL_MODEL_RULE_KIT_H

#include <algorithm>
#include <string>
#include <vector>

#include "channel/srcbuf.h"
#include "model/rules.h"

namespace kivtool::kit
{

using findings = std::vector<finding>;

void add(findings &out, const char *id, std::string path, std::string message, src_span where);
std::string num(int64_t v);
std::string size_text(uint64_t w, uint64_t h);

// A multi-channel script that loaded: the record's rules have a record.
bool multi(const script_model &m);
// Channels and canvases the record holds, at most as many as it can.
int chans(const kiv_multi_chan_cfg &c);
int canvases(const kiv_multi_chan_cfg &c);
// A buffer's name in a canvas's source ("chan_0.main", "chan_1.second_1")
// and its record path ("channels[0].src_buf[1][0]").
std::string buffer_name(int c, int p, int b);
std::string buffer_path(int c, int p, int b);
// Whether a buffer was given windows.
bool has_windows(const kiv_src_buf_cfg &sb);

// Calls fn(c, p, b, buffer) for every buffer of every pass of every channel.
template <typename F>
void each_buffer(const kiv_multi_chan_cfg &cfg, F fn)
{
    for (int c = 0; c < chans(cfg); ++c)
        for (int p = 0; p < std::min<int>(cfg.channels[c].pass_num, 2); ++p)
            for (int b = 0; b < KIV_SRC_BUF_NUM; ++b)
                fn(c, p, b, cfg.channels[c].src_buf[p][b]);
}

// The library's own verdict (explain.cpp): the load refused, an ERROR a
// load went past, a warning other than a key left to its default.
void load_failed(const script_model &m, findings &out);
void load_error(const script_model &m, findings &out);
void load_warning(const script_model &m, findings &out);

} // namespace kivtool::kit

#endif
