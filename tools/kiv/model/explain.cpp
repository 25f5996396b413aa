// The library's own verdict on a script, each of its lines placed where the
// loader was reading and explained: the name meant, the key written
// instead, the duplicate id, the cause a failure was passed on from.
#include "model/rule_kit.h"

#include <cctype>

#include "canvas/canvas.h"
#include "lsp/keydocs.h"
#include "model/names.h"
#include "vsrc/vsrc.h"

namespace kivtool
{

namespace
{

using namespace kit;

// The text of a library line without its tag, "fn(line): " and line feed.
std::string library_text(const std::string &line)
{
    size_t at = line.find("): ");
    std::string t = at == std::string::npos ? line : line.substr(at + 3);
    while (!t.empty() && (t.back() == '\n' || t.back() == ' '))
        t.pop_back();
    std::replace(t.begin(), t.end(), '\n', ' ');
    return t;
}

// The lines a parser logs after the line that says what failed: they only
// pass the failure on.
bool passes_on(const std::string &t)
{
    static const char *const WRAPPERS[] = {"get channel config error",
                                           "get chan group config error",
                                           "get canvas config error",
                                           "get stream config error",
                                           "get vsrc config of channel(",
                                           "get img_stats_src_chan of channel(",
                                           "get network bootup param error",
                                           "get custom nn info error",
                                           "The virtual mode config is incorrect",
                                           "set canvas id("};
    for (const char *w : WRAPPERS)
        if (t.starts_with(w))
            return true;
    return false;
}

// The text between `open` and `close` after `at` in t ("" when absent).
std::string between(const std::string &t, const std::string &open, const std::string &close)
{
    const size_t a = t.find(open);
    if (a == std::string::npos)
        return "";
    const size_t b = t.find(close, a + open.size());
    return b == std::string::npos ? "" : t.substr(a + open.size(), b - a - open.size());
}

std::vector<std::string> names_of(const kiv_name_id *rows, int n)
{
    std::vector<std::string> out;
    for (int i = 0; i < n; ++i)
        if (rows[i].name[0])
            out.emplace_back(rows[i].name);
    return out;
}

std::string trimmed(std::string t)
{
    while (!t.empty() && (t.back() == '.' || t.back() == '!'))
        t.pop_back();
    return t;
}

// t with a hint after it, "" for none.
std::string hinted(const std::string &t, const std::string &hint)
{
    return hint.empty() ? t : trimmed(t) + " (" + hint + ")";
}

std::string mean(std::string_view word, const std::vector<std::string> &names)
{
    const std::string n = nearest_name(word, names);
    return n.empty() ? "" : "did you mean \"" + n + "\"?";
}

// The mode meant by a name the table does not have: a common name of a
// picture size ("4K", "FHD", "2160p") is the mode of that size, anything
// else the nearest name.
std::string mean_mode(const std::string &name)
{
    static const std::pair<const char *, const char *> COMMON[] = {
        {"4k", "3840x2160"},    {"uhd", "3840x2160"}, {"2160p", "3840x2160"}, {"8k", "7680x4320"},
        {"1440p", "2560x1440"}, {"fhd", "1920x1080"}, {"1080i", "1080p"},     {"hd", "1280x720"},
        {"5mp", "5m"},          {"3mp", "3m"},        {"dci4k", "4096x2160"}};
    std::string lower;
    for (char c : name)
        if (c != ' ' && c != '-' && c != '_')
            lower += static_cast<char>(tolower(static_cast<unsigned char>(c)));
    for (const auto &[common, mode] : COMMON)
        if (lower == common)
            return std::string("did you mean \"") + mode + "\"?";
    return mean(name, names_of(vin_mode_table, KIV_VIN_MODE_NUM));
}

std::vector<std::string> buffer_names(const kiv_multi_chan_cfg &cfg)
{
    std::vector<std::string> out;
    each_buffer(cfg, [&](int c, int p, int b, const kiv_src_buf_cfg &sb) {
        if (has_windows(sb))
            out.push_back(buffer_name(c, p, b));
    });
    return out;
}

// A key the loader needs but does not find, with the key the table holds
// instead when one is near: `Version` for version, `chanels` for channels.
// What stands in place of a key the loader looked for and did not find:
// a key near it in the table it looked in (`Version` for version), or the
// key itself in the table around it (`fps` written in the channel, not in
// its vsrc).
struct stand_in {
    std::string key;   // "" when there is none
    std::string where; // the table's path, when it is the one around
    src_span place;
    std::string said; // what to say of it, when not one of the above
};

// A key missing from table t, found elsewhere by the evaluator: in a table
// written inside t (`main` nested in the channel's `vsrc`), or, near it, in
// a table t takes its values from (`fsp` in the overrides a merge copies
// from, where `fps` was meant).
stand_in elsewhere(const script_model &m, const read_table &t, const std::string &key)
{
    if (!m.flow || !t.flowed)
        return {};
    const std::vector<std::pair<std::string, flow_value>> own = m.flow->fields(t.flowed);
    for (const auto &[name, v] : own)
        if (v.type == flow_value::table)
            if (const flow_value in = m.flow->field(v.t, key);
                in.known() && in.type != flow_value::nil)
                return {key, "", m.flow->written_at(in.key).where,
                        "`" + key + "` is written in " +
                            (t.path.empty() ? name : t.path + "." + name) + ", a table inside it"};
    std::vector<const flow::table *> giving;
    for (const auto &[name, v] : own)
        for (const flow::table *g : m.flow->tables_of(v.origin))
            if (g != t.flowed && std::find(giving.begin(), giving.end(), g) == giving.end())
                giving.push_back(g);
    for (const flow::table *g : giving) {
        std::vector<std::string> names;
        for (const auto &[name, v] : m.flow->fields(g))
            if (m.read_in.find(name) == m.read_in.end())
                names.push_back(name);
        if (const std::string near = nearest_name(key, names); !near.empty()) {
            const src_span at = m.flow->written_at(m.flow->field(g, near).key).where;
            return {near, "", at,
                    "`" + near + "` at line " + num(at.begin.line) +
                        ", in a table this one takes its values from: did you mean `" + key + "`?"};
        }
    }
    return {};
}

stand_in stand_in_for(const script_model &m, const log_line &l, const std::string &key)
{
    const int32_t looked = l.looked_in >= 0 ? l.looked_in : l.table;
    if (key.empty() || looked < 0)
        return {};
    const read_table &t = m.tables[static_cast<size_t>(looked)];
    // A key the table's kind knows is no misspelling of another (the table
    // has `vsrc_ctx_pattern_mask`, not a misspelt `vsrc_ctx_pattern`).
    std::vector<std::string> unknown = t.unread();
    const std::string kind = table_kind(t.path);
    std::erase_if(unknown, [&](const std::string &k) { return find_key(kind, k) != nullptr; });
    const std::string near = nearest_name(key, unknown);
    if (!near.empty()) {
        const src_field *f = field_of(m.source, t.ctor, near.c_str(), -1);
        return {near, "", f ? f->key : src_span{}, ""};
    }
    if (t.parent >= 0) {
        const read_table &up = m.tables[static_cast<size_t>(t.parent)];
        const std::vector<std::string> unread = up.unread();
        if (std::find(unread.begin(), unread.end(), key) != unread.end()) {
            const src_field *f = field_of(m.source, up.ctor, key.c_str(), -1);
            return {key, up.path, f ? f->key : src_span{}, ""};
        }
    }
    return elsewhere(m, t, key);
}

std::string explain_absent(const script_model &m, const log_line &l, const std::string &t,
                           const std::string &key)
{
    const stand_in s = stand_in_for(m, l, key);
    if (s.key.empty() && !l.switched_by.empty())
        return hinted(t, "`" + l.switched_by + "` at line " + num(l.switch_where.begin.line) +
                             " asks for `" + key + "`");
    if (s.key.empty())
        return t;
    if (!s.said.empty())
        return hinted(t, s.said);
    if (!s.where.empty())
        return hinted(t, "`" + key + "` is written in " + s.where + ", the table around it");
    return hinted(t, "the table has `" + s.key + "`, which no loader reads: did you mean `" + key +
                         "`?");
}

// The key a line says is missing ("item(version) doesn't exist", "no
// channel config found"), "" for other lines.
std::string missing_key(const log_line &l)
{
    const std::string t = library_text(l.text);
    if (t == "no channel config found")
        return l.text.find("kiv_get_stream_cfg") != std::string::npos ? "streams" : "channels";
    if (t == "no canvas cfg found")
        return "canvas";
    if (t.starts_with("no source buffer found in canvas("))
        return "source";
    if (l.level == 0 && t.starts_with("item(") && t.find("doesn't exist") != std::string::npos)
        return between(t, "item(", ")");
    // "can't get source buffer(0) of pass 0": the buffer's key when the
    // loader found none.
    if (t.starts_with("can't get source buffer(") && !l.found) {
        const long b = strtol(t.c_str() + 25, nullptr, 10);
        if (b >= 0 && b < KIV_SRC_BUF_NUM &&
            l.path.ends_with(std::string(".") + kiv_src_buf_names[b]))
            return kiv_src_buf_names[b];
    }
    return "";
}

std::string explain_ids(const script_model &m, const std::string &t)
{
    for (const script_model::duplicate &d : m.duplicates)
        if (d.list == "channels")
            return "channel id " + num(d.id) + " is given to more than one channel (lines " +
                   num(d.where[0].begin.line) + " and " + num(d.where[1].begin.line) +
                   "): each channel needs its own id, 0 to " + num(m.cfg->chan_num - 1);
    return hinted(t, "the channels need the ids 0 to " + num(m.cfg->chan_num - 1) + ", each once");
}

// ---------------------------------------------------------------------------
// The library's verdict, each line placed and explained.

// Why a load failed: the line that says so and, when the library gave no
// line of its own, the key it was missing.
struct failure {
    const log_line *line = nullptr; // null: the load ended without an ERROR line
    std::string missing;            // a required key absent without a line of its own
    const log_line *why = nullptr;  // the WARN that says what was missing, when one does
};

// Whether a WARN line says that a default was taken (the load goes on) rather
// than that something is missing.
bool defaulted(const log_line &l)
{
    return l.text.find("default") != std::string::npos ||
           l.text.find("set to 0") != std::string::npos ||
           l.text.find("doen't exist") != std::string::npos;
}

// The ERROR line that ended a failed load: in the run of ERROR lines the
// log ends with, the last that does not only pass a failure on.  When the
// whole run only passes one on, the failure had no line of its own: either
// a required key was missing (the loader's last lookup found nothing, and
// no WARN of its own followed), or the parser went on after an earlier
// ERROR (a third pass asked for) and returned it at the end: that ERROR.
failure failure_of(const script_model &m)
{
    failure f;
    if (m.result == 0)
        return f;
    const log_line *first = nullptr, *prev = nullptr;
    for (auto l = m.log.rbegin(); l != m.log.rend(); ++l) {
        if (l->level == 3)
            continue;
        if (l->level != 0) {
            prev = &*l;
            break;
        }
        first = &*l;
        if (!passes_on(library_text(l->text)) && !f.line)
            f.line = &*l;
    }
    if (f.line || !first)
        return f;
    f.line = first;
    if (!first->found && (!prev || prev->path != first->path)) {
        const size_t dot = first->path.find_last_of('.');
        f.missing = dot == std::string::npos ? first->path : first->path.substr(dot + 1);
        return f;
    }
    // The library said what was missing as a warning ("item(boot_param)
    // doesn't exist"), then failed.
    if (!first->found && prev && !defaulted(*prev)) {
        f.why = prev;
        return f;
    }
    for (const log_line *l = first; l-- != m.log.data();)
        if (l->level == 0 && !passes_on(library_text(l->text))) {
            f.line = l;
            break;
        }
    return f;
}

// Whether the switch that asked for a line's absent key was turned on
// outside the constructor of the table being read.
bool switched_apart(const script_model &m, const log_line &l)
{
    if (l.switched_by.empty() || l.switch_where.none())
        return false;
    const int32_t t = l.looked_in >= 0 ? l.looked_in : l.table;
    // A table a merge fills from a list of keys takes its switch from the
    // same merge: the key is missing from the list.
    if (t >= 0 && m.flow && m.flow->keys_list(m.tables[static_cast<size_t>(t)].flowed))
        return false;
    const int32_t c = t >= 0 ? m.tables[static_cast<size_t>(t)].ctor : -1;
    if (c < 0)
        return true;
    const src_span &made = m.source.constructors[static_cast<size_t>(c)].span;
    return l.switch_where.begin.offset < made.begin.offset ||
           l.switch_where.begin.offset >= made.end.offset;
}

// Where a missing key is best placed: at the key the table holds instead
// when one is near (`Version = 1` for version); else where the loader
// looked for it.
src_span place_of_missing(const script_model &m, const log_line &l, const std::string &key)
{
    const stand_in s = stand_in_for(m, l, key);
    if (!s.place.none())
        return s.place;
    // A key a switch asks for, the switch turned on apart from the table
    // (patched in after it, or merged from defaults): the switch.
    if (switched_apart(m, l))
        return l.switch_where;
    return l.where;
}

// The store of an element one past what a list may hold, made in a loop's
// pass, for a line that says the list is too long ("stream_num(14) is
// larger than the max supported stream num(13)", "canvas num(13) cannot
// exceed max(12)") or that a channel past the third has an id no channel
// can have; none (kind written) for other lines and elements not made in a
// loop, which are placed where they stand.
flow_step past_max(const script_model &m, const log_line &l)
{
    if (!m.flow)
        return {};
    const std::string t = library_text(l.text);
    const flow::origin *o = nullptr;
    static const std::pair<const char *, const char *> COUNTS[] = {
        {"chan_num(", "channels"}, {"stream_num(", "streams"}, {"canvas num(", "canvas"}};
    for (const auto &[said, list] : COUNTS)
        if (const size_t open = t.rfind('('); t.starts_with(said) && open != std::string::npos) {
            const long max = strtol(t.c_str() + open + 1, nullptr, 10);
            // The list as the evaluator holds it, in the configuration's table.
            const flow::table *top = m.tables.empty() ? nullptr : m.tables[0].flowed;
            if (const flow_value v = m.flow->field(top, list); v.type == flow_value::table)
                o = m.flow->element(v.t, max + 1).origin;
        }
    if (t.starts_with("invalid channel id(") && t.find("CONFIG_") != std::string::npos &&
        l.path.ends_with(".id") && l.table >= 0 &&
        m.tables[static_cast<size_t>(l.table)].position >= 3)
        if (const place *p = m.place_at(l.path.substr(0, l.path.size() - 3)); p)
            o = p->origin;
    const std::vector<flow_step> way = o ? m.flow->way(o) : std::vector<flow_step>{};
    if (way.empty() || way.back().kind != flow_step::stored || way.back().pass == 0)
        return {};
    return way.back();
}

// Where such an element is placed: the loop's list element of its pass
// when the loop walks a list (the description one too many), else the
// loop's limit.
src_span past_max_place(const flow_step &s)
{
    return !s.element.none() ? s.element : s.limit;
}

// Where a line is best placed: a missing key as above, a duplicate channel
// id at its second use; else where the loader was reading.
src_span place_of_line(const script_model &m, const log_line &l)
{
    // An element one past what its list may hold, made by a loop.
    if (const flow_step s = past_max(m, l); s.pass > 0)
        return past_max_place(s);
    // A layer that layer_map selects and layers does not give: placed at
    // layer_map, which asks for it.
    if (library_text(l.text).starts_with("Wrong item num(0) in item(crop_win) of index("))
        if (const size_t at = l.path.find(".layers"); at != std::string::npos)
            if (const place *p = m.place_at(l.path.substr(0, at) + ".layer_map"); p && p->present)
                return p->where;
    // A memory layout's list that does not have as many entries as its
    // count says: placed at the count, which the list is measured against.
    const std::string t = library_text(l.text);
    const char *count = t.starts_with("channel mem cfg num(")  ? "max_chan_num"
                        : t.starts_with("stream mem cfg num(") ? "max_stream_num"
                                                               : nullptr;
    if (count && l.table >= 0)
        if (const src_field *f =
                field_of(m.source, m.tables[static_cast<size_t>(l.table)].ctor, count, -1))
            return {f->key.begin, f->value.end};
    // A pass the channel lacks is asked for by its pass_num.
    if (t.starts_with("item(pass_") && l.looked_in >= 0) {
        const read_table &chan = m.tables[static_cast<size_t>(l.looked_in)];
        if (const place *p = m.place_at(chan.path + ".pass_num"); p && p->present)
            return p->where;
        if (const src_field *f = field_of(m.source, chan.ctor, "pass_num", -1))
            return {f->key.begin, f->value.end};
    }
    if (const std::string key = missing_key(l); !key.empty())
        return place_of_missing(m, l, key);
    if (library_text(l.text).starts_with("invalid channel id(") && m.kind == kiv_kind::multi_chan) {
        for (const script_model::duplicate &d : m.duplicates)
            if (d.list == "channels")
                return d.where[1];
        // A channel left without an id because another took an id past the
        // count: that id, where it was written.
        for (int64_t id = m.cfg->chan_num; id < 256 && l.text.find("CONFIG_") == std::string::npos;
             ++id)
            if (const place *p = m.place_at("channels[" + num(id) + "].id"); p && p->present)
                return p->where;
    }
    return l.where;
}

// The path a line names: a duplicate channel id concerns the list.
std::string path_of_line(const script_model &m, const log_line &l)
{
    for (const script_model::duplicate &d : m.duplicates)
        if (d.list == "channels" && library_text(l.text).starts_with("invalid channel id("))
            return "channels";
    return l.path;
}

} // namespace

// The other side of a line the tool places at what it is measured
// against (a memory layout's count, a pyramid's layer_map): where the
// loader was reading, as a note.
static void other_side(const script_model &m, const log_line &l, finding &f)
{
    // An element past its list's maximum: the loop that made it.
    if (const flow_step s = past_max(m, l); s.pass > 0) {
        if (!s.element.none())
            f.related.push_back({s.limit, "the loop's limit"});
        f.related.push_back({s.where, "stored here, in pass " + num(s.pass) + " of the loop"});
        return;
    }
    const std::string t = library_text(l.text);
    const char *what =
        t.starts_with("channel mem cfg num(") || t.starts_with("stream mem cfg num(") ? "the list"
        : t.starts_with("Wrong item num(0) in item(crop_win) of index(")              ? "the layers"
                                                                                      : nullptr;
    if (what && !l.where.none() && l.where.begin.offset != f.where.begin.offset)
        f.related.push_back({l.where, what});
}

namespace kit
{

void load_failed(const script_model &m, findings &out)
{
    if (m.result == 0)
        return;
    const failure f = failure_of(m);
    const std::string refused = "the library refused the script (result " + num(m.result) + ")";
    if (!m.contained_failure.empty()) {
        add(out, "load-failed", "",
            m.contained_failure + "; it failed (result " + num(m.result) + ")", {});
        return;
    }
    if (!f.line) {
        const bool empty = m.kind == kiv_kind::calib && m.calib_size == 0;
        add(out, "load-failed", "", empty ? "calib_data has no items: nothing to load" : refused,
            {});
        return;
    }
    const log_line &l = *f.line;
    if (f.why) {
        add(out, "load-failed", f.why->path,
            trimmed(explain(m, *f.why)) + ", so " + trimmed(explain(m, l)) + "; " + refused,
            place_of_line(m, *f.why));
        return;
    }
    // A value of the wrong type where the loader wanted a table.
    for (const script_model::slip &sl : m.slips)
        if (f.missing.empty() && sl.wrong_type && sl.path == l.path &&
            passes_on(library_text(l.text))) {
            add(out, "load-failed", l.path,
                "`" + l.path.substr(l.path.find_last_of('.') + 1) + "` is " + sl.message + ", so " +
                    trimmed(library_text(l.text)) + "; " + refused,
                sl.where);
            return;
        }
    if (f.missing.empty()) {
        add(out, "load-failed", path_of_line(m, l), trimmed(explain(m, l)) + "; " + refused,
            place_of_line(m, l));
        other_side(m, l, out.back());
        return;
    }
    // The key the loader needed, the nearest key the table has instead, and
    // what the library said about it.
    const std::string said = "`" + f.missing + "` is missing, which the loader needs here";
    add(out, "load-failed", l.path,
        explain_absent(m, l, said, f.missing) + ", so " + trimmed(library_text(l.text)) + "; " +
            refused,
        place_of_missing(m, l, f.missing));
}

void load_error(const script_model &m, findings &out)
{
    const log_line *cause = failure_of(m).line;
    for (const log_line &l : m.log)
        if (l.level == 0 && &l != cause && !passes_on(library_text(l.text)) &&
            (!cause || &l < cause)) {
            add(out, "load-error", l.path, explain(m, l), place_of_line(m, l));
            other_side(m, l, out.back());
        }
}

void load_warning(const script_model &m, findings &out)
{
    for (const log_line &l : m.log)
        if (l.level == 1 && !l.absent)
            add(out, "load-warning", l.path, explain(m, l), l.where);
}

} // namespace kit

std::string explain(const script_model &m, const log_line &l)
{
    const std::string t = library_text(l.text);
    if (t.starts_with("lua error msg is ")) {
        // The place already says "FILE:LINE", unless a note moved it off
        // the line the interpreter names (to a bracket left open above).
        std::string msg = trimmed(t.substr(17));
        const size_t cut = msg.find(": ");
        if (!l.where.none() && cut != std::string::npos && msg.find(":") < cut) {
            const size_t colon = msg.rfind(':', cut - 1);
            const std::string named = msg.substr(colon + 1, cut - colon - 1);
            const bool moved = !named.empty() &&
                               named.find_first_not_of("0123456789") == std::string::npos &&
                               named != std::to_string(l.where.begin.line);
            msg = (moved ? "line " + named + ": " : "") + msg.substr(cut + 2);
        }
        return l.note.empty() ? msg : msg + " (" + l.note + ")";
    }
    if (t.starts_with("vin mode '"))
        return hinted(t, mean_mode(between(t, "vin mode '", "'")));
    if (t.starts_with("invalid hdr_mode("))
        return hinted(t, mean(between(t, "(", ")"), names_of(hdr_mode_table, KIV_HDR_MODE_NUM)));
    if (t.starts_with("invalid video_type("))
        return hinted(t,
                      mean(between(t, "(", ")"), names_of(video_type_table, KIV_VIDEO_TYPE_NUM)));
    if (t.starts_with("invalid type(") && t.find("for canvas") != std::string::npos)
        return hinted(t, mean(between(t, "(", ")"), {std::begin(kiv_canvas_type_names),
                                                     std::end(kiv_canvas_type_names)}));
    if (t.starts_with("invalid string(") && t.find("in item(source)") != std::string::npos)
        return hinted(t, mean(between(t, "(", ")"), buffer_names(*m.cfg)));
    if (t.starts_with("invalid item(img_stats_src_chan) value(")) {
        const std::string v = between(t, "value(", ")");
        if (v.size() > 5 && v.starts_with("chan_") && isdigit(static_cast<unsigned char>(v[5])))
            return hinted(t, "the channels are chan_0 to chan_2");
        const bool digits = !v.empty() && std::all_of(v.begin(), v.end(), [](char c) {
            return isdigit(static_cast<unsigned char>(c)) != 0;
        });
        if (digits)
            return hinted(t, "a channel's name is wanted: \"chan_" + v + "\"");
        return hinted(t, mean(v, {"chan_0", "chan_1", "chan_2"}));
    }
    if (t.starts_with("channel mem cfg num(") || t.starts_with("stream mem cfg num("))
        return hinted(t, std::string(t[0] == 'c' ? "channels_mem" : "streams_mem") + " has " +
                             between(t, "num(", ")") +
                             (between(t, "num(", ")") == "1" ? " entry" : " entries") +
                             " at line " + num(l.where.begin.line) + ", " +
                             (t[0] == 'c' ? "max_chan_num " : "max_stream_num ") +
                             between(t, "max(", ")") + " here");
    if (t.starts_with("item(pass_") && l.level == 0)
        return hinted(t, between(t, "item(pass_", ")") == "1"
                             ? "pass_num asks for a second pass, whose buffers go in a table "
                               "pass_1"
                             : "pass_num asks for a pass the channel cannot have: pass_num is 2 "
                               "at most");
    if (const std::string u = trimmed(t); u.starts_with("item ") && u.ends_with(" does not exist"))
        return hinted(t, mean(u.substr(5, u.size() - 20), {"chan_0", "chan_1", "chan_2"}));
    if (t.starts_with("invalid channel id(") && t.find("CONFIG_") != std::string::npos)
        return "invalid channel id(" + between(t, "id(", ")") +
               "): channel ids are 0 to 2, the pipeline has 3 channels";
    if (t.starts_with("invalid channel id(") && m.kind == kiv_kind::multi_chan)
        return explain_ids(m, t);
    if (t.starts_with("chan_num("))
        return between(t, "chan_num(", ")") + " channels are given: the pipeline has at most 3";
    if (const std::string key = missing_key(l); !key.empty()) {
        // The stream parser says "channel" where it means streams.
        const std::string said = key == "streams" ? "no stream config found" : t;
        return explain_absent(m, l,
                              t.starts_with("item(") || t.starts_with("can't get source buffer(")
                                  ? t
                                  : said + ": `" + key + "` is absent or empty",
                              key);
    }
    return t;
}

} // namespace kivtool
