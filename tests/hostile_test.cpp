// A value of every wrong type in every place: each item of the shipped
// examples is replaced in turn by a number, a string, a boolean, a function
// and a table (whichever it is not), and every such script must end in an
// orderly result.  A configuration that still loads must dump to a script
// that loads again.
#include "kiv_test.h"

#include <fstream>
#include <functional>
#include <memory>
#include <regex>
#include <set>

#include <lauxlib.h>
#include <lualib.h>

using namespace kivtest;

namespace
{

using Hostile = Settings;

// Calls `run` on every variant of the example `name`, whose items are
// reachable from its global `root`; returns how many there were.  The items
// are found with a full interpreter (the test's own, not the library's).
// Elements of an array stand for each other: an item is replaced only where
// its path, array indices aside, first appears.
int for_each_variant(const char *name, const char *root,
                     const std::function<void(const std::string &)> &run)
{
    const std::string file = example(name), text = read_file(file);
    // The script without its closing `return`, so that lines can follow.
    const size_t ret = text.rfind("\nreturn ");
    const std::string body = ret == std::string::npos ? text : text.substr(0, ret + 1);
    const char *const wrong[] = {"7", "'text'", "true", "function() end", "{}"};
    const int wrong_type[] = {LUA_TNUMBER, LUA_TSTRING, LUA_TBOOLEAN, LUA_TFUNCTION, LUA_TTABLE};
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    EXPECT_EQ(luaL_dofile(L, file.c_str()), LUA_OK) << name;
    std::set<std::string> seen;
    int n = 0;
    std::function<void(const std::string &, int)> walk = [&](const std::string &path, int depth) {
        lua_pushnil(L);
        while (lua_next(L, -2) != 0) {
            std::string sub = lua_type(L, -2) == LUA_TNUMBER
                                  ? path + "[" + std::to_string(lua_tointeger(L, -2)) + "]"
                                  : path + "." + lua_tostring(L, -2);
            if (seen.insert(std::regex_replace(sub, std::regex(R"(\[[0-9]+\])"), "[]")).second)
                for (int w = 0; w < 5; ++w)
                    if (wrong_type[w] != lua_type(L, -1) && ++n)
                        run(body + sub + " = " + wrong[w] + "\n");
            if (lua_type(L, -1) == LUA_TTABLE && depth < 8)
                walk(sub, depth + 1);
            lua_pop(L, 1);
        }
    };
    lua_getglobal(L, root);
    walk(root, 0);
    lua_close(L);
    return n;
}

} // namespace

TEST_F(Hostile, ScriptsWithWrongTypesEndInAnOrderlyResult)
{
    auto cfg = std::make_unique<kiv_multi_chan_cfg>(),
         again = std::make_unique<kiv_multi_chan_cfg>();
    auto lists = std::make_unique<kiv_hevc_scaling_cfg>();
    const std::string in = script(""), out = script("");
    auto multi = [&] {
        int32_t ret = kiv_get_multi_chan_cfg(in.c_str(), cfg.get());
        if (ret == 0) {
            kiv_dump_multi_chan_cfg(cfg.get(), out.c_str());
            EXPECT_EQ(kiv_get_multi_chan_cfg(out.c_str(), again.get()), 0);
        }
        return ret;
    };
    const struct {
        const char *name, *root;
        std::function<int32_t()> load;
    } cases[] = {
        {"three_channel_4k.lua", "_resource_config_", multi},
        {"hdr_virtual_mode.lua", "_resource_config_", multi},
        {"hevc_default_scaling.lua", "__hevc_scalelist__",
         [&] { return kiv_get_hevc_scaling_cfg(in.c_str(), lists.get()); }},
        {"custom_aisp.lua", "_custom_aisp_config_",
         [&] {
             kiv_aisp_cfg nn{};
             return kiv_get_aisp_cfg(in.c_str(), &nn, 1);
         }},
        {"calib_table.lua", "calib_data",
         [&] {
             kiv_calib_data_item items[64] = {};
             int32_t n = kiv_get_calib_data_size(in.c_str());
             EXPECT_GE(n, 0);
             return kiv_load_calib_data(in.c_str(), items, n > 0 && n <= 64 ? n : 1);
         }},
    };
    for (const auto &c : cases) {
        int loaded = 0, n = 0;
        // One capture for all variants: the log is not looked at.
        capture([&] {
            n = for_each_variant(c.name, c.root, [&](const std::string &text) {
                SCOPED_TRACE(c.name + text.substr(text.rfind('\n', text.size() - 2) + 1));
                std::ofstream(in) << text;
                int32_t ret = c.load();
                EXPECT_LE(ret, 0);
                loaded += ret == 0;
            });
        });
        EXPECT_GT(n, 5) << c.name;
        EXPECT_GT(loaded, 0) << c.name;
    }
}
