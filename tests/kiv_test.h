// Helpers shared by the tests: scripts written to temporary files, the log
// captured from standard output, line numbers masked.
#ifndef KIV_TESTS_KIV_TEST_H
#define KIV_TESTS_KIV_TEST_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <lua.h>

#include "core/run.h"
#include "kiv.h"

namespace kivtest
{

// Writes `text` to a new temporary file and returns its path; the file is
// removed when the test program exits.
std::string script(const std::string &text);

// Captures what `fn` prints to standard output.
template <class F>
std::string capture(F &&fn)
{
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// The log with every "(<line>):" after a function name replaced by "(N):".
std::string mask_lines(const std::string &log);

// Result and masked log of kiv_get_multi_chan_cfg on a script text.
struct load_result {
    int32_t ret;
    std::string log;
};
load_result load(const std::string &text, kiv_multi_chan_cfg *cfg);

// The dump of cfg as text (written to a temporary file and read back).
std::string dump(const kiv_multi_chan_cfg &cfg);

// A Lua state that has run a script text, for testing one parser on its
// own: the global `table` is pushed and stays on top of the stack.
class lua_script
{
  public:
    lua_script(const std::string &text, const char *table = "_resource_config_");
    ~lua_script();
    lua_script(const lua_script &) = delete;
    lua_script &operator=(const lua_script &) = delete;
    lua_State *L() const { return L_; }
    // Stack height right after the table was pushed.
    int top() const { return top_; }

  private:
    lua_State *L_;
    int top_;
};

// Captures the masked log of fn().
template <class F>
std::string masked(F &&fn)
{
    return mask_lines(capture(fn));
}

// Reads a whole file.
std::string read_file(const std::string &path);

// The path of a shipped example.
std::string example(const char *name);

// Log lines as the library writes them (line numbers masked).
std::string err(const std::string &fn, const std::string &text);
// The lines of `log` that contain one of `tags`.
std::string only(const std::string &log, const std::vector<std::string> &tags);

// Runs one parser on a script text, with the global `table` on top of the
// stack; checks that the parser leaves the stack as it found it.
template <class R>
load_result parse(int32_t (*parser)(lua_State *, R *), const std::string &text, R *rec,
                  const char *table = "_resource_config_")
{
    lua_script s(text, table);
    load_result r{};
    r.log = masked([&] { r.ret = parser(s.L(), rec); });
    EXPECT_EQ(lua_gettop(s.L()), s.top()) << text;
    return r;
}

// What one writer prints for cfg.
template <class W>
std::string dumped(W writer, const kiv_multi_chan_cfg &cfg)
{
    return capture([&] { writer(&cfg, nullptr); });
}

// Several fields compared at once: EXPECT_EQ(vals({a.x, a.y}), vals({1, 2})).
using vals = std::vector<int64_t>;

// A record as kiv_init leaves it.
kiv_multi_chan_cfg fresh();

// Sets the process-wide log level and high-precision flag for one test and
// restores the initial values (1 and 0) afterwards.
class Settings : public testing::Test
{
  protected:
    void SetUp() override;
    void TearDown() override;
};

// Cuts the bounds to a third of the memory and a quarter of the instructions
// and the string length the library allows: the largest legitimate scripts
// (the examples, 100,000 calibration pairs) must load within them.
class Margins : public Settings
{
  protected:
    void SetUp() override
    {
        Settings::SetUp();
        kiv_set_run_limits({.mem_bytes = KIV_LUA_MEM_LIMIT / 3,
                            .instructions = KIV_LUA_INSTRUCTION_LIMIT / 4,
                            .time_ms = 600000,
                            .string_bytes = KIV_LUA_STRING_LIMIT / 4});
    }
};

} // namespace kivtest

#endif
