#include "kiv_test.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <fstream>
#include <regex>
#include <sstream>
#include <unistd.h>

#include <lauxlib.h>

#include "core/log.h"
#include "core/run.h"

namespace kivtest
{

namespace
{
struct temp_files {
    std::vector<std::string> paths;
    ~temp_files()
    {
        for (const auto &p : paths)
            std::remove(p.c_str());
    }
};
temp_files &temps()
{
    static temp_files t;
    return t;
}

std::string temp_path(const char *suffix)
{
    std::string tmpl = std::string(P_tmpdir) + "/kivtest-XXXXXX" + suffix;
    int fd = mkstemps(tmpl.data(), static_cast<int>(strlen(suffix)));
    if (fd < 0)
        abort();
    close(fd);
    temps().paths.push_back(tmpl);
    return tmpl;
}
} // namespace

std::string script(const std::string &text)
{
    std::string path = temp_path(".lua");
    std::ofstream(path) << text;
    return path;
}

std::string mask_lines(const std::string &log)
{
    static const std::regex line_no(R"(([A-Za-z_0-9]+)\(-?[0-9]+\): )");
    return std::regex_replace(log, line_no, "$1(N): ");
}

load_result load(const std::string &text, kiv_multi_chan_cfg *cfg)
{
    std::string path = script(text);
    load_result r{};
    r.log = mask_lines(capture([&] { r.ret = kiv_get_multi_chan_cfg(path.c_str(), cfg); }));
    return r;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string dump(const kiv_multi_chan_cfg &cfg)
{
    std::string path = temp_path(".lua");
    std::string log = capture([&] { kiv_dump_multi_chan_cfg(&cfg, path.c_str()); });
    EXPECT_EQ(log, "");
    return read_file(path);
}

std::string example(const char *name)
{
    return std::string(KIV_SOURCE_DIR) + "/examples/" + name;
}

std::string err(const std::string &fn, const std::string &text)
{
    return "KIV_ERROR:: " + fn + "(N): " + text;
}

std::string only(const std::string &log, const std::vector<std::string> &tags)
{
    std::istringstream in(log);
    std::string line, out;
    while (std::getline(in, line))
        for (const std::string &tag : tags)
            if (line.find(tag) != std::string::npos) {
                out += line + "\n";
                break;
            }
    return out;
}

kiv_multi_chan_cfg fresh()
{
    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    return cfg;
}

lua_script::lua_script(const std::string &text, const char *table) : L_(luaL_newstate())
{
    if (luaL_loadstring(L_, text.c_str()) != LUA_OK || lua_pcall(L_, 0, 0, 0) != LUA_OK) {
        ADD_FAILURE() << "script failed: " << lua_tostring(L_, -1);
        lua_settop(L_, 0);
    }
    lua_getglobal(L_, table);
    top_ = lua_gettop(L_);
}

lua_script::~lua_script()
{
    lua_close(L_);
}

void Settings::SetUp()
{
    kiv_set_log_level(1);
    kiv_set_hp_fps(0);
    // No time limit to speak of: the tests run under sanitizers and
    // emulators too; those about the time limit set it themselves.
    kiv_set_run_limits({.time_ms = 600000});
}

void Settings::TearDown()
{
    kiv_set_log_level(1);
    kiv_set_hp_fps(0);
    kiv_set_run_limits({});
}

} // namespace kivtest
