#include "model/rules.h"

#include "model/rule_kit.h"

#include <algorithm>

#include "model/names.h"
#include "records.h"
#include "render.h"
#include "vsrc/vsrc.h"

namespace kivtool
{

const char *severity_name(severity s)
{
    switch (s) {
    case severity::info:
        return "info";
    case severity::warning:
        return "warning";
    case severity::error:
        return "error";
    }
    return "error";
}

namespace kit
{

void add(findings &out, const char *id, std::string path, std::string message, src_span where)
{
    out.push_back({find_rule(id), std::move(path), std::move(message), where, {}});
}

std::string num(int64_t v)
{
    return std::to_string(v);
}

std::string size_text(uint64_t w, uint64_t h)
{
    return num(static_cast<int64_t>(w)) + "x" + num(static_cast<int64_t>(h));
}

bool multi(const script_model &m)
{
    return m.kind == kiv_kind::multi_chan && m.result == 0;
}

int chans(const kiv_multi_chan_cfg &c)
{
    return std::min<int>(c.chan_num, 3);
}

int canvases(const kiv_multi_chan_cfg &c)
{
    return std::min<int>(c.canvas_num, 12);
}

std::string buffer_name(int c, int p, int b)
{
    std::string n = "chan_" + num(c) + "." + kiv_src_buf_names[b];
    return p ? n + "_" + num(p) : n;
}

std::string buffer_path(int c, int p, int b)
{
    return "channels[" + num(c) + "].src_buf[" + num(p) + "][" + num(b) + "]";
}

bool has_windows(const kiv_src_buf_cfg &sb)
{
    return sb.max_output[0] || sb.max_output[1] ||
           std::any_of(sb.input, sb.input + 4, [](uint32_t v) { return v; }) ||
           std::any_of(sb.output, sb.output + 4, [](uint32_t v) { return v; });
}

} // namespace kit

namespace
{

using namespace kit;

// ---------------------------------------------------------------------------
// Keys, as the loader read them.

// A key of a table the loader read to its end that it did not read; in a
// table whose reading stopped at a missing table or array (a buffer without
// `input`), only a key that is that one misspelt.
void unreached_key(const script_model &m, findings &out);

void unknown_key(const script_model &m, findings &out)
{
    for (const read_table &t : m.tables) {
        if (!t.whole && t.stopped_at.empty())
            continue;
        for (const std::string &k : t.unread()) {
            std::string hint = did_you_mean(k, t.missing);
            if (!t.whole && nearest_name(k, {t.stopped_at}).empty())
                continue;
            // A key the loader reads in another table.
            auto elsewhere = m.read_in.find(k);
            if (hint.empty() && elsewhere != m.read_in.end() && elsewhere->second != t.path)
                hint = "; it is read in " + (elsewhere->second.empty()
                                                 ? std::string("the top-level table")
                                                 : elsewhere->second);
            // Where the key was written: followed by the evaluator (a key a
            // loop takes from a list is placed in the list), else written
            // in the table or patched in afterwards.
            src_span where;
            if (m.flow && t.flowed)
                if (const flow_value v = m.flow->field(t.flowed, k); v.key)
                    where = m.flow->written_at(v.key).where;
            const src_field *f = where.none() ? field_of(m.source, t.ctor, k.c_str(), -1) : nullptr;
            if (f)
                where = f->key;
            for (int32_t i : f || !where.none() ? std::vector<int32_t>{} : m.assignments_to(k))
                where = m.source.assignments[static_cast<size_t>(i)].key;
            const std::string what = t.whole ? "no loader reads `" + k + "` here: it is ignored"
                                             : "no loader reads `" + k +
                                                   "` here, and the table "
                                                   "is read no further without `" +
                                                   t.stopped_at + "`";
            add(out, "unknown-key", t.path.empty() ? k : t.path + "." + k, what + hint, where);
        }
    }
    unreached_key(m, out);
}

// A key of a table the loader never reads (defaults, overrides, a
// description) that no copy takes to the configuration, while its other
// keys are taken, and that is near a key the loader reads: a misspelling
// that a merge drops without a word.
void unreached_key(const script_model &m, findings &out)
{
    // Only a load read to its end tells what reaches the configuration.
    if (!m.flow || m.result != 0 || !m.ran)
        return;
    std::vector<const flow::table *> read;
    for (const read_table &t : m.tables)
        if (t.flowed)
            read.push_back(t.flowed);
    std::vector<std::string> known;
    for (const auto &[name, in] : m.read_in)
        known.push_back(name);
    for (const auto &[key, where] : m.flow->unreached_keys(read)) {
        if (m.read_in.count(key))
            continue;
        const std::string near = nearest_name(key, known);
        if (near.empty())
            continue;
        add(out, "unknown-key", key,
            "no loader reads `" + key +
                "`, and no copy takes it to a table one reads: did you "
                "mean `" +
                near + "`? (it is read in " +
                (m.read_in.at(near).empty() ? std::string("the top-level table")
                                            : m.read_in.at(near)) +
                ")",
            where);
    }
}

void slips(const script_model &m, findings &out, bool wrong_type)
{
    for (const script_model::slip &s : m.slips)
        if (s.wrong_type == wrong_type)
            add(out, wrong_type ? "wrong-type" : "truncated-value", s.path, s.message, s.where);
}

void wrong_type(const script_model &m, findings &out)
{
    slips(m, out, true);
}

void truncated_value(const script_model &m, findings &out)
{
    slips(m, out, false);
}

void duplicate_id(const script_model &m, findings &out)
{
    for (const script_model::duplicate &d : m.duplicates) {
        // Channels with one id fail the load, which says so.
        if (d.list == "channels" && m.result != 0)
            continue;
        for (size_t i = 1; i < d.where.size(); ++i) {
            add(out, "duplicate-id", d.list + "[" + num(d.id) + "]",
                "another " + (d.list == "streams" ? std::string("stream") : "channel") +
                    " has the id " + num(d.id) + " (the first is at line " +
                    num(d.where[0].begin.line) + "): it replaces the first, which is lost",
                d.where[i]);
            out.back().related.push_back({d.where[0], "the first with this id"});
        }
    }
}

// ---------------------------------------------------------------------------
// The record as loaded: what loads but cannot work as meant.

// Whether the load logged an ERROR while it read `path` or inside it: the
// part was left partly read, and a rule about its values would judge
// values that were never read.
bool cut_short(const script_model &m, const std::string &path)
{
    for (const log_line &l : m.log)
        if (l.level == 0 &&
            (l.path == path || l.path.starts_with(path + ".") || l.path.starts_with(path + "[")))
            return true;
    return false;
}

// A window as the script wrote it, with what was stored when that differs
// ({-100, 0, 640, 360} is stored as {4294967196, 0, 640, 360}).
// Where element `i` (0-based) of the array at a record path was written,
// when the evaluator followed it and that is outside the array's own place;
// none otherwise.
src_span element_place(const script_model &m, const std::string &path, int i)
{
    const place *p = m.flow ? m.place_at(path) : nullptr;
    if (!p || !p->table)
        return {};
    const flow_value v = m.flow->element(p->table, i + 1);
    if (!v.origin)
        return {};
    const src_span s = m.flow->written_at(v.origin).where;
    if (s.none() ||
        (s.begin.offset >= p->where.begin.offset && s.end.offset <= p->where.end.offset))
        return {};
    return s;
}

std::string window_text(const script_model &m, const std::string &path, const uint32_t *w)
{
    const std::string stored =
        "{" + num(w[0]) + ", " + num(w[1]) + ", " + num(w[2]) + ", " + num(w[3]) + "}";
    const place *at = m.place_at(path);
    if (!at || !at->present)
        return stored;
    std::string written = m.written(at->value);
    if (written.size() > 60 || written.find('\n') != std::string::npos || !written_out(written))
        return stored;
    std::string compact;
    for (char ch : written)
        if (ch != ' ' && ch != '\t')
            compact += ch;
    std::string plain;
    for (char ch : stored)
        if (ch != ' ')
            plain += ch;
    return compact == plain ? stored : written + " (stored as " + stored + ")";
}

void vsrc_conflict(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    const record_desc *vsrc_desc = nullptr;
    for (const field &f : multi_chan_desc().members)
        if (std::string(f.name) == "channels")
            for (const field &cf : f.elem->rec->members)
                if (std::string(cf.name) == "vsrc")
                    vsrc_desc = cf.rec;
    for (int j = 0; j < chans(cfg); ++j) {
        const kiv_vsrc_cfg &vj = cfg.channels[j].vsrc;
        for (int i = 0; i < j; ++i) {
            const kiv_vsrc_cfg &vi = cfg.channels[i].vsrc;
            if (vi.vsrc_id != vj.vsrc_id)
                continue;
            std::vector<leaf_value> a = flatten(*vsrc_desc, &vi), b = flatten(*vsrc_desc, &vj);
            for (size_t k = 0; k < a.size(); ++k) {
                if (a[k].value == b[k].value)
                    continue;
                const std::string path = "channels[" + num(j) + "].vsrc";
                add(out, "vsrc-conflict", path,
                    "vsrc_id " + num(vj.vsrc_id) + " is channel " + num(i) +
                        "'s source too, which differs in " + a[k].path + " (" + a[k].value +
                        ", here " + b[k].value + "): the dump writes vsrc_" + num(vj.vsrc_id) +
                        " once, from channel " + num(i),
                    m.where(path + "." + a[k].path));
                break;
            }
            break;
        }
    }
}

void unbound_buffer(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    each_buffer(*m.cfg, [&](int c, int p, int b, const kiv_src_buf_cfg &sb) {
        if (sb.canvas_id == -1 && has_windows(sb))
            add(out, "unbound-buffer", buffer_path(c, p, b),
                buffer_name(c, p, b) + " has windows but no canvas names it: the dump writes it as "
                                       "zeros",
                m.where(buffer_path(c, p, b)));
    });
}

void output_over_max(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    each_buffer(*m.cfg, [&](int c, int p, int b, const kiv_src_buf_cfg &sb) {
        if (sb.canvas_id == -1 ||
            (sb.output[2] <= sb.max_output[0] && sb.output[3] <= sb.max_output[1]))
            return;
        const std::string path = buffer_path(c, p, b) + ".output";
        add(out, "output-over-max", path,
            "the output window " + size_text(sb.output[2], sb.output[3]) +
                " is larger than max_output " + size_text(sb.max_output[0], sb.max_output[1]),
            m.where(path));
    });
}

// Whether another buffer's output window on the same canvas, one that fits
// in it, ends where this one begins, left of it or above it.
bool beside_another(const kiv_multi_chan_cfg &cfg, int c, int p, int b, const kiv_src_buf_cfg &sb)
{
    bool beside = false;
    each_buffer(cfg, [&](int c2, int p2, int b2, const kiv_src_buf_cfg &o) {
        const kiv_canvas_cfg &cv = cfg.canvas[sb.canvas_id];
        if ((c2 == c && p2 == p && b2 == b) || o.canvas_id != sb.canvas_id || !has_windows(o) ||
            uint64_t{o.output[0]} + o.output[2] > cv.width ||
            uint64_t{o.output[1]} + o.output[3] > cv.height)
            return;
        beside = beside || (sb.output[0] > 0 && o.output[0] + o.output[2] == sb.output[0]) ||
                 (sb.output[1] > 0 && o.output[1] + o.output[3] == sb.output[1]);
    });
    return beside;
}

void window_outside_canvas(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    each_buffer(cfg, [&](int c, int p, int b, const kiv_src_buf_cfg &sb) {
        if (sb.canvas_id < 0 || sb.canvas_id >= canvases(cfg))
            return;
        const kiv_canvas_cfg &cv = cfg.canvas[sb.canvas_id];
        const uint64_t right = uint64_t{sb.output[0]} + sb.output[2];
        const uint64_t bottom = uint64_t{sb.output[1]} + sb.output[3];
        if (right <= cv.width && bottom <= cv.height)
            return;
        const std::string path = buffer_path(c, p, b) + ".output";
        add(out, "window-outside-canvas", path,
            buffer_name(c, p, b) + "'s output window " + window_text(m, path, sb.output) +
                " reaches (" + num(static_cast<int64_t>(right)) + ", " +
                num(static_cast<int64_t>(bottom)) + "), beyond canvas " + num(sb.canvas_id) + " (" +
                size_text(cv.width, cv.height) + ")",
            m.where(path));
        // The canvas is the side at fault when the window could not fit
        // even at its corner, or when it stands beside another window of
        // the canvas (a row or a column of views the canvas is too small
        // for); else the window's place is.
        const place *size = m.place_at("canvas[" + num(sb.canvas_id) + "].size");
        if (!size || !size->present)
            return;
        const bool too_small =
            sb.output[2] > cv.width || sb.output[3] > cv.height || beside_another(cfg, c, p, b, sb);
        finding &f = out.back();
        const src_span window = f.where;
        f.where = too_small ? size->where : window;
        f.related.push_back(too_small ? related_place{window, "the window"}
                                      : related_place{size->where, "the canvas's size"});
    });
}

void overlapping_windows(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    struct placed {
        std::string name;
        const uint32_t *out;
    };
    std::vector<std::vector<placed>> on(12);
    each_buffer(*m.cfg, [&](int c, int p, int b, const kiv_src_buf_cfg &sb) {
        if (sb.canvas_id < 0 || sb.canvas_id >= canvases(*m.cfg))
            return;
        const uint64_t right = uint64_t{sb.output[0]} + sb.output[2];
        const uint64_t bottom = uint64_t{sb.output[1]} + sb.output[3];
        for (const placed &o : on[static_cast<size_t>(sb.canvas_id)]) {
            const uint64_t l = std::max(o.out[0], sb.output[0]),
                           t = std::max(o.out[1], sb.output[1]);
            const uint64_t r = std::min(uint64_t{o.out[0]} + o.out[2], right);
            const uint64_t bm = std::min(uint64_t{o.out[1]} + o.out[3], bottom);
            if (l < r && t < bm) {
                const std::string path = buffer_path(c, p, b) + ".output";
                add(out, "overlapping-windows", path,
                    buffer_name(c, p, b) + "'s output window overlaps " + o.name + "'s on canvas " +
                        num(sb.canvas_id),
                    m.where(path));
            }
        }
        on[static_cast<size_t>(sb.canvas_id)].push_back({buffer_name(c, p, b), sb.output});
    });
}

// The picture a video source gives: its virtual mode's size, or the size
// its mode's name states ("1080p" is mode 40, which "1920x1080" names too).
bool source_size(const kiv_vsrc_cfg &v, uint32_t &w, uint32_t &h)
{
    if (v.virt_mode_cfg_enable) {
        w = v.virt_mode_cfg.width;
        h = v.virt_mode_cfg.height;
        return w && h;
    }
    for (const kiv_name_id &row : vin_mode_table)
        if (row.id == v.mode && v.mode > 0 && sscanf(row.name, "%ux%u", &w, &h) == 2)
            return true;
    return false;
}

void input_outside_source(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    each_buffer(*m.cfg, [&](int c, int p, int b, const kiv_src_buf_cfg &sb) {
        uint32_t w = 0, h = 0;
        if (p != 0 || !has_windows(sb) || !source_size(m.cfg->channels[c].vsrc, w, h))
            return;
        const uint64_t right = uint64_t{sb.input[0]} + sb.input[2];
        const uint64_t bottom = uint64_t{sb.input[1]} + sb.input[3];
        if (right <= w && bottom <= h)
            return;
        const std::string path = buffer_path(c, p, b) + ".input";
        add(out, "input-outside-source", path,
            buffer_name(c, p, b) + "'s input window " + window_text(m, path, sb.input) +
                " reaches (" + num(static_cast<int64_t>(right)) + ", " +
                num(static_cast<int64_t>(bottom)) + "), beyond the " + size_text(w, h) +
                " picture of its source",
            m.where(path));
        // The number that reaches too far, where it was written when that
        // is elsewhere (a sensor's size copied into the window): its width
        // or height when the window starts at the picture's edge or alone
        // is too large, else its offset.
        const bool across = right > w;
        const int size_at = across ? 2 : 3;
        const uint32_t offset = sb.input[size_at - 2], extent = sb.input[size_at];
        const int at = offset == 0 || extent > (across ? w : h) ? size_at : size_at - 2;
        if (const src_span s = element_place(m, path, at); !s.none()) {
            finding &f = out.back();
            f.related.push_back({f.where, "the window"});
            f.where = s;
        }
    });
}

// A rate as the script gave it: thousandths with enable_hp_fps, else whole
// frames.
std::string rate_text(bool hp, uint32_t thousandths)
{
    if (!hp)
        return num(thousandths / 1000);
    return num(thousandths);
}

void resample_above_source(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    for (int c = 0; c < chans(cfg); ++c) {
        const kiv_channel_cfg &ch = cfg.channels[c];
        if (!ch.idsp_fps_hp || !ch.vsrc.fps_hp || ch.idsp_fps_hp <= ch.vsrc.fps_hp)
            continue;
        const std::string path = "channels[" + num(c) + "].idsp_fps";
        add(out, "resample-above-source", path,
            "idsp_fps " + rate_text(cfg.enable_hp_fps, ch.idsp_fps_hp) +
                " is above the frame rate of the channel's source (fps " +
                rate_text(cfg.enable_hp_fps, ch.vsrc.fps_hp) +
                "): a channel cannot make frames its source does not give",
            m.where(path));
    }
}

// Whether a rate is written in the other unit than enable_hp_fps says:
// with it set, a rate below one frame per second (30 for 30 frames); without
// it, a million frames per second or more (30000 for 30).
bool other_unit(bool hp, uint32_t thousandths)
{
    return hp ? thousandths < 1000 : thousandths >= 1000000;
}

// The frame rate a channel delivers and the field that sets it: its
// resampling rate when it resamples below its source, else its source's
// (a channel resampling above it gives no more: resample-above-source says
// so); 0 when neither is given.
struct delivered {
    uint32_t thousandths = 0;
    std::string path;
};

delivered channel_rate(const kiv_channel_cfg &ch, int c)
{
    const std::string at = "channels[" + num(c) + "]";
    if (ch.idsp_fps_hp && (!ch.vsrc.fps_hp || ch.idsp_fps_hp < ch.vsrc.fps_hp))
        return {ch.idsp_fps_hp, at + ".idsp_fps"};
    return {ch.vsrc.fps_hp, at + ".vsrc.fps"};
}

// A canvas whose frame_rate is above what the fastest of the channels that
// feed it delivers.  A canvas without a rate runs at its channels' rate; a
// source whose rate is unknown, or written in the other unit than the
// canvas's (rate-units says so), is not compared.
void rate_above_source(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    const bool hp = cfg.enable_hp_fps;
    for (int i = 0; i < canvases(cfg); ++i) {
        const uint32_t rate = cfg.canvas[i].frame_rate_hp;
        if (rate == 0)
            continue;
        std::vector<int> fed_by;
        each_buffer(cfg, [&](int c, int, int, const kiv_src_buf_cfg &sb) {
            if (sb.canvas_id == i && std::find(fed_by.begin(), fed_by.end(), c) == fed_by.end())
                fed_by.push_back(c);
        });
        int fastest = -1;
        delivered best;
        bool comparable = !fed_by.empty();
        for (int c : fed_by) {
            const delivered d = channel_rate(cfg.channels[c], c);
            comparable = comparable && d.thousandths &&
                         other_unit(hp, d.thousandths) == other_unit(hp, rate);
            if (d.thousandths > best.thousandths) {
                best = d;
                fastest = c;
            }
        }
        if (!comparable || rate <= best.thousandths)
            continue;
        const src_span from = m.where(best.path);
        const std::string path = "canvas[" + num(i) + "].frame_rate";
        add(out, "rate-above-source", path,
            "frame_rate " + rate_text(hp, rate) + " is above the frame rate of its " +
                (fed_by.size() == 1 ? "source" : "fastest source") + ", chan_" + num(fastest) +
                ", which delivers " + rate_text(hp, best.thousandths) + " (" + best.path +
                (from.none() ? std::string() : " at line " + num(from.begin.line)) +
                "): a canvas cannot show frames its sources do not give",
            m.where(path));
    }
}

// Rates written in the other unit than enable_hp_fps says: with it set,
// 30 is 0.03 frames per second; without it, 30000 is thirty thousand.  When
// every rate of the script is in the other unit, the flag is what is wrong:
// one finding there; otherwise one at each rate that stands out.
void rate_units(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    const bool hp = cfg.enable_hp_fps;
    struct rate {
        std::string path;
        uint32_t thousandths;
    };
    std::vector<rate> rates;
    for (int c = 0; c < chans(cfg); ++c) {
        const kiv_channel_cfg &ch = cfg.channels[c];
        const std::string at = "channels[" + num(c) + "]";
        rates.push_back({at + ".vsrc.fps", ch.vsrc.fps_hp});
        rates.push_back({at + ".idsp_fps", ch.idsp_fps_hp});
        rates.push_back({at + ".pyramid.frame_rate", ch.pyramid.frame_rate_hp});
    }
    for (int i = 0; i < canvases(cfg); ++i)
        rates.push_back({"canvas[" + num(i) + "].frame_rate", cfg.canvas[i].frame_rate_hp});
    std::erase_if(rates, [](const rate &r) { return r.thousandths == 0; });
    auto odd = [&](const rate &r) { return other_unit(hp, r.thousandths); };
    const size_t n = static_cast<size_t>(std::count_if(rates.begin(), rates.end(), odd));
    if (n == 0)
        return;
    const char *unit = hp ? "in thousandths of a frame per second" : "in whole frames per second";
    if (n == rates.size() && n > 1) {
        const rate &r = rates.front();
        add(out, "rate-units", "enable_hp_fps",
            std::string("enable_hp_fps = ") + (hp ? "1" : "0") + " makes every rate " + unit +
                ", but all " + num(static_cast<int64_t>(n)) + " rates are written " +
                (hp ? "in whole frames (" + r.path + " = " + num(r.thousandths) + " is " +
                          num(r.thousandths) + "/1000 frames per second): give enable_hp_fps = 0"
                    : "in thousandths (" + r.path + " = " + num(r.thousandths / 1000) +
                          "): give enable_hp_fps = 1"),
            m.where("enable_hp_fps"));
        return;
    }
    for (const rate &r : rates) {
        if (!odd(r))
            continue;
        add(out, "rate-units", r.path,
            hp ? "with enable_hp_fps = 1 rates are " + std::string(unit) + ": " +
                     num(r.thousandths) + " is " + num(r.thousandths) +
                     "/1000 frames per second; write " + num(r.thousandths * 1000) + " for " +
                     num(r.thousandths)
               : "without enable_hp_fps = 1 rates are " + std::string(unit) + ": " +
                     num(r.thousandths / 1000) + " frames per second",
            m.where(r.path));
    }
}

void pyramid_source(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    for (int c = 0; c < chans(cfg); ++c) {
        const std::string at = "channels[" + num(c) + "].pyramid";
        const place *read = m.place_at(at);
        if (!read || !read->present || cut_short(m, at))
            continue;
        const uint32_t b = cfg.channels[c].pyramid.input_buf_id;
        if (b < KIV_SRC_BUF_NUM && has_windows(cfg.channels[c].src_buf[0][b]))
            continue;
        add(out, "pyramid-source", at + ".input_buf_id",
            "input_buf_id " + num(b) + " names " +
                (b < KIV_SRC_BUF_NUM ? buffer_name(c, 0, static_cast<int>(b)) +
                                           ", which the channel does not configure"
                                     : std::string("no source buffer (0 to 6)")) +
                ": the pyramid has no picture to scale",
            m.where(at + ".input_buf_id"));
    }
}

void enc_src_canvas(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    for (int s = 0; s < std::min<int>(cfg.stream_num, 13); ++s) {
        const kiv_stream_cfg &st = cfg.streams[s];
        for (int c = 0; c < 16; ++c) {
            if (!(st.possible_enc_src_map >> c & 1) || c < canvases(cfg))
                continue;
            const std::string path = "streams[" + num(s) + "].possible_enc_src_map";
            add(out, "enc-src-canvas", path,
                "possible_enc_src_map names canvas " + num(c) + ", but there " +
                    (canvases(cfg) == 1 ? "is 1 canvas"
                                        : "are " + num(canvases(cfg)) + " canvases") +
                    " (bit c is canvas c)",
                m.where(path));
            break;
        }
    }
}

void canvas_without_stream(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    // Only a script that gives the streams their canvases says which
    // canvases no stream encodes.
    bool mapped = false;
    for (int s = 0; s < std::min<int>(cfg.stream_num, 13); ++s)
        mapped = mapped || cfg.streams[s].possible_enc_src_map != 0;
    if (!mapped)
        return;
    for (int c = 0; c < canvases(cfg); ++c) {
        if (cfg.canvas[c].type != 1)
            continue;
        bool fed = false;
        for (int s = 0; s < std::min<int>(cfg.stream_num, 13); ++s)
            fed = fed || (cfg.streams[s].possible_enc_src_map >> c & 1);
        if (!fed)
            add(out, "canvas-without-stream", "canvas[" + num(c) + "]",
                "encode canvas " + num(c) +
                    " is in no stream's possible_enc_src_map: nothing encodes it",
                m.where("canvas[" + num(c) + "].type"));
    }
}

void stream_over_canvas(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    for (int s = 0; s < std::min<int>(cfg.stream_num, 13); ++s) {
        const kiv_stream_cfg &st = cfg.streams[s];
        uint32_t largest_w = 0, largest_h = 0;
        bool any = false, fits = false;
        for (int c = 0; c < canvases(cfg); ++c) {
            if (!(st.possible_enc_src_map >> c & 1))
                continue;
            any = true;
            fits = fits ||
                   (st.max_width <= cfg.canvas[c].width && st.max_height <= cfg.canvas[c].height);
            largest_w = std::max(largest_w, cfg.canvas[c].width);
            largest_h = std::max(largest_h, cfg.canvas[c].height);
        }
        if (!any || fits)
            continue;
        const std::string path = "streams[" + num(s) + "].max_size";
        add(out, "stream-over-canvas", path,
            "max_size " + size_text(st.max_width, st.max_height) +
                " is larger than every canvas the stream may encode from (the largest is " +
                size_text(largest_w, largest_h) + ")",
            m.where(path));
    }
}

void mem_below_use(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    const kiv_mem_cfg_resource &mem = cfg.resource_mem_layout;
    if ((mem.max_chan_num == 0 && mem.max_stream_num == 0) || cut_short(m, "resource_mem_layout"))
        return;
    for (int c = 0; c < chans(cfg); ++c) {
        uint32_t w = 0, h = 0;
        const std::string at = "resource_mem_layout.channels_mem[" + num(c) + "]";
        if (c >= static_cast<int>(mem.max_chan_num)) {
            add(out, "mem-below-use", "resource_mem_layout.max_chan_num",
                "max_chan_num " + num(mem.max_chan_num) + " reserves nothing for channel " + num(c),
                m.where("resource_mem_layout.max_chan_num"));
            break;
        }
        const uint32_t *vin = mem.channels_mem[c].max_vin;
        if (source_size(cfg.channels[c].vsrc, w, h) && (vin[0] < w || vin[1] < h))
            add(out, "mem-below-use", at + ".max_vin",
                "max_vin " + size_text(vin[0], vin[1]) + " is smaller than the " + size_text(w, h) +
                    " picture of channel " + num(c) + "'s source",
                m.where(at + ".max_vin"));
    }
    for (int s = 0; s < std::min<int>(cfg.stream_num, 13); ++s) {
        const kiv_stream_cfg &st = cfg.streams[s];
        const std::string at = "resource_mem_layout.streams_mem[" + num(s) + "]";
        if (s >= static_cast<int>(mem.max_stream_num)) {
            add(out, "mem-below-use", "resource_mem_layout.max_stream_num",
                "max_stream_num " + num(mem.max_stream_num) + " reserves nothing for stream " +
                    num(s),
                m.where("resource_mem_layout.max_stream_num"));
            break;
        }
        const uint32_t *ms = mem.streams_mem[s].max_stream;
        if (ms[0] < st.max_width || ms[1] < st.max_height)
            add(out, "mem-below-use", at + ".max_stream",
                "max_stream " + size_text(ms[0], ms[1]) + " is smaller than stream " + num(s) +
                    "'s max_size " + size_text(st.max_width, st.max_height),
                m.where(at + ".max_stream"));
    }
}

bool covered(const findings &fs, const std::string &path)
{
    for (const finding &f : fs)
        if (!f.path.empty() &&
            (path == f.path || path.starts_with(f.path + ".") || path.starts_with(f.path + "[")))
            return true;
    return false;
}

// Fields that differ after a dump and a load of the dump.
void lossy_round_trip(const script_model &m, findings &out)
{
    if (!multi(m))
        return;
    const kiv_multi_chan_cfg &cfg = *m.cfg;
    auto again = std::make_unique<kiv_multi_chan_cfg>();
    kiv_init(again.get());
    const std::string text = dump_text(cfg);
    int32_t ret = load_quietly(m.file + " (its dump)", text, again.get());
    if (ret != 0) {
        add(out, "lossy-round-trip", "",
            "the dump of this record does not load (result " + num(ret) + ")", {});
        return;
    }
    // Streams are dumped by position: ids with a gap move or lose streams.
    const int streams = std::min<int>(cfg.stream_num, 13);
    bool gap = false;
    for (int s = streams; s < 13; ++s)
        gap = gap || cfg.streams[s].max_width || cfg.streams[s].max_height;
    std::vector<leaf_value> a = flatten(multi_chan_desc(), &cfg),
                            b = flatten(multi_chan_desc(), again.get());
    const findings before = out;
    // Streams that share an id move in the dump: duplicate-id says why.
    const bool moved = std::any_of(m.duplicates.begin(), m.duplicates.end(),
                                   [](const auto &d) { return d.list == "streams"; });
    for (size_t k = 0; k < a.size(); ++k) {
        if (a[k].value == b[k].value || covered(before, a[k].path) ||
            (moved && a[k].path.starts_with("streams[")))
            continue;
        std::string path = a[k].path, why;
        if (path.ends_with(".vsrc.calib_data")) {
            why = "the format has no place for calib_data: the dump leaves it out";
        } else if (gap && path.starts_with("streams[")) {
            if (covered(out, "streams"))
                continue;
            path = "streams";
            why = "the stream ids have a gap: the dump writes the " + num(streams) +
                  " streams as stream_0 to stream_" + num(streams - 1) +
                  " by position, so they load back changed";
            // Placed at the id that makes the gap: the least one past the
            // count, where it was written.
            for (int s = streams; s < 13; ++s)
                if (cfg.streams[s].max_width || cfg.streams[s].max_height) {
                    if (const place *p = m.place_at("streams[" + num(s) + "].id");
                        p && p->present) {
                        add(out, "lossy-round-trip", path,
                            why + " (id " + num(s) + " is past them)", p->where);
                        why.clear();
                    }
                    break;
                }
            if (why.empty())
                continue;
        } else {
            why = "is " + a[k].value + ", " + b[k].value + " after a dump and a load";
        }
        add(out, "lossy-round-trip", path, why, m.where(path));
    }
}

// The other places on the way of a finding's value: where it came from
// before the finding's place ("taken from here": the description a field
// copies), where it was copied after ("copied here": a helper's or a
// merge's store), at most one per line and four in all.  Operations and a
// loop's variable are left out: the value's own places tell the way.
std::vector<related_place> copies_of(const script_model &m, const finding &f)
{
    std::vector<related_place> out;
    const place *p = m.flow && !f.path.empty() && !f.where.none() ? m.place_at(f.path) : nullptr;
    if (!p || !p->origin || p->where.begin.offset != f.where.begin.offset)
        return out;
    const std::vector<flow_step> way = m.flow->way(p->origin);
    bool after = false;
    std::vector<uint32_t> lines{f.where.begin.line};
    for (const flow_step &s : way) {
        if (s.where.begin.offset == f.where.begin.offset) {
            after = true;
            continue;
        }
        const uint32_t line = s.where.begin.line;
        if (out.size() >= 4 || s.kind == flow_step::computed || s.variable ||
            std::find(lines.begin(), lines.end(), line) != lines.end())
            continue;
        lines.push_back(line);
        out.push_back({s.where, after                         ? "copied here"
                                : s.kind == flow_step::stored ? "taken from here"
                                                              : "written here"});
    }
    return out;
}

} // namespace

const std::vector<rule> &all_rules()
{
    static const std::vector<rule> rules = {
        {"load-failed", severity::error,
         "The library refused the script: what it logged, placed where it was reading; only what "
         "was read before counts.",
         true, load_failed},
        {"load-error", severity::error,
         "An ERROR the library logged although the load went on: that part of the configuration "
         "was not taken.",
         true, load_error},
        {"load-warning", severity::warning,
         "A warning the library logged, other than a key left to its default.", true, load_warning},
        {"unknown-key", severity::warning,
         "A key in a script table that the loader does not read: it is ignored.", false,
         unknown_key},
        {"wrong-type", severity::error,
         "A value the loader cannot take as its key's type: it used 0 or treated the key as "
         "absent.",
         false, wrong_type},
        {"truncated-value", severity::error,
         "An integer that does not fit its field: its high bits or its sign are lost.", false,
         truncated_value},
        {"duplicate-id", severity::error,
         "Two streams with one id: the later replaces the earlier.", false, duplicate_id},
        {"vsrc-conflict", severity::error,
         "A video source that shares its vsrc_id with an earlier channel's but differs: the dump "
         "keeps the earlier one.",
         false, vsrc_conflict},
        {"unbound-buffer", severity::warning,
         "A source buffer given windows but named by no canvas: the dump writes it as zeros.",
         false, unbound_buffer},
        {"window-outside-canvas", severity::error,
         "An output window whose right or bottom edge lies beyond its canvas.", false,
         window_outside_canvas},
        {"output-over-max", severity::warning,
         "An output window larger than its buffer's max_output.", false, output_over_max},
        {"overlapping-windows", severity::info, "Two output windows on one canvas that overlap.",
         false, overlapping_windows},
        {"input-outside-source", severity::error,
         "An input window that reaches beyond the picture of the channel's source.", false,
         input_outside_source},
        {"resample-above-source", severity::warning,
         "A channel resampling (idsp_fps) above the frame rate of its source.", false,
         resample_above_source},
        {"rate-above-source", severity::warning,
         "A canvas whose frame_rate is above the frame rate of every channel that feeds it.", false,
         rate_above_source},
        {"rate-units", severity::warning,
         "A frame rate written in whole frames under enable_hp_fps = 1 (30 is then 0.03 fps), or "
         "in thousandths without it.",
         false, rate_units},
        {"pyramid-source", severity::error,
         "A pyramid built from a source buffer the channel does not configure.", false,
         pyramid_source},
        {"enc-src-canvas", severity::error,
         "A stream's possible_enc_src_map naming a canvas that does not exist.", false,
         enc_src_canvas},
        {"canvas-without-stream", severity::warning,
         "An encode canvas that no stream may encode from.", false, canvas_without_stream},
        {"stream-over-canvas", severity::warning,
         "A stream larger than every canvas it may encode from.", false, stream_over_canvas},
        {"mem-below-use", severity::error,
         "A memory layout that reserves less for a channel or stream than it is configured to "
         "use.",
         false, mem_below_use},
        {"lossy-round-trip", severity::error,
         "A field that differs after the record is dumped and loaded again.", false,
         lossy_round_trip},
    };
    return rules;
}

const rule *find_rule(const std::string &id)
{
    for (const rule &r : all_rules())
        if (id == r.id)
            return &r;
    return nullptr;
}

std::vector<finding> findings_of(const script_model &m, bool check_only,
                                 const std::vector<std::string> &disabled)
{
    std::vector<finding> out;
    for (const rule &r : all_rules())
        if ((r.check || !check_only) &&
            std::find(disabled.begin(), disabled.end(), r.id) == disabled.end())
            r.find(m, out);
    std::erase_if(out, [&](const finding &f) {
        for (const src_suppression &s : m.source.suppressions)
            if (s.rule == f.r->id && (s.line == 0 || s.line == f.where.begin.line))
                return true;
        return std::find(disabled.begin(), disabled.end(), f.r->id) != disabled.end();
    });
    for (finding &f : out)
        if (f.related.empty())
            f.related = copies_of(m, f);
    std::stable_sort(out.begin(), out.end(), [](const finding &a, const finding &b) {
        return a.where.begin.offset < b.where.begin.offset ||
               (a.where.begin.offset == b.where.begin.offset && a.where.none() && !b.where.none());
    });
    // One mistake in a table several channels share (a local, a helper) is
    // found once for each: said once, at its place, naming the others.
    std::vector<finding> merged;
    for (finding &f : out) {
        finding *prev = merged.empty() ? nullptr : &merged.back();
        if (prev && !f.where.none() && prev->r == f.r &&
            prev->where.begin.offset == f.where.begin.offset && !f.path.empty()) {
            const size_t also = prev->message.rfind(" (also ");
            if (also != std::string::npos && prev->message.ends_with(")"))
                prev->message.insert(prev->message.size() - 1, ", " + f.path);
            else
                prev->message += " (also " + f.path + ")";
            continue;
        }
        merged.push_back(std::move(f));
    }
    return merged;
}

} // namespace kivtool
