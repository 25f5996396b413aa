#include "model/reading.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

#include "channel/srcbuf.h"
#include "lsp/keydocs.h"
#include "model/names.h"

namespace kivtool
{

namespace
{

// More tables than any configuration makes (a calibration table of 100,000
// pairs makes that many): past this many the origins of further tables are
// not kept (a script that makes millions of tables gets its findings placed
// at the nearest table that is known), so that they take 15 MB at most.
constexpr size_t MAX_ORIGINS = 1u << 18;
// More string keys than any configuration table holds: such a table is not
// listed (no unknown keys are reported for it).
constexpr size_t MAX_KEYS = 4096;

std::string joined(const std::string &rec, const std::string &name)
{
    return rec.empty() ? name : rec + "." + name;
}

std::string indexed(const std::string &rec, int64_t index)
{
    return rec + "[" + std::to_string(index) + "]";
}

int buffer_index(const std::string &name)
{
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b)
        if (name == kiv_src_buf_names[b])
            return b;
    return -1;
}

src_span joined_span(const src_span &a, const src_span &b)
{
    return {a.begin, b.end};
}

// The '{' of a constructor.
// The '{' of a constructor's span.
src_span brace_at(const src_span &c)
{
    src_span b = c;
    b.end = b.begin;
    ++b.end.col;
    ++b.end.offset;
    return b;
}

src_span brace(const src_constructor &c)
{
    src_span s{c.span.begin, c.span.begin};
    ++s.end.col;
    ++s.end.offset;
    return s;
}

} // namespace

table_origins::table_origins(const src_map &source)
{
    for (size_t i = 0; i < source.constructors.size(); ++i) {
        const src_constructor &c = source.constructors[i];
        const src_function &fn = source.functions[static_cast<size_t>(c.function)];
        sites_[{fn.line_defined, fn.last_line_defined, c.table_line}].push_back(
            static_cast<int32_t>(i));
    }
}

// The constructors at the line a function at `level` of the call stack is
// running, and that site; null when it is no function of the script.
const std::vector<int32_t> *table_origins::at(lua_State *L, int level, site *s) const
{
    lua_Debug ar;
    if (!lua_getstack(L, level, &ar) || !lua_getinfo(L, "Sl", &ar) || ar.currentline < 0)
        return nullptr;
    *s = {static_cast<uint32_t>(ar.linedefined), static_cast<uint32_t>(ar.lastlinedefined),
          static_cast<uint32_t>(ar.currentline)};
    auto it = sites_.find(*s);
    return it == sites_.end() ? nullptr : &it->second;
}

void table_origins::made(lua_State *L, const void *table)
{
    site s{};
    const std::vector<int32_t> *c = at(L, 0, &s);
    if (!c) {
        made_.erase(table);
        return;
    }
    // Tables made one after another at one site come from its constructors
    // in the order they stand (a line of several constructors run once), or
    // from them again and again (a loop on one line).
    run_ = s == last_ ? run_ + 1 : 0;
    last_ = s;
    if (made_.size() >= MAX_ORIGINS && !made_.count(table))
        return;
    site caller{};
    const std::vector<int32_t> *call = s.fn_line != 0 ? at(L, 1, &caller) : nullptr;
    // The outermost call in the main chunk: where a helper's caller wrote
    // the values it was given (a few levels of helpers at most).
    uint32_t line = 0;
    lua_Debug ar;
    for (int level = 1; s.fn_line != 0 && level < 8 && lua_getstack(L, level, &ar); ++level)
        if (lua_getinfo(L, "Sl", &ar) && ar.linedefined == 0 && ar.currentline > 0) {
            line = static_cast<uint32_t>(ar.currentline);
            break;
        }
    made_[table] = {c, (*c)[run_ % c->size()], call, line};
}

uint32_t table_origins::call_line(const void *table) const
{
    auto it = made_.find(table);
    return it == made_.end() ? 0 : it->second.call_line;
}

const std::vector<int32_t> *table_origins::call_site(const void *table) const
{
    auto it = made_.find(table);
    return it == made_.end() ? nullptr : it->second.call;
}

int32_t table_origins::of(const void *table, int32_t hint) const
{
    auto it = made_.find(table);
    if (it == made_.end())
        return hint;
    const std::vector<int32_t> &c = *it->second.candidates;
    if (hint >= 0 && std::find(c.begin(), c.end(), hint) != c.end())
        return hint;
    return it->second.guess;
}

reading::reading(script_model &m) : m_(m), origins_(m.source)
{
    frame root;
    root.kind = tkind::root;
    root.index = 0;
    m_.tables.emplace_back();
    stack_.push_back(std::move(root));
    w_.ctx = this;
    w_.lookup = [](void *ctx, lua_State *L, const char *name, int32_t index, kiv_want want) {
        static_cast<reading *>(ctx)->lookup(L, name, index, want);
    };
    w_.enter = [](void *ctx, lua_State *) { static_cast<reading *>(ctx)->enter(); };
    w_.leave = [](void *ctx) { static_cast<reading *>(ctx)->leave(); };
    w_.stored = [](void *ctx, const char *key, int32_t elem, int64_t held) {
        static_cast<reading *>(ctx)->stored(key, elem, held);
    };
    w_.unread = [](void *ctx, const char *key) {
        reading *r = static_cast<reading *>(ctx);
        r->mark_read(r->stack_.back(), key, false);
    };
    w_.log = [](void *ctx, const char *text, size_t n) {
        static_cast<reading *>(ctx)->logged(text, n);
    };
    w_.made_table = [](void *ctx, lua_State *L, const void *table) {
        static_cast<reading *>(ctx)->origins_.made(L, table);
    };
}

int32_t reading::ctor_of(lua_State *L, int idx, int32_t hint)
{
    const void *t = lua_topointer(L, idx);
    auto it = ctors_.find(t);
    if (it != ctors_.end())
        return it->second;
    const int32_t c = origins_.of(t, hint);
    ctors_.emplace(t, c);
    return c;
}

const src_field *field_of(const src_map &source, int32_t ctor, const char *name, int32_t index)
{
    if (ctor < 0 || static_cast<size_t>(ctor) >= source.constructors.size())
        return nullptr;
    const std::vector<src_field> &fs = source.constructors[static_cast<size_t>(ctor)].fields;
    if (name) {
        for (auto f = fs.rbegin(); f != fs.rend(); ++f)
            if ((f->kind == src_field::named ||
                 (f->kind == src_field::bracketed && f->literal_key)) &&
                f->name == name)
                return &*f;
        return nullptr;
    }
    const src_field *bracketed = nullptr;
    for (const src_field &f : fs) {
        if (f.kind == src_field::positional && f.index == index + 1)
            return &f;
        if (f.kind == src_field::bracketed && f.literal_key && f.name.empty() &&
            f.index == index + 1)
            bracketed = &f;
    }
    return bracketed;
}

namespace
{

// Whether `v` is one string literal in quotes, without escapes (a text to
// compare as it is).
bool plain_string(std::string_view v)
{
    return v.size() >= 2 && (v[0] == '"' || v[0] == '\'') && v.back() == v[0] &&
           v.substr(1, v.size() - 2).find_first_of(std::string{v[0], '\\'}) ==
               std::string_view::npos;
}

// Whether the text `written` gives the value at idx: false only when it is
// one literal (a number, a plain string, true or false) of another value;
// true for anything that cannot be told without running it.
bool gives(lua_State *L, int idx, std::string_view written)
{
    const std::string t(written);
    char *end = nullptr;
    switch (lua_type(L, idx)) {
    case LUA_TNUMBER: {
        if (t.empty())
            return true;
        errno = 0;
        const long long v = strtoll(t.c_str(), &end, 0);
        if (end && *end == '\0' && errno == 0)
            return lua_isinteger(L, idx) ? v == lua_tointeger(L, idx)
                                         : static_cast<double>(v) == lua_tonumber(L, idx);
        const double d = strtod(t.c_str(), &end);
        if (end && end != t.c_str() && *end == '\0')
            return d == lua_tonumber(L, idx);
        return !plain_string(written) && written != "true" && written != "false";
    }
    case LUA_TSTRING: {
        if (!plain_string(written))
            return written != "true" && written != "false" &&
                   !(strtod(t.c_str(), &end), end && end != t.c_str() && *end == '\0');
        size_t len = 0;
        const char *v = lua_tolstring(L, idx, &len);
        return written.substr(1, written.size() - 2) == std::string_view(v, len);
    }
    case LUA_TBOOLEAN:
        if (written == "true" || written == "false")
            return written == (lua_toboolean(L, idx) ? "true" : "false");
        return !plain_string(written);
    default:
        return true;
    }
}

bool name_char(char c)
{
    return isalnum(static_cast<unsigned char>(c)) || c == '_';
}

// The key a field reads from a helper's argument: `fps` for `o.fps` and
// `o.fps or 30`; "" for anything else.
std::string forwarded_key(std::string_view v)
{
    size_t i = 0;
    while (i < v.size() && name_char(v[i]))
        ++i;
    if (i == 0 || i + 1 >= v.size() || v[i] != '.')
        return "";
    const size_t start = ++i;
    while (i < v.size() && name_char(v[i]))
        ++i;
    if (i == start || (i < v.size() && !v.substr(i).starts_with(" or ")))
        return "";
    return std::string(v.substr(start, i - start));
}

// The name a field takes its value from (`FPS` in `FPS` and in `o.fps or
// FPS`); "" for anything else.
std::string_view variable_of(std::string_view v)
{
    const size_t alt = v.rfind(" or ");
    if (alt != std::string_view::npos)
        v = v.substr(alt + 4);
    if (v.empty() || isdigit(static_cast<unsigned char>(v[0])))
        return "";
    for (char c : v)
        if (!name_char(c))
            return "";
    return v == "true" || v == "false" || v == "nil" ? "" : v;
}

} // namespace

const src_field *reading::find_field(int32_t ctor, const char *name, int32_t index)
{
    if (ctor < 0 || static_cast<size_t>(ctor) >= m_.source.constructors.size())
        return nullptr;
    if (fields_.empty())
        fields_.resize(m_.source.constructors.size());
    std::unique_ptr<field_index> &fi = fields_[static_cast<size_t>(ctor)];
    const std::vector<src_field> &fs = m_.source.constructors[static_cast<size_t>(ctor)].fields;
    if (!fi) {
        fi = std::make_unique<field_index>();
        for (size_t i = 0; i < fs.size(); ++i) {
            const src_field &f = fs[i];
            if (f.kind == src_field::positional)
                fi->positions.push_back(static_cast<int32_t>(i));
            else if (f.kind == src_field::named || (f.literal_key && !f.name.empty()))
                fi->names.emplace_back(f.name, static_cast<int32_t>(i));
        }
        // Sorted by name, the last field of a name after the others.
        std::stable_sort(fi->names.begin(), fi->names.end(),
                         [](const auto &a, const auto &b) { return a.first < b.first; });
    }
    if (name) {
        const std::string_view n(name);
        auto it = std::upper_bound(fi->names.begin(), fi->names.end(), n,
                                   [](std::string_view v, const auto &e) { return v < e.first; });
        if (it == fi->names.begin() || (it - 1)->first != n)
            return nullptr;
        return &fs[static_cast<size_t>((it - 1)->second)];
    }
    if (index >= 0 && static_cast<size_t>(index) < fi->positions.size())
        return &fs[static_cast<size_t>(fi->positions[static_cast<size_t>(index)])];
    return field_of(m_.source, ctor, nullptr, index); // an element given as [i]
}

// Where key `name` (or element `index`) of `table` was written: its field in
// the table's constructor when the value is written out there; when the
// field only passes on what a helper function was given (`id = o.id`,
// `idsp_fps = o.fps or 30`, a parameter), where the helper's caller wrote
// it.
place reading::place_of(lua_State *L, const void *table, int32_t ctor, const char *name,
                        int32_t index)
{
    const src_field *f = find_field(ctor, name, index);
    if (f && written_out(span_text(m_.text, f->value)))
        return {joined_span(f->key, f->value), f->value, true};
    if (table) {
        const place p = passed_on(L, table, f, name);
        if (p.present)
            return p;
    }
    if (f)
        return {joined_span(f->key, f->value), f->value, true};
    if (ctor >= 0)
        return {brace(m_.source.constructors[static_cast<size_t>(ctor)]), {}, false};
    return {};
}

// The place of a value a helper function passed on: the field of the same
// name (or the name the field reads, `o.fps`) in the constructors of the
// call that made the table; a local the field names, where it is given a
// value that gives this one; else the line of the main chunk whose call
// made the table.  Not present when none is known.
place reading::passed_on(lua_State *L, const void *table, const src_field *f, const char *name)
{
    const std::string_view v = f ? span_text(m_.text, f->value) : "";
    const std::string read = forwarded_key(v);
    if (const std::vector<int32_t> *call = origins_.call_site(table))
        for (const char *key : {name, read.empty() ? nullptr : read.c_str()})
            for (int32_t c : *call)
                if (const src_field *g = key ? find_field(c, key, -1) : nullptr)
                    return {joined_span(g->key, g->value), g->value, true};
    if (f && lua_type(L, -1) != LUA_TTABLE && lua_type(L, -1) != LUA_TNIL) {
        src_span value;
        const src_span local = local_value(v, L, &value);
        if (!local.none())
            return {local, value, true};
    }
    if (f && !written_out(v)) {
        if (const uint32_t line = origins_.call_line(table)) {
            const src_span s = line_span(m_.text, line);
            if (!s.none())
                return {s, {}, true};
        }
    }
    return {};
}

// The place of a value that its table's constructor does not give (the
// script patched it in afterwards: `cfg.channels[1].vsrc.bits = 10`): the
// last assignment to that key whose value gives it.  Without one, the
// constructor's '{': better no place for the value than a wrong one.
place reading::patched(lua_State *L, int32_t ctor, const char *name)
{
    const src_assignment *found = nullptr;
    if (name)
        for (int32_t i : m_.assignments_to(name)) {
            const src_assignment &a = m_.source.assignments[static_cast<size_t>(i)];
            if (gives(L, -1, span_text(m_.text, a.value)))
                found = &a;
        }
    if (found)
        return {joined_span(found->key, found->value), found->value, true};
    if (ctor >= 0)
        return {brace(m_.source.constructors[static_cast<size_t>(ctor)]), {}, false};
    return {};
}

// Where a local or global the field names is given the value at -1:
// `local FPS = 25` (or `FPS = 25`) whose literal gives it; none when the
// field names none or no such statement gives the value.
src_span reading::local_value(std::string_view v, lua_State *L, src_span *value_span) const
{
    const std::string_view name = variable_of(v);
    if (name.empty())
        return {};
    for (const script_model::value_set &set : m_.sets_of(name)) {
        const std::string_view value = span_text(m_.text, set.value);
        if (literal(value) && value[0] != '{' && gives(L, -1, value)) {
            if (value_span)
                *value_span = set.value;
            return set.statement;
        }
    }
    return {};
}

// The place of a table value: the assignment that patched it in, when one
// did; where it was made, when the field only names it (a local, a
// parameter); else where the field writes it out or calls what makes it.
place reading::table_value(const void *table, int32_t made, const place &named)
{
    if (made < 0 || (named.present && named.value.none())) // placed at a helper's call
        return named;
    if (const int32_t i = m_.assignment_of(made); i >= 0) {
        const src_assignment &a = m_.source.assignments[static_cast<size_t>(i)];
        return {joined_span(a.key, a.value), a.value, true};
    }
    const std::string_view v = named.present ? span_text(m_.text, named.value) : "";
    if (written_out(v) || v.find('(') != std::string_view::npos)
        return named;
    // A table a helper builds from what it was given ({x, y, w, h}): the
    // call that gave it.
    if (const uint32_t line = v.starts_with("{") ? origins_.call_line(table) : 0) {
        const src_span s = line_span(m_.text, line);
        if (!s.none())
            return {s, {}, true};
    }
    if (v.starts_with("{"))
        return named;
    const src_constructor &c = m_.source.constructors[static_cast<size_t>(made)];
    return {c.span, c.span, true};
}

void reading::note_place(const std::string &path, const place &p)
{
    m_.named.emplace_back(path, p);
}

// A name the loader looked up in (or knows for) the table of frame f.
void reading::mark_read(frame &f, const char *name, bool present)
{
    read_table &t = m_.tables[f.index];
    if (m_.read_in.size() < MAX_KEYS)
        m_.read_in.emplace(name, f.rec);
    if (present || f.collected) {
        auto it = std::lower_bound(t.keys.begin(), t.keys.end(), std::string_view(name),
                                   [](const std::string &k, std::string_view n) { return k < n; });
        if (it != t.keys.end() && *it == name) {
            t.read[static_cast<size_t>(it - t.keys.begin())] = 1;
            return;
        }
    }
    if (std::find(t.missing.begin(), t.missing.end(), name) == t.missing.end())
        t.missing.emplace_back(name);
}

void reading::collect(lua_State *L, frame &f)
{
    f.collected = true;
    std::vector<std::string> &keys = m_.tables[f.index].keys;
    if (lua_type(L, -2) != LUA_TTABLE)
        return;
    const int t = lua_absindex(L, -2);
    lua_pushnil(L);
    while (lua_next(L, t) != 0) {
        if (lua_type(L, -2) == LUA_TSTRING && keys.size() <= MAX_KEYS)
            keys.emplace_back(lua_tostring(L, -2));
        lua_settop(L, -2);
    }
    std::sort(keys.begin(), keys.end());
    m_.tables[f.index].read.assign(keys.size(), 0);
}

namespace
{

// Whether the value at idx is the one the evaluator computed there.
bool agrees(lua_State *L, int idx, const flow_value &v)
{
    switch (lua_type(L, idx)) {
    case LUA_TNIL:
        return v.type == flow_value::nil;
    case LUA_TBOOLEAN:
        return v.type == flow_value::boolean && v.b == (lua_toboolean(L, idx) != 0);
    case LUA_TNUMBER: {
        if (lua_isinteger(L, idx))
            return v.type == flow_value::integer && v.i == lua_tointeger(L, idx);
        const double d = lua_tonumber(L, idx);
        return v.type == flow_value::number && (v.d == d || (d != d && v.d != v.d));
    }
    case LUA_TSTRING: {
        size_t n;
        const char *s = lua_tolstring(L, idx, &n);
        return v.type == flow_value::string && v.s == std::string_view(s, n);
    }
    case LUA_TTABLE:
        return v.type == flow_value::table;
    case LUA_TFUNCTION:
        return v.type == flow_value::function;
    default:
        return false;
    }
}

} // namespace

// What the evaluator holds where the loader looks: field `name` or element
// `index` of frame f's table, or element `index` of its array `name`.
flow_value reading::flowed_value(const frame &f, const char *name, int32_t index) const
{
    if (!m_.flow || !f.flowed)
        return {};
    const value_flow &fl = *m_.flow;
    if (name && index >= 0) {
        const flow_value array = fl.field(f.flowed, name);
        return array.type == flow_value::table ? fl.element(array.t, int64_t{index} + 1)
                                               : flow_value{};
    }
    return name ? fl.field(f.flowed, name) : fl.element(f.flowed, int64_t{index} + 1);
}

// Where key `name` is missing from a list of keys: the element nearest to
// it when one is near enough to be it misspelt, else the list's '{'.
place reading::listed_place(const flow::table *list, const char *name) const
{
    std::vector<std::string> names;
    std::vector<flow_value> elements;
    for (int64_t i = 1; i <= 4096; ++i) {
        const flow_value v = m_.flow->element(list, i);
        if (v.type == flow_value::nil || !v.known())
            break;
        if (v.type == flow_value::string) {
            names.emplace_back(v.s);
            elements.push_back(v);
        }
    }
    const std::string near = nearest_name(name, names);
    for (size_t i = 0; i < names.size() && !near.empty(); ++i)
        if (names[i] == near)
            return flowed_place(elements[i]);
    return {brace_at(m_.flow->made_at(list)), {}, false};
}

// A copy that gives a value a new meaning: one key of the configuration's
// copied into another (`frame_rate = door.fps`, `img_stats_src_chan =
// o.id`), where the mistake is the copy, not the value copied.  A copy
// under the same name, or from a description's own key (`idsp_fps =
// s.rate`), only carries the value on.
static bool retold(std::string_view later, std::string_view earlier)
{
    static const std::unordered_set<std::string> keys = [] {
        std::unordered_set<std::string> k;
        for (const key_doc &d : key_docs())
            k.insert(d.key);
        return k;
    }();
    return !later.empty() && !earlier.empty() && later != earlier &&
           keys.count(std::string(earlier)) && keys.count(std::string(later));
}

// The place of a value the evaluator followed: a table where it was stored
// last (the field that names it here), any other value where it was written.
place reading::flowed_place(const flow_value &v) const
{
    const std::vector<flow_step> way = m_.flow->way(v.origin);
    if (way.empty())
        return {};
    if (v.type == flow_value::table) {
        const src_span filled = m_.flow->filled_at(v.t);
        if (!filled.none())
            return {
                filled, {}, true, v.origin, v.t}; // the arguments of a call, not a table as written
    }
    const flow_step s = m_.flow->written_at(v.origin, retold);
    return {s.where, s.kind == flow_step::stored ? s.value : s.where, v.type != flow_value::nil,
            v.origin, v.type == flow_value::table ? v.t : nullptr};
}

void reading::lookup(lua_State *L, const char *name, int32_t index, kiv_want want)
{
    frame &f = stack_.back();
    if (!flow_tried_ && stack_.size() == 1) {
        // The evaluator follows a multi-channel configuration only (the
        // other kinds are tables of numbers whose places the source map
        // gives), from its table, the first the reading enters.
        flow_tried_ = true;
        if (m_.text.find("_resource_config_") != std::string::npos) {
            auto fl = std::make_shared<value_flow>(m_.text, m_.source);
            const flow_value top = fl->field(fl->globals().t, "_resource_config_");
            f.flowed = top.type == flow_value::table ? top.t : nullptr;
            m_.flow = std::move(fl);
        }
    }
    if (!f.table) { // the table, first looked into now
        f.table = lua_topointer(L, -2);
        f.ctor = ctor_of(L, -2, -1);
        m_.tables[f.index].flowed = f.flowed;
    }
    // An element of the array that field `name` holds (the array is at -2).
    const bool element = name && index >= 0;
    if (!f.collected && !element)
        collect(L, f);
    f.pending_error = false;
    last_named_ = name != nullptr;
    last_name_ = name ? name : "";
    last_index_ = index;
    const flow_value fv = flowed_value(f, name, index);
    const bool followed = fv.known() && agrees(L, -1, fv);
    const void *holder = element ? lua_topointer(L, -2) : f.table;
    if (followed && element && m_.flow) {
        const int32_t c = m_.flow->constructor(m_.flow->field(f.flowed, name).t);
        if (c >= 0)
            ctors_.emplace(holder, c);
    }
    const int32_t in = element ? ctor_of(L, -2, -1) : f.ctor;
    const char *key = element ? nullptr : name;
    std::string path = element ? indexed(joined(f.rec, name), index)
                       : name  ? joined(f.rec, name)
                               : indexed(f.rec, index);
    if (key)
        mark_read(f, key, lua_type(L, -1) != LUA_TNIL);
    // The binder reads a canvas's `enable_order` only when its sources come
    // from two channels or more, and says nothing of it otherwise: the key
    // is known there all the same (the dump writes it in every canvas).
    if (key && f.kind == tkind::canvas && strcmp(key, "source") == 0)
        mark_read(f, "enable_order", false);
    cur_flowed_ = followed && fv.type == flow_value::table ? fv.t : nullptr;
    if (followed && fv.type != flow_value::nil) {
        if (fv.type == flow_value::table) {
            const int32_t c = m_.flow->constructor(fv.t);
            if (c >= 0)
                ctors_.emplace(lua_topointer(L, -1), c);
        }
        cur_ = flowed_place(fv);
        if (!cur_.present)
            cur_ = place_of(L, holder, in, key, index);
    } else if (followed) {
        // Absent, or given a nil: where it was given one, else the '{' of
        // the table that lacks it.
        cur_ = fv.origin ? flowed_place(fv) : place{};
        // A table whose keys all come from one list (a merge that walks
        // `{"type", "vout_id", ...}`): a key it lacks is missing there, at
        // the element that misspells it when one does.
        const flow::table *in_flowed = element ? m_.flow->field(f.flowed, name).t : f.flowed;
        if (const flow::table *list = name && !element && cur_.where.none() && in_flowed
                                          ? m_.flow->keys_list(in_flowed)
                                          : nullptr)
            cur_ = listed_place(list, name);
        if (cur_.where.none() && in >= 0)
            cur_ = {brace(m_.source.constructors[static_cast<size_t>(in)]), {}, false};
    } else {
        cur_ = place_of(L, holder, in, key, index);
        if (lua_type(L, -1) == LUA_TTABLE) {
            const src_field *fl = find_field(in, key, index);
            cur_ =
                table_value(lua_topointer(L, -1), ctor_of(L, -1, fl ? fl->constructor : -1), cur_);
        } else if (lua_type(L, -1) != LUA_TNIL &&
                   (!cur_.present || !gives(L, -1, span_text(m_.text, cur_.value)))) {
            cur_ = patched(L, in, key);
        }
    }
    cur_found_ = lua_type(L, -1) != LUA_TNIL;
    cur_table_ = f.index;
    f.switch_key = std::move(f.last_switch_key);
    f.switch_at = f.last_switch_at;
    f.last_switch_key.clear();
    if (key && want == KIV_WANT_INTEGER && lua_isinteger(L, -1) && lua_tointeger(L, -1) != 0) {
        f.last_switch_key = std::string(key) + " = " + std::to_string(lua_tointeger(L, -1));
        f.last_switch_at = cur_;
    }
    f.stopped = !cur_found_ && (want == KIV_WANT_TABLE || want == KIV_WANT_ARRAY);
    if (f.stopped && name)
        f.stopped_at = name;
    just_left_.clear();
    cur_path_ = path;
    // An element of `channels` or `streams` is the record its id names,
    // placed when its id is read.
    if (name || (f.kind != tkind::channels && f.kind != tkind::streams))
        note_place(path, cur_);
    if (lua_type(L, -1) != LUA_TNIL)
        check_type(L, f, name, index, want, path);
}

// A value the loader cannot take as the type it wants, and the id of a
// channel or stream, which names the record the rest of its table goes to.
void reading::check_type(lua_State *L, frame &f, const char *name, int32_t index, kiv_want want,
                         const std::string &path)
{
    const bool element = name && index >= 0;
    // The value as written, short (only asked for when there is a slip).
    auto written = [&] {
        std::string w = cur_.present ? m_.written(cur_.value) : "";
        return w.empty() || w.size() > 40 || w.find('\n') != std::string::npos
                   ? describe_value(L, -1)
                   : w;
    };
    const std::string key = element ? indexed(name, index) : name ? name : path;
    switch (want) {
    case KIV_WANT_ANY:
        return;
    case KIV_WANT_INTEGER: {
        int ok = 0;
        const int64_t v = lua_tointegerx(L, -1, &ok);
        if (!ok) {
            slip(f, key, path, written() + " is not an integer: loaded as 0", true);
            return;
        }
        f.given[key] = v;
        m_.given[path] = v;
        if (element || !name || strcmp(name, "id") != 0 ||
            (f.kind != tkind::channel && f.kind != tkind::stream))
            return;
        const bool chan = f.kind == tkind::channel;
        f.rec = indexed(chan ? "channels" : "streams", v);
        m_.tables[f.index].path = f.rec;
        if (cur_.present)
            m_.tables[f.index].id_at = cur_.value;
        note_place(f.rec, f.self);
        note_place(joined(f.rec, "id"), cur_);
        ids_[chan ? 0 : 1].push_back({v, cur_.where});
        return;
    }
    case KIV_WANT_STRING:
        if (lua_type(L, -1) != LUA_TSTRING && lua_type(L, -1) != LUA_TNUMBER)
            slip(f, key, path, written() + ", not a string: taken as absent", true);
        return;
    case KIV_WANT_TABLE:
    case KIV_WANT_ARRAY:
        if (lua_type(L, -1) != LUA_TTABLE)
            slip(f, key, path,
                 written() + (want == KIV_WANT_TABLE ? ", not a table" : ", not an array") +
                     ": taken as absent",
                 true);
        return;
    }
}

void reading::slip(frame &f, const std::string &key, const std::string &path,
                   const std::string &message, bool wrong_type)
{
    if (std::find(f.reported.begin(), f.reported.end(), key) != f.reported.end())
        return;
    f.reported.push_back(key);
    m_.slips.push_back({path, message, cur_.where, wrong_type});
}

void reading::enter()
{
    const frame &p = stack_.back();
    frame f;
    f.pass = p.pass;
    f.chan_rec = p.chan_rec;
    f.rec = last_named_ ? joined(p.rec, last_name_) : indexed(p.rec, last_index_);
    f.self = cur_;
    f.flowed = cur_flowed_;
    name_entered(p, f);
    f.index = m_.tables.size();
    m_.tables.emplace_back();
    m_.tables.back().path = f.rec;
    m_.tables.back().parent = static_cast<int32_t>(p.index);
    m_.tables.back().position = last_named_ ? -1 : last_index_;
    if (f.kind != tkind::channel && f.kind != tkind::stream)
        note_place(f.rec, f.self);
    stack_.push_back(std::move(f));
}

// What the table entered is, and so the record path its keys take: the
// buffers of a channel pass are src_buf[pass][buffer], a further pass is
// pass_cfg[pass].
void reading::name_entered(const frame &p, frame &f)
{
    const std::string &n = last_name_;
    switch (p.kind) {
    case tkind::root:
        f.kind = n == "channels"  ? tkind::channels
                 : n == "canvas"  ? tkind::canvases
                 : n == "streams" ? tkind::streams
                                  : tkind::other;
        return;
    case tkind::channels:
        f.kind = tkind::channel;
        return;
    case tkind::canvases:
        f.kind = tkind::canvas;
        return;
    case tkind::streams:
        f.kind = tkind::stream;
        return;
    case tkind::channel:
    case tkind::pass: {
        const std::string &chan = p.kind == tkind::channel ? p.rec : p.chan_rec;
        if (int b = buffer_index(n); b >= 0) {
            f.rec = chan + ".src_buf[" + std::to_string(p.pass) + "][" + std::to_string(b) + "]";
        } else if (p.kind == tkind::channel && n.starts_with("pass_")) {
            f.kind = tkind::pass;
            f.pass = atoi(n.c_str() + 5);
            f.chan_rec = chan;
            f.rec = chan + ".pass_cfg[" + std::to_string(f.pass) + "]";
        } else if (n == "pyramid") {
            f.kind = tkind::pyramid;
        } else if (n == "vsrc") {
            f.kind = tkind::vsrc;
        }
        return;
    }
    default:
        return;
    }
}

void reading::leave()
{
    if (stack_.size() <= 1)
        return;
    frame &f = stack_.back();
    close(f, !f.pending_error && !f.stopped);
    just_left_.push_back(f.index);
    stack_.pop_back();
}

void reading::close(frame &f, bool whole)
{
    read_table &t = m_.tables[f.index];
    t.path = f.rec;
    t.ctor = f.ctor;
    t.whole = whole && f.collected && t.keys.size() <= MAX_KEYS;
    if (f.stopped && f.collected)
        t.stopped_at = f.stopped_at;
}

void reading::stored(const char *key, int32_t elem, int64_t held)
{
    frame &f = stack_.back();
    const std::string k = elem < 0 ? std::string(key) : indexed(key, elem);
    m_.held[joined(f.rec, k)] = held;
    auto it = f.given.find(k);
    if (it == f.given.end() || it->second == held)
        return;
    const int64_t given = it->second;
    const std::string path = joined(f.rec, k);
    // Its lookup was one of the last few (an array's elements are stored
    // after all of them were looked up).
    const place *at = nullptr;
    for (size_t i = m_.named.size(), n = 0; i-- > 0 && n < 16 && !at; ++n)
        if (m_.named[i].first == path)
            at = &m_.named[i].second;
    const std::string written = at && at->present ? m_.written(at->value) : "";
    const std::string shown = written.empty() || written == std::to_string(given)
                                  ? std::to_string(given)
                                  : written + " (" + std::to_string(given) + ")";
    const char *how = given < 0 && held >= 0 ? "its sign is lost" : "its high bits are dropped";
    const src_span where = at ? at->where : cur_.where;
    if (std::find(f.reported.begin(), f.reported.end(), k) != f.reported.end())
        return;
    f.reported.push_back(k);
    m_.slips.push_back(
        {path, shown + " does not fit the field (" + how + "): stored as " + std::to_string(held),
         where, false});
}

void reading::logged(const char *text, size_t n)
{
    log_line l;
    l.text.assign(text, n);
    l.level = l.text.starts_with("KIV_ERROR") ? 0 : l.text.starts_with("KIV_WARN") ? 1 : 3;
    l.path = cur_path_;
    l.where = cur_.where;
    l.absent = l.level == 1 && (l.text.find("doesn't exist") != std::string::npos ||
                                l.text.find("doesn't exit") != std::string::npos ||
                                l.text.find("doen't exist") != std::string::npos);
    l.table = static_cast<int32_t>(stack_.back().index);
    l.found = cur_found_;
    if (!cur_found_ && !stack_.back().switch_key.empty()) {
        l.switched_by = stack_.back().switch_key;
        l.switch_where = stack_.back().switch_at.where;
    }
    l.looked_in = static_cast<int32_t>(cur_table_);
    if (l.level == 0) {
        for (frame &f : stack_)
            f.pending_error = true;
        for (size_t t : just_left_)
            m_.tables[t].whole = false;
    }
    m_.log.push_back(std::move(l));
}

void reading::finish()
{
    while (stack_.size() > 1) {
        close(stack_.back(), false);
        stack_.pop_back();
    }
    // The global table was read to its end when the load succeeded.
    close(stack_.back(), m_.ran && m_.result == 0);
    static const char *const LISTS[] = {"channels", "streams"};
    for (int l = 0; l < 2; ++l) {
        std::vector<given_id> &ids = ids_[l];
        std::stable_sort(ids.begin(), ids.end(),
                         [](const given_id &a, const given_id &b) { return a.id < b.id; });
        for (size_t i = 0; i < ids.size();) {
            size_t j = i;
            script_model::duplicate d{LISTS[l], ids[i].id, {}};
            for (; j < ids.size() && ids[j].id == ids[i].id; ++j)
                d.where.push_back(ids[j].where);
            if (d.where.size() > 1)
                m_.duplicates.push_back(std::move(d));
            i = j;
        }
    }
}

} // namespace kivtool
