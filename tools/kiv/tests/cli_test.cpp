// The program as engineers run it is checked by the golden cases
// tests/cases/tool_*.lua (subcommands, the text of records, errors on
// standard error and exit codes); what no script can arrange stays here.
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <grp.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common.h"
#include "kiv_test.h"
#include "records.h"
#include "render.h"
#include "tool_test.h"

// A write to standard output that fails is an I/O error (exit 2).
TEST(Cli, FullStandardOutput)
{
    std::vector<std::string> args = {"kiv", "show", "-q", kivtest::example("single_1080p.lua")};
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    fflush(stdout);
    int saved = dup(1), full = open("/dev/full", O_WRONLY);
    dup2(full, 1);
    int rc = kivtool::run(static_cast<int>(args.size()), argv.data());
    dup2(saved, 1);
    close(saved);
    close(full);
    EXPECT_EQ(rc, 2);
}

// The exit code of every subcommand in each condition docs/cli.md names: 0
// success (diff: no difference), 1 a configuration that fails to load or
// loads with errors (diff: a difference; lint: a finding at or above
// --error-on), 2 a usage error or a file that cannot be read, which
// outweighs a failure in another file whichever comes first.  An exit code
// 2 comes with a line "kiv: ..." on standard error.
TEST(Cli, ExitCodesOfEverySubcommand)
{
    const std::string ok = kivtest::example("single_1080p.lua");
    const std::string other = kivtest::example("two_channel_encode_preview.lua");
    const std::string shipped = kivtest::read_file(ok);
    auto edited = [&](const char *from, const char *to) {
        std::string text = shipped;
        text.replace(text.find(from), strlen(from), to);
        return kivtest::script(text);
    };
    const std::string failed = kivtest::script("_resource_config_ = { version = 2 }\n");
    const std::string errors = edited("\tsrcbuf_to_fusion = 0,", "\tsrcbuf_to_fusion = 6,");
    const std::string warning = edited("\tmctf_cmpr = 1,", "\tmctf_cmp = 1,");
    const std::string calib = kivtest::example("calib_table.lua");
    const std::string no_calib = kivtest::script("calib_data = {}\n");
    const std::string missing = "/nonexistent/dir/x.lua";
    const struct {
        std::vector<std::string> args;
        int rc;
    } rows[] = {
        {{}, 2},
        {{"frobnicate"}, 2},
        {{"--help"}, 0},
        {{"--version"}, 0},
        {{"check", "--help"}, 0},
        {{"check"}, 2},
        {{"check", "--bogus", ok}, 2},
        {{"check", ok}, 0},
        {{"check", failed}, 1},
        {{"check", errors}, 1},
        {{"check", warning}, 0},
        {{"check", failed, ok}, 1},
        {{"check", missing}, 2},
        {{"check", missing, failed}, 2},
        {{"check", failed, missing}, 2},
        {{"check", "-j", "2", failed, ok, ok}, 1},
        {{"check", "--format", "json", errors}, 1},
        {{"check", "--format", "json", failed, missing}, 2},
        {{"lint", ok}, 0},
        {{"lint", warning}, 1},
        {{"lint", "--error-on", "error", warning}, 0},
        {{"lint", "--error-on", "error", errors}, 1},
        {{"lint", "--disable", "unknown-key", warning}, 0},
        {{"lint", "--disable", "no-such-rule", ok}, 2},
        {{"lint", missing}, 2},
        {{"lint", missing, warning}, 2},
        {{"lint", warning, missing}, 2},
        {{"lint", "--format", "sarif", ok, missing}, 2},
        {{"lint", "--format", "json", warning}, 1},
        {{"dump", "-o", "/dev/null", ok}, 0},
        {{"dump", failed}, 1},
        {{"dump", missing}, 2},
        {{"dump", "-o", "/nonexistent/dir/out.lua", ok}, 2},
        {{"show", ok}, 0},
        {{"show", failed}, 1},
        {{"show", missing}, 2},
        {{"show", calib}, 1},
        {{"diff", ok, ok}, 0},
        {{"diff", ok, other}, 1},
        {{"diff", failed, ok}, 1},
        {{"diff", failed, missing}, 2},
        {{"diff", ok}, 2},
        {{"layout", "-o", "/dev/null", ok}, 0},
        {{"layout", "-o", "/dev/null", failed}, 1},
        {{"layout", missing}, 2},
        {{"layout", "--format", "pdf", ok}, 2},
        {{"calib", calib}, 0},
        {{"calib", no_calib}, 1},
        {{"calib", missing}, 2},
        {{"hevc", kivtest::example("hevc_default_scaling.lua")}, 0},
        {{"hevc", missing}, 2},
        {{"aisp", kivtest::example("custom_aisp.lua")}, 0},
        {{"aisp", missing}, 2},
        {{"completion", "bash"}, 0},
        {{"completion", "fish"}, 2},
        {{"lsp", "--debounce", "x"}, 2},
    };
    for (const auto &r : rows) {
        std::string line = "kiv";
        for (const std::string &a : r.args)
            line += " " + a;
        SCOPED_TRACE(line);
        const tooltest::run_result got = tooltest::kiv(r.args);
        EXPECT_EQ(got.rc, r.rc) << got.err;
        if (r.rc == 2) {
            EXPECT_EQ(got.err.rfind("kiv: ", 0), 0u) << got.err;
        }
    }
}

// check and lint with -j N print what -j 1 prints, file by file in the
// order given, whatever order the loads end in.
TEST(Cli, ParallelRunsReportInTheOrderGiven)
{
    std::string text = kivtest::read_file(kivtest::example("single_1080p.lua"));
    text.replace(text.find("\tmctf_cmpr"), 10, "\tmctf_cmp");
    const std::vector<std::string> files = {
        kivtest::example("three_channel_4k.lua"),
        kivtest::script(text),
        "/nonexistent/dir/x.lua",
        kivtest::script("_resource_config_ = { version = 2 }\n"),
        kivtest::example("calib_table.lua"),
        kivtest::example("hdr_virtual_mode.lua")};
    for (const std::vector<std::string> &command : {std::vector<std::string>{"check"},
                                                    {"check", "--format", "json"},
                                                    {"lint"},
                                                    {"lint", "--format", "sarif"}}) {
        SCOPED_TRACE(command.back());
        std::vector<std::string> one = command, three = command;
        one.insert(one.end(), {"-j", "1"});
        three.insert(three.end(), {"-j", "3"});
        one.insert(one.end(), files.begin(), files.end());
        three.insert(three.end(), files.begin(), files.end());
        const tooltest::run_result a = tooltest::kiv(one), b = tooltest::kiv(three);
        EXPECT_EQ(a.rc, 2);
        EXPECT_EQ(b.rc, a.rc);
        EXPECT_EQ(b.out, a.out);
        EXPECT_EQ(b.err, a.err);
        EXPECT_LT(a.out.find(files[1]), a.out.find(files[3]));
    }
}

namespace
{

// Runs the installed program as `uid` with a file size limit, as a user
// would from a shell, and captures both output streams (standard output in
// the file `out_file` instead, when one is given).
tooltest::run_result spawn(uid_t uid, rlim_t fsize, const std::vector<std::string> &args,
                           const std::string &out_file = "")
{
    int out[2], err[2];
    EXPECT_EQ(pipe(out), 0);
    EXPECT_EQ(pipe(err), 0);
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        struct rlimit lim = {fsize, fsize};
        if ((uid && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 ||
                     setresuid(uid, uid, uid) != 0)) ||
            setrlimit(RLIMIT_FSIZE, &lim) != 0)
            _exit(99);
        const int to = out_file.empty() ? out[1] : open(out_file.c_str(), O_WRONLY | O_CREAT, 0644);
        dup2(to, 1);
        dup2(err[1], 2);
        std::vector<char *> argv{const_cast<char *>(KIV_CLI)};
        for (const std::string &a : args)
            argv.push_back(const_cast<char *>(a.c_str()));
        argv.push_back(nullptr);
        execv(KIV_CLI, argv.data());
        _exit(98);
    }
    close(out[1]);
    close(err[1]);
    auto drain = [](int fd) {
        std::string s;
        char buf[4096];
        for (ssize_t n; (n = read(fd, buf, sizeof buf)) > 0;)
            s.append(buf, static_cast<size_t>(n));
        close(fd);
        return s;
    };
    std::string o = drain(out[0]), e = drain(err[0]);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), o, e};
}

} // namespace

// The tool writes wherever `> path` could, and only there, with no check of
// its own: /dev/null, a file the user may write in a directory the user may
// not (rewritten in place), standard output for "-".  Under a file size
// limit the text is refused whole (exit 2, one line): the old file stays,
// and no partial or temporary file is left.  As root and as nobody.
TEST(Cli, WritesWhereAShellRedirectCould)
{
    const uid_t NOBODY = 65534;
    char tmpl[] = "/tmp/kivout-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl, locked = dir + "/locked", open_dir = dir + "/open";
    const std::string script = dir + "/cfg.lua", old = "the configuration that must survive";
    ASSERT_EQ(chmod(tmpl, 0755), 0);
    ASSERT_EQ(system(("cp " + kivtest::example("three_channel_4k.lua") + " " + script).c_str()), 0);
    ASSERT_EQ(chmod(script.c_str(), 0644), 0);
    const std::string text = spawn(0, RLIM_INFINITY, {"dump", "-q", script}).out;
    ASSERT_GT(text.size(), 4096u);
    for (uid_t uid : {uid_t{0}, NOBODY}) {
        if (uid && geteuid() != 0)
            continue; // only root can become nobody
        SCOPED_TRACE(uid);
        for (const std::string &d : {locked, open_dir}) {
            ASSERT_EQ(mkdir(d.c_str(), 0755), 0);
            ASSERT_EQ(chown(d.c_str(), d == locked ? 0 : uid, 0), 0);
            std::ofstream(d + "/old.lua") << old;
            ASSERT_EQ(chown((d + "/old.lua").c_str(), uid, 0), 0);
        }
        const struct {
            std::vector<std::string> args;
            rlim_t fsize;
            int rc;
            std::string out;             // what ends in "..." is the beginning
            std::string err, path, left; // `path` then holds `left` ("": nothing)
        } cases[] = {
            {{"dump", "-q", script, "-o", "/dev/null"}, RLIM_INFINITY, 0, "", "", "", ""},
            {{"layout", "-q", script, "-o", "/dev/null"}, RLIM_INFINITY, 0, "", "", "", ""},
            {{"dump", "-q", script, "-o", "-"}, RLIM_INFINITY, 0, text, "", "", ""},
            {{"layout", "-q", script}, RLIM_INFINITY, 0, "<?xml ...", "", "", ""},
            {{"dump", "-q", script, "-o", locked + "/old.lua"},
             RLIM_INFINITY,
             0,
             "",
             "",
             locked + "/old.lua",
             text},
            {{"dump", "-q", script, "-o", open_dir + "/new.lua"},
             1024,
             2,
             "",
             "kiv: cannot write " + open_dir + "/new.lua: File too large\n",
             open_dir + "/new.lua",
             ""},
            {{"dump", "-q", script, "-o", open_dir + "/old.lua"},
             1024,
             2,
             "",
             "kiv: cannot write " + open_dir + "/old.lua: File too large\n",
             open_dir + "/old.lua",
             old},
            {{"dump", "-q", script, "-o", locked + "/old.lua"},
             1024,
             2,
             "",
             "kiv: cannot write " + locked + "/old.lua: File too large\n",
             locked + "/old.lua",
             text},
        };
        for (const auto &c : cases) {
            SCOPED_TRACE(c.args[0] + " " + c.args.back());
            tooltest::run_result r = spawn(uid, c.fsize, c.args);
            EXPECT_EQ(r.rc, c.rc);
            if (c.out.ends_with("...")) // the beginning
                EXPECT_EQ(r.out.substr(0, c.out.size() - 3), c.out.substr(0, c.out.size() - 3));
            else
                EXPECT_TRUE(r.out == c.out) << r.out.size();
            EXPECT_EQ(r.err, c.err);
            if (c.path.empty())
                continue;
            if (c.left.empty())
                EXPECT_NE(access(c.path.c_str(), F_OK), 0);
            else
                EXPECT_TRUE(kivtest::read_file(c.path) == c.left);
        }
        // Standard output that is a file under the limit: nothing of the
        // text is written there.
        const std::string file_out = open_dir + "/stdout.lua";
        const tooltest::run_result r = spawn(uid, 1024, {"dump", "-q", script}, file_out);
        EXPECT_EQ(r.rc, 2);
        EXPECT_EQ(r.err,
                  "kiv: cannot write standard output: File too large, nothing was written\n");
        EXPECT_EQ(kivtest::read_file(file_out), "");
        // No temporary file anywhere.
        EXPECT_EQ(
            system(("test -z \"$(ls -A " + locked + " " + open_dir + " | grep kiv-)\"").c_str()),
            0);
        ASSERT_EQ(system(("rm -rf " + locked + " " + open_dir).c_str()), 0);
    }
    ASSERT_EQ(system(("rm -rf " + dir).c_str()), 0);
}

// A text member that fills its whole capacity, with no terminating zero (a
// record of an application: the loader refuses such a string), is shown up
// to its end and no further.
TEST(Render, TextThatFillsItsMember)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    memset(cfg.channels[0].vsrc.calib_data, 'x', sizeof cfg.channels[0].vsrc.calib_data);
    std::ostringstream s;
    kivtool::write_text(s, kivtool::multi_chan_desc(), &cfg);
    EXPECT_NE(s.str().find("    calib_data = \"" + std::string(256, 'x') + "\"\n    fps_hp"),
              std::string::npos);
}
