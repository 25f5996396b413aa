// The multi-channel loader's own steps, the dump frame, and the bounds every
// script runs within.
#include "kiv_test.h"

#include <cstring>
#include <sys/stat.h>

#include "core/log.h"
#include "core/run.h"

using namespace kivtest;

namespace
{

class Loader : public Settings
{
};
class Dump : public Settings
{
};
class Bounds : public Settings
{
};

bool all_bytes(const void *p, size_t n, unsigned char v)
{
    const unsigned char *b = static_cast<const unsigned char *>(p);
    for (size_t i = 0; i < n; ++i)
        if (b[i] != v)
            return false;
    return true;
}

// A record that holds something everywhere, to see what a load resets.
kiv_multi_chan_cfg dirty_record()
{
    kiv_multi_chan_cfg cfg;
    memset(&cfg, 0x5a, sizeof cfg);
    return cfg;
}

} // namespace

TEST_F(Loader, InitResetsEverything)
{
    kiv_multi_chan_cfg cfg = dirty_record();
    EXPECT_EQ(kiv_init(&cfg), 0);
    kiv_multi_chan_cfg expected;
    memset(&expected, 0, sizeof expected);
    for (auto &chan : expected.channels) {
        chan.id = 0xFF;
        for (auto &pass : chan.src_buf)
            for (auto &buf : pass)
                buf.canvas_id = -1;
    }
    for (auto &canvas : expected.canvas)
        canvas.id = -1;
    EXPECT_EQ(memcmp(&cfg, &expected, sizeof cfg), 0);

    EXPECT_EQ(masked([] { EXPECT_EQ(kiv_init(nullptr), -1); }),
              "KIV_ERROR:: kiv_init(N): the 1st is NULL\n");
}

// The frame's own lines come before those of the section parsers, which a
// script of top-level items only makes fail; what the frame stores and sets
// stays in force.
TEST_F(Loader, TopLevelItems)
{
    kiv_multi_chan_cfg cfg = dirty_record();
    auto r = load("_resource_config_ = { version = 1, log_level = 3 }", &cfg);
    EXPECT_EQ(
        r.log.rfind("KIV_DEBUG:: kiv_is_item_exist_str(N): item(enable_hp_fps) doesn't exist\n"
                    "KIV_WARN:: kiv_get_multi_chan_cfg(N): item(enable_hp_fps) doesn't exist, "
                    "set 0 by default.\n"
                    "KIV_DEBUG:: kiv_is_item_exist_str(N): item(vin_short_line_detect) doesn't "
                    "exist\n"
                    "KIV_WARN:: kiv_get_multi_chan_cfg(N): item(vin_short_line_detect) doesn't "
                    "exist, set 0 by default.\n",
                    0),
        0u)
        << r.log;
    EXPECT_EQ(kiv_get_log_level(), 3); // stays in force after the call
    EXPECT_EQ(cfg.version, 1);
    EXPECT_EQ(cfg.enable_hp_fps, 0u);
    EXPECT_EQ(cfg.channels[1].id, 0xFF); // reset by the load

    // Only bit 0 of the switches counts; the process-wide flag follows.
    kiv_set_log_level(1);
    load("_resource_config_ = { version = 257, enable_hp_fps = 3, vin_short_line_detect = 2 }",
         &cfg);
    EXPECT_EQ(cfg.version, 1);
    EXPECT_EQ(cfg.enable_hp_fps, 1u);
    EXPECT_EQ(cfg.vin_short_line_detect, 0u);
    EXPECT_EQ(kiv_get_hp_fps(), 1);

    // A later load without the item clears the flag again.
    load("_resource_config_ = { version = 0 }", &cfg);
    EXPECT_EQ(kiv_get_hp_fps(), 0);
}

TEST_F(Loader, LogLevelItem)
{
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, log_level = 4 }", &cfg);
    EXPECT_EQ(r.log.rfind("KIV_WARN:: kiv_get_multi_chan_cfg(N): log_level(4) should be less "
                          "equal than 3, use default level(1)\n",
                          0),
              0u)
        << r.log;
    EXPECT_EQ(kiv_get_log_level(), 1);
    load("_resource_config_ = { version = 1, log_level = -1 }", &cfg);
    EXPECT_EQ(kiv_get_log_level(), 255);
    load("_resource_config_ = { version = 1, log_level = 0 }", &cfg);
    EXPECT_EQ(kiv_get_log_level(), 0);
}

TEST_F(Loader, FailuresOfTheFrame)
{
    kiv_multi_chan_cfg cfg = dirty_record();
    EXPECT_EQ(masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg(nullptr, &cfg), -1); }),
              "KIV_ERROR:: kiv_get_multi_chan_cfg(N): the 1st or 2nd param is NULL\n");
    EXPECT_EQ(masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg("x.lua", nullptr), -1); }),
              "KIV_ERROR:: kiv_get_multi_chan_cfg(N): the 1st or 2nd param is NULL\n");

    // Failures before the script has run leave the record untouched.
    auto r = load("_resource_config_ = { version = 1 ", &cfg);
    EXPECT_EQ(r.ret, -2);
    EXPECT_NE(r.log.find("KIV_ERROR:: kiv_get_multi_chan_cfg(N): lua error msg is "),
              std::string::npos);
    EXPECT_NE(r.log.find("'}' expected"), std::string::npos);
    EXPECT_TRUE(all_bytes(&cfg, sizeof cfg, 0x5a));

    // No standard library is opened: print is nil.
    r = load("print('hello')\n_resource_config_ = { version = 1 }", &cfg);
    EXPECT_EQ(r.ret, -2);
    EXPECT_NE(r.log.find("attempt to call a nil value (global 'print')"), std::string::npos);
    EXPECT_TRUE(all_bytes(&cfg, sizeof cfg, 0x5a));

    std::string log =
        masked([&] { EXPECT_EQ(kiv_get_multi_chan_cfg("/nonexistent/dir/cfg.lua", &cfg), -2); });
    EXPECT_EQ(log, "KIV_ERROR:: kiv_get_multi_chan_cfg(N): lua error msg is cannot open "
                   "/nonexistent/dir/cfg.lua: No such file or directory.\n");

    // From here on the record has been reset.
    r = load("other = {}", &cfg);
    EXPECT_EQ(r.ret, -1);
    EXPECT_EQ(r.log, "KIV_ERROR:: kiv_get_multi_chan_cfg(N): invalid multi_channel config file\n");
    EXPECT_EQ(cfg.channels[0].id, 0xFF);
    EXPECT_EQ(load("_resource_config_ = 5", &cfg).ret, -1);

    r = load("_resource_config_ = { log_level = 3 }", &cfg);
    EXPECT_EQ(r.ret, -2);
    EXPECT_EQ(r.log, "KIV_ERROR:: kiv_get_multi_chan_cfg(N): item(version) doesn't exist.\n");
    EXPECT_EQ(kiv_get_log_level(), 1); // not read: version failed first

    r = load("_resource_config_ = { version = 2 }", &cfg);
    EXPECT_EQ(r.ret, -1);
    EXPECT_EQ(r.log, "KIV_ERROR:: kiv_get_multi_chan_cfg(N): invalid multi-channel lua version: "
                     "2, current version is: 1\n");
    EXPECT_EQ(cfg.version, 2);
}

TEST_F(Loader, StateIsClosedOnEveryPath)
{
    kiv_multi_chan_cfg cfg;
    const char *scripts[] = {
        "_resource_config_ = { version = 1, channels = {} }",
        "syntax error here",
        "x = nil + 1",
        "_resource_config_ = 1",
        "_resource_config_ = { version = 9 }",
    };
    for (const char *text : scripts) {
        kiv_run_counts before = kiv_get_run_counts();
        load(text, &cfg);
        kiv_run_counts after = kiv_get_run_counts();
        EXPECT_EQ(after.created - before.created, 1u) << text;
        EXPECT_EQ(after.closed - before.closed, 1u) << text;
    }
}

TEST_F(Bounds, HostileScriptsEndInAnOrderlyFailure)
{
    kiv_set_run_limits(64u << 20, 50'000'000);
    kiv_multi_chan_cfg cfg;
    struct {
        const char *what;
        const char *text;
        const char *message;
    } cases[] = {
        {"endless loop", "while true do end", "exceeded the instruction limit"},
        {"unbounded allocation", "local t = {} local i = 1 while true do t[i] = {i} i = i + 1 end",
         "not enough memory"},
        {"huge string", "local s = 'x' while true do s = s .. s end", "not enough memory"},
        {"deep recursion", "local function f(n) return 1 + f(n + 1) end f(1)", "stack overflow"},
        {"deep nesting", "local t = {} for i = 1, 1e5 do t = {t} end _resource_config_ = t",
         "item(version) doesn't exist."},
        {"indexing nothing", "_resource_config_.version = 1", "attempt to index a nil value"},
    };
    for (const auto &c : cases) {
        auto r = load(c.text, &cfg);
        EXPECT_LT(r.ret, 0) << c.what;
        EXPECT_NE(r.log.find(c.message), std::string::npos) << c.what << ": " << r.log;
    }
}

TEST_F(Bounds, ReadingStepRunsOutOfMemoryCleanly)
{
    // A state so small that the reading step itself cannot allocate its key
    // strings: the Lua error is caught and reported like a failing script.
    kiv_multi_chan_cfg cfg;
    std::string path = script("_resource_config_ = { version = 1 }");
    int failures = 0;
    for (size_t limit = 2048; limit < 16384; limit += 256) {
        kiv_set_run_limits(limit, 0);
        int32_t ret = 0;
        std::string log = masked([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
        if (ret != 0) {
            ++failures;
            EXPECT_EQ(ret, -2) << limit;
            EXPECT_NE(log.find("KIV_ERROR:: kiv_get_multi_chan_cfg(N): "), std::string::npos);
        }
    }
    EXPECT_GT(failures, 0);
}

TEST_F(Dump, FreshRecord)
{
    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    EXPECT_EQ(dump(cfg), "_resource_config_ = {\n"
                         "\tversion = 1,\n"
                         "\tlog_level = 1,\n"
                         "\tenable_hp_fps = 0,\n"
                         "\tvin_short_line_detect = 0,\n"
                         "\tchannels = {\n"
                         "\t},\n"
                         "\tcanvas = {\n"
                         "\t},\n"
                         "\tstreams = {\n"
                         "\t},\n"
                         "}\n"
                         "\nreturn _resource_config_\n");
}

TEST_F(Dump, FrameLinesAndErrors)
{
    EXPECT_EQ(masked([] { EXPECT_EQ(kiv_dump_multi_chan_cfg(nullptr, "x"), -1); }),
              "KIV_ERROR:: kiv_dump_multi_chan_cfg(N): the 1st param is NULL\n");

    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    cfg.version = 0;
    cfg.enable_hp_fps = 1;
    cfg.vin_short_line_detect = 1;
    kiv_set_log_level(3);
    std::string text = dump(cfg);
    EXPECT_NE(text.find("\tversion = 1,\n\tlog_level = 3,\n\tenable_hp_fps = 1,\n"
                        "\tvin_short_line_detect = 1,\n"),
              std::string::npos);

    // A null path, or one that cannot be opened, writes to standard output.
    kiv_set_log_level(1);
    std::string out = capture([&] { EXPECT_EQ(kiv_dump_multi_chan_cfg(&cfg, nullptr), 0); });
    EXPECT_EQ(out, text.replace(text.find("log_level = 3"), 13, "log_level = 1"));
    out = masked([&] { EXPECT_EQ(kiv_dump_multi_chan_cfg(&cfg, "/nonexistent/dir/x.lua"), 0); });
    EXPECT_EQ(out, "KIV_ERROR:: kiv_dump_multi_chan_cfg(N): Open file [/nonexistent/dir/x.lua] "
                   "error, output to console\n" +
                       text);
}

TEST_F(Bounds, ErrorValuesWithoutText)
{
    // A reading step that raises a table: the message names the value's type.
    std::string path = script("x = 1");
    auto raise_table = [](lua_State *L, void *) -> int32_t {
        lua_newtable(L);
        lua_error(L);
        return 0;
    };
    int32_t ret = 0;
    std::string log =
        masked([&] { ret = kiv_run_script("reader", path.c_str(), raise_table, nullptr, -5, -7); });
    EXPECT_EQ(ret, -7);
    EXPECT_EQ(log, "KIV_ERROR:: reader(N): lua error msg is (error object is a table value).\n");
}
