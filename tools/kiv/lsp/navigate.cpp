#include "lsp/navigate.h"

#include <algorithm>
#include <map>
#include <set>

#include "lsp/places.h"
#include "model/lex.h"
#include "model/rule_kit.h"

namespace kivtool::lsp
{

// The objects of the pipeline a check read and their places in the
// checked text, made once per check (analysis::navigation).
namespace nav
{

// Bytes [b, e) of the checked text.
struct stretch {
    size_t b = 0, e = 0;
    bool operator==(const stretch &) const = default;
    bool operator<(const stretch &o) const { return b != o.b ? b < o.b : e < o.e; }
};

enum class kind_t { channel, buffer, canvas, vsrc };

struct object {
    kind_t kind;
    std::string name;                 // "chan_0", "chan_0.main", "canvas[1]", "vsrc_id 0"
    int index = 0;                    // the canvas's, for the streams' maps
    std::vector<stretch> decls, keys; // where written, and the key of each (or none: e == b)
    std::vector<stretch> uses;        // where named
};

// A place that asks about an object.
struct mark {
    stretch at;
    size_t object;
};

struct index {
    std::vector<object> objects;
    std::vector<mark> marks;
    std::map<std::string, size_t> by_name; // channels and buffers
};

} // namespace nav

namespace
{

using nav::kind_t;
using nav::mark;
using nav::object;
using nav::stretch;
using pipeline = nav::index;

// The protocol's kinds of document highlights.
enum : int {
    HIGHLIGHT_READ = 2,
    HIGHLIGHT_WRITE = 3,
};

constexpr size_t npos = std::string_view::npos;

std::optional<stretch> of(const src_span &s)
{
    if (s.none())
        return std::nullopt;
    return stretch{s.begin.offset, s.end.offset};
}

bool blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// The number in path at `from` ("12]..."), and the offset after it; -1 for none.
int number_at(const std::string &path, size_t from, size_t *after)
{
    size_t i = from;
    int n = 0;
    while (i < path.size() && path[i] >= '0' && path[i] <= '9' && i - from < 6)
        n = n * 10 + (path[i++] - '0');
    *after = i;
    return i == from ? -1 : n;
}

// Reads "prefix[N]" at the start of path: N, with *rest after the ']';
// -1 when path does not start so.
int indexed(const std::string &path, std::string_view prefix, size_t from, size_t *rest)
{
    if (path.compare(from, prefix.size(), prefix) != 0 ||
        path.compare(from + prefix.size(), 1, "[") != 0)
        return -1;
    size_t after;
    const int n = number_at(path, from + prefix.size() + 1, &after);
    if (n < 0 || path.compare(after, 1, "]") != 0)
        return -1;
    *rest = after + 1;
    return n;
}

// The text of a string literal written at s, without its quotes; "" when s
// is no plain literal.
std::string literal(std::string_view text, const src_span &s)
{
    const std::string_view w = span_text(text, s);
    if (w.size() < 2 || (w[0] != '"' && w[0] != '\'') || w.find(w[0], 1) != w.size() - 1 ||
        w.find('\\') != npos)
        return "";
    return std::string(w.substr(1, w.size() - 2));
}

// The string the evaluator computed at a record path (for a name built
// from pieces, `"chan_" .. c .. ".main"`), walking the path from the top
// table; "" when it did not compute one there.
std::string computed(const script_model &m, const std::string &path)
{
    if (!m.flow || m.tables.empty() || !m.tables.front().path.empty())
        return "";
    const value_flow &fl = *m.flow;
    flow_value v = entry_of(m, m.tables.front());
    for (size_t i = 0; i < path.size() && v.type == flow_value::table && v.t;) {
        if (path[i] == '.') {
            ++i;
        } else if (path[i] == '[') {
            size_t after;
            const int n = number_at(path, i + 1, &after);
            if (n < 0)
                return "";
            v = fl.element(v.t, n + 1);
            i = after + 1;
        } else {
            const size_t e = path.find_first_of(".[", i);
            v = fl.field(v.t, std::string_view(path).substr(i, e - i));
            i = e == npos ? path.size() : e;
        }
        if (i >= path.size())
            return v.type == flow_value::string ? std::string(v.s) : "";
    }
    return "";
}

// The name a table was given where it was written: `local NAME = {` or
// `NAME = {` before the constructor at s; none when there is no such name.
stretch local_name(std::string_view t, const stretch &s)
{
    if (s.b >= t.size() || t[s.b] != '{')
        return {};
    size_t i = s.b;
    while (i > 0 && (t[i - 1] == ' ' || t[i - 1] == '\t'))
        --i;
    if (i < 2 || t[i - 1] != '=' || t[i - 2] == '=' || t[i - 2] == '~' || t[i - 2] == '<' ||
        t[i - 2] == '>')
        return {};
    --i;
    while (i > 0 && (t[i - 1] == ' ' || t[i - 1] == '\t'))
        --i;
    const word w = word_at(t, i);
    if (w.text.empty() || w.end != i || (w.text[0] >= '0' && w.text[0] <= '9'))
        return {};
    // A field of another table (`x.NAME = {`) is a store the reading names
    // by its own key already.
    if (w.begin > 0 && (t[w.begin - 1] == '.' || t[w.begin - 1] == ':'))
        return {};
    return {w.begin, w.end};
}

// Where the table t was written, its key with it: as definition gives it
// (made_at), and for a table first held by a local, from the local's name,
// as the reading places a global's `NAME = {`.
std::pair<stretch, stretch> written(const script_model &m, const read_table &t)
{
    const made_place at = made_at(m, t);
    const auto where = of(at.where);
    if (!where)
        return {};
    if (const auto key = of(at.key))
        return {*where, *key};
    const stretch name = local_name(m.text, *where);
    if (name.e > name.b)
        return {{name.b, where->e}, name};
    return {*where, {where->b, where->b}};
}

// The braces of a table written without a key, `{ ... }` or the argument
// of a helper's call, `channel { ... }`: where a cursor asks about it.
void brace_marks(const script_model &m, const stretch &w, size_t obj, std::vector<mark> &out)
{
    const std::string_view t = m.text;
    size_t i = w.b;
    const word head = word_at(t, i);
    if (head.begin == i && !head.text.empty()) {
        i = head.end;
        while (i < w.e && blank(t[i]))
            ++i;
    }
    if (i >= w.e || t[i] != '{')
        return;
    out.push_back({{i, i + 1}, obj});
    if (w.e > i + 1 && t[w.e - 1] == '}')
        out.push_back({{w.e - 1, w.e}, obj});
}

// What a record path's value names: a buffer (a canvas's `source`
// entry), a channel (img_stats_src_chan, a member of a group), canvases (a
// stream's map).
enum class naming { none, buffer, channel, canvases };

naming naming_of(const std::string &path)
{
    size_t rest, end;
    if (indexed(path, "canvas", 0, &rest) >= 0 && indexed(path, ".source", rest, &end) >= 0 &&
        end == path.size())
        return naming::buffer;
    if ((path.starts_with("channels[") && path.ends_with("].img_stats_src_chan")) ||
        (indexed(path, "chan_groups", 0, &rest) >= 0 && indexed(path, "", rest, &end) >= 0 &&
         end == path.size()))
        return naming::channel;
    if (path.starts_with("streams[") && path.ends_with("].possible_enc_src_map"))
        return naming::canvases;
    return naming::none;
}

pipeline pipeline_of(const script_model &m)
{
    pipeline pl;
    // By name; a video source by its vsrc_id, or by its table when it has none.
    std::map<std::string, size_t> known;
    std::vector<std::vector<const read_table *>> tables; // each object's
    auto add = [&](kind_t k, const std::string &name, int index) {
        auto [it, fresh] = known.emplace(name, pl.objects.size());
        if (fresh) {
            pl.objects.push_back({k, name, index, {}, {}, {}});
            tables.emplace_back();
            if (k == kind_t::channel || k == kind_t::buffer)
                pl.by_name[name] = it->second;
        }
        return it->second;
    };
    for (const read_table &t : m.tables) {
        const std::string &p = t.path;
        size_t rest = 0;
        size_t obj = npos;
        if (const int c = indexed(p, "channels", 0, &rest); c >= 0) {
            int pass, buf;
            size_t r2, r3;
            if (rest == p.size()) {
                obj = add(kind_t::channel, "chan_" + std::to_string(c), c);
            } else if (p.compare(rest, 1, ".") == 0 &&
                       (pass = indexed(p, "src_buf", rest + 1, &r2)) >= 0 &&
                       (buf = indexed(p, "", r2, &r3)) >= 0 && r3 == p.size() && pass < 2 &&
                       buf < KIV_SRC_BUF_NUM) {
                obj = add(kind_t::buffer, kit::buffer_name(c, pass, buf), c);
            } else if (p.compare(rest, std::string::npos, ".vsrc") == 0) {
                // One source for the channels that give it one vsrc_id.
                const auto id = m.held.find(p + ".vsrc_id");
                obj = add(kind_t::vsrc,
                          id != m.held.end() ? "vsrc_id " + std::to_string(id->second)
                                             : "vsrc of " + p,
                          c);
            }
        } else if (const int i = indexed(p, "canvas", 0, &rest); i >= 0 && rest == p.size()) {
            obj = add(kind_t::canvas, p, i);
        }
        if (obj == npos)
            continue;
        tables[obj].push_back(&t);
        object &o = pl.objects[obj];
        const auto [where, key] = written(m, t);
        if (where.e > where.b &&
            std::find(o.decls.begin(), o.decls.end(), where) == o.decls.end()) {
            o.decls.push_back(where);
            o.keys.push_back(key);
        }
    }

    // Where the pipeline names them: the names of buffers in the canvases'
    // `source`, of channels in img_stats_src_chan and chan_groups, the
    // canvases in the streams' maps.
    std::set<std::string> seen;
    for (const auto &named : m.named) {
        const std::string &path = named.first;
        const naming what = naming_of(path);
        if (what == naming::none || !seen.insert(path).second)
            continue;
        const place *p = m.place_at(path);
        if (!p || !p->present || p->where.none())
            continue;
        if (what == naming::canvases) {
            const auto held = m.held.find(path);
            for (object &o : pl.objects)
                if (held != m.held.end() && o.kind == kind_t::canvas && o.index < 16 &&
                    (held->second >> o.index & 1))
                    o.uses.push_back(*of(p->where));
            continue;
        }
        std::string name = literal(m.text, p->value);
        if (name.empty())
            name = computed(m, path);
        if (auto it = pl.by_name.find(name);
            it != pl.by_name.end() &&
            pl.objects[it->second].kind ==
                (what == naming::buffer ? kind_t::buffer : kind_t::channel))
            pl.objects[it->second].uses.push_back(*of(p->value.none() ? p->where : p->value));
    }

    // The stores of each object's value outside the helpers that give a
    // variable holding it: `vsrc = sensor`, `chan_0` in the list of
    // channels.  A video source's last store in a channel, whatever its
    // value, is that channel taking it; one written in the channel itself,
    // `vsrc = { ... }`, is taken at its key.
    for (size_t i = 0; i < pl.objects.size(); ++i) {
        object &o = pl.objects[i];
        for (const read_table *t : tables[i]) {
            const flow_value e = entry_of(m, *t);
            std::optional<stretch> last;
            for (const flow_step &s :
                 e.known() ? m.flow->way(e.origin) : std::vector<flow_step>{}) {
                const auto w = of(s.where);
                if (s.kind != flow_step::stored || !w || in_function(m.source, s.where) ||
                    std::find(o.decls.begin(), o.decls.end(), *w) != o.decls.end())
                    continue;
                const word v = word_at(m.text, s.value.begin.offset);
                last = w;
                if (!s.value.none() && v.begin == s.value.begin.offset &&
                    v.end == s.value.end.offset)
                    o.uses.push_back(*w);
            }
            if (o.kind != kind_t::vsrc)
                continue;
            if (!e.known() && t->parent >= 0) {
                // Without the evaluator: the channel's own field, when the
                // channel was written in the main chunk.
                const read_table &chan = m.tables[static_cast<size_t>(t->parent)];
                if (const src_field *f = field_of(m.source, chan.ctor, "vsrc", -1);
                    f && !f->value.none() && !in_function(m.source, f->value))
                    last = stretch{f->key.begin.offset, f->value.end.offset};
            }
            if (last)
                o.uses.push_back(*last);
            else if (const stretch key = written(m, *t).second; key.e > key.b)
                o.uses.push_back(key);
        }
    }

    for (size_t i = 0; i < pl.objects.size(); ++i) {
        object &o = pl.objects[i];
        std::sort(o.uses.begin(), o.uses.end());
        o.uses.erase(std::unique(o.uses.begin(), o.uses.end()), o.uses.end());
        for (size_t k = 0; k < o.decls.size(); ++k) {
            if (o.keys[k].e > o.keys[k].b)
                pl.marks.push_back({o.keys[k], i});
            else
                brace_marks(m, o.decls[k], i, pl.marks);
        }
        for (const stretch &u : o.uses)
            pl.marks.push_back({u, i});
    }
    return pl;
}

// The objects a place of the checked text asks about: those of the
// innermost mark that holds it (several when one place names several, a
// stream's map), or a string that names a channel or a buffer.
std::vector<size_t> objects_at(const pipeline &pl, const script_model &m, size_t at)
{
    std::vector<size_t> out;
    size_t best = npos;
    auto consider = [&](const stretch &s, size_t obj) {
        if (at < s.b || at > s.e)
            return;
        if (s.e - s.b < best) {
            best = s.e - s.b;
            out.clear();
        }
        if (s.e - s.b == best && std::find(out.begin(), out.end(), obj) == out.end())
            out.push_back(obj);
    };
    for (const mark &mk : pl.marks)
        consider(mk.at, mk.object);
    const string_at_t s = string_at(m.text, at);
    if (s.open != npos && s.close < m.text.size() && m.text[s.close] == m.text[s.open])
        if (auto it = pl.by_name.find(m.text.substr(s.open + 1, s.close - s.open - 1));
            it != pl.by_name.end())
            consider({s.open, s.close + 1}, it->second);
    return out;
}

// What a request at p asks about: the objects there, in the pipeline of
// the last check.
struct asked {
    const view v;
    std::shared_ptr<const pipeline> made;
    const pipeline &pl;
    std::vector<size_t> objects;

    asked(const document &d, position p) : v(d), made(of_check(v.a)), pl(*made)
    {
        if (const size_t at = v.a ? v.to_old(v.lines.offset(p)) : npos; at != npos)
            objects = objects_at(pl, v.a->model, at);
    }
    static std::shared_ptr<const pipeline> of_check(const analysis *a)
    {
        if (!a)
            return std::make_shared<const pipeline>();
        if (!a->navigation)
            a->navigation = std::make_shared<const pipeline>(pipeline_of(a->model));
        return a->navigation;
    }
    std::optional<range> range_of(const stretch &s) const
    {
        const size_t b = v.to_new(s.b), e = v.to_new(s.e);
        if (b == npos || e == npos || e < b)
            return std::nullopt;
        return range{v.lines.at(b), v.lines.at(e)};
    }
    json location(const stretch &s) const
    {
        const auto r = range_of(s);
        return r ? json{{"uri", v.d.uri}, {"range", range_json(*r)}} : json();
    }
};

// The part of a declaration a highlight shows: its key, else its first
// line.
stretch narrowed(std::string_view t, const stretch &decl, const stretch &key)
{
    if (key.e > key.b)
        return key;
    size_t e = decl.b;
    while (e < decl.e && t[e] != '\n' && t[e] != '\r')
        ++e;
    while (e > decl.b + 1 && blank(t[e - 1]))
        --e;
    return {decl.b, e};
}

// The line a fold closed at `close` (its `}` or `end`) ends on: the line
// before when the closing token starts its line.
uint32_t last_folded(const line_index &lines, std::string_view t, size_t close)
{
    const uint32_t line = lines.line_of(close);
    size_t i = close;
    while (i > 0 && (t[i - 1] == ' ' || t[i - 1] == '\t'))
        --i;
    return (i == 0 || t[i - 1] == '\n' || t[i - 1] == '\r') && line > 0 ? line - 1 : line;
}

} // namespace

json references(const document &d, position p, bool declaration)
{
    const asked q(d, p);
    std::vector<stretch> decls, uses;
    json out = json::array();
    std::vector<stretch> done; // with the declarations, the keys of those taken at their key
    for (size_t o : q.objects) {
        const object &ob = q.pl.objects[o];
        if (declaration) {
            decls.insert(decls.end(), ob.decls.begin(), ob.decls.end());
            done.insert(done.end(), ob.keys.begin(), ob.keys.end());
        }
        uses.insert(uses.end(), ob.uses.begin(), ob.uses.end());
    }
    std::sort(uses.begin(), uses.end());
    for (const auto *list : {&decls, &uses})
        for (const stretch &s : *list) {
            if (std::find(done.begin(), done.end(), s) != done.end())
                continue;
            done.push_back(s);
            if (json l = q.location(s); !l.is_null())
                out.push_back(std::move(l));
        }
    return out;
}

json document_highlights(const document &d, position p)
{
    const asked q(d, p);
    std::map<stretch, int> kinds; // a place both written and named is shown written
    for (size_t o : q.objects) {
        const object &ob = q.pl.objects[o];
        for (size_t k = 0; k < ob.decls.size(); ++k)
            kinds[narrowed(q.v.old, ob.decls[k], ob.keys[k])] = HIGHLIGHT_WRITE;
        for (const stretch &u : ob.uses)
            kinds.emplace(u, HIGHLIGHT_READ);
    }
    json out = json::array();
    for (const auto &[s, kind] : kinds)
        if (const auto r = q.range_of(s))
            out.push_back({{"range", range_json(*r)}, {"kind", kind}});
    return out;
}

json object_definition(const document &d, position p)
{
    const asked q(d, p);
    json out = json::array();
    std::vector<stretch> done;
    for (size_t o : q.objects)
        for (const stretch &s : q.pl.objects[o].decls)
            if (std::find(done.begin(), done.end(), s) == done.end()) {
                done.push_back(s);
                if (json l = q.location(s); !l.is_null())
                    out.push_back(std::move(l));
            }
    if (out.empty())
        return nullptr;
    return out.size() == 1 ? out[0] : out;
}

json folding_ranges(const document &d, size_t limit)
{
    const text_map &tm = scanned(d);
    const std::string_view t = d.text;
    struct fold {
        uint32_t start, end;
        bool comment;
    };
    std::vector<fold> folds;
    auto add = [&](size_t open, size_t close) {
        const uint32_t s = tm.lines.line_of(open), e = last_folded(tm.lines, t, close);
        if (e > s)
            folds.push_back({s, e, false});
    };
    for (const src_constructor &c : tm.map.constructors) {
        const size_t b = c.span.begin.offset, e = c.span.end.offset;
        if (e > b + 1 && e <= t.size() && t[e - 1] == '}')
            add(b, e - 1);
    }
    for (size_t i = 1; i < tm.map.functions.size(); ++i) {
        const src_span &s = tm.map.functions[i].span;
        if (s.end.offset >= 3 && s.end.offset <= t.size() &&
            t.substr(s.end.offset - 3, 3) == "end" && tm.map.functions[i].last_line_defined)
            add(s.begin.offset, s.end.offset - 3);
    }
    // Runs of lines that hold comments and nothing else, to the first token
    // that cannot be read.
    std::vector<char> code, comment;
    auto mark_lines = [&](std::vector<char> &lines, size_t b, size_t e) {
        const uint32_t last = tm.lines.line_of(e);
        if (lines.size() <= last)
            lines.resize(last + 1);
        for (uint32_t l = tm.lines.line_of(b); l <= last; ++l)
            lines[l] = 1;
    };
    lexer lx(t);
    lx.keep_long_comments();
    for (token k = lx.next(); k.kind != tk::eof && k.kind != tk::bad; k = lx.next()) {
        const bool is_comment = k.kind == tk::comment || k.kind == tk::long_comment;
        mark_lines(is_comment ? comment : code, k.begin.offset,
                   std::max(k.begin.offset, k.end.offset - (k.end.offset > k.begin.offset)));
    }
    code.resize(std::max(code.size(), comment.size()));
    for (uint32_t l = 0; l < comment.size();) {
        uint32_t e = l;
        while (e < comment.size() && comment[e] && !code[e])
            ++e;
        if (e > l + 1)
            folds.push_back({l, e - 1, true});
        l = e > l ? e : l + 1;
    }
    // The outermost of those that start on one line, by start line.
    std::sort(folds.begin(), folds.end(), [](const fold &a, const fold &b) {
        return a.start != b.start ? a.start < b.start : a.end > b.end;
    });
    json out = json::array();
    for (size_t i = 0; i < folds.size(); ++i) {
        if (i > 0 && folds[i].start == folds[i - 1].start)
            continue;
        if (limit && out.size() >= limit)
            break;
        json f = {{"startLine", folds[i].start}, {"endLine", folds[i].end}};
        if (folds[i].comment)
            f["kind"] = "comment";
        out.push_back(std::move(f));
    }
    return out;
}

} // namespace kivtool::lsp
