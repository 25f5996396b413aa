// The scan of a script's text: constructors, fields, functions and
// suppression comments, each case a script and the map written as text; the
// lines the scan predicts are checked against what the interpreter reports.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "kiv_test.h"
#include "model/source.h"

using kivtool::scan_source;
using kivtool::span_text;
using kivtool::src_field;
using kivtool::src_map;
using kivtool::src_pos;
using kivtool::src_span;

namespace
{

struct row {
    std::string script, want;
};

std::string pos(const src_pos &p)
{
    return std::to_string(p.line) + ":" + std::to_string(p.col);
}

std::string span(const src_span &s)
{
    return s.none() ? "none" : pos(s.begin) + "-" + pos(s.end);
}

// "name@1:6 = 1:10-1:12", "[\"k\"]@..." or "[3]@..." or "[?]@..." (a key that
// is no literal), "#1 = ...", with " {c2}" when the value is constructor 2.
std::string field_text(const src_field &f)
{
    std::string s = f.kind == src_field::named        ? f.name + "@" + pos(f.key.begin)
                    : f.kind == src_field::positional ? "#" + std::to_string(f.index)
                    : !f.literal_key                  ? "[?]@" + span(f.key)
                    : !f.name.empty()                 ? "[\"" + f.name + "\"]@" + span(f.key)
                                      : "[" + std::to_string(f.index) + "]@" + span(f.key);
    s += " = " + span(f.value);
    return f.constructor < 0 ? s : s + " {c" + std::to_string(f.constructor) + "}";
}

// One line per constructor: "1:5-1:20 line 1 fn 0 in 2 [fields]" (in: its parent).
std::string constructors(const src_map &m)
{
    std::string out;
    for (const auto &c : m.constructors) {
        out += span(c.span) + " line " + std::to_string(c.table_line) + " fn " +
               std::to_string(c.function);
        if (c.parent >= 0)
            out += " in " + std::to_string(c.parent);
        out += " [";
        for (const src_field &f : c.fields)
            out += (&f == c.fields.data() ? "" : ", ") + field_text(f);
        out += "]\n";
    }
    return out;
}

// Every constructor's span runs from its '{' to its '}'.
void expect_braces(const std::string &text, const src_map &m)
{
    for (const auto &c : m.constructors) {
        std::string_view s = span_text(text, c.span);
        EXPECT_EQ(s.substr(0, 1), "{") << span(c.span);
        if (m.complete) {
            EXPECT_EQ(s.substr(s.size() - 1), "}") << span(c.span);
        }
    }
}

void check_constructors(const std::vector<row> &rows)
{
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        src_map m = scan_source(r.script);
        EXPECT_TRUE(m.complete) << pos(m.stopped);
        EXPECT_EQ(constructors(m), r.want);
        expect_braces(r.script, m);
    }
}

TEST(SourceConstructors, FieldsSpansAndNesting)
{
    check_constructors({
        {"t = {1, {2}, x = {}}", "1:5-1:21 line 1 fn 0 [#1 = 1:6-1:7, #2 = 1:9-1:12 {c1}, "
                                 "x@1:14 = 1:18-1:20 {c2}]\n"
                                 "1:9-1:12 line 1 fn 0 in 0 [#1 = 1:10-1:11]\n"
                                 "1:18-1:20 line 1 fn 0 in 0 []\n"},
        {"t =\n{\n  a = {\n  },\n  [\"k\"] = 2;\n}",
         "2:1-6:2 line 1 fn 0 [a@3:3 = 3:7-4:4 {c1}, [\"k\"]@5:3-5:8 = 5:11-5:12]\n"
         "3:7-4:4 line 3 fn 0 in 0 []\n"},
        {"f[[a\nb]]{x=[==[\n]]\n]==]}", "2:4-4:6 line 2 fn 0 [x@2:5 = 2:7-4:5]\n"},
        {"{1;[3]=3,}", "1:1-1:11 line 1 fn 0 [#1 = 1:2-1:3, [3]@1:4-1:7 = 1:8-1:9]\n"},
        {"t = {a == b, c = d == e}", "1:5-1:25 line 1 fn 0 [#1 = 1:6-1:12, c@1:14 = 1:18-1:24]\n"},
        // Braces, "--" and brackets inside strings and comments.
        {"t = {\"{\", '}', \"--\", --[[ { ]] x = \"}\" -- {\n}",
         "1:5-2:2 line 1 fn 0 [#1 = 1:6-1:9, #2 = 1:11-1:14, #3 = 1:16-1:20, x@1:32 = "
         "1:36-1:39]\n"},
        {"t = {[[a]=]], [=[b]]]=], [==[]=]]==]}",
         "1:5-1:38 line 1 fn 0 [#1 = 1:6-1:13, #2 = 1:15-1:24, #3 = 1:26-1:37]\n"},
        // Separators inside a function body, and a value that only starts with '{'.
        {"t = {function() local a, b = {1}, 2; return a end, {} .. x}",
         "1:5-1:60 line 1 fn 0 [#1 = 1:6-1:50, #2 = 1:52-1:59]\n"
         "1:30-1:33 line 1 fn 1 [#1 = 1:31-1:32]\n"
         "1:52-1:54 line 1 fn 0 []\n"},
        // The interpreter reads the '{' after a field's first name before it
        // creates that table: the '{' gives the line.
        {"t = { f\n{}, g\n,\n{} }",
         "1:5-4:5 line 1 fn 0 [#1 = 1:7-2:3, #2 = 2:5-2:6, #3 = 4:1-4:3 {c2}]\n"
         "2:1-2:3 line 2 fn 0 []\n"
         "4:1-4:3 line 3 fn 0 in 0 []\n"},
    });
}

TEST(SourceConstructors, LineBreaksByteOrderMarkAndFirstLine)
{
    check_constructors({
        {"x =\r{\r}", "2:1-3:2 line 1 fn 0 []\n"},
        {"x =\r\n{\r\n}", "2:1-3:2 line 1 fn 0 []\n"},
        {"x =\n\r{\n\r}", "2:1-3:2 line 1 fn 0 []\n"},
        {"x =\n\n\r\r{}", "4:1-4:3 line 1 fn 0 []\n"},
        {"x = '\\\r\n' {}", "2:3-2:5 line 2 fn 0 []\n"},
        {"x = '\\z \r\n\t' {}", "2:4-2:6 line 2 fn 0 []\n"},
        {"\xEF\xBB\xBFx = {}", "1:5-1:7 line 1 fn 0 []\n"},
        {"#!/usr/bin/lua {\nx = {}", "2:5-2:7 line 2 fn 0 []\n"},
        {"\xEF\xBB\xBF# {\r\nx = {}", "2:5-2:7 line 2 fn 0 []\n"},
        // The first line ends at its '\n' only; a '\r' right after it joins it.
        {"#x\rx = {}\ny = {}", "2:5-2:7 line 2 fn 0 []\n"},
        {"#x\n\ry = {}", "2:5-2:7 line 2 fn 0 []\n"},
        {"x = 1\n#{}", "2:2-2:4 line 2 fn 0 []\n"},
    });
    std::string text = "\xEF\xBB\xBF{}";
    EXPECT_EQ(scan_source(text).constructors.at(0).span.begin.offset, 3u);
}

TEST(SourceConstructors, LiteralKeys)
{
    const std::vector<row> rows = {
        {R"("a\65\x42\u{43}\u{20AC}\z
              d\
e")",
         "[\"aABC\xE2\x82\xAC"
         "d\ne\"]"},
        {R"('\'"\\\0010')", "[\"'\"\\\x01"
                            "0\"]"},
        {"[[\n x]]", "[\" x\"]"},
        {"[==[a]]\r\nb]==]", "[\"a]]\nb\"]"},
        {"1", "[1]"},
        {"0x10", "[16]"},
        {"-3", "[-3]"},
        {"2.0", "[2]"},
        {"0x1p4", "[16]"},
        {"0x.8P1", "[1]"},
        {"1e2", "[100]"},
        {".5e1", "[5]"},
        {"3.", "[3]"},
        {"0xffffffffffffffff", "[-1]"},
        {"9223372036854775807", "[9223372036854775807]"},
        {"-0x8000000000000000", "[-9223372036854775808]"},
        {"-9223372036854775808", "[-9223372036854775808]"},
        {"9223372036854775808", "[?]"},
        {"1e-400", "[0]"},
        {"1e400", "[?]"},
        {"1.5", "[?]"},
        {"x", "[?]"},
        {"'a' .. 'b'", "[?]"},
        {"(1)", "[?]"},
        {"- -1", "[?]"},
        {"-'1'", "[?]"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        src_map m = scan_source("t = {[ " + r.script + " ] = 0}");
        ASSERT_TRUE(m.complete);
        ASSERT_EQ(m.constructors.size(), 1u);
        std::string key = field_text(m.constructors[0].fields.at(0));
        EXPECT_EQ(key.substr(0, key.find('@')), r.want);
    }
}

// Functions as "fn 1: 1:1-3:4 def 1-3", then each constructor's function.
std::string functions(const src_map &m)
{
    std::string out;
    for (size_t i = 1; i < m.functions.size(); ++i)
        out += "fn " + std::to_string(i) + ": " + span(m.functions[i].span) + " def " +
               std::to_string(m.functions[i].line_defined) + "-" +
               std::to_string(m.functions[i].last_line_defined) + "\n";
    for (const auto &c : m.constructors)
        out += "{} in fn " + std::to_string(c.function) + "\n";
    return out;
}

TEST(SourceFunctions, LineDefinedOfEveryForm)
{
    const std::vector<row> rows = {
        {"function a.b:c\n(x)\n  return {}\nend", "fn 1: 1:1-4:4 def 1-4\n{} in fn 1\n"},
        {"local function f\n(\n)\nend", "fn 1: 1:7-4:4 def 2-4\n"},
        {"x = function\n\n(a) end {}", "fn 1: 1:5-3:8 def 3-3\n{} in fn 0\n"},
        {"t = {f = function() return function() return {} end end, {}}",
         "fn 1: 1:10-1:56 def 1-1\nfn 2: 1:28-1:52 def 1-1\n{} in fn 0\n{} in fn 2\n{} in fn 0\n"},
        {"function f()\n  if a then do end elseif b then while c do end else repeat until {} end\n"
         "  for i = 1, 2 do end\n  return {}\nend\ny = {}",
         "fn 1: 1:1-5:4 def 1-5\n{} in fn 1\n{} in fn 1\n{} in fn 0\n"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        src_map m = scan_source(r.script);
        EXPECT_TRUE(m.complete);
        EXPECT_EQ(functions(m), r.want);
    }
}

TEST(SourceSuppressions, OwnLineTrailingFileWideAndMalformed)
{
    const std::vector<row> rows = {
        {"x = 1 -- kiv-lint: disable=a,b-2\n", "1 a, 1 b-2"},
        {"-- kiv-lint: disable=a\n\n  x = 1", "3 a"},
        {"-- kiv-lint: disable=a\n-- kiv-lint: disable-file=c\n--  kiv-lint: disable=b\nx",
         "4 a, 0 c, 4 b"},
        {"--kiv-lint:disable-file=a , b\nx=1", "0 a, 0 b"},
        {"x = 1 -- kiv-lint: disable=a reason, b", "1 a"},
        {"x = [[\n]] -- kiv-lint: disable=a", "2 a"},
        {"--[==[ x ]==] -- kiv-lint: disable=a\nx", "2 a"},
        {"x = 1\n-- kiv-lint: disable=a", ""},
        {"-- feeds the warp; kiv-lint: disable=a\nx", "2 a"},
        {"-- kiv-lint: disable a\n-- kiv-lint disable=a\n-- kiv-lint: disable=\n"
         "-- kiv-lint: disable=A\n--[[ kiv-lint: disable=a ]]\n"
         "x = '-- kiv-lint: disable=a'",
         ""},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        std::string got;
        for (const auto &s : scan_source(r.script).suppressions)
            got += (got.empty() ? "" : ", ") + std::to_string(s.line) + " " + s.rule;
        EXPECT_EQ(got, r.want);
    }
}

TEST(SourceBadInput, KeepsWhatCameBeforeTheBadToken)
{
    const std::vector<row> rows = {
        {"x = {a = \"abc", "1:10\n1:5-1:14 line 1 fn 0 [a@1:6 = none]\n"},
        {"x = {\n'abc\ndef'}", "2:1\n1:5-3:6 line 1 fn 0 []\n"},
        {"x = {1, --[[ {", "1:9\n1:5-1:15 line 1 fn 0 [#1 = 1:6-1:7]\n"},
        {"x = {1, {2,", "1:12\n1:5-1:12 line 1 fn 0 [#1 = 1:6-1:7, #2 = 1:9-1:12]\n"
                        "1:9-1:12 line 1 fn 0 [#1 = 1:10-1:11]\n"},
        {"x = {[1", "1:8\n1:5-1:8 line 1 fn 0 [[?]@1:6-1:8 = none]\n"},
        {"x = {1)}", "1:7\n1:5-1:9 line 1 fn 0 [#1 = 1:6-1:7]\n"},
        {"x = {f = function() end end}", "1:25\n1:5-1:29 line 1 fn 0 [f@1:6 = 1:10-1:24]\n"},
        {"until", "1:1\n"},
        {"x = 'a\\qb'", "1:5\n"},
        {"x = '\\300'", "1:5\n"},
        {"x = '\\xg0'", "1:5\n"},
        {"x = '\\u{110000}'", "1:5\n"},
        {"x = '\\u{41'", "1:5\n"},
        {"x = 0x1p", "1:5\n"},
        {"x = 3..4", "1:5\n"},
        {"x = 1e+", "1:5\n"},
        {"x = .0x5", "1:5\n"},
        {"x = [=[ abc ]]", "1:5\n"},
        {"x = [= 1", "1:5\n"},
        {"--[==[ x ]=]", "1:1\n"},
        {"x = @", "1:5\n"},
        {"x = '\\", "1:5\n"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        src_map m = scan_source(r.script);
        EXPECT_FALSE(m.complete);
        EXPECT_EQ(pos(m.stopped) + "\n" + constructors(m), r.want);
        expect_braces(r.script, m);
    }
}

// What the map keeps stays bounded whatever the text: the scalar values of
// one constructor past the 4,096th are left out (those after them keep
// their positions), and the scan stops where the map would outgrow what
// any configuration needs.
TEST(SourceBadInput, TheMapKeepsABoundedPart)
{
    std::string values = "t = {";
    for (int i = 0; i < 10000; ++i)
        values += "1, ";
    values += "{}, x = 2}";
    src_map m = scan_source(values);
    EXPECT_TRUE(m.complete);
    ASSERT_EQ(m.constructors.size(), 2u);
    const std::vector<src_field> &f = m.constructors[0].fields;
    ASSERT_EQ(f.size(), 4096u + 2);
    EXPECT_EQ(f[4095].index, 4096);
    EXPECT_EQ(f[4096].index, 10001); // the table value keeps its place
    EXPECT_EQ(f[4096].constructor, 1);
    EXPECT_EQ(f[4097].name, "x");

    std::string tables = "t = {";
    for (int i = 0; i < 400000; ++i)
        tables += "{}, ";
    tables += "}\nu = {}\n";
    m = scan_source(tables);
    EXPECT_FALSE(m.complete);
    EXPECT_LE(m.constructors.size() + m.constructors[0].fields.size(), size_t{1} << 19);
    EXPECT_GT(m.constructors.size(), 200000u);
    EXPECT_EQ(m.stopped.line, 1u);
}

TEST(SourceBadInput, DeepNestingAndEveryPrefix)
{
    const size_t n = 200000;
    src_map m = scan_source(std::string(n, '{'));
    EXPECT_FALSE(m.complete);
    ASSERT_EQ(m.constructors.size(), n);
    EXPECT_EQ(m.constructors.back().span.end.offset, n);
    m = scan_source(std::string(n, '{') + std::string(n, '}'));
    EXPECT_TRUE(m.complete);
    EXPECT_EQ(m.constructors[n - 1].parent, int32_t(n - 2));
    std::string fn;
    for (size_t i = 0; i < n / 10; ++i)
        fn += "function() return (";
    for (size_t i = 0; i < n / 10; ++i)
        fn += ") end\n";
    m = scan_source("f = " + fn);
    EXPECT_TRUE(m.complete);
    EXPECT_EQ(m.functions.at(n / 10).last_line_defined, 1u);

    // Every prefix of a script that uses every kind of token finds the
    // constructors of the whole script that start in it; random bytes scan.
    std::string script =
        "#!lua\n t = {a = [==[x]]\n]==], [-0x1p4] = 'a\\z\r\n\\u{41}\xEF', --[[c]]\n"
        "f = function(...) local x <= 1 // 2 >> 3 ~= 4 do end return {...} end;"
        " {{\"\\\"}\"}}, 3.5e-1 .. 0xA.8p1 :: ~ }\r-- kiv-lint: disable=a\n";
    src_map whole = scan_source(script);
    ASSERT_TRUE(whole.complete);
    ASSERT_EQ(whole.constructors.size(), 4u);
    for (size_t len = 0; len <= script.size(); ++len) {
        std::string prefix = script.substr(0, len);
        m = scan_source(prefix);
        expect_braces(prefix, m);
        for (size_t i = 0; i < whole.constructors.size(); ++i)
            EXPECT_EQ(i < m.constructors.size(), whole.constructors[i].span.begin.offset < len)
                << prefix;
    }
    std::mt19937 rng(7);
    for (int k = 0; k < 200; ++k) {
        std::string noise(256, ' ');
        for (char &c : noise)
            c = char(script[rng() % script.size()] ^ (rng() % 8 == 0 ? rng() : 0));
        expect_braces(noise, scan_source(noise));
    }
}

// One line per assignment: the target and its key as "cfg.ch[1].bits",
// "t[\"a b\"]", "t[-2]" or "t[?]" (a key that is no literal), then
// "@key = value", " {c1}" when the value is constructor 1 and " fn 2" when
// the statement is in function 2.
std::string assignments(const std::string &text, const src_map &m)
{
    std::string out;
    for (const auto &a : m.assignments) {
        out += a.target;
        out += span_text(text, a.key).substr(0, 1) == "." ? "." + a.name
               : !a.literal_key                           ? "[?]"
               : !a.name.empty()                          ? "[\"" + a.name + "\"]"
                                                          : "[" + std::to_string(a.index) + "]";
        out += "@" + span(a.key) + " = " + span(a.value);
        if (a.constructor >= 0)
            out += " {c" + std::to_string(a.constructor) + "}";
        if (a.function != 0)
            out += " fn " + std::to_string(a.function);
        out += "\n";
    }
    return out;
}

bool loads(const std::string &script)
{
    lua_State *L = luaL_newstate();
    bool ok = luaL_loadstring(L, script.c_str()) == LUA_OK;
    lua_close(L);
    return ok;
}

// Scripts the interpreter accepts.
TEST(SourceAssignments, TargetsKeysAndValues)
{
    const std::vector<row> rows = {
        {"cfg.channels[1].vsrc.bits = 10", "cfg.channels[1].vsrc.bits@1:21-1:26 = 1:29-1:31\n"},
        {"ch.hflip = 1\nt[\"mode\"] = \"4K\"\nlayers[3] = {w = {}}",
         "ch.hflip@1:3-1:9 = 1:12-1:13\n"
         "t[\"mode\"]@2:2-2:10 = 2:13-2:17\n"
         "layers[3]@3:7-3:10 = 3:13-3:21 {c0}\n"},
        {"t[-2], t[ - 0x10 ], t[2.0], t[1.5], t['a b'], t[ [[k]] ], t[k], t['a'..'b'], t[-'1'] = "
         "1, 2, 3, 4, 5, 6, 7, 8, 9",
         "t[-2]@1:2-1:6 = 1:88-1:89\n"
         "t[-16]@1:9-1:19 = 1:91-1:92\n"
         "t[2]@1:22-1:27 = 1:94-1:95\n"
         "t[?]@1:30-1:35 = 1:97-1:98\n"
         "t[\"a b\"]@1:38-1:45 = 1:100-1:101\n"
         "t[\"k\"]@1:48-1:57 = 1:103-1:104\n"
         "t[?]@1:60-1:63 = 1:106-1:107\n"
         "t[?]@1:66-1:76 = 1:109-1:110\n"
         "t[?]@1:79-1:85 = 1:112-1:113\n"},
        // Fewer values than targets; plain names are no fields.
        {"a.x, b[2], c, d.y = 1, {}\nx = y.z\nx.y = z.w", "a.x@1:2-1:4 = 1:21-1:22\n"
                                                          "b[2]@1:7-1:10 = 1:24-1:26 {c0}\n"
                                                          "d.y@1:16-1:18 = none\n"
                                                          "x.y@3:2-3:4 = 3:7-3:10\n"},
        {"function f()\n  self.x = 1\nend\nt = {f = function(s) s.y = {} end}\n"
         "t.g = function() a[1] = 2 return {} end",
         "self.x@2:7-2:9 = 2:12-2:13 fn 1\n"
         "s.y@4:23-4:25 = 4:28-4:30 {c1} fn 2\n"
         "t.g@5:2-5:4 = 5:7-5:40\n"
         "a[1]@5:19-5:22 = 5:25-5:26 fn 3\n"},
        // Calls and parentheses in the prefix.
        {"f(x).y = 1\na:b().c, (t).u = 2, 3\nf{}.z, g'x'.w = f\n'a'",
         "f(x).y@1:5-1:7 = 1:10-1:11\n"
         "a:b().c@2:6-2:8 = 2:18-2:19\n"
         "(t).u@2:13-2:15 = 2:21-2:22\n"
         "f{}.z@3:4-3:6 = 3:17-4:4\n"
         "g'x'.w@3:12-3:14 = none\n"},
        {"a.b = 1; c.d = 2 e.f = 3;;g[1]=4", "a.b@1:2-1:4 = 1:7-1:8\n"
                                             "c.d@1:11-1:13 = 1:16-1:17\n"
                                             "e.f@1:19-1:21 = 1:24-1:25\n"
                                             "g[1]@1:28-1:31 = 1:32-1:33\n"},
        {"if a.b then a.c = 1 elseif x.y == 1 then else t.u = 2 end\n"
         "for i = 1, t.n do t[i] = i end\nwhile t.x do t.x = nil end\n"
         "repeat r.a = 1 until r.b\nlocal l = {} l.m = 1\nreturn t.v",
         "a.c@1:14-1:16 = 1:19-1:20\n"
         "t.u@1:48-1:50 = 1:53-1:54\n"
         "t[?]@2:20-2:23 = 2:26-2:27\n"
         "t.x@3:15-3:17 = 3:20-3:23\n"
         "r.a@4:9-4:11 = 4:14-4:15\n"
         "l.m@5:15-5:17 = 5:20-5:21\n"},
        // Calls, comparisons and reads are no assignments.
        {"f(a).b(c)\nx = a.b == c\nlocal t = a.b\na.b:c(1)\nf(a.b)\ngoto l ::l::\nx = y.z", ""},
        // Blanks and comments inside the target; tokens that would run together.
        {"cfg . channels --[[c]] [ 1 ] -- x\n . vsrc\n.bits = 10\n"
         "t[a and b][1 ..x][x - -1] [ [[k]] ][ 'a  b' ].y = 1",
         "cfg.channels[1].vsrc.bits@3:1-3:6 = 3:9-3:11\n"
         "t[a and b][1 ..x][x- -1][ [[k]]]['a  b'].y@4:46-4:48 = 4:51-4:52\n"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        ASSERT_TRUE(loads(r.script));
        src_map m = scan_source(r.script);
        EXPECT_TRUE(m.complete);
        EXPECT_EQ(assignments(r.script, m), r.want);
    }

    std::string chain = "a";
    for (int i = 0; i < 30; ++i)
        chain += " . b" + std::to_string(100000000 + i);
    src_map m = scan_source(chain + ".c = 1");
    ASSERT_EQ(m.assignments.size(), 1u);
    std::erase(chain, ' ');
    EXPECT_EQ(m.assignments[0].target, chain.substr(0, 256));
    EXPECT_EQ(m.assignments[0].name, "c");
}

TEST(SourceAssignments, UnfinishedAndMalformedStatements)
{
    const std::vector<row> rows = {
        {"a.b =", "a.b@1:2-1:4 = none\n"},
        {"a.b = {1,", "a.b@1:2-1:4 = 1:7-1:10\n"},
        {"a.b = = 1", "a.b@1:2-1:4 = none\n"},
        {"a.b, c.d", ""},
        {"a.b.c, = 1", ""},
        {"a[1", ""},
        {"a.b == c", ""},
        {".b = 1", ""},
        {"f(a).b g().h = 1", "g().h@1:11-1:13 = 1:16-1:17\n"},
        {"a.b = 1 ) c.d = 2", "a.b@1:2-1:4 = 1:7-1:8\n"},
        {"a.b = 1 --[[", "a.b@1:2-1:4 = 1:7-1:8\n"},
        {"function a.b() x.y = 1", "x.y@1:17-1:19 = 1:22-1:23 fn 1\n"},
        {"t = {f = function() a.b = {", "a.b@1:22-1:24 = 1:27-1:28 fn 1\n"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.script);
        EXPECT_EQ(assignments(r.script, scan_source(r.script)), r.want);
    }

    // Every prefix of a script keeps the assignments whose value it holds
    // whole, and finds no other.
    std::string script = "cfg.ch[1].v = {a = 1}; f(x).y, z = function() t['k'] = 2 end\n"
                         "if c then u[-1] = {} .. 'x' else w.q = - 3 end g{}.h = 4";
    ASSERT_TRUE(loads(script));
    src_map whole = scan_source(script);
    ASSERT_EQ(whole.assignments.size(), 6u);
    for (size_t len = 0; len <= script.size(); ++len) {
        std::string prefix = script.substr(0, len);
        src_map m = scan_source(prefix);
        for (const auto &w : whole.assignments) {
            auto same = [&w](const kivtool::src_assignment &a) {
                return a.key.begin.offset == w.key.begin.offset && a.target == w.target;
            };
            auto it = std::find_if(m.assignments.begin(), m.assignments.end(), same);
            if (!w.value.none() && w.value.end.offset <= len) {
                ASSERT_NE(it, m.assignments.end()) << prefix;
                EXPECT_EQ(span(it->value), span(w.value)) << prefix;
            }
        }
        for (const auto &a : m.assignments)
            EXPECT_TRUE(std::any_of(whole.assignments.begin(), whole.assignments.end(),
                                    [&a](const kivtool::src_assignment &w) {
                                        return a.key.begin.offset == w.key.begin.offset &&
                                               a.target == w.target;
                                    }))
                << prefix;
    }
    std::mt19937 rng(11);
    for (int k = 0; k < 300; ++k) {
        std::string noise(128, ' ');
        for (char &c : noise)
            c = script[rng() % script.size()];
        src_map m = scan_source(noise);
        for (const auto &a : m.assignments) {
            std::string_view key = span_text(noise, a.key);
            EXPECT_TRUE(key.starts_with(".") || key.starts_with("[")) << noise;
            EXPECT_TRUE(a.value.none() || a.value.begin.offset < a.value.end.offset) << noise;
        }
    }
}

// The tables created while a script runs, as (currentline, linedefined,
// lastlinedefined) of the instruction that created each.
using table_site = std::tuple<int, int, int>;
lua_State *running = nullptr;
std::vector<table_site> *sites = nullptr;

void *record_tables(void *, void *ptr, size_t osize, size_t nsize)
{
    if (nsize == 0) {
        free(ptr);
        return nullptr;
    }
    lua_Debug ar;
    if (ptr == nullptr && osize == LUA_TTABLE && running && lua_getstack(running, 0, &ar) &&
        lua_getinfo(running, "Sl", &ar) && ar.currentline != -1)
        sites->emplace_back(ar.currentline, ar.linedefined, ar.lastlinedefined);
    return realloc(ptr, nsize);
}

std::vector<table_site> run_script(const std::string &path)
{
    std::vector<table_site> seen;
    lua_State *L = lua_newstate(record_tables, nullptr);
    EXPECT_EQ(luaL_loadfile(L, path.c_str()), LUA_OK) << lua_tostring(L, -1);
    running = L;
    sites = &seen;
    EXPECT_EQ(lua_pcall(L, 0, 0, 0), LUA_OK) << lua_tostring(L, -1);
    running = nullptr;
    lua_close(L);
    std::sort(seen.begin(), seen.end());
    return seen;
}

// Scripts whose every constructor runs exactly once, and no library function.
TEST(SourceInterpreter, TableLinesAndFunctionLinesMatchTheDebugInformation)
{
    const std::vector<std::string> scripts = {
        "local a, b = {1, {2}}, {x = {}, y = {{}, {}}}\n"
        "local c = {\n  {\n  },\n  d =\n  {\n  }\n}",

        "local function f\n(\n  x)\n  return {x,\n    {}}\nend\n"
        "local g = function\n(\n)\n  return\n  {\n  }\nend\n"
        "local t = { h = function(v) return { v } end }\n"
        "f(1) g() t.h(2)",

        "local a = {b = {}}\n"
        "function\na.b.c\n(x) local y = {x}\n  return y\nend\n"
        "function a.b:m() return {\n} end\n"
        "a.b.c(1) a.b:m()",

        "local function id(x) return x end\n"
        "local function\nwrap\n(s) return id end\n"
        "local t = { id\n{}, id\n,\n{} }\n"
        "local u = wrap[[a\nb\nc]]{ }\n"
        "local v = wrap'x\\\ny'\n{}",

        "\xEF\xBB\xBF#!/usr/bin/lua\n\r"
        "local function outer()\r"
        "  local function inner() return {{}} end\n\r"
        "  return inner(), function() return {} end\r\n"
        "end\n\n"
        "local x, y = outer()\r\r"
        "y()\n"
        "return\n{\n}",
    };
    for (const std::string &s : scripts) {
        SCOPED_TRACE(s);
        src_map m = scan_source(s);
        ASSERT_TRUE(m.complete);
        std::vector<table_site> predicted;
        for (const auto &c : m.constructors) {
            const auto &fn = m.functions[size_t(c.function)];
            predicted.emplace_back(c.table_line, fn.line_defined, fn.last_line_defined);
        }
        std::sort(predicted.begin(), predicted.end());
        EXPECT_EQ(run_script(kivtest::script(s)), predicted);
    }
}

} // namespace
