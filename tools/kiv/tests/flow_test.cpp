// The flow of values: the evaluator computes what the interpreter computes
// (every global table of each script compared entry by entry with the
// interpreter's own run), and each value's way runs from where it was
// written through the copies that brought it to its table.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#if __has_include(<malloc.h>)
#include <malloc.h>
#endif
#include <sstream>
#include <string>
#include <vector>

#include "kiv_test.h"
#include "model/flow.h"
#include "model/source.h"
#include "flow_compare.h"

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
    // Elements by position are stored after the keyed fields around them,
    // 50 at a time: before the field after the 50th, and at the end.
    "t = {'b', [1] = 'a'} u = {[2] = 'x', 'p', 'q'} v = {1, 2, [1.0] = 'x'}",
    "w = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,"
    " 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,"
    " [1] = 'x', [51] = 'y', 51, [52] = 'z', [2] = 'w'}",
    // A float loop adds its step to its start less the step.
    "t = {} for i = 0.1, 1, 0.7 do t[#t + 1] = i end",
    // An integer loop under a NaN limit runs when it goes down; past the
    // largest integer it wraps and goes on.
    "n = 0 for i = 1, 0/0, -1 do n = i break end for i = 1, 0/0 do n = -1 end",
    "t = {} for i = 9223372036854775806, 9223372036854775807 do t[#t + 1] = i if #t == 3 then "
    "break end end",
    // Numerals, escapes and long strings as the interpreter reads them.
    "a = 0x.1 b = 0x1p-2 c = 1e-310 d = .5 e = 5. f = 3e0 g = 0xA.8p0 h = 0x7fffffffffffffff + 1 "
    "i = 9223372036854775808 j = 0xfffffffffffffffffff",
    "a = '\\z   x\\x41\\065\\u{48}\\u{10FFFF}\\0z' b = #a c = [==[\n]] ]=] x]==] d = "
    "[[\r\na\r\nb]]",
    "a = '0x1p4' + 0 b = '-0x10' + 0 c = ' 1e1 ' * 1 d = '1e-310' + 0 e = '.5' + 0 f = '5.' + 0 "
    "g = '3' | 0 h = '3.0' | 0 i = '1e500' + 0",
    "a = 1e15 .. '' b = 2^63 .. '' c = 1/0 .. '' d = -1/0 .. '' e = 123456789012.5 .. '' "
    "f = 1e14 .. '' g = -0.0 // 1 h = 1 % -0.0",
    "a = 9223372036854775807 < 9223372036854775808.0 b = 9007199254740993 == 9007199254740992.0 "
    "c = 9007199254740993 < 9007199254740992.0 d = 'a\\0b' < 'a\\0c' e = 'a' < 'a\\0'",
    // Each pass of a loop has locals of its own.
    "local fs = {} local i = 1 while i <= 3 do local j = i fs[i] = function() return j end "
    "i = i + 1 end a = fs[1]() b = fs[3]()",
    "local fs = {} local i = 0 repeat i = i + 1 local j = i * 2 fs[i] = function() return j end "
    "until j >= 6 a = fs[1]() b = fs[3]()",
    "local t = {} local i = 1 i, t[i] = i + 1, 20 u = t j, j = 1, 2 k = j",
    // Operands are computed left to right; a local as the left operand or
    // the table indexed is read by the operation, after the right operand.
    "local n = 0 local function f() n = n + 1 return n end a = f() - f() b = f() .. f() "
    "c = {f(), f()} d = f() < f()",
    "local a = 1 local function f() a = 10 return 0 end x = a + f() a = 1 y = a .. f() a = 1 "
    "z = (a) + f() a = 1 w = a + 0 + f() a = 1 v = a == (f() + 10) a = 1 u = -a + f()",
    "local t = {1} local function g() t = {2} return 1 end x = t[g()] local k = 1 "
    "local function h() k = 2 return {10, 20} end y = h()[k]",
    "local a = 1 local function f() a = 2 return 'v' end t = {[a] = f()} local u = {1} "
    "local function g() local function h() u = {2} return 1 end return u[h()] end x = g()",
    // A float remainder takes the divisor's sign.
    "a = -33.5 % -2 b = -5 % (1/0) c = 5 % -(1/0) d = 5.5 % -2 e = -0.0 % 1 f = 0.0 % -1 "
    "g = 1 % -0.0 h = -7.25 % 2 i = 7.25 % -2",
    // A local (or, as a table, an upvalue) as a target's table or key is
    // read when the value is stored, unless a later target is that variable.
    "local a = 1 local function f() a = 2 return 'v' end local t = {} t[a] = f() r = t",
    "local b = 1 local function g() b = 2 return 'v' end local u = {} u[b], b = g(), 7 r = u",
    "local T, T2 = {}, {} local function h() T = T2 return 'w' end T.x = h() r, s = T, T2",
    "local T, T2 = {}, {} local function g() local function h() T = T2 return 'w' end T.x = h() "
    "end g() r = T2.x local A, A2 = {}, {} local function g2() local function h() A = A2 "
    "return 'w' end A.x, A = h(), A end g2() s = A2.x local K = 1 local function g3() "
    "local function h() K = 2 return 'w' end local t = {} t[K] = h() return t end u = g3()",
    // `break` outside a loop is an error of the text, inside a function too.
    "a = 1 if a then break end",
    "while true do local function f() break end end",
    "for i = 1, 2 do a = i if i == 1 then break end end repeat b = 1 break until false",
};

// Runs a script in the interpreter and in the evaluator and compares their
// globals (flow_compare.h).
void compare(const std::string &name, const std::string &text)
{
    SCOPED_TRACE(name);
    EXPECT_EQ(kivtest::flow_differs(text, {}), "");
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

// The scripts of a golden case file (tests/cases/NAME.lua), as its runner
// makes them: the prelude before the first "--- TITLE | OPTIONS" line, its
// "-- include: NAME" lines replaced by tests/cases/include/NAME.lua, and
// each script's "-- edit: OLD => NEW" lines applied to the prelude in front
// of it.
struct golden_script {
    std::string title, text;
};

// An edit's text: "\n" and "\t" stand for a line break and a tab.
std::string unescaped(std::string t)
{
    for (const auto &[from, to] : {std::pair<std::string, std::string>{"\\n", "\n"}, {"\\t", "\t"}})
        for (size_t at = 0; (at = t.find(from, at)) != std::string::npos; at += to.size())
            t.replace(at, from.size(), to);
    return t;
}

std::vector<golden_script> golden_scripts(const std::filesystem::path &file)
{
    const std::filesystem::path include = file.parent_path() / "include";
    std::vector<golden_script> out;
    std::string prelude;
    std::istringstream in(kivtest::read_file(file.string()));
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("--- ")) {
            out.push_back({line, ""});
            continue;
        }
        const std::string text =
            line.starts_with("-- include: ")
                ? kivtest::read_file((include / (line.substr(12) + ".lua")).string())
                : line + "\n";
        (out.empty() ? prelude : out.back().text) += text;
    }
    for (golden_script &g : out) {
        std::string p = prelude;
        std::istringstream body(g.text);
        for (std::string line; std::getline(body, line);) {
            const size_t arrow = line.find(" => ");
            if (!line.starts_with("-- edit: ") || arrow == std::string::npos)
                continue;
            const std::string from = unescaped(line.substr(9, arrow - 9));
            if (const size_t at = p.find(from); at != std::string::npos)
                p.replace(at, from.size(), unescaped(line.substr(arrow + 4)));
        }
        g.text = p + g.text;
    }
    return out;
}

// Every script of the golden cases.  Those that set the library's bounds
// (instructions=, time=, mem=) are made to run past any bound: the evaluator
// only has to return on them.
TEST(Flow, RunsEveryGoldenScriptAsTheInterpreterDoes)
{
    namespace fs = std::filesystem;
    size_t scripts = 0;
    for (const auto &e : fs::directory_iterator(fs::path(KIV_SOURCE_DIR) / "tests" / "cases")) {
        if (e.path().extension() != ".lua")
            continue;
        for (const golden_script &g : golden_scripts(e.path())) {
            const std::string name = e.path().filename().string() + ": " + g.title;
            const size_t bar = g.title.find(" | ");
            const std::string options = bar == std::string::npos ? "" : g.title.substr(bar);
            ++scripts;
            if (options.find(" instructions=") != std::string::npos ||
                options.find(" time=") != std::string::npos ||
                options.find(" mem=") != std::string::npos) {
                const value_flow f(g.text, kivtool::scan_source(g.text)); // returns
                continue;
            }
            compare(name, g.text);
        }
    }
    EXPECT_GT(scripts, 400u);
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

// Memory in use by the process's allocator, where it tells.
size_t heap_in_use()
{
#if defined(__GLIBC__)
    return mallinfo2().uordblks;
#else
    return 0;
#endif
}

std::string repeated(std::string_view s, size_t n)
{
    std::string out;
    for (size_t i = 0; i < n; ++i)
        out += s;
    return out;
}

// Nesting up to where the interpreter refuses it ("too many C levels"), and
// one level past it.
TEST(Flow, RefusesNestingWhereTheInterpreterDoes)
{
    const struct {
        const char *before, *open, *middle, *close;
    } rows[] = {
        {"a = ", "(", "1", ")"},
        {"", "do ", "a = 1 ", "end "},
        {"a = ", "{", "", "}"},
        {"a = ", "- ", "1", ""},
        {"a = 'x'", " .. 'x'", "", ""},
        {"local function f(x) return x end a = ", "f(", "1", ")"},
        {"a = ", "function() return ", "1", " end"},
        {"a = 2", " ^ 2", "", ""},
        {"", "if true then ", "a = 1 ", "end "},
    };
    for (const auto &r : rows)
        for (size_t n = 95; n < 205; ++n)
            if (n < 100 || n > 190) {
                const std::string s =
                    r.before + repeated(r.open, n) + r.middle + repeated(r.close, n);
                compare(std::to_string(n) + " of " + r.open, s);
            }
}

// The interpreter's limits of a function, up to them and one past: its
// local variables (a loop has three of its own), its upvalues (the globals'
// table one of them), the registers of a list of values.
TEST(Flow, RefusesWhatPassesTheLimitsOfAFunction)
{
    const auto names = [](const char *prefix, size_t n, const char *sep) {
        std::string out;
        for (size_t i = 0; i < n; ++i)
            out += (i ? sep : "") + std::string(prefix) + std::to_string(i);
        return out;
    };
    const auto ones = [](size_t n) { return "1" + repeated(", 1", n - 1); };
    const std::function<std::string(size_t)> rows[] = {
        [&](size_t n) { return "local " + names("a", n, ", ") + " = 1"; },
        [&](size_t n) { return "for i = 1, 2 do local " + names("a", n, ", ") + " end"; },
        [&](size_t n) { return "for k, v in next, {} do local " + names("a", n, ", ") + " end"; },
        [&](size_t n) { return "local function f(...) end f(" + ones(n) + ")"; },
        [&](size_t n) { return "local o = {f = function() end} o:f(" + ones(n) + ")"; },
        [&](size_t n) { return "local a, b = 1 a = {(function() return " + ones(n) + " end)()}"; },
        [&](size_t n) { return "a = " + ones(n); },
        [&](size_t n) {
            return "local " + names("u", 150, ", ") + " local function f() local " +
                   names("v", n - 150, ", ") + " return function() return " +
                   names("u", 150, " + ") + " + " + names("v", n - 150, " + ") +
                   " end end a = f()()";
        },
        [&](size_t n) {
            return "local " + names("u", 150, ", ") + " = 1 x = 1 local function f() local " +
                   names("v", n - 150, ", ") + " = 1 return function() return x + " +
                   names("u", 150, " + ") + " + " + names("v", n - 150, " + ") +
                   " end end a = f()()";
        },
    };
    for (size_t row = 0; row < std::size(rows); ++row)
        for (size_t n = 190; n < 260; ++n) {
            const std::string s = rows[row](n);
            compare("row " + std::to_string(row) + ", " + std::to_string(n), s);
        }
}

// Scripts made to run the evaluator past its bounds: each stops at one,
// and what it made stays within a bound of memory.  The bound is of what
// the run keeps (all it made, as nothing is freed before the end).
TEST(Flow, StopsWithinItsBounds)
{
    constexpr size_t MEMORY = 256u << 20;
    const std::string big_args = repeated("1, ", 100000) + "1";
    const std::string scripts[] = {
        "while true do end",
        "local function f() return f() + 1 end f()",
        "local function f(n) return f(n + 1) end f(1)",
        "t = {} for i = 1, 1e9 do t[i] = i end",
        "for i = 1, 1e18 do for j = 1, 1e18 do end end",
        "s = 'x' while true do s = s .. s end",
        "goto x ::x::",
        "local t = {} local i = 1 while true do t[i] = {i} i = i + 1 end",
        "while true do local t = {1, 2, 3} end",
        "local fs = {} for i = 1, 1e9 do fs[i] = function() return i end end",
        // Work that grows with a string's length, in one step each.
        "local s = ' ' for i = 1, 15 do s = s .. s end s = s .. '1' while true do local x = s + 0 "
        "end",
        "local s = 'x' for i = 1, 20 do s = s .. s end local t = {} while true do t[s] = s == s "
        "end",
        // ... or with the number of values passed on.
        "local function g() end local function f(...) while true do g(...) end end f(" + big_args +
            ")",
        // Nesting past what the parser or the evaluator follows.
        "a = " + repeated("(", 100000) + "1" + repeated(")", 100000),
        "a = " + repeated("{", 100000) + repeated("}", 100000),
        "a = " + repeated("f(", 100000) + repeated(")", 100000),
        "a = " + repeated("- ", 100000) + "1",
        "a = 'x'" + repeated(" .. 'x'", 100000),
        "a = 1" + repeated(" + 1", 100000),
        "a = {} a.b = a x = a" + repeated(".b", 100000),
        "a = {} a.b = a a" + repeated(".b", 100000) + " = 1",
        repeated("do ", 100000) + repeated("end ", 100000),
        "local function f() " + repeated("if true then ", 150) + "f()" + repeated(" end", 150) +
            " end f()",
        // Calls nested in deep expressions: the stack they take is bounded
        // whatever the size of each frame.
        "local function f(n) if n > 0 then return " + repeated("(", 150) + "f(n - 1)" +
            repeated(")", 150) + " end return 0 end a = f(1000)",
        // Long lists of arguments passed on and on.
        "local function f(...) return f(...) end f(" + big_args + ")",
    };
    for (const std::string &s : scripts) {
        SCOPED_TRACE(s.substr(0, 120));
        const size_t before = heap_in_use();
        const value_flow f(s, kivtool::scan_source(s));
        EXPECT_NE(f.stopped(), "");
        const size_t used = heap_in_use() - std::min(before, heap_in_use());
        EXPECT_LT(used, MEMORY);
    }
}

// Where the run took the length of a table with holes, it says so: the
// interpreter may find another border.
TEST(Flow, TellsWhenItTookTheLengthOfATableWithHoles)
{
    const struct {
        const char *script;
        bool open;
    } rows[] = {
        {"t = {1, 2, 3} n = #t", false},
        {"t = {1, nil, 3} n = #t", true},
        {"t = {nil, nil, 3} n = #t", true},
        {"t = {} t[2] = 1 n = #t", true},
        {"t = {1, 2} t.x = 1 t[0] = 1 t[-1] = 1 t[1.5] = 1 n = #t", false},
        {"t = {1, 2, 3} t[2] = nil t[3] = nil n = #t", false},
        {"t = {1, 2, 3} t[3] = nil t[5] = 5 t[5] = nil n = #t", false},
        {"t = {1, 2, 3} t[1] = nil n = #t", true},
        {"t = {} for i = 1, 10 do t[#t + 1] = i end while #t > 0 do t[#t] = nil end", false},
        {"t = {1, 2, 3} t[5] = 5", false},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.script);
        const std::string s = r.script;
        const value_flow f(s, kivtool::scan_source(s));
        EXPECT_EQ(f.stopped(), "");
        EXPECT_EQ(f.open_length(), r.open);
    }
}

// A value computed again and again (a counter of a long loop) has a way as
// long as the loop: the way asked for is cut, and following it stays
// within the stack.
TEST(Flow, CutsTheWayOfAValueComputedAgainAndAgain)
{
    const std::string s = "local x = 0 while x < 200000 do x = x + 1 end t = {x = x}";
    const value_flow f(s, kivtool::scan_source(s));
    ASSERT_EQ(f.stopped(), "");
    const flow_value x = follow(f, "t.x");
    ASSERT_EQ(x.type, flow_value::integer);
    EXPECT_EQ(x.i, 200000);
    EXPECT_EQ(f.way(x.origin).size(), 64u);
    EXPECT_EQ(at(f.written_at(x.origin).where), "1:37");
}

} // namespace
