// The Lua access layer, call by call: tests/cases/access.txt holds a script
// ("script:" lines), then calls on its table t, each with what it returned,
// what it stored and the lines it logged (at level 3) below it.
// KIV_REGENERATE=1 rewrites the results for review as a diff.
#include "kiv_test.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <regex>
#include <sstream>

#include "core/access.h"
#include "core/log.h"

using namespace kivtest;

namespace
{

using Access = Settings;

// Runs one call ("OP ARGS") on the table on top of L; returns its result.
std::string call(lua_State *L, const std::string &line)
{
    std::istringstream in(line);
    std::string op, key, shown;
    int32_t n = 0, v = 1234, ret = 0, values[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
    in >> op >> key >> n;
    const char *k = key.c_str();
    bool at = key.starts_with("#"); // "#I": an array index
    int32_t i = at ? std::stoi(key.substr(1)) : 0;
    char buf[64];
    memset(buf, '#', sizeof buf);
    buf[8] = 0;
    size_t cap = op == "str" ? static_cast<size_t>(n) : 32;
    if (op == "exists")
        ret = at ? kiv_is_item_exist_int(L, i) : kiv_is_item_exist_str(L, k);
    else if (op == "int" || op == "elem")
        ret = op == "elem" ? kiv_get_array_integer_item_str(L, k, n, &v)
              : at         ? kiv_get_integer_item_int(L, i, &v)
                           : kiv_get_integer_item_str(L, k, &v);
    else if (op == "str") // the text, and the byte just past the room given
        ret = kiv_get_string_item_str(L, k, buf, cap);
    else if (op == "elemstr")
        ret = kiv_get_array_string_item_str(L, k, n, buf, cap);
    else if (op == "count")
        ret = key.empty() ? kiv_get_array_item_num(L) : kiv_get_array_item_num_str(L, k);
    else if (op == "ints") // into 8 slots
        ret = kiv_get_array_integers_str(L, k, values, n);
    else if (op == "enter")
        ret = at ? kiv_enter_int(L, i) : kiv_enter_str(L, k);
    else if (op == "leave")
        kiv_leave(L);
    else if (op == "push" || op == "pop")
        op == "push" ? lua_pushinteger(L, 5) : lua_pop(L, 1);
    else
        ADD_FAILURE() << "unknown call " << line;
    if (op == "int" || op == "elem")
        shown = " " + std::to_string(v);
    if (op == "str" || op == "elemstr")
        shown = " \"" + std::string(buf) + "\" " + buf[cap];
    for (int32_t x : values)
        shown += op == "ints" ? " " + std::to_string(x) : "";
    return std::to_string(ret) + shown;
}

// Replays the calls of the file; with `viewed`, as the loaders run them:
// with views of the tables in use (and their keeping table under t).
std::string replay(const std::string &text, bool viewed)
{
    std::string script, got;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("script: "))
            script += line.substr(8) + "\n";
    kiv_set_log_level(3);
    lua_script s(script, "t");
    lua_State *L = s.L();
    auto views = std::make_unique<kiv_views>();
    if (viewed) {
        lua_createtable(L, 16, 0);
        lua_insert(L, -2);
        views->keep = lua_absindex(L, -2);
        kiv_use_views(views.get());
        EXPECT_NE(kiv_view_top(L), nullptr); // t is read through its view
    }
    const int base = lua_gettop(L);
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("#") || line.starts_with("script: ") || line.empty()) {
            got += line + "\n";
        } else if (line[0] != ' ') { // a call; indented lines are its old log
            std::string c = line.substr(0, line.find(" ->")), result;
            std::string log = masked([&] { result = call(L, c); });
            int top = lua_gettop(L) - base;
            got += c + " -> " + result + (top ? " (top +" + std::to_string(top) + ")" : "") + "\n" +
                   std::regex_replace(log, std::regex("^(.)", std::regex::multiline), "    $1");
        }
    }
    kiv_use_views(nullptr);
    return got;
}

} // namespace

TEST_F(Access, CallsGiveWhatTheirFileSays)
{
    const std::string path = std::string(KIV_SOURCE_DIR) + "/tests/cases/access.txt";
    const std::string text = read_file(path);
    const std::string got = replay(text, false);
    if (getenv("KIV_REGENERATE"))
        return void(std::ofstream(path) << got);
    EXPECT_EQ(text, got) << "KIV_REGENERATE=1 rewrites " << path;
}

// The loaders read through views of the tables (strings and tables kept
// from one walk of each, numbers converted once): every call answers, stores
// and logs exactly what the lookups in the table itself do.
TEST_F(Access, ViewsAnswerAsTheTableDoes)
{
    const std::string path = std::string(KIV_SOURCE_DIR) + "/tests/cases/access.txt";
    const std::string text = read_file(path);
    EXPECT_EQ(text, replay(text, true));
}

// The views hash a name at run time a word at a time; the key tables carry
// the compiler's hash of the same name: both must agree for every length.
TEST(ViewHash, RunTimeAgreesWithTheCompiler)
{
    static constexpr const char *NAMES[] = {"",
                                            "a",
                                            "id",
                                            "fps",
                                            "main_burst_tile",
                                            "vsrc_ctx_pattern_addr_offset",
                                            "12345678",
                                            "123456789",
                                            "\xff\x80name",
                                            "exactly_sixteen!"};
    for (const char *name : NAMES) {
        const size_t n = strlen(name);
        EXPECT_EQ(kiv_name_hash_now(name, n), kiv_name_hash(name, n)) << name;
    }
    static_assert(kiv_name_hash("fps", 3) != kiv_name_hash("fpt", 3));
}
