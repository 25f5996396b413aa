// A dump to a path never loses the configuration that was there.
#include "kiv_test.h"

#include <csignal>
#include <dirent.h>
#include <cstdlib>
#include <fstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace kivtest;

namespace
{

class DumpFile : public Settings
{
  protected:
    void SetUp() override
    {
        Settings::SetUp();
        char tmpl[] = "/tmp/kivdump-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
        cfg = fresh();
    }
    void TearDown() override
    {
        std::string cmd = "rm -rf '" + dir + "'";
        EXPECT_EQ(system(cmd.c_str()), 0);
        Settings::TearDown();
    }
    void write(const std::string &path, const std::string &text) { std::ofstream(path) << text; }
    // Entries of the directory.
    int files() const
    {
        int n = 0;
        DIR *d = opendir(dir.c_str());
        while (const dirent *e = readdir(d))
            n += e->d_name[0] != '.';
        closedir(d);
        return n;
    }
    // Dumps to path in a child process whose writes fail past 64 bytes (the
    // file size limit; SIGXFSZ handled as `xfsz`); returns its wait status.
    int dump_in_child(const std::string &path, void (*xfsz)(int))
    {
        write(path, "the configuration that must survive");
        fflush(nullptr);
        pid_t pid = fork();
        if (pid == 0) {
            struct rlimit none = {0, 0}, lim = {64, 64};
            setrlimit(RLIMIT_CORE, &none); // the signal's default action dumps core
            setrlimit(RLIMIT_FSIZE, &lim);
            signal(SIGXFSZ, xfsz);
            if (!freopen("/dev/null", "w", stdout))
                _exit(3);
            _exit(kiv_dump_multi_chan_cfg(&cfg, path.c_str()) == 0 ? 0 : 4);
        }
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        return status;
    }
    std::string dir;
    kiv_multi_chan_cfg cfg;
};

} // namespace

TEST_F(DumpFile, ReplacesKeepingModeAndLinks)
{
    std::string real = dir + "/real.lua", link = dir + "/link.lua";
    write(real, "old");
    ASSERT_EQ(chmod(real.c_str(), 0640), 0);
    ASSERT_EQ(symlink("real.lua", link.c_str()), 0);

    EXPECT_EQ(capture([&] { EXPECT_EQ(kiv_dump_multi_chan_cfg(&cfg, link.c_str()), 0); }), "");
    struct stat st;
    ASSERT_EQ(lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode)); // the link is kept, its target replaced
    ASSERT_EQ(stat(real.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    EXPECT_EQ(read_file(real), dump(cfg));
    EXPECT_EQ(files(), 2); // no temporary file left behind
}

TEST_F(DumpFile, DevicesAreWrittenInPlace)
{
    EXPECT_EQ(capture([&] { EXPECT_EQ(kiv_dump_multi_chan_cfg(&cfg, "/dev/null"), 0); }), "");
    struct stat st;
    ASSERT_EQ(stat("/dev/null", &st), 0);
    EXPECT_TRUE(S_ISCHR(st.st_mode));
}

TEST_F(DumpFile, KilledMidwayLeavesTheOldFile)
{
    std::string path = dir + "/cfg.lua";
    int status = dump_in_child(path, SIG_DFL); // killed in the middle of writing
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGXFSZ);
    EXPECT_EQ(read_file(path), "the configuration that must survive");
}

TEST_F(DumpFile, WriteErrorKeepsTheOldFile)
{
    std::string path = dir + "/cfg.lua";
    int status = dump_in_child(path, SIG_IGN); // writes fail with an error
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0); // the result stays 0
    EXPECT_EQ(read_file(path), "the configuration that must survive");
    EXPECT_EQ(files(), 1);
}
