// The flow of values: the evaluator computes what the interpreter computes
// (every global table of each script compared entry by entry with the
// interpreter's own run), and each value's way runs from where it was
// written through the copies that brought it to its table.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kiv_test.h"
#include "model/flow.h"
#include "model/source.h"

using kivtool::flow_step;
using kivtool::flow_value;
using kivtool::value_flow;

namespace
{

// Scripts whose values the evaluator must compute as the interpreter does.
const char *const SAME_VALUES[] = {
    "a = 7 // 2; b = -7 // 2; c = 7 % -3; d = -7 % 3; e = 7.5 // 2; f = -7.5 % 2; g = 3 / 2",
    "a = 2^10; b = 1 << 63; c = 1 << 64; d = -1 >> 1; e = 5 & 3 | 8 ~ 1; f = ~0; g = 3.0 | 0",
    "a = 9223372036854775807 + 1; b = -9223372036854775807 - 2; c = 9223372036854775807 * 2",
    "a = '10' + 1; b = '0x10' * 1; c = ' 3 ' - 1; d = 10 .. ''; e = 1.5 .. 'x'; f = 1e15 .. ''",
    "a = 2^53 .. ''; b = 1e100 .. ''; c = -0.0 .. ''; d = 3.0 .. ''; e = 0.1 + 0.2 .. ''",
    "a = 1 == 1.0; b = 'a' < 'b'; c = 2 < 2.5; d = not nil; e = nil or false; f = 0 and 'x'",
    "a = 1 < 2 and 'y' or 'n'; b = #'abc'; c = #{1, 2, 3}; d = #{1, 2, nil}; e = -2^2",
    "t = {} t[1.0] = 'one' t[2] = 'two' a = t[1] b = #t t[2.5] = 'half' c = t[2.5]",
    "local function f(...) return ... end a, b, c = f(1, 2) d = {f(1, 2, 3)} e = {f(1), f(2)}",
    "local function f(...) local a, b = ... return b, a end x, y = f('p', 'q')",
    "local n = 0 local function inc() n = n + 1 return n end inc() inc() a = inc()",
    "fs = {} for i = 1, 3 do fs[i] = function() return i end end a = fs[1]() b = fs[3]()",
    "t = {} for i = 10, 1, -3 do t[#t + 1] = i end for i = 1.0, 2 do t[#t + 1] = i end",
    "t = {} for i = 1, 3.9 do t[i] = i * 2 end for i = 3, 1 do t[9] = 1 end",
    "t = {} local i = 0 while i < 5 do i = i + 1 if i == 4 then break end t[i] = i end",
    "t = {} local i = 0 repeat local j = i i = i + 1 t[i] = j until j >= 3",
    "local function iter(s, c) if c < s then return c + 1, c * c end end "
    "t = {} for k, v in iter, 4, 0 do t[k] = v end",
    "local o = {n = 2} function o:twice(x) return self.n * x end function o.add(a, b) return a + b "
    "end a = o:twice(21) b = o.add(1, 2)",
    "local keys = {'a', 'b'} local d = {a = 1, b = 2} local function merge(ks, x, y) local t = {} "
    "for i = 1, #ks do local k = ks[i] if y[k] ~= nil then t[k] = y[k] else t[k] = x[k] end end "
    "return t end m = merge(keys, d, {b = 5})",
    "a, b = 1 b, a = a, b t = {1, 2} t[1], t[2] = t[2], t[1]",
    "x = 1 do local x = 2 y = x end z = x if x == 1 then w = 'one' elseif x == 2 then w = 'two' "
    "else w = 'other' end",
    "s = 'chan_' .. 0 .. '.' .. 'main' n = 0x7fffffff m = 0xffffffffffffffff f = 1e308 * 10",
    "t = {[1] = 'a', 'b', [2] = 'c', 'd'} u = {x = 1, ['y'] = 2, [3] = 3, 4}",
    "a = 5 // 0.0 b = -5 % math",
    "a = 1 // 0",
    "local t = nil a = t.x",
    "a = (function() return 1, 2 end)() b = {(function() return 1, 2 end)()}",
    "a = 3 % math.huge",
};

// Compares the value on top of the interpreter's stack with the evaluator's.
void same(lua_State *L, const value_flow &f, const flow_value &v, const std::string &path,
          std::set<const void *> &seen)
{
    switch (lua_type(L, -1)) {
    case LUA_TNIL:
        EXPECT_EQ(v.type, flow_value::nil) << path;
        return;
    case LUA_TBOOLEAN:
        ASSERT_EQ(v.type, flow_value::boolean) << path;
        EXPECT_EQ(v.b, lua_toboolean(L, -1) != 0) << path;
        return;
    case LUA_TNUMBER:
        if (lua_isinteger(L, -1)) {
            ASSERT_EQ(v.type, flow_value::integer) << path;
            EXPECT_EQ(v.i, lua_tointeger(L, -1)) << path;
        } else {
            ASSERT_EQ(v.type, flow_value::number) << path;
            const double d = lua_tonumber(L, -1);
            if (d == d)
                EXPECT_EQ(v.d, d) << path;
            else
                EXPECT_NE(v.d, v.d) << path;
        }
        return;
    case LUA_TSTRING: {
        ASSERT_EQ(v.type, flow_value::string) << path;
        size_t n;
        const char *s = lua_tolstring(L, -1, &n);
        EXPECT_EQ(v.s, std::string_view(s, n)) << path;
        return;
    }
    case LUA_TFUNCTION:
        EXPECT_EQ(v.type, flow_value::function) << path;
        return;
    case LUA_TTABLE:
        break;
    default:
        ADD_FAILURE() << path << ": a type no script makes";
        return;
    }
    ASSERT_EQ(v.type, flow_value::table) << path;
    if (!seen.insert(lua_topointer(L, -1)).second)
        return;
    size_t entries = 0;
    lua_pushnil(L);
    while (lua_next(L, -2)) {
        ++entries;
        if (lua_type(L, -2) == LUA_TSTRING) {
            const std::string k = lua_tostring(L, -2);
            same(L, f, f.field(v.t, k), path + "." + k, seen);
        } else if (lua_isinteger(L, -2)) {
            const lua_Integer k = lua_tointeger(L, -2);
            same(L, f, f.element(v.t, k), path + "[" + std::to_string(k) + "]", seen);
        }
        lua_pop(L, 1);
    }
    (void)entries;
}

// Runs a script in the interpreter (no library, as the loader runs it) and
// in the evaluator, and compares their globals.
void compare(const std::string &name, const std::string &text)
{
    SCOPED_TRACE(name);
    lua_State *L = luaL_newstate();
    const bool ran = luaL_loadbuffer(L, text.data(), text.size(), name.c_str()) == LUA_OK &&
                     lua_pcall(L, 0, 0, 0) == LUA_OK;
    const value_flow f(text, kivtool::scan_source(text));
    if (!ran) {
        EXPECT_NE(f.stopped(), "") << "the interpreter stopped: " << lua_tostring(L, -1);
        lua_close(L);
        return;
    }
    EXPECT_EQ(f.stopped(), "");
    lua_pushglobaltable(L);
    std::set<const void *> seen;
    same(L, f, f.globals(), "_G", seen);
    lua_close(L);
}

TEST(Flow, ComputesWhatTheInterpreterComputes)
{
    for (const char *s : SAME_VALUES)
        compare(s, s);
}

TEST(Flow, RunsEveryExampleAsTheInterpreterDoes)
{
    namespace fs = std::filesystem;
    const fs::path root(KIV_SOURCE_DIR);
    for (const char *dir : {"examples", "tests/cases/include"})
        for (const auto &e : fs::directory_iterator(root / dir))
            if (e.path().extension() == ".lua")
                compare(e.path().filename().string(), kivtest::read_file(e.path().string()));
}

std::string at(const kivtool::src_span &s)
{
    return std::to_string(s.begin.line) + ":" + std::to_string(s.begin.col);
}

// A value's way as text: "written 1:12, stored 1:5, stored 4:3 (pass 2 of 3:1)".
std::string way_text(const value_flow &f, const flow_value &v)
{
    static const char *const kinds[] = {"written", "computed", "stored"};
    std::string out;
    for (const flow_step &s : f.way(v.origin)) {
        if (!out.empty())
            out += ", ";
        out += std::string(kinds[s.kind]) + " " + at(s.where);
        if (s.pass)
            out += " (pass " + std::to_string(s.pass) + " of " + at(s.loop) + ")";
    }
    return out;
}

// Follows a path of fields ("streams[3].max_size[1]") from the globals.
flow_value follow(const value_flow &f, const std::string &path)
{
    flow_value v = f.globals();
    size_t i = 0;
    while (i < path.size() && v.type == flow_value::table) {
        if (path[i] == '.')
            ++i;
        if (path[i] == '[') {
            const size_t close = path.find(']', i);
            v = f.element(v.t, std::stoll(path.substr(i + 1, close - i - 1)));
            i = close + 1;
        } else {
            const size_t end = path.find_first_of(".[", i);
            v = f.field(v.t,
                        path.substr(i, end == std::string::npos ? std::string::npos : end - i));
            i = end == std::string::npos ? path.size() : end;
        }
    }
    return v;
}

struct way_row {
    const char *script;
    const char *path;
    const char *want;
};

const way_row WAYS[] = {
    // Written where it stands.
    {"cfg = {\n  fps = 30,\n}", "cfg.fps", "written 2:9, stored 2:3"},
    // Copied from a description, through a loop: the description's field
    // first, then the copy, in the pass that made it.
    {"local S = {\n  {mode = 'a'},\n  {mode = 'b'},\n}\nch = {}\nfor i = 1, #S do\n"
     "  local s = S[i]\n  ch[i] = {mode = s.mode}\nend",
     "ch[2].mode", "written 3:11, stored 3:4, stored 8:12 (pass 2 of 6:1)"},
    // Through a helper's argument and a merge with a computed key.
    {"local function merge(keys, d, o)\n  local t = {}\n  for i = 1, #keys do\n"
     "    local k = keys[i]\n    t[k] = o[k] or d[k]\n  end\n  return t\nend\n"
     "local D = {hdr = 'linear', bits = 10}\nc = merge({'hdr', 'bits'}, D, {bits = 12})",
     "c.hdr", "written 9:18, stored 9:12, stored 5:6 (pass 1 of 3:3)"},
    {"local function merge(keys, d, o)\n  local t = {}\n  for i = 1, #keys do\n"
     "    local k = keys[i]\n    t[k] = o[k] or d[k]\n  end\n  return t\nend\n"
     "local D = {hdr = 'linear', bits = 10}\nc = merge({'hdr', 'bits'}, D, {bits = 12})",
     "c.bits", "written 10:39, stored 10:32, stored 5:6 (pass 2 of 3:3)"},
    // Computed from a copied value, and patched in after its table.
    {"local s = {h = 1080}\nb = {h = s.h // 4}\nb.w = 480", "b.h",
     "written 1:16, stored 1:12, written 2:17, computed 2:10, stored 2:6"},
    {"local s = {h = 1080}\nb = {h = s.h // 4}\nb.w = 480", "b.w", "written 3:7, stored 3:2"},
    // A local's literal, then positions of a list.
    {"local W = 640\nsize = {W, 360}", "size[1]", "written 1:11, stored 2:9"},
    {"local function buf(w, h)\n  return {w, h}\nend\nb = buf(\n  1280, 720)", "b[2]",
     "written 5:9, stored 2:14"},
};

TEST(Flow, FollowsEachValueToWhereItWasWritten)
{
    for (const way_row &r : WAYS) {
        SCOPED_TRACE(r.script);
        const std::string text = r.script;
        const value_flow f(text, kivtool::scan_source(text));
        EXPECT_EQ(f.stopped(), "");
        EXPECT_EQ(way_text(f, follow(f, r.path)), r.want) << r.path;
    }
}

TEST(Flow, NamesTheLoopWhoseFirstPassIndexedNil)
{
    const std::string text = "local S = {{w = 1}, {w = 2}}\nt = {}\nfor i = 0, #S do\n"
                             "  local s = S[i]\n  t[#t + 1] = s.w\nend";
    const value_flow f(text, kivtool::scan_source(text));
    ASSERT_NE(f.failed(), nullptr);
    EXPECT_EQ(at(f.failed()->where), "5:15");
    EXPECT_EQ(f.failed()->nil_of, "S[i]");
    EXPECT_EQ(at(f.failed()->loop), "3:1");
    EXPECT_EQ(at(f.failed()->loop_start), "3:9");
}

TEST(Flow, StopsWithinItsBounds)
{
    for (const char *s : {"while true do end", "local function f() return f() + 1 end f()",
                          "t = {} for i = 1, 1e9 do t[i] = i end",
                          "s = 'x' while true do s = s .. s end", "goto x ::x::"}) {
        SCOPED_TRACE(s);
        const value_flow f(s, kivtool::scan_source(s));
        EXPECT_NE(f.stopped(), "");
    }
}

} // namespace
