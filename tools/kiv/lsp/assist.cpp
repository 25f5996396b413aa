#include "lsp/assist.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <regex>
#include <tuple>

#include "canvas/canvas.h"
#include "lsp/hints.h"
#include "lsp/keydocs.h"
#include "lsp/navigate.h"
#include "lsp/places.h"
#include "model/names.h"
#include "model/rule_kit.h"
#include "vsrc/vsrc.h"

namespace kivtool::lsp
{

namespace
{

// The protocol's kinds of completion items and symbols that are used here.
enum : int {
    ITEM_FIELD = 5,
    ITEM_VALUE = 12,
    ITEM_ENUM_MEMBER = 20,
    SYMBOL_MODULE = 2,
    SYMBOL_CLASS = 5,
    SYMBOL_FIELD = 8,
    SYMBOL_STRUCT = 23,
};

} // namespace

const text_map &scanned(const document &d)
{
    if (!d.scanned)
        d.scanned = std::make_shared<const text_map>(d.text);
    return *d.scanned;
}

json pos_json(position p)
{
    return {{"line", p.line}, {"character", p.character}};
}

json range_json(const range &r)
{
    return {{"start", pos_json(r.start)}, {"end", pos_json(r.end)}};
}

namespace
{

// The kind of table a field's table holds, by the field's name, and of an
// array's elements, by the array's name.
// (The buffers main ... premain are known by kiv_src_buf_names.)
const std::pair<const char *, const char *> TABLE_BY_FIELD[] = {
    {"vsrc", "vsrc"},
    {"virt_mode_cfg", "virt_mode_cfg"},
    {"pyramid", "pyramid"},
    {"pass_1", "pass_1"},
    {"resource_mem_layout", "mem_layout"},
    {"boot_param", "boot_param"},
    {"port", "map"},
    {"poke", "map"},
};
const std::pair<const char *, const char *> TABLE_BY_ARRAY[] = {
    {"channels", "channel"},          {"canvas", "canvas"},           {"streams", "stream"},
    {"channels_mem", "channels_mem"}, {"streams_mem", "streams_mem"}, {"layers", "layer"},
    {"custom_nn", "network"},         {"interfaces", "interface"},
};
// Global tables a script defines, by their name.
const std::pair<const char *, const char *> TABLE_BY_GLOBAL[] = {
    {"_resource_config_", "top"},
    {"_custom_aisp_config_", "aisp"},
    {"__hevc_scalelist__", "hevc"},
};

template <size_t N>
std::string lookup(const std::pair<const char *, const char *> (&rows)[N], std::string_view name)
{
    for (const auto &[k, v] : rows)
        if (name == k)
            return v;
    return "";
}

// The kind of the table a field named `name` holds.
std::string field_kind(std::string_view name)
{
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b)
        if (name == kiv_src_buf_names[b])
            return "buffer";
    return lookup(TABLE_BY_FIELD, name);
}

// The field of constructor `parent` whose value is constructor `child`.
const src_field *holder(const src_map &map, int32_t child)
{
    const int32_t p = map.constructors[static_cast<size_t>(child)].parent;
    if (p < 0)
        return nullptr;
    for (const src_field &f : map.constructors[static_cast<size_t>(p)].fields)
        if (f.constructor == child)
            return &f;
    return nullptr;
}

// The name a constructor is assigned to, `NAME = {` or `x.NAME = {`, when
// it is no field of another constructor.
std::string assigned_name(const view &v, int32_t ctor)
{
    for (const src_assignment &as : v.map.assignments)
        if (as.constructor == ctor)
            return as.name;
    size_t i = v.map.constructors[static_cast<size_t>(ctor)].span.begin.offset;
    while (i > 0 && (v.text[i - 1] == ' ' || v.text[i - 1] == '\t'))
        --i;
    if (i == 0 || v.text[i - 1] != '=')
        return "";
    --i;
    while (i > 0 && (v.text[i - 1] == ' ' || v.text[i - 1] == '\t'))
        --i;
    return std::string(word_at(v.text, i).text);
}

// The kind of the table a constructor of the current text makes: the one
// the check read it as, else by where it stands, else by its keys.
// The table the check read from a constructor of the current text (the
// first, when the reading met it more than once); null when it read none
// or the constructor is where the texts differ.
const read_table *read_as(const view &v, int32_t ctor)
{
    if (!v.a || ctor < 0)
        return nullptr;
    const size_t at = v.to_old(v.map.constructors[static_cast<size_t>(ctor)].span.begin.offset);
    const auto &old_ctors = v.a->model.source.constructors;
    for (const read_table &t : v.a->model.tables)
        if (t.ctor >= 0 && old_ctors[static_cast<size_t>(t.ctor)].span.begin.offset == at)
            return &t;
    return nullptr;
}

// The kind of a table the check read.
std::string read_kind(const script_model &m, const read_table &t)
{
    const std::string k = table_kind(t.path);
    if (k == "top" && m.kind == kiv_kind::aisp)
        return "aisp";
    if (k == "top" && m.kind == kiv_kind::hevc)
        return "hevc";
    return k;
}

std::string kind_of(const view &v, int32_t ctor)
{
    if (ctor < 0)
        return "";
    const src_constructor &c = v.map.constructors[static_cast<size_t>(ctor)];
    if (const read_table *t = read_as(v, ctor))
        if (std::string k = read_kind(v.a->model, *t); !k.empty())
            return k;
    if (const src_field *f = holder(v.map, ctor)) {
        if (f->kind == src_field::named)
            return field_kind(f->name);
        if (const src_field *up = holder(v.map, c.parent))
            return lookup(TABLE_BY_ARRAY, up->name);
        return "";
    }
    if (std::string k = lookup(TABLE_BY_GLOBAL, assigned_name(v, ctor)); !k.empty())
        return k;
    if (std::string k = field_kind(assigned_name(v, ctor)); !k.empty())
        return k;
    // By its keys: the kind that documents most of them, when some key is
    // documented for that kind alone.
    std::map<std::string, int> score;
    bool telling = false;
    for (const src_field &f : c.fields) {
        if (f.kind != src_field::named)
            continue;
        std::vector<std::string> kinds;
        for (const key_doc &k : key_docs())
            if (k.key == f.name)
                kinds.push_back(k.table);
        telling |= kinds.size() == 1;
        for (const std::string &k : kinds)
            ++score[k];
    }
    std::string best;
    int most = 0;
    for (const auto &[k, n] : score)
        if (n > most)
            best = k, most = n;
    return telling ? best : "";
}

std::string detail_of(const key_doc &k)
{
    std::string s = k.type;
    if (!k.width.empty())
        s += ", " + k.width;
    s += k.required ? ", required" : k.dflt.empty() ? "" : ", default " + k.dflt;
    return s;
}

std::string doc_of(const key_doc &k)
{
    std::string s = "**`" + k.key + "`** (" + k.table + "): " + k.type;
    if (!k.width.empty())
        s += ", " + k.width;
    s += "\n\nWhen absent: " + k.absent;
    if (!k.notes.empty())
        s += "\n\n" + k.notes;
    return s + "\n\n*docs/format.md, " + k.section + "*";
}

// The names a string key takes, each with what it stands for.
std::vector<std::pair<std::string, std::string>> names_for(const view &v, const std::string &key)
{
    std::vector<std::pair<std::string, std::string>> out;
    auto rows = [&](const kiv_name_id *t, int n, const char *what) {
        for (int i = 0; i < n; ++i)
            if (t[i].name[0])
                out.emplace_back(t[i].name, std::string(what) + " " + std::to_string(t[i].id));
    };
    if (key == "mode")
        rows(vin_mode_table, KIV_VIN_MODE_NUM, "input mode");
    else if (key == "hdr_mode")
        rows(hdr_mode_table, KIV_HDR_MODE_NUM, "HDR mode");
    else if (key == "video_type")
        rows(video_type_table, KIV_VIDEO_TYPE_NUM, "video type");
    else if (key == "type")
        for (int t = 0; t < KIV_CANVAS_TYPE_NUM; ++t)
            out.emplace_back(kiv_canvas_type_names[t], "canvas type " + std::to_string(t));
    else if (key == "img_stats_src_chan" || key == "chan_groups")
        for (int c = 0; c < 3; ++c)
            out.emplace_back("chan_" + std::to_string(c), "channel " + std::to_string(c));
    else if (key == "source" && v.d.loaded && kit::multi(v.d.loaded->model))
        kit::each_buffer(*v.d.loaded->model.cfg, [&](int c, int p, int b,
                                                     const kiv_src_buf_cfg &sb) {
            if (kit::has_windows(sb))
                out.emplace_back(kit::buffer_name(c, p, b), "source buffer " +
                                                                std::string(kiv_src_buf_names[b]) +
                                                                " of channel " + std::to_string(c) +
                                                                ", pass " + std::to_string(p));
        });
    return out;
}

bool blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The first "--" outside a short string in [begin, end) of t, or npos.
size_t comment_in(std::string_view t, size_t begin, size_t end)
{
    for (size_t i = begin; i < end; ++i) {
        if (t[i] == '"' || t[i] == '\'') {
            const char q = t[i];
            for (++i; i < end && t[i] != q; i += t[i] == '\\' ? 2 : 1)
                ;
        } else if (t[i] == '-' && i + 1 < end && t[i + 1] == '-') {
            return i;
        }
    }
    return std::string_view::npos;
}

// Just after the last character before offset i that is neither blank nor
// in a line comment.
size_t skip_blanks_back(std::string_view t, size_t i)
{
    for (;;) {
        while (i > 0 && blank(t[i - 1]))
            --i;
        size_t line = i;
        while (line > 0 && t[line - 1] != '\n' && t[line - 1] != '\r')
            --line;
        const size_t c = comment_in(t, line, i);
        if (c == std::string_view::npos)
            return i;
        i = c;
    }
}

// The key a string at `open` (its opening quote) is the value of: the name
// before its `=`, or for an element of an array the array's name.
std::string key_of_string(const view &v, size_t open)
{
    const size_t i = skip_blanks_back(v.text, open);
    if (i > 0 && v.text[i - 1] == '=') {
        const size_t k = skip_blanks_back(v.text, i - 1);
        return std::string(word_at(v.text, k).text);
    }
    const int32_t ctor = constructor_at(v.map, v.text, open);
    if (ctor < 0)
        return "";
    const src_field *f = holder(v.map, ctor);
    if (f && f->kind == src_field::named)
        return f->name;
    if (f) // an element of an array of arrays: chan_groups = { {"chan_0", ...} }
        if (const src_field *up =
                holder(v.map, v.map.constructors[static_cast<size_t>(ctor)].parent))
            return up->name;
    return assigned_name(v, ctor);
}

bool at_key_position(const view &v, size_t begin)
{
    const size_t i = skip_blanks_back(v.text, begin);
    return i > 0 && (v.text[i - 1] == '{' || v.text[i - 1] == ',' || v.text[i - 1] == ';');
}

// The place of the check's reading whose key or value holds `at` (an
// offset of the checked text), the innermost.
const std::pair<std::string, place> *named_at(const analysis &a, size_t at)
{
    const std::pair<std::string, place> *best = nullptr;
    for (const auto &n : a.model.named) {
        const src_span &w = n.second.where;
        if (!n.second.present || w.none() || at < w.begin.offset || at >= w.end.offset)
            continue;
        if (!best || w.end.offset - w.begin.offset <=
                         best->second.where.end.offset - best->second.where.begin.offset)
            best = &n;
    }
    return best;
}

} // namespace

const read_table *table_at_path(const analysis &a, const std::string &path)
{
    for (const read_table &t : a.model.tables)
        if (t.path == path)
            return &t;
    return nullptr;
}

// Where the check's tables were written, from the reading's places and the
// evaluator's ways of their values (offsets of the checked text).

bool within(const range &out, const range &in)
{
    auto at = [](position p) { return std::pair(p.line, p.character); };
    return at(out.start) <= at(in.start) && at(in.end) <= at(out.end);
}

bool contains(const src_span &out, const src_span &in)
{
    return !out.none() && !in.none() && out.begin.offset <= in.begin.offset &&
           in.end.offset <= out.end.offset;
}

bool holds(const src_span &s, size_t at)
{
    return !s.none() && s.begin.offset <= at && at < s.end.offset;
}

// Whether a span stands inside a function literal: in a helper, not in the
// main chunk.
bool in_function(const src_map &map, const src_span &s)
{
    for (size_t i = 1; i < map.functions.size(); ++i)
        if (contains(map.functions[i].span, s))
            return true;
    return false;
}

// The name a record path's table is stored under in the table it was read
// from, as the script writes it: "main" for src_buf[p][0], "pass_1" for
// pass_cfg[1], "vsrc"; "" for an element of an array.
std::string script_key(const std::string &path)
{
    static const std::regex BUF(R"(.*\.src_buf\[\d+\]\[(\d+)\])"), PASS(R"(.*\.pass_cfg\[(\d+)\])");
    std::smatch n;
    if (std::regex_match(path, n, BUF)) {
        const int b = std::stoi(n[1]);
        return b < KIV_SRC_BUF_NUM ? kiv_src_buf_names[b] : "";
    }
    if (std::regex_match(path, n, PASS))
        return "pass_" + n[1].str();
    const std::string last = path.substr(path.rfind('.') + 1);
    return last.find('[') == std::string::npos ? last : "";
}

// The evaluator's entry that holds read table t in the table it was read
// from: its value, with the way it came there.  Unknown when the evaluator
// did not follow the reading there.
flow_value entry_of(const script_model &m, const read_table &t)
{
    if (!m.flow || !t.flowed)
        return {};
    const value_flow &fl = *m.flow;
    if (t.parent < 0) {
        const flow_value top = fl.field(fl.globals().t, "_resource_config_");
        return top.t == t.flowed ? top : flow_value{};
    }
    const flow::table *in = m.tables[static_cast<size_t>(t.parent)].flowed;
    if (!in)
        return {};
    if (const std::string key = script_key(t.path); !key.empty())
        if (const flow_value e = fl.field(in, key); e.t == t.flowed)
            return e;
    for (int64_t i = 1; i <= 4096; ++i) {
        const flow_value e = fl.element(in, i);
        if (!e.known() || e.type == flow_value::nil)
            break;
        if (e.t == t.flowed)
            return e;
    }
    return {};
}

// Where a table the loader read was written, as its author looks for it:
// the reading's place of its path, but for a table a helper built, where
// the caller wrote it: `main = buf(1920, 1080, 0, 0)` rather than the
// helper's `return {`, the `channel { ... }` a channel helper was called
// with.  The evaluator's way of the value tells which store that is.
made_place made_at(const script_model &m, const read_table &t)
{
    made_place out;
    const place *p = m.place_at(t.path);
    if (p && !p->where.none())
        out.where = p->where;
    else if (t.ctor >= 0)
        out.where = m.source.constructors[static_cast<size_t>(t.ctor)].span;
    else
        return out;
    // A store `key = value`: its key, when it is a name.
    if (p && p->present && !p->value.none() && p->value.begin.offset > p->where.begin.offset) {
        const word w = word_at(m.text, p->where.begin.offset);
        if (w.begin == p->where.begin.offset && !w.text.empty()) {
            const auto n = static_cast<uint32_t>(w.text.size());
            out.key = {p->where.begin, p->where.begin};
            out.key.end.offset += n;
            out.key.end.col += n;
        }
    }
    // Placed at the arguments of a helper's call, or inside a helper.
    const bool call = p && p->present && p->value.none();
    if (!call && !in_function(m.source, out.where))
        return out;
    const flow_value e = entry_of(m, t);
    if (!e.known())
        return out;
    for (const flow_step &s : m.flow->way(e.origin))
        if (s.kind == flow_step::stored &&
            (call ? contains(s.value, out.where) : !in_function(m.source, s.where)))
            return {s.where, s.key};
    return out;
}

json location(const view &v, const src_span &s)
{
    const auto r = v.span(s);
    if (!r)
        return nullptr;
    return {{"uri", v.d.uri}, {"range", range_json(*r)}};
}

namespace
{

// What the loader stored for the value at a record path, as a line of
// hover text; "" when the check knows nothing of it.
std::string stored_text(const analysis &a, const std::string &path, const place &p)
{
    const std::string written = a.model.written(p.value);
    if (const auto r = rate_at(a.model, path))
        return rate_sentence(*r, written);
    const auto it = a.model.held.find(path);
    if (it == a.model.held.end())
        return "";
    std::string s = "Stored as " + std::to_string(it->second);
    char *end = nullptr;
    const long long given = strtoll(written.c_str(), &end, 0);
    if (written.empty() || *end || given != it->second)
        s += " (written `" + written + "`)";
    return s + ".";
}

// The line the dump writes for key `key` of the table at record path
// `path` ("\tmode = \"1080p\","), for the tables the dump writes as tables
// of their own: channels, their video sources, streams and the top level;
// "" for the others, and when the load failed (the dump of a record the
// loader did not finish says nothing of the script).
std::string dump_line(const script_model &m, const std::string &path, const std::string &key)
{
    if (m.result != 0 || !m.cfg)
        return "";
    static const std::regex CHAN(R"(channels\[(\d)\])"), VSRC(R"(channels\[(\d)\]\.vsrc)"),
        STREAM(R"(streams\[(\d+)\])");
    std::smatch n;
    std::string table;
    if (path.empty())
        table = "_resource_config_";
    else if (std::regex_match(path, n, CHAN))
        table = "chan_" + n[1].str();
    else if (std::regex_match(path, n, VSRC))
        table = "vsrc_" + std::to_string(m.cfg->channels[std::stoi(n[1])].vsrc.vsrc_id);
    else if (std::regex_match(path, n, STREAM))
        table = "stream_" + n[1].str();
    else
        return "";
    const std::string dump = "\n" + dump_text(*m.cfg);
    const size_t begin = dump.find("\n" + table + " = {\n");
    if (begin == std::string::npos)
        return "";
    const size_t end = dump.find("\n}", begin + 1);
    const size_t at = dump.find("\n\t" + key + " = ", begin);
    if (at == std::string::npos || at > end)
        return "";
    return dump.substr(at + 2, dump.find('\n', at + 1) - at - 2);
}

// The key tables the check read at an offset of the checked text: those
// written there (made_at) or made by the constructor there, the innermost.
// Several when a helper's constructor made them all.
std::vector<const read_table *> read_at(const script_model &m, size_t at)
{
    std::vector<const read_table *> out;
    size_t best = std::string_view::npos;
    for (const read_table &t : m.tables) {
        if (read_kind(m, t).empty())
            continue;
        size_t size = std::string_view::npos;
        for (const src_span &s :
             {made_at(m, t).where,
              t.ctor < 0 ? src_span{} : m.source.constructors[static_cast<size_t>(t.ctor)].span})
            if (holds(s, at))
                size = std::min<size_t>(size, s.end.offset - s.begin.offset);
        if (size == std::string_view::npos || size > best)
            continue;
        if (size < best)
            out.clear(), best = size;
        out.push_back(&t);
    }
    return out;
}

// The constructor of the checked text that key `key`, lacking in table t,
// is to be written in, and the name to write there: where the reading
// placed its absence (the table that lacks it), or, when a helper's copy
// `key = o.name` gave it a nil, `name` in the table the helper was called
// with.  -1 when no constructor can take it.
std::pair<int32_t, std::string> insertion_for(const script_model &m, const read_table &t,
                                              const std::string &key)
{
    const auto &ctors = m.source.constructors;
    src_span copy; // the value that gave it a nil
    if (const place *p = m.place_at(t.path.empty() ? key : t.path + "." + key);
        p && !p->present && !p->where.none()) {
        for (size_t c = 0; c < ctors.size(); ++c)
            if (ctors[c].span.begin.offset == p->where.begin.offset)
                return {static_cast<int32_t>(c), key};
        copy = p->value;
    } else if (const src_field *f = field_of(m.source, t.ctor, key.c_str(), -1)) {
        copy = f->value;
    } else {
        return {t.ctor, key};
    }
    static const std::regex FIELD(R"(\s*[A-Za-z_]\w*\s*\.\s*([A-Za-z_]\w*)\s*)");
    const std::string value = m.written(copy);
    std::smatch n;
    if (!in_function(m.source, copy) || !std::regex_match(value, n, FIELD))
        return {-1, key};
    // The helper's caller: the first constructor of the call that made t.
    const src_span call = made_at(m, t).where;
    if (in_function(m.source, call))
        return {-1, key};
    for (size_t c = 0; c < ctors.size(); ++c)
        if (contains(call, ctors[c].span))
            return {static_cast<int32_t>(c), n[1].str()};
    return {-1, key};
}

} // namespace

json diagnostic(const line_index &lines, const finding &f, std::string_view uri)
{
    static const int SEVERITY[] = {3, 2, 1}; // info, warning, error
    json d = {{"range", range_json(lines.of(f.where))},
              {"severity", SEVERITY[static_cast<int>(f.r->level)]},
              {"code", f.r->id},
              {"source", "kiv"},
              {"message", f.path.empty() ? f.message : f.path + ": " + f.message}};
    if (!uri.empty() && !f.related.empty()) {
        json related = json::array();
        for (const related_place &p : f.related)
            related.push_back(
                {{"location", {{"uri", uri}, {"range", range_json(lines.of(p.where))}}},
                 {"message", p.message}});
        d["relatedInformation"] = std::move(related);
    }
    return d;
}

json completion(const document &d, position p)
{
    const view v(d);
    const size_t at = v.lines.offset(p);
    json items = json::array();
    const string_at_t s = string_at(v.text, at);
    if (s.open != std::string_view::npos) {
        // A value: the names its key takes, replacing what is typed of it.
        const range r{v.lines.at(s.open + 1), v.lines.at(at)};
        for (const auto &[name, what] : names_for(v, key_of_string(v, s.open)))
            items.push_back({{"label", name},
                             {"kind", ITEM_ENUM_MEMBER},
                             {"detail", what},
                             {"textEdit", {{"range", range_json(r)}, {"newText", name}}}});
        return {{"isIncomplete", false}, {"items", items}};
    }
    const word w = word_at(v.text, at);
    if (!at_key_position(v, w.begin))
        return {{"isIncomplete", false}, {"items", items}};
    const int32_t ctor = constructor_at(v.map, v.text, at);
    const std::string kind = kind_of(v, ctor);
    if (kind.empty())
        return {{"isIncomplete", false}, {"items", items}};
    std::vector<std::string> present;
    for (const src_field &f : v.map.constructors[static_cast<size_t>(ctor)].fields)
        if (f.kind == src_field::named && !(f.key.begin.offset == w.begin && f.value.none()))
            present.push_back(f.name);
    const range r{v.lines.at(w.begin), v.lines.at(w.end)};
    int order = 0;
    for (const key_doc *k : keys_of(kind)) {
        ++order;
        if (std::find(present.begin(), present.end(), k->key) != present.end())
            continue;
        char sort[16];
        snprintf(sort, sizeof sort, "%04d", order);
        items.push_back({{"label", k->key},
                         {"kind", ITEM_FIELD},
                         {"detail", detail_of(*k)},
                         {"sortText", sort},
                         {"documentation", {{"kind", "markdown"}, {"value", doc_of(*k)}}},
                         {"textEdit", {{"range", range_json(r)}, {"newText", k->key + " = "}}}});
    }
    return {{"isIncomplete", false}, {"items", items}};
}

json hover(const document &d, position p)
{
    const view v(d);
    const size_t at = v.lines.offset(p);
    std::string key;
    size_t key_begin = 0;
    int32_t ctor = -1;
    range r;
    // On a key: `key = ...` in a constructor.
    const word w = word_at(v.text, at);
    if (!w.text.empty() && at_key_position(v, w.begin)) {
        size_t i = w.end;
        while (i < v.text.size() && (v.text[i] == ' ' || v.text[i] == '\t'))
            ++i;
        if (i < v.text.size() && v.text[i] == '=' &&
            (i + 1 >= v.text.size() || v.text[i + 1] != '=')) {
            key = w.text;
            key_begin = w.begin;
            ctor = constructor_at(v.map, v.text, at);
            r = {v.lines.at(w.begin), v.lines.at(w.end)};
        }
    }
    // On a value: the field of the innermost constructor whose value holds it.
    if (key.empty()) {
        const int32_t c = constructor_at(v.map, v.text, at);
        for (const src_field &f :
             c < 0 ? std::vector<src_field>{} : v.map.constructors[static_cast<size_t>(c)].fields)
            if (f.kind == src_field::named && !f.value.none() && f.value.begin.offset <= at &&
                at < f.value.end.offset) {
                key = f.name;
                key_begin = f.key.begin.offset;
                ctor = c;
                r = {v.lines.at(f.value.begin.offset), v.lines.at(f.value.end.offset)};
            }
    }
    if (key.empty())
        return nullptr;
    const key_doc *k = find_key(kind_of(v, ctor), key);
    std::string text = k ? doc_of(*k) : "";
    // What the loader made of this very key here.
    const size_t old = v.to_old(key_begin);
    if (v.a && old != std::string_view::npos)
        if (const auto *n = named_at(*v.a, old)) {
            std::string s = stored_text(*v.a, n->first, n->second);
            const size_t dot = n->first.rfind('.');
            const std::string line =
                dump_line(v.a->model, dot == std::string::npos ? "" : n->first.substr(0, dot), key);
            if (!line.empty())
                s += (s.empty() ? "" : " ") + std::string("The dump writes `") + line + "`.";
            if (!s.empty())
                text = "`" + n->first + "`: " + s + (text.empty() ? "" : "\n\n---\n\n" + text);
        }
    if (text.empty())
        return nullptr;
    return {{"contents", {{"kind", "markdown"}, {"value", text}}}, {"range", range_json(r)}};
}

std::optional<text_fix> fix_of(const script_model &m, const finding &f)
{
    static const std::regex MEANT(R"(did you mean [`"]([^`"]+)[`"]\?)");
    std::smatch meant;
    if (!std::regex_search(f.message, meant, MEANT) || f.where.none())
        return std::nullopt;
    const std::string to = meant[1];
    // The misspelt name: one the message quotes, other than the one meant.
    static const std::regex QUOTED[] = {std::regex("`([^`]+)`"), std::regex("'([^']+)'"),
                                        std::regex(R"(\(([^()]+)\))")};
    std::vector<std::string> wrong;
    for (const std::regex &q : QUOTED)
        for (std::sregex_iterator it(f.message.begin(), f.message.end(), q), end; it != end; ++it)
            if ((*it)[1].str() != to && !nearest_name((*it)[1].str(), {to}).empty())
                wrong.push_back((*it)[1].str());
    if (wrong.empty())
        return std::nullopt;
    const std::string_view t = m.text;
    // Where to look: the finding's place, else the table around it.
    std::vector<std::pair<size_t, size_t>> regions = {{f.where.begin.offset, f.where.end.offset}};
    const int32_t c = constructor_at(m.source, t, f.where.begin.offset);
    if (c >= 0)
        regions.emplace_back(m.source.constructors[static_cast<size_t>(c)].span.begin.offset,
                             m.source.constructors[static_cast<size_t>(c)].span.end.offset);
    for (const auto &[b, e] : regions) {
        std::vector<text_fix> found;
        for (const std::string &w : wrong)
            for (size_t i = t.find(w, b); i != std::string_view::npos && i + w.size() <= e;
                 i = t.find(w, i + 1)) {
                const char before = i > 0 ? t[i - 1] : ' ',
                           after = i + w.size() < t.size() ? t[i + w.size()] : ' ';
                const bool quoted = (before == '"' || before == '\'') && after == before;
                const bool name = !name_byte(before) && !name_byte(after) && !quoted &&
                                  std::all_of(w.begin(), w.end(), name_byte);
                if (quoted || name)
                    found.push_back({i, i + w.size(), to, "Replace `" + w + "` with `" + to + "`"});
            }
        if (found.size() == 1)
            return found[0];
        if (!found.empty())
            return std::nullopt; // not telling which one is meant
    }
    return std::nullopt;
}

namespace
{

// The value a missing key is inserted with: zeros of its type, a name it
// takes.
std::string placeholder(const view &v, const key_doc &k)
{
    if (k.type.starts_with("array of 2"))
        return "{0, 0}";
    if (k.type.starts_with("array of 4"))
        return "{0, 0, 0, 0}";
    if (k.type.starts_with("table") || k.type.starts_with("array"))
        return "{}";
    if (k.type == "string") {
        const auto names = names_for(v, k.key);
        return "\"" + (names.empty() ? std::string() : names.front().first) + "\"";
    }
    return "0";
}

// The findings of the last check, placed in `asked` of the text now, that
// name a key of a table (their path goes one key below a table's).
std::vector<const finding *> lacking_in(const view &v, const range &asked)
{
    std::vector<const finding *> out;
    if (!v.a)
        return out;
    const size_t from = v.lines.offset(asked.start), to = v.lines.offset(asked.end);
    for (const finding &f : v.a->findings) {
        const size_t b = v.to_new(f.where.begin.offset), e = v.to_new(f.where.end.offset);
        if (!f.where.none() && b != std::string_view::npos && e != std::string_view::npos &&
            e >= from && b <= to && f.path.find('.') != std::string::npos)
            out.push_back(&f);
    }
    return out;
}

} // namespace

json code_actions(const document &d, const json &params)
{
    const view v(d);
    json actions = json::array();
    // at() throws for a member that is missing: the request is refused as
    // one with invalid parameters.
    const json &r = params.at("range");
    const range asked{
        {r.at("start").at("line").get<uint32_t>(), r.at("start").at("character").get<uint32_t>()},
        {r.at("end").at("line").get<uint32_t>(), r.at("end").at("character").get<uint32_t>()}};
    auto edit = [&](const std::string &title, size_t b, size_t e, const std::string &text,
                    const json &diags) {
        json change = {{"range", range_json({v.lines.at(b), v.lines.at(e)})}, {"newText", text}};
        json changes = json::object();
        changes[d.uri] = json::array({change});
        json a = {{"title", title}, {"kind", "quickfix"}, {"edit", {{"changes", changes}}}};
        if (!diags.empty())
            a["diagnostics"] = diags, a["isPreferred"] = true;
        actions.push_back(a);
    };
    // The fixes of the findings the editor asks about (those of the last
    // check whose place still stands where it stood).
    if (v.a) {
        const line_index old_lines(v.old);
        const size_t from = v.lines.offset(asked.start), to = v.lines.offset(asked.end);
        // One action per edit: two findings with one fix (the load's and
        // the unknown key's) share it, each named among its diagnostics.
        std::map<std::tuple<size_t, size_t, std::string>, size_t> made;
        for (const finding &f : v.a->findings) {
            const auto fix = fix_of(v.a->model, f);
            if (!fix)
                continue;
            const size_t b = v.to_new(fix->begin), e = v.to_new(fix->end);
            const size_t fb = v.to_new(f.where.begin.offset), fe = v.to_new(f.where.end.offset);
            if (b == std::string_view::npos || e == std::string_view::npos ||
                fb == std::string_view::npos || fe == std::string_view::npos || fe < from ||
                fb > to)
                continue;
            const auto key = std::make_tuple(b, e, fix->text);
            if (auto it = made.find(key); it != made.end()) {
                actions[it->second]["diagnostics"].push_back(diagnostic(old_lines, f));
                continue;
            }
            made.emplace(key, actions.size());
            edit(fix->title, b, e, fix->text, json::array({diagnostic(old_lines, f)}));
        }
    }
    // The required keys the table at the cursor lacks: of the tables the
    // check read there, and of those a finding in the range says lack a
    // key (its diagnostic may stand at a key list or a switch, and an
    // editor asks at the diagnostic), written where their values were to
    // be written; where the check read none, of the constructor at the
    // cursor as it stands.
    const size_t at = v.lines.offset(asked.start);
    const size_t old_at = v.to_old(at);
    std::vector<const read_table *> read = old_at == std::string_view::npos
                                               ? std::vector<const read_table *>{}
                                               : read_at(v.a->model, old_at);
    const std::vector<const finding *> lacking = lacking_in(v, asked);
    if (v.a)
        for (const finding *f : lacking)
            for (const read_table &t : v.a->model.tables)
                if (f->path.starts_with(t.path + ".") && !read_kind(v.a->model, t).empty() &&
                    std::find(read.begin(), read.end(), &t) == read.end())
                    read.push_back(&t);
    if (!read.empty()) {
        const script_model &m = v.a->model;
        const line_index old_lines(v.old);
        std::map<int32_t, std::string> inserts; // by constructor of the checked text
        std::vector<std::string> names;
        json tied = json::array(); // the diagnostics of the keys inserted
        for (const read_table *t : read)
            for (const key_doc *k : keys_of(read_kind(m, *t))) {
                // A key a finding says is lacking is inserted too: one a
                // switch asks for, one whose absence stops its table.
                const std::string path = t->path + "." + k->key;
                const bool named = std::any_of(lacking.begin(), lacking.end(),
                                               [&](const finding *f) { return f->path == path; });
                if ((!named && (!k->required || k->gated)) ||
                    std::binary_search(t->keys.begin(), t->keys.end(), k->key))
                    continue;
                const auto [c, key] = insertion_for(m, *t, k->key);
                const std::string text = " " + key + " = " + placeholder(v, *k) + ",";
                if (c < 0 || inserts[c].find(text) != std::string::npos)
                    continue;
                inserts[c] += text;
                if (std::find(names.begin(), names.end(), key) == names.end())
                    names.push_back(key);
                for (const finding *f : lacking)
                    if (f->path == path)
                        tied.push_back(diagnostic(old_lines, *f));
            }
        json changes = json::array();
        for (const auto &[c, text] : inserts) {
            const size_t b =
                v.to_new(m.source.constructors[static_cast<size_t>(c)].span.begin.offset + 1);
            if (b != std::string_view::npos)
                changes.push_back(
                    {{"range", range_json({v.lines.at(b), v.lines.at(b)})}, {"newText", text}});
        }
        if (!changes.empty()) {
            json edits = json::object();
            edits[d.uri] = changes;
            std::string title = "Insert the missing required keys of this " +
                                read_kind(m, *read.front()) + " table:";
            for (const std::string &n : names)
                title += (n == names.front() ? " " : ", ") + n;
            json a = {{"title", title}, {"kind", "quickfix"}, {"edit", {{"changes", edits}}}};
            if (!tied.empty())
                a["diagnostics"] = tied, a["isPreferred"] = true;
            actions.push_back(a);
        }
        return actions;
    }
    const int32_t ctor = constructor_at(v.map, v.text, at);
    const std::string kind = kind_of(v, ctor);
    if (!kind.empty()) {
        const src_constructor &c = v.map.constructors[static_cast<size_t>(ctor)];
        std::string insert, names;
        for (const key_doc *k : keys_of(kind)) {
            if (!k->required || k->gated)
                continue;
            if (std::any_of(c.fields.begin(), c.fields.end(), [&](const src_field &f) {
                    return f.kind == src_field::named && f.name == k->key;
                }))
                continue;
            insert += " " + k->key + " = " + placeholder(v, *k) + ",";
            names += (names.empty() ? "" : ", ") + k->key;
        }
        if (!insert.empty())
            edit("Insert the missing required keys of this " + kind + " table: " + names,
                 c.span.begin.offset + 1, c.span.begin.offset + 1, insert, json::array());
    }
    return actions;
}

json document_symbols(const document &d)
{
    const view v(d);
    json out = json::array();
    if (!v.a)
        return out;
    const script_model &m = v.a->model;
    struct sym {
        const read_table *t;
        std::string name, detail;
        int kind;
        range r, sel; // its range, and the part of it an editor selects
        json children = json::array();
    };
    std::vector<sym> syms;
    for (const read_table &t : m.tables) {
        const std::string kind = table_kind(t.path);
        static const std::pair<const char *, int> SHOWN[] = {
            {"channel", SYMBOL_CLASS},       {"vsrc", SYMBOL_STRUCT},
            {"buffer", SYMBOL_FIELD},        {"pass_1", SYMBOL_STRUCT},
            {"pyramid", SYMBOL_STRUCT},      {"canvas", SYMBOL_CLASS},
            {"stream", SYMBOL_CLASS},        {"mem_layout", SYMBOL_MODULE},
            {"channels_mem", SYMBOL_STRUCT}, {"streams_mem", SYMBOL_STRUCT},
            {"network", SYMBOL_CLASS}};
        int sk = 0;
        for (const auto &[k, s] : SHOWN)
            if (kind == k)
                sk = s;
        if (!sk)
            continue;
        // Where the table was written: what a definition of it shows.
        const made_place at = made_at(m, t);
        const auto r = v.span(at.where);
        if (!r)
            continue;
        const auto key = v.span(at.key);
        // The name a reader knows the table by: chan_0, chan_0.main, vsrc,
        // canvas[1], streams[0].
        std::string name = t.path.substr(t.path.rfind('.') + 1);
        static const std::regex BUF(R"(channels\[(\d+)\]\.src_buf\[(\d+)\]\[(\d+)\])");
        std::smatch b;
        if (std::regex_match(t.path, b, BUF))
            name = kit::buffer_name(std::stoi(b[1]), std::stoi(b[2]), std::stoi(b[3]));
        else if (t.path.starts_with("channels[") && kind == "channel")
            name = "chan_" + t.path.substr(9, t.path.size() - 10);
        else if (kind == "pass_1")
            name = "pass_1";
        syms.push_back({&t, name, kind, sk, *r, key ? *key : range{r->start, r->start}});
    }
    // Nested by path: a table goes under the nearest table whose path
    // begins its own, the buffers of a further pass under that pass.
    // Children come after their parents in reading order, so a backward
    // pass hands each to its parent.
    std::vector<std::string> nest(syms.size());
    for (size_t i = 0; i < syms.size(); ++i) {
        static const std::regex PASS_BUF(R"((channels\[\d+\])\.src_buf\[([1-9]\d*)\](.*))");
        std::smatch b;
        nest[i] = std::regex_match(syms[i].t->path, b, PASS_BUF)
                      ? b[1].str() + ".pass_cfg[" + b[2].str() + "].src_buf" + b[3].str()
                      : syms[i].t->path;
    }
    std::vector<int> parent(syms.size(), -1);
    for (size_t i = 0; i < syms.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            if (nest[i].starts_with(nest[j] + ".") &&
                (parent[i] < 0 || nest[j].size() > nest[static_cast<size_t>(parent[i])].size()))
                parent[i] = static_cast<int>(j);
    // A table written outside the one it belongs to (a local given by name,
    // `vsrc = main_sensor`) is shown where its way passed through its
    // parent, the last store there, so that an editor's outline nests; else
    // over the whole of its parent.  Parents come first, placed already.
    for (size_t i = 0; i < syms.size(); ++i) {
        if (parent[i] < 0)
            continue;
        const sym &up = syms[static_cast<size_t>(parent[i])];
        sym &s = syms[i];
        if (within(up.r, s.r))
            continue;
        s.r = up.r;
        s.sel = up.sel;
        const flow_value e = entry_of(m, *s.t);
        const std::vector<flow_step> way =
            e.known() ? m.flow->way(e.origin) : std::vector<flow_step>{};
        for (auto step = way.rbegin(); step != way.rend(); ++step) {
            const auto r = step->kind == flow_step::stored ? v.span(step->where) : std::nullopt;
            if (r && within(up.r, *r)) {
                const auto key = v.span(step->key);
                s.r = *r;
                s.sel = key ? *key : range{r->start, r->start};
                break;
            }
        }
    }
    // In the order they stand in the script.
    auto by_place = [](const json &a, const json &b) {
        const json &x = a.at("range").at("start"), &y = b.at("range").at("start");
        return std::pair(x["line"].get<uint32_t>(), x["character"].get<uint32_t>()) <
               std::pair(y["line"].get<uint32_t>(), y["character"].get<uint32_t>());
    };
    std::vector<json> made(syms.size());
    for (size_t i = syms.size(); i-- > 0;) {
        std::stable_sort(syms[i].children.begin(), syms[i].children.end(), by_place);
        json s = {{"name", syms[i].name},
                  {"detail", syms[i].detail},
                  {"kind", syms[i].kind},
                  {"range", range_json(syms[i].r)},
                  {"selectionRange", range_json(syms[i].sel)},
                  {"children", syms[i].children}};
        if (parent[i] >= 0)
            syms[static_cast<size_t>(parent[i])].children.insert(
                syms[static_cast<size_t>(parent[i])].children.begin(), s);
        else
            made[i] = s;
    }
    for (json &s : made)
        if (!s.is_null())
            out.push_back(std::move(s));
    std::stable_sort(out.begin(), out.end(), by_place);
    return out;
}

json definition(const document &d, position p)
{
    const view v(d);
    const size_t at = v.lines.offset(p);
    if (!v.a)
        return nullptr;
    // An object of the pipeline: where it was written, as its references
    // give it (navigate.h).
    if (json to = object_definition(d, p); !to.is_null())
        return to;
    // A buffer or channel by its name: "chan_0.main", "chan_1.second_1", "chan_2".
    const string_at_t s = string_at(v.text, at);
    if (s.open != std::string_view::npos) {
        static const std::regex NAME(R"(chan_(\d)(?:\.([a-z]+)(?:_(\d))?)?)");
        const std::string content(v.text.substr(s.open + 1, s.close - s.open - 1));
        std::smatch n;
        if (!std::regex_match(content, n, NAME))
            return nullptr;
        std::string path = "channels[" + n[1].str() + "]";
        if (n[2].matched) {
            int b = -1;
            for (int i = 0; i < KIV_SRC_BUF_NUM; ++i)
                if (n[2].str() == kiv_src_buf_names[i])
                    b = i;
            if (b < 0)
                return nullptr;
            path = kit::buffer_path(std::stoi(n[1]), n[3].matched ? std::stoi(n[3]) : 0, b);
        }
        const read_table *t = table_at_path(*v.a, path);
        return t ? location(v, made_at(v.a->model, *t).where) : nullptr;
    }
    // A variable given as a table's value: the table the loader read there.
    const word w = word_at(v.text, at);
    if (w.text.empty())
        return nullptr;
    const int32_t c = constructor_at(v.map, v.text, at);
    const read_table *holder_table = read_as(v, c);
    const auto &tables = v.a->model.tables;
    for (const src_field &f : holder_table ? v.map.constructors[static_cast<size_t>(c)].fields
                                           : std::vector<src_field>{})
        if (f.kind == src_field::named && f.value.begin.offset == w.begin &&
            f.value.end.offset == w.end)
            for (const read_table &t : tables)
                if (t.parent == holder_table - tables.data() && script_key(t.path) == f.name)
                    return location(v, made_at(v.a->model, t).where);
    // Else where the name is defined: `local NAME =`, `NAME =` or a function.
    const std::regex def("(^|[^.\\w])(local\\s+(function\\s+)?|function\\s+)?" +
                         std::string(w.text) + "\\s*(=[^=]|\\()");
    const std::string text(v.text);
    for (std::sregex_iterator it(text.begin(), text.end(), def), end; it != end; ++it) {
        const size_t b =
            static_cast<size_t>(it->position(0)) + (*it)[1].length() + (*it)[2].length();
        if (b == w.begin)
            continue;
        if ((*it)[4].str() == "(" && !(*it)[2].matched)
            continue; // a call
        return {{"uri", d.uri},
                {"range", range_json({v.lines.at(b), v.lines.at(b + w.text.size())})}};
    }
    return nullptr;
}

std::vector<std::optional<range>> carried(const document &d, const std::vector<src_span> &spans)
{
    const view v(d);
    std::vector<std::optional<range>> out;
    for (const src_span &s : spans)
        out.push_back(v.span(s));
    return out;
}

} // namespace kivtool::lsp
