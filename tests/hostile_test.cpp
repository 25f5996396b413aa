// A value of every wrong type in every place: each item of the shipped
// examples is replaced in turn by a number, a string, a boolean, a function
// and a table (whichever it is not), and every such script must end in an
// orderly result.  A configuration that still loads must dump to a script
// that loads again.
#include "kiv_test.h"

#include <fstream>
#include <functional>
#include <regex>
#include <set>
#include <memory>
#include <vector>

#include <lauxlib.h>
#include <lualib.h>

#include "core/log.h"

using namespace kivtest;

namespace
{

using Hostile = Settings;

struct item {
    std::string path; // a Lua expression that names it
    int type;
};

// Every item reachable from global `root` of the script at `file`, walked
// with a full interpreter (the test's own, not the library's).  Elements of
// an array stand for each other: an item is kept only where its path, array
// indices aside, first appears.
std::vector<item> items_of(const std::string &file, const char *root)
{
    std::vector<item> out;
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    if (luaL_dofile(L, file.c_str()) != LUA_OK) {
        ADD_FAILURE() << lua_tostring(L, -1);
        lua_close(L);
        return out;
    }
    std::set<std::string> seen;
    std::function<void(const std::string &, int)> walk = [&](const std::string &path, int depth) {
        lua_pushnil(L);
        while (lua_next(L, -2) != 0) {
            std::string sub;
            if (lua_type(L, -2) == LUA_TNUMBER)
                sub = path + "[" + std::to_string(lua_tointeger(L, -2)) + "]";
            else
                sub = path + "." + lua_tostring(L, -2);
            std::string shape = std::regex_replace(sub, std::regex(R"(\[[0-9]+\])"), "[]");
            if (seen.insert(shape).second)
                out.push_back({sub, lua_type(L, -1)});
            if (lua_type(L, -1) == LUA_TTABLE && depth < 8)
                walk(sub, depth + 1);
            lua_pop(L, 1);
        }
    };
    lua_getglobal(L, root);
    walk(root, 0);
    lua_close(L);
    return out;
}

// The script text without its closing `return`, so that lines can follow.
std::string body_of(const std::string &file)
{
    std::string text = read_file(file);
    size_t ret = text.rfind("\nreturn ");
    return ret == std::string::npos ? text : text.substr(0, ret + 1);
}

const char *const WRONG[] = {"7", "'text'", "true", "function() end", "{}"};
const int WRONG_TYPE[] = {LUA_TNUMBER, LUA_TSTRING, LUA_TBOOLEAN, LUA_TFUNCTION, LUA_TTABLE};

// Calls `run` on every variant of the script; returns how many variants ran.
int for_each_variant(const std::string &file, const char *root,
                     const std::function<void(const std::string &)> &run)
{
    std::string body = body_of(file);
    int n = 0;
    for (const item &it : items_of(file, root)) {
        for (int w = 0; w < 5; ++w) {
            if (WRONG_TYPE[w] == it.type)
                continue;
            run(body + it.path + " = " + WRONG[w] + "\n");
            ++n;
        }
    }
    return n;
}

} // namespace

TEST_F(Hostile, MultiChannelScriptsWithWrongTypes)
{
    auto cfg = std::make_unique<kiv_multi_chan_cfg>();
    auto again = std::make_unique<kiv_multi_chan_cfg>();
    const std::string in = script(""), out = script("");
    for (const char *name : {"three_channel_4k.lua", "hdr_virtual_mode.lua"}) {
        int loaded = 0, n = 0;
        // One capture for all variants: the log is not looked at.
        capture([&] {
            n = for_each_variant(example(name), "_resource_config_", [&](const std::string &text) {
                std::ofstream(in) << text;
                int32_t ret = kiv_get_multi_chan_cfg(in.c_str(), cfg.get());
                ASSERT_LE(ret, 0);
                if (ret != 0)
                    return;
                ++loaded;
                kiv_dump_multi_chan_cfg(cfg.get(), out.c_str());
                EXPECT_EQ(kiv_get_multi_chan_cfg(out.c_str(), again.get()), 0)
                    << text.substr(text.rfind('\n', text.size() - 2));
            });
        });
        EXPECT_GT(n, 200) << name;
        EXPECT_GT(loaded, 0) << name;
    }
}

TEST_F(Hostile, StandaloneScriptsWithWrongTypes)
{
    auto lists = std::make_unique<kiv_hevc_scaling_cfg>();
    const std::string in = script("");
    auto write = [&](const std::string &text) { std::ofstream(in) << text; };
    capture([&] {
        for_each_variant(example("hevc_default_scaling.lua"), "__hevc_scalelist__",
                         [&](const std::string &text) {
                             write(text);
                             EXPECT_LE(kiv_get_hevc_scaling_cfg(in.c_str(), lists.get()), 0);
                         });
        for_each_variant(example("custom_aisp.lua"), "_custom_aisp_config_",
                         [&](const std::string &text) {
                             write(text);
                             kiv_aisp_cfg nn{};
                             EXPECT_LE(kiv_get_aisp_cfg(in.c_str(), &nn, 1), 0);
                         });
        for_each_variant(example("calib_table.lua"), "calib_data", [&](const std::string &text) {
            write(text);
            kiv_calib_data_item items[64] = {};
            int32_t n = kiv_get_calib_data_size(in.c_str());
            EXPECT_GE(n, 0);
            EXPECT_LE(kiv_load_calib_data(in.c_str(), items, n > 0 && n <= 64 ? n : 1), 0);
        });
    });
}
