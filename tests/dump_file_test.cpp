// A dump to a path has the rights and effects of a shell redirect and never
// leaves a partial file.  Most cases need root: they switch to another user
// (nobody) in a child process, plant links in a sticky directory and give
// files away.
#include "kiv_test.h"

#include "core/pool.h" // KIV_ASAN

#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <grp.h>
#include <memory>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <ucontext.h>
#include <unistd.h>

using namespace kivtest;

namespace
{

const char FN[] = "kiv_dump_multi_chan_cfg";
bool syncs_fail = false;
constexpr uid_t NOBODY = 65534;

class DumpFile : public Settings
{
  protected:
    void SetUp() override
    {
        Settings::SetUp();
        char tmpl[] = "/tmp/kivdump-XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir = tmpl;
        ASSERT_EQ(chmod(tmpl, 0755), 0);
        // A three-channel record: its script (18 KiB) is more than a page.
        std::string log = capture([&] {
            ASSERT_EQ(kiv_get_multi_chan_cfg(example("three_channel_4k.lua").c_str(), &cfg), 0);
        });
        text = dump(cfg);
    }
    void TearDown() override
    {
        std::string cmd = "umount -q '" + dir + "/small' 2>/dev/null; rm -rf '" + dir + "'";
        EXPECT_EQ(system(cmd.c_str()), 0);
        Settings::TearDown();
    }
    std::string at(const std::string &name) const { return dir + "/" + name; }
    static void write(const std::string &path, const std::string &text)
    {
        std::ofstream(path) << text;
    }
    static struct stat status(const std::string &path)
    {
        struct stat st {
        };
        EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
        return st;
    }
    // Entries of a directory.
    static int files(const std::string &path)
    {
        int n = 0;
        DIR *d = opendir(path.c_str());
        while (const dirent *e = readdir(d))
            n += e->d_name[0] != '.' || strncmp(e->d_name, ".kiv-", 5) == 0;
        closedir(d);
        return n;
    }
    // Runs fn in a child process as `uid` (0: as root), its standard output
    // captured in `out`, with a file size limit and what SIGXFSZ does.
    // Returns what fn returned, or 128 + the signal that ended the child.
    static int child(uid_t uid, const std::function<int()> &fn, std::string *out = nullptr,
                     rlim_t fsize = RLIM_INFINITY, void (*xfsz)(int) = SIG_DFL)
    {
        int pipe_fds[2];
        EXPECT_EQ(pipe(pipe_fds), 0);
        fflush(nullptr);
        pid_t pid = fork();
        if (pid == 0) {
            struct rlimit none = {0, 0}, lim = {fsize, fsize};
            setrlimit(RLIMIT_CORE, &none); // SIGXFSZ's default action dumps core
            if (uid && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 ||
                        setresuid(uid, uid, uid) != 0))
                _exit(99);
            setrlimit(RLIMIT_FSIZE, &lim);
            signal(SIGXFSZ, xfsz);
            dup2(pipe_fds[1], STDOUT_FILENO);
            close(pipe_fds[0]);
            close(pipe_fds[1]);
            int rc = fn();
            fflush(stdout);
            _exit(rc);
        }
        close(pipe_fds[1]);
        std::string got;
        char buf[4096];
        for (ssize_t n; (n = read(pipe_fds[0], buf, sizeof buf)) > 0;)
            got.append(buf, static_cast<size_t>(n));
        close(pipe_fds[0]);
        int status = 0;
        EXPECT_EQ(waitpid(pid, &status, 0), pid);
        if (out)
            *out = mask_lines(got);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    // Whether a shell of `uid` may redirect into path (opened, not changed).
    static bool shell_opens(uid_t uid, const std::string &path)
    {
        return child(uid, [&] {
                   execl("/bin/sh", "sh", "-c", "exec 2>/dev/null 3>>\"$1\"", "sh", path.c_str(),
                         nullptr);
                   return 98;
               }) == 0;
    }
    int dump_as(uid_t uid, const std::string &path, std::string *out = nullptr)
    {
        return child(
            uid, [&] { return kiv_dump_multi_chan_cfg(&cfg, path.c_str()); }, out);
    }
    std::string dir;
    kiv_multi_chan_cfg cfg;
    std::string text; // what a dump of cfg writes
};

#define REQUIRE_ROOT()                                                                             \
    if (geteuid() != 0)                                                                            \
    GTEST_SKIP() << "needs root: files are given to another user"

// The kernel refuses links that another user planted in a sticky directory
// only with this setting on; it is turned on for the test where it is off.
struct protected_symlinks {
    std::string was;
    protected_symlinks()
    {
        std::ifstream("/proc/sys/fs/protected_symlinks") >> was;
        std::ofstream("/proc/sys/fs/protected_symlinks") << "1";
    }
    ~protected_symlinks() { std::ofstream("/proc/sys/fs/protected_symlinks") << was; }
};

} // namespace

// The test program's own fsync: an I/O error that a device reports only when
// the data is synced, on demand.
extern "C" int fsync(int fd)
{
    if (syncs_fail)
        return errno = EIO, -1;
    return static_cast<int>(syscall(SYS_fsync, fd));
}

// Where a shell redirect is refused, the dump is refused too, goes to
// standard output and leaves the file alone: a link that another user
// planted in a sticky directory, pointing at a file only root may write
// (refused to root), and a read-only file of the caller's own.
TEST_F(DumpFile, RefusedWhereAShellRedirectIs)
{
    REQUIRE_ROOT();
    protected_symlinks guard;
    std::string victim = at("victim"), sticky = at("sticky"), own = at("own");
    write(victim, "only root may write this");
    ASSERT_EQ(mkdir(sticky.c_str(), 01777), 0);
    ASSERT_EQ(chmod(sticky.c_str(), 01777), 0);
    std::string planted = sticky + "/cfg.lua";
    ASSERT_EQ(child(NOBODY, [&] { return symlink(victim.c_str(), planted.c_str()); }), 0);
    ASSERT_EQ(mkdir(own.c_str(), 0755), 0);
    ASSERT_EQ(chown(own.c_str(), NOBODY, NOBODY), 0);
    std::string readonly = own + "/cfg.lua";
    write(readonly, "read-only");
    ASSERT_EQ(chown(readonly.c_str(), NOBODY, NOBODY), 0);
    ASSERT_EQ(chmod(readonly.c_str(), 0444), 0);

    const struct {
        uid_t uid;
        std::string path, target, old;
    } cases[] = {{0, planted, victim, "only root may write this"},
                 {NOBODY, readonly, readonly, "read-only"}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_FALSE(shell_opens(c.uid, c.path));
        std::string out;
        EXPECT_EQ(dump_as(c.uid, c.path, &out), 0);
        EXPECT_EQ(out, err(FN, "Open file [" + c.path + "] error, output to console\n") + text);
        EXPECT_EQ(read_file(c.target), c.old);
    }
}

// Replacing keeps what the file was; where a replacement cannot keep it, the
// file is rewritten in place through the descriptor that was opened.
TEST_F(DumpFile, ReplacingKeepsOwnerModeAndLinks)
{
    REQUIRE_ROOT();
    std::string locked = at("locked");
    ASSERT_EQ(mkdir(locked.c_str(), 0755), 0); // root's: nobody cannot make files in it
    const struct {
        const char *what;
        std::string path;
        uid_t owner, dumper;
        mode_t mode, want_mode;
        const char *link; // "": none; "hard" or "soft": a second name made first
        bool in_place;
    } cases[] = {
        {"another user's file", at("theirs.lua"), NOBODY, 0, 0640, 0640, "", false},
        {"set-id bits dropped", at("setid.lua"), 0, 0, 06755, 0755, "", false},
        {"read-only, as root", at("ro.lua"), 0, 0, 0444, 0444, "", false},
        {"through a symbolic link", at("real.lua"), 0, 0, 0640, 0640, "soft", false},
        {"hard link kept", at("linked.lua"), 0, 0, 0644, 0644, "hard", true},
        {"directory not writable", locked + "/cfg.lua", NOBODY, NOBODY, 0644, 0644, "", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        write(c.path, "old");
        ASSERT_EQ(chown(c.path.c_str(), c.owner, c.owner), 0);
        ASSERT_EQ(chmod(c.path.c_str(), c.mode), 0);
        std::string name = c.path, other = c.path + ".other";
        if (*c.link == 'h') {
            ASSERT_EQ(link(c.path.c_str(), other.c_str()), 0);
        } else if (*c.link == 's') {
            ASSERT_EQ(symlink(c.path.c_str(), other.c_str()), 0);
            name = other;
        }
        struct stat before = status(c.path);
        std::string out;
        EXPECT_EQ(dump_as(c.dumper, name, &out), 0);
        EXPECT_EQ(out, "");
        struct stat after = status(c.path);
        EXPECT_EQ(read_file(c.path), text);
        EXPECT_EQ(vals({after.st_uid, after.st_gid, after.st_mode & 07777}),
                  vals({c.owner, c.owner, c.want_mode}));
        EXPECT_EQ(after.st_ino == before.st_ino, c.in_place);
        if (*c.link) {
            EXPECT_EQ(read_file(other), text);
            struct stat st {
            };
            ASSERT_EQ(lstat(other.c_str(), &st), 0);
            EXPECT_EQ(*c.link == 's', S_ISLNK(st.st_mode));
        }
    }
    EXPECT_EQ(files(dir), 8); // no temporary file left behind
    EXPECT_EQ(files(locked), 1);
}

// A write that fails, for a size limit, a full file system or an error
// that shows only when the data is synced, leaves exactly what was at the
// path (nothing, for a new file; a file rewritten in place is said to be
// incomplete), no temporary file, and the log says so.  The size limit is
// never crossed: the process lives on.
TEST_F(DumpFile, FailedWritesLeaveNoPartialFile)
{
    const char *old = "the configuration that must survive";
    std::string small = at("small"), sync = at("sync"), limit = at("limit");
    for (const std::string &d : {small, sync, limit})
        ASSERT_EQ(mkdir(d.c_str(), 0755), 0);
    // A full file system: a small tmpfs (root only), filled up once the old
    // files are there.
    bool tmpfs = mount("tmpfs", small.c_str(), "tmpfs", 0, "size=64k") == 0;
    if (!tmpfs)
        std::cout << "note: no tmpfs can be mounted here; the full file system case is skipped\n";
    const struct {
        std::string dir;
        rlim_t limit;
        const char *reason;
    } limits[] = {{limit, 64, "File too large"},
                  {small, RLIM_INFINITY, "No space left on device"},
                  {sync, RLIM_INFINITY, "Input/output error"}};
    for (const auto &l : limits) {
        if (l.dir == small && !tmpfs)
            continue;
        write(l.dir + "/existing.lua", old);
        write(l.dir + "/hard-linked.lua", old);
        ASSERT_EQ(link((l.dir + "/hard-linked.lua").c_str(), (l.dir + "/other.lua").c_str()), 0);
        if (l.dir == small) {
            std::ofstream filler(l.dir + "/filler");
            for (int i = 0; i < 64 && filler; ++i)
                filler << std::string(1024, 'x') << std::flush;
        }
        syncs_fail = l.dir == sync;
        for (const char *kind : {"new", "existing", "hard-linked"}) {
            SCOPED_TRACE(l.dir + ", " + kind);
            std::string path = l.dir + "/" + kind + ".lua", out;
            // SIGXFSZ left at its default, which ends the process: nothing
            // may cross the size limit.
            EXPECT_EQ(
                child(
                    0, [&] { return kiv_dump_multi_chan_cfg(&cfg, path.c_str()); }, &out, l.limit),
                0);
            bool in_place = syncs_fail && *kind == 'h';
            std::string left = *kind == 'n' ? ", no file was created"
                               : in_place   ? " while it was rewritten in place, the file is "
                                              "incomplete"
                                            : ", the file was left as it was";
            EXPECT_EQ(out, err(FN, "write to file [" + path + "] failed (" + l.reason + ")" + left +
                                       "\n"));
            if (*kind == 'n')
                EXPECT_NE(access(path.c_str(), F_OK), 0);
            else
                EXPECT_TRUE(read_file(path) == (in_place ? text : old));
        }
        syncs_fail = false;
        EXPECT_EQ(files(l.dir), l.dir == small ? 4 : 3);
    }
}

// Standard output may be a file under a size limit too: the dump measures
// its text first and writes it whole or not at all, the log leaves out the
// lines that would cross the limit, and the caller is never sent SIGXFSZ.
TEST_F(DumpFile, StandardOutputUnderASizeLimit)
{
    const std::string out_file = at("out.txt"), missing = at("missing/cfg.lua");
    const std::string refused =
        err(FN, "write to console failed (File too large), nothing was written\n");
    const rlim_t whole = text.size() + 4096;
    const struct {
        const char *what;
        size_t before; // bytes already in the file
        rlim_t limit;
        const char *path; // null: standard output asked for
        std::string left; // what the call adds to the file
    } cases[] = {
        {"standard output asked for", 0, 4096, nullptr, refused},
        {"the fallback of a path that cannot be opened", 0, 4096, missing.c_str(),
         err(FN, "Open file [" + missing + "] error, output to console\n") + refused},
        {"no room even for the log's line", 4000, 4096, nullptr, ""},
        {"room for the whole text", 100, whole, nullptr, text},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        write(out_file, std::string(c.before, '#'));
        EXPECT_EQ(child(
                      0,
                      [&] {
                          const int fd = open(out_file.c_str(), O_WRONLY | O_APPEND);
                          if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0)
                              return 98;
                          close(fd);
                          return kiv_dump_multi_chan_cfg(&cfg, c.path);
                      },
                      nullptr, c.limit),
                  0);
        EXPECT_EQ(mask_lines(read_file(out_file).substr(c.before)), c.left);
    }
    // A load's log: the lines that would cross the limit are left out
    // whole, those before them are there.
    auto log_under = [&](rlim_t limit) {
        write(out_file, "");
        EXPECT_EQ(child(
                      0,
                      [&] {
                          const int fd = open(out_file.c_str(), O_WRONLY);
                          if (fd < 0 || dup2(fd, STDOUT_FILENO) < 0)
                              return 98;
                          close(fd);
                          kiv_multi_chan_cfg loaded;
                          return kiv_get_multi_chan_cfg(example("three_channel_4k.lua").c_str(),
                                                        &loaded);
                      },
                      nullptr, limit),
                  0);
        return read_file(out_file);
    };
    const std::string full = log_under(RLIM_INFINITY);
    ASSERT_GT(full.size(), 1000u);
    for (rlim_t limit : {300, 1000}) {
        const std::string cut = log_under(limit);
        EXPECT_LE(cut.size(), limit);
        EXPECT_GT(cut.size() + 256, limit);
        EXPECT_EQ(full.compare(0, cut.size(), cut), 0);
        EXPECT_EQ(full[cut.size() - 1], '\n');
    }
}

// No descriptor the dump opens is inherited by a program that another thread
// starts meanwhile: the one it opens on a FIFO, seen while it writes.
TEST_F(DumpFile, DescriptorsAreCloseOnExec)
{
    // A reader first, and a pipe of one page: the dump's open returns at
    // once and its writes wait for the reader, its descriptor open.
    std::string fifo = at("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    fcntl(reader, F_SETPIPE_SZ, 4096);
    std::thread writer([&] { kiv_dump_multi_chan_cfg(&cfg, fifo.c_str()); });
    std::string flags;
    for (int tries = 0; tries < 5000 && flags.empty(); ++tries, usleep(1000)) {
        for (int fd = 0; fd < 1024 && flags.empty(); ++fd) {
            char link[64], target[4096];
            snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
            ssize_t n = readlink(link, target, sizeof target - 1);
            if (n <= 0 || fd == reader || std::string(target, static_cast<size_t>(n)) != fifo)
                continue;
            std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
            for (std::string key; info >> key && flags.empty();)
                if (key == "flags:")
                    info >> flags;
        }
    }
    fcntl(reader, F_SETFL, 0);
    std::string got;
    char buf[4096];
    for (ssize_t n; (n = read(reader, buf, sizeof buf)) > 0;)
        got.append(buf, static_cast<size_t>(n));
    writer.join();
    close(reader);
    EXPECT_EQ(got, text);
    ASSERT_FALSE(flags.empty());
    EXPECT_NE(std::stoul(flags, nullptr, 8) & O_CLOEXEC, 0u) << flags;
}

// A dump runs on a 16 KiB stack, as worker threads of embedded applications
// have: to a new file, over one, in place, to a device and to standard
// output.  The stack is a context of its own with a guard page below it, so
// that it is 16 KiB on every architecture (pthreads refuse stacks below
// 128 KiB on some) and an overflow faults.
TEST_F(DumpFile, RunsOnA16KiBStack)
{
#if defined(KIV_ASAN)
    GTEST_SKIP() << "AddressSanitizer's stack frames are several times larger";
#endif
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), size = 16384;
    char *mem = static_cast<char *>(
        mmap(nullptr, size + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(mem, MAP_FAILED);
    ASSERT_EQ(mprotect(mem, page, PROT_NONE), 0);
    static const kiv_multi_chan_cfg *record;
    static const char *to;
    static ucontext_t caller, callee;
    record = &cfg;
    std::string path = at("cfg.lua"), other = at("other.lua");
    const char *paths[] = {path.c_str(), path.c_str(), nullptr, "/dev/null", path.c_str()};
    std::string out = capture([&] {
        for (size_t i = 0; i < std::size(paths); ++i) {
            if (i == 4) {
                ASSERT_EQ(link(path.c_str(), other.c_str()), 0); // rewritten in place
            }
            to = paths[i];
            ASSERT_EQ(getcontext(&callee), 0);
            callee.uc_stack.ss_sp = mem + page;
            callee.uc_stack.ss_size = size;
            callee.uc_link = &caller;
            makecontext(
                &callee, [] { kiv_dump_multi_chan_cfg(record, to); }, 0);
            ASSERT_EQ(swapcontext(&caller, &callee), 0);
        }
    });
    munmap(mem, size + page);
    EXPECT_EQ(out, text);
    EXPECT_EQ(read_file(path), text);
    EXPECT_EQ(read_file(other), text);
}
