#include "flow_compare.h"

#include <lua.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "model/flow.h"
#include "model/source.h"

namespace kivtest
{

namespace
{

using kivtool::flow_value;
using kivtool::value_flow;

// Numbers as text, to tell what differs.
std::string number_text(bool integer, int64_t i, double d)
{
    char buf[64];
    if (integer)
        snprintf(buf, sizeof buf, "%lld", static_cast<long long>(i));
    else
        snprintf(buf, sizeof buf, "%.17g (float)", d);
    return buf;
}

// Compares the value on top of the interpreter's stack with the evaluator's:
// "" when they are the same, else the first difference.  Tables are
// compared entry by entry (string and integer keys), and the evaluator's
// tables must have no string key more than the interpreter's.
class comparison
{
  public:
    comparison(lua_State *L, const value_flow &f) : L_(L), f_(f)
    {
        f.each_key([this](const kivtool::flow::table *t, std::string_view,
                          const kivtool::src_span &) { ++string_keys_[t]; });
    }

    std::string same(const flow_value &v, const std::string &path, int depth = 0)
    {
        static const char *const types[] = {"unknown", "nil",    "boolean", "integer",
                                            "float",   "string", "table",   "function"};
        const auto differ = [&](const std::string &want) {
            return path + ": the interpreter has " + want + ", the evaluator " + types[v.type] +
                   (v.type == flow_value::integer || v.type == flow_value::number
                        ? " " + number_text(v.type == flow_value::integer, v.i, v.d)
                    : v.type == flow_value::string ? " \"" + std::string(v.s) + "\""
                                                   : "");
        };
        switch (lua_type(L_, -1)) {
        case LUA_TNIL:
            return v.type == flow_value::nil ? "" : differ("nil");
        case LUA_TBOOLEAN: {
            const bool b = lua_toboolean(L_, -1) != 0;
            return v.type == flow_value::boolean && v.b == b ? "" : differ(b ? "true" : "false");
        }
        case LUA_TNUMBER: {
            const bool integer = lua_isinteger(L_, -1);
            const lua_Integer i = integer ? lua_tointeger(L_, -1) : 0;
            const double d = lua_tonumber(L_, -1);
            const bool ok = integer ? v.type == flow_value::integer && v.i == i
                                    : v.type == flow_value::number &&
                                          (d == d ? v.d == d && std::signbit(v.d) == std::signbit(d)
                                                  : v.d != v.d);
            return ok ? "" : differ(number_text(integer, i, d));
        }
        case LUA_TSTRING: {
            size_t n;
            const char *s = lua_tolstring(L_, -1, &n);
            return v.type == flow_value::string && v.s == std::string_view(s, n)
                       ? ""
                       : differ("\"" + std::string(s, n) + "\"");
        }
        case LUA_TFUNCTION:
            return v.type == flow_value::function ? "" : differ("a function");
        case LUA_TTABLE:
            break;
        default:
            return path + ": a type no script makes";
        }
        if (v.type != flow_value::table)
            return differ("a table");
        // Tables nested deeper than configurations nest them are compared
        // to that depth.
        if (depth >= MAX_DEPTH || !lua_checkstack(L_, 4) ||
            !seen_.insert(lua_topointer(L_, -1)).second)
            return "";
        size_t strings = 0;
        std::string diff;
        lua_pushnil(L_);
        while (diff.empty() && lua_next(L_, -2)) {
            if (lua_type(L_, -2) == LUA_TSTRING) {
                ++strings;
                const std::string k = lua_tostring(L_, -2);
                diff = same(f_.field(v.t, k), path + "." + k, depth + 1);
            } else if (lua_isinteger(L_, -2)) {
                const lua_Integer k = lua_tointeger(L_, -2);
                diff = same(f_.element(v.t, k), path + "[" + std::to_string(k) + "]", depth + 1);
            }
            lua_pop(L_, 1);
        }
        if (!diff.empty()) {
            lua_pop(L_, 1);
            return diff;
        }
        if (const size_t mine = string_keys_[v.t]; mine != strings)
            return path + ": the interpreter has " + std::to_string(strings) +
                   " string keys, the evaluator " + std::to_string(mine);
        return "";
    }

  private:
    static constexpr int MAX_DEPTH = 64;
    lua_State *L_;
    const value_flow &f_;
    std::set<const void *> seen_;
    std::map<const kivtool::flow::table *, size_t> string_keys_;
};

// The interpreter's run, bounded: a count hook stops it after `instructions`
// or (for the instructions that take long, such as converting a huge
// string) its time, and its allocator refuses memory past `bytes`.
struct bounded_run {
    size_t used = 0, bytes;
    long instructions;
    std::chrono::steady_clock::time_point until;
    bool bounded = false; // stopped by one of the bounds, not by the script
};

void *bounded_alloc(void *ud, void *ptr, size_t old_size, size_t new_size)
{
    auto *b = static_cast<bounded_run *>(ud);
    if (!ptr)
        old_size = 0;
    if (new_size == 0) {
        b->used -= old_size;
        free(ptr);
        return nullptr;
    }
    if (new_size > old_size && b->used + (new_size - old_size) > b->bytes) {
        b->bounded = true;
        return nullptr;
    }
    void *p = realloc(ptr, new_size);
    if (p)
        b->used = b->used - old_size + new_size;
    return p;
}

constexpr int HOOK_EVERY = 100;

void count_hook(lua_State *L, lua_Debug *)
{
    void *ud;
    lua_getallocf(L, &ud);
    auto *b = static_cast<bounded_run *>(ud);
    b->instructions -= HOOK_EVERY;
    if (b->instructions < 0 || std::chrono::steady_clock::now() > b->until) {
        b->bounded = true;
        luaL_error(L, "instruction budget");
    }
}

// Loads the script (given as a light userdata) and runs it, from a C
// function as the loader does: the parser's levels count that call too.
int load_and_run(lua_State *L)
{
    const auto *text = static_cast<const std::string *>(lua_touserdata(L, 1));
    if (luaL_loadbufferx(L, text->data(), text->size(), "=script", "t") != LUA_OK)
        return lua_error(L);
    lua_call(L, 0, 0);
    return 0;
}

// Whether the evaluator stopped at a bound of its own or at what it does
// not follow, where the interpreter may go on.
bool own_bound(const std::string &why)
{
    return why.find("evaluator") != std::string::npos ||
           why.find("not followed") != std::string::npos;
}

} // namespace

std::string as_loaded(std::string_view text)
{
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    if (!text.starts_with("#"))
        return std::string(text);
    const size_t nl = text.find('\n');
    return nl == std::string_view::npos ? "\n" : std::string(text.substr(nl));
}

std::string flow_differs(std::string_view text, const interpreter_bounds &bounds)
{
    const value_flow f(text, kivtool::scan_source(text));
    return flow_differs(text, f, bounds);
}

std::string flow_differs(std::string_view text, const value_flow &f,
                         const interpreter_bounds &bounds)
{
    bounded_run b;
    b.bytes = bounds.bytes;
    b.instructions = bounds.instructions;
    b.until = std::chrono::steady_clock::now() + bounds.time;
    lua_State *L = lua_newstate(bounded_alloc, &b);
    if (!L)
        return "";
    lua_sethook(L, count_hook, LUA_MASKCOUNT, HOOK_EVERY);
    std::string loaded = as_loaded(text);
    lua_pushcfunction(L, load_and_run);
    lua_pushlightuserdata(L, &loaded);
    const bool ran = lua_pcall(L, 1, 0, 0) == LUA_OK;
    lua_sethook(L, nullptr, 0, 0);
    const bool compared =
        !b.bounded && !f.open_length() && (f.stopped().empty() || !own_bound(f.stopped()));
    std::string out;
    if (!compared)
        out = "";
    else if (!ran && f.stopped().empty())
        out = std::string("the interpreter stopped (") + lua_tostring(L, -1) +
              "), the evaluator ran to its end";
    else if (ran && !f.stopped().empty())
        out = "the evaluator stopped (" + f.stopped() + "), the interpreter ran to its end";
    else if (ran) {
        lua_pushglobaltable(L);
        out = comparison(L, f).same(f.globals(), "_G");
    }
    lua_close(L);
    return out;
}

} // namespace kivtest
