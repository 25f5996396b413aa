// What the tool reads, and what it refuses to: no more text than the library
// parses of a script, no path that is not a regular file unless asked (a
// FIFO without a writer would block, a device may never end), and no
// precompiled chunk in its own process (the interpreter trusts their code):
// asked to, it checks each in a child process without privileges, whose
// crash is that file's failure only.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <lauxlib.h>
#include <lua.h>
#include <lualib.h>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/run.h"
#include "kiv_test.h"
#include "model/contained.h"
#include "model/model.h"
#include "tool_test.h"

namespace
{

using tooltest::kiv;

class Input : public ::testing::Test
{
  protected:
    void SetUp() override
    {
        char tmpl[] = "/tmp/kivin-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
        ASSERT_EQ(chmod(tmpl, 0755), 0); // the child, as nobody, reads nothing here but its stdin
        kivtool::contained_program() = KIV_CLI;
    }
    void TearDown() override
    {
        kivtool::contained_program() = "/proc/self/exe";
        kiv_set_run_limits({});
        EXPECT_EQ(system(("rm -rf " + dir).c_str()), 0);
    }
    std::string file(const std::string &name, const std::string &text) const
    {
        const std::string path = dir + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    // The precompiled chunk of a script.
    static std::string chunk_of(const std::string &script)
    {
        lua_State *L = luaL_newstate();
        std::string out;
        if (luaL_loadfile(L, script.c_str()) == LUA_OK)
            lua_dump(
                L,
                [](lua_State *, const void *p, size_t n, void *ud) {
                    static_cast<std::string *>(ud)->append(static_cast<const char *>(p), n);
                    return 0;
                },
                &out, 0);
        lua_close(L);
        return out;
    }
    std::string dir;
};

} // namespace

// A text longer than the library parses of any script is refused before it
// is read further, from a file and from standard input alike; a device or a
// FIFO is refused unopened, one line each, and the other files keep their
// results; asked to, the tool reads them.
TEST_F(Input, ReadsNoMoreThanTheLibraryWould)
{
    kiv_set_run_limits({.instructions = 1000}); // 4,000 bytes of text
    ASSERT_EQ(kiv_source_limit(), 4000u);
    const std::string ok = file("ok.lua", "_resource_config_ = nil calib_data = { {1, 2} }\n");
    const std::string fits = file("fits.lua", "--" + std::string(3990, 'x') + "\n");
    const std::string over = file("over.lua", "--" + std::string(4000, 'x') + "\n");
    const std::string fifo = dir + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string too_long =
        ": longer than 4000 bytes, more than the library parses of any script\n";
    const std::string special = ": not a regular file (--special-files reads it all the same)\n";
    const struct {
        std::vector<std::string> args;
        int rc;
        std::string err; // what the tool says on standard error
    } cases[] = {
        {{"check", "-q", ok, fits}, 1, ""},
        {{"check", "-q", over, ok}, 2, "kiv: cannot read " + over + too_long},
        {{"lint", "-j", "2", over, ok, "/dev/zero"},
         2,
         "kiv: cannot read " + over + too_long + "kiv: cannot read /dev/zero" + special},
        {{"check", "-q", fifo, ok}, 2, "kiv: cannot read " + fifo + special},
        {{"show", fifo}, 2, "kiv: cannot read " + fifo + special},
        {{"calib", "/dev/zero"}, 2, "kiv: cannot read /dev/zero" + special},
        {{"check", "--special-files", "-q", "/dev/zero"},
         2,
         "kiv: cannot read /dev/zero" + too_long},
        {{"check", "--special-files", "-q", "/dev/null"}, 1, ""},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.args[0] + " " + c.args[c.args.size() - 2]);
        const tooltest::run_result r = kiv(c.args);
        EXPECT_EQ(r.rc, c.rc);
        EXPECT_EQ(r.err, c.err);
    }
    // Standard input: the same bound.
    const int saved = dup(STDIN_FILENO), in = open(over.c_str(), O_RDONLY);
    dup2(in, STDIN_FILENO);
    const tooltest::run_result r = kiv({"check", "-"});
    dup2(saved, STDIN_FILENO);
    close(in);
    close(saved);
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err, "kiv: cannot read standard input" + too_long);
}

// By default a precompiled chunk is refused as the library refuses one
// loaded as text only, saying why; with --precompiled it is checked in a
// child process and gives what its source gives.
TEST_F(Input, PrecompiledChunksAreCheckedOnlyApart)
{
    const std::string source = kivtest::example("single_1080p.lua");
    const std::string bytes = chunk_of(source);
    ASSERT_GT(bytes.size(), 1000u);
    const std::string chunk = file("single.luac", bytes);
    const tooltest::run_result refused = kiv({"check", chunk});
    EXPECT_EQ(refused.rc, 1);
    EXPECT_NE(refused.out.find("attempt to load a binary chunk (mode is 't') (" +
                               std::string(kivtool::PRECOMPILED_NOTE) + ")"),
              std::string::npos)
        << refused.out;
    EXPECT_EQ(kiv({"hevc", chunk}).err,
              "kiv: " + chunk + ": not loaded: " + kivtool::PRECOMPILED_NOTE + "\n");

    const tooltest::run_result text = kiv({"check", source});
    const tooltest::run_result apart = kiv({"check", "--precompiled", chunk});
    EXPECT_EQ(apart.rc, 0) << apart.out << apart.err;
    EXPECT_EQ(apart.out.substr(apart.out.find(':')), text.out.substr(text.out.find(':')));
    EXPECT_EQ(kiv({"show", "--precompiled", "--json", chunk}).out,
              kiv({"show", "--json", source}).out);
    const std::string calib = kivtest::example("calib_table.lua");
    EXPECT_EQ(kiv({"calib", "--precompiled", file("calib.luac", chunk_of(calib))}).out,
              kiv({"calib", calib}).out);
}

// Chunks with a few bytes changed at random: many crash the interpreter
// that loads them.  Each is that file's failure; every file has its line,
// and the tool goes on.
TEST_F(Input, ACrashingChunkFailsItsFileOnly)
{
    const std::string chunk = chunk_of(kivtest::example("single_1080p.lua"));
    std::mt19937 rng(7);
    std::vector<std::string> args = {"check", "--precompiled", "-j", "2"};
    constexpr int COPIES = 60;
    for (int i = 0; i < COPIES; ++i) {
        std::string c = chunk;
        for (int k = 0; k < 4; ++k)
            c[12 + rng() % (c.size() - 12)] = static_cast<char>(rng());
        args.push_back(file("m" + std::to_string(i) + ".luac", c));
    }
    args.push_back(kivtest::example("single_1080p.lua"));
    const tooltest::run_result r = kiv(args);
    EXPECT_EQ(r.rc, 1);
    size_t lines = 0, ended = 0;
    for (size_t at = 0; (at = r.out.find('\n', at)) != std::string::npos; ++at)
        ++lines;
    for (size_t at = 0; (at = r.out.find("the separate process that loaded the precompiled chunk",
                                         at)) != std::string::npos;
         ++at)
        ++ended;
    EXPECT_GE(lines, COPIES + 1u);
    EXPECT_GT(ended, 0u) << r.out;
    EXPECT_NE(r.out.find("single_1080p.lua: ok"), std::string::npos);
}

// The child gives up what it can before the chunk is looked at: root
// becomes nobody, no privilege can be gained again, and it may write no
// file.
TEST_F(Input, TheChildRunsWithoutPrivileges)
{
    // A program in the child's place that tells what it was given, on
    // standard error, with shell builtins only (it may start no process).
    const std::string probe = file("probe.sh", "#!/bin/sh\n"
                                               "while read k v; do case $k in\n"
                                               "Uid:) uid=${v%%\t*} ;; NoNewPrivs:) nnp=$v ;;\n"
                                               "esac; done < /proc/self/status\n"
                                               "printf 'uid=%s nnp=%s fsize=' $uid $nnp >&2\n"
                                               "ulimit -f >&2\n");
    ASSERT_EQ(chmod(probe.c_str(), 0755), 0);
    kivtool::contained_program() = probe;
    const std::string chunk = file("x.luac", chunk_of(kivtest::example("single_1080p.lua")));
    int err[2];
    ASSERT_EQ(pipe(err), 0);
    fflush(stderr);
    const int saved = dup(STDERR_FILENO);
    dup2(err[1], STDERR_FILENO);
    close(err[1]);
    const kivtool::script_model m = kivtool::load_model(chunk, {.precompiled = true});
    dup2(saved, STDERR_FILENO);
    close(saved);
    std::string told;
    char buf[256];
    for (ssize_t n; (n = read(err[0], buf, sizeof buf)) > 0;)
        told.append(buf, static_cast<size_t>(n));
    close(err[0]);
    const std::string uid = geteuid() == 0 ? "65534" : std::to_string(geteuid());
    EXPECT_EQ(told, "uid=" + uid + " nnp=1 fsize=0\n");
    EXPECT_EQ(m.result, -2);
    EXPECT_EQ(m.contained_failure,
              "the separate process that loaded the precompiled chunk ended without a report "
              "(exit code 0)");
}
