#include "model/contained.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <memory>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>
#include <vector>

#include "common.h"
#include "core/access.h"
#include "core/any.h"
#include "core/log.h"
#include "core/run.h"
#include "model/model.h"

#include "core/pool.h" // KIV_ASAN

#if defined(KIV_ASAN) || defined(__SANITIZE_THREAD__)
#define KIV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KIV_SANITIZED 1
#endif
#endif

namespace kivtool
{

const char PRECOMPILED_NOTE[] =
    "a precompiled chunk: the tool does not run one, the interpreter trusts its code; "
    "--precompiled checks it in a separate process without privileges";

namespace
{

// What the child writes back: this head, then the records, the calibration
// items and the log.
constexpr char MAGIC[8] = {'k', 'i', 'v', 'l', 'o', 'a', 'd', '1'};
struct report_head {
    char magic[8];
    int32_t result;
    int32_t calib_size;
    uint32_t calib_count;
    uint8_t kind;
    uint8_t pad[3];
    uint64_t log_len;
};

// The child's limits.  Its own load is bounded by the library (a fraction of
// a second of CPU, 96 MiB); these only stop a chunk whose crafted code gets
// past the interpreter: generous enough for a slow or emulated core.
constexpr rlim_t CHILD_CPU_S = 30;
constexpr rlim_t CHILD_FILES = 16; // the loader's libraries, one at a time
constexpr int CHILD_WALL_S = 120;  // then it is killed
constexpr uid_t NOBODY = 65534;
// The most a report may hold: the records, a calibration table of millions
// of pairs and its log.
constexpr size_t MAX_REPORT = size_t{256} << 20;

// Writes all of data to fd; false on an error.
bool write_all(int fd, const void *data, size_t n) // data may be null when n is 0
{
    const char *p = static_cast<const char *>(data);
    while (n > 0) {
        const ssize_t k = write(fd, p, n);
        if (k < 0 && errno == EINTR)
            continue;
        if (k <= 0)
            return false;
        p += k;
        n -= static_cast<size_t>(k);
    }
    return true;
}

int64_t now_ms()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Everything the child reported, read until it closes its end or the wall
// clock runs out (then empty, *late set).
std::string read_report(int fd, bool *late)
{
    std::string got;
    char buf[65536];
    const int64_t deadline = now_ms() + CHILD_WALL_S * 1000;
    for (;;) {
        const int64_t left = deadline - now_ms();
        pollfd p{fd, POLLIN, 0};
        const int ready = left > 0 ? poll(&p, 1, static_cast<int>(left)) : 0;
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0) {
            *late = true;
            return {};
        }
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return got;
        if (got.size() + static_cast<size_t>(n) > MAX_REPORT)
            return {};
        got.append(buf, static_cast<size_t>(n));
    }
}

// In the child, between fork and exec: only calls that are safe there.
// Takes every privilege it can give up, then runs the program.
[[noreturn]] void become_child(int chunk, int out, const char *program, char *const argv[],
                               char *const envp[])
{
    if (dup2(chunk, STDIN_FILENO) < 0 || dup2(out, STDOUT_FILENO) < 0)
        _exit(126);
    // It may write no file: what it would write to a standard error that
    // is one is lost, rather than ending it.
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGXFSZ, &ignore, nullptr);
    close_range(STDERR_FILENO + 1, ~0u, 0);
    const struct rlimit none = {0, 0}, cpu = {CHILD_CPU_S, CHILD_CPU_S},
                        files = {CHILD_FILES, CHILD_FILES};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_FSIZE, &none);
    setrlimit(RLIMIT_CPU, &cpu);
    setrlimit(RLIMIT_NOFILE, &files);
#ifndef KIV_SANITIZED // (their shadow memory takes terabytes of addresses)
    const rlim_t bytes = rlim_t{2} << 30;
    const struct rlimit space = {bytes, bytes};
    setrlimit(RLIMIT_AS, &space);
#endif
    if (geteuid() == 0 && (setgroups(0, nullptr) != 0 || setresgid(NOBODY, NOBODY, NOBODY) != 0 ||
                           setresuid(NOBODY, NOBODY, NOBODY) != 0))
        _exit(126);
    // After the user is changed: a limit of none from the start would keep
    // the program from starting at all.
    setrlimit(RLIMIT_NPROC, &none);
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || chdir("/") != 0)
        _exit(126);
    execve(program, argv, envp);
    _exit(127);
}

// The child's environment: this process's, but in a build under
// AddressSanitizer without its leak check, which cannot look into a
// process that gave up its user and would fail it as it exits.
std::vector<std::string> child_environment()
{
    std::vector<std::string> env;
#ifdef KIV_ASAN
    std::string asan = "ASAN_OPTIONS=";
    for (char **e = environ; *e; ++e) {
        if (strncmp(*e, "ASAN_OPTIONS=", 13) == 0)
            asan = std::string(*e) + ":";
        else
            env.push_back(*e);
    }
    env.push_back(asan + "detect_leaks=0");
#else
    for (char **e = environ; *e; ++e)
        env.push_back(*e);
#endif
    return env;
}

// Why a child that did not report ended.
std::string child_end(int status, bool late)
{
    if (late)
        return "did not finish within " + std::to_string(CHILD_WALL_S) + " s and was stopped";
    if (WIFSIGNALED(status)) {
        const int sig = WTERMSIG(status);
        return sig == SIGXCPU
                   ? "ran out of its CPU time and was stopped"
                   : "was ended by signal " + std::to_string(sig) + " (" + strsignal(sig) + ")";
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 126)
        return "could not give up its privileges, so it was not run";
    if (WIFEXITED(status) && WEXITSTATUS(status) == 127)
        return "could not be started";
    return "ended without a report (exit code " + std::to_string(WEXITSTATUS(status)) + ")";
}

// Takes `n` bytes at *at of the report into dst; false when there are not
// so many.
bool take(const std::string &report, size_t *at, void *dst, size_t n)
{
    if (report.size() - *at < n)
        return false;
    if (n > 0)
        memcpy(dst, report.data() + *at, n);
    *at += n;
    return true;
}

// Fills m from a report; false when it is not one.
bool fill_from(script_model &m, const std::string &report, std::string *log)
{
    size_t at = 0;
    report_head h;
    if (!take(report, &at, &h, sizeof h) || memcmp(h.magic, MAGIC, sizeof MAGIC) != 0 ||
        h.kind > static_cast<uint8_t>(kiv_kind::aisp))
        return false;
    const uint64_t calib_bytes = uint64_t{h.calib_count} * sizeof(kiv_calib_data_item);
    if (report.size() - at !=
        sizeof *m.cfg + sizeof *m.hevc + sizeof m.aisp + sizeof m.fill + calib_bytes + h.log_len)
        return false;
    m.calib.resize(h.calib_count);
    take(report, &at, m.cfg.get(), sizeof *m.cfg);
    take(report, &at, m.hevc.get(), sizeof *m.hevc);
    take(report, &at, &m.aisp, sizeof m.aisp);
    take(report, &at, &m.fill, sizeof m.fill);
    take(report, &at, m.calib.data(), static_cast<size_t>(calib_bytes));
    log->assign(report, at, static_cast<size_t>(h.log_len));
    m.result = h.result;
    m.calib_size = h.calib_size;
    m.kind = static_cast<kiv_kind>(h.kind);
    return true;
}

// Gives the log to the watcher a line at a time, as the library gives it:
// a line runs from its tag to the next tag.
void replay_log(const std::string &log, const kiv_watcher *w)
{
    static const char *const TAGS[] = {"KIV_ERROR:: ", "KIV_WARN:: ", "KIV_DEBUG:: "};
    size_t at = 0;
    while (at < log.size()) {
        size_t next = log.size();
        for (const char *tag : TAGS)
            next = std::min(next, log.find(tag, at + 1));
        w->log(w->ctx, log.data() + at, next - at);
        at = next;
    }
}

} // namespace

bool is_precompiled(std::string_view text)
{
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    return !text.empty() && text[0] == '\x1b';
}

std::string &contained_program()
{
    static std::string program = "/proc/self/exe";
    return program;
}

void load_contained(script_model &m, int log_level, const kiv_watcher *watcher)
{
    m.result = -2;
    m.kind = kiv_kind::multi_chan;
    // The program's own path, taken now: once the child has given up its
    // user, /proc/self is no longer its to read.
    char program[PATH_MAX];
    const ssize_t len = contained_program() == "/proc/self/exe"
                            ? readlink("/proc/self/exe", program, sizeof program - 1)
                            : snprintf(program, sizeof program, "%s", contained_program().c_str());
    if (len <= 0 || static_cast<size_t>(len) >= sizeof program) {
        m.contained_failure = "the tool cannot find its own program to check it with";
        return;
    }
    program[len] = '\0';
    const int chunk = memfd_create("kiv-chunk", MFD_CLOEXEC);
    int out[2] = {-1, -1};
    if (chunk < 0 || !write_all(chunk, m.text.data(), m.text.size()) ||
        lseek(chunk, 0, SEEK_SET) != 0 || pipe2(out, O_CLOEXEC) != 0) {
        m.contained_failure =
            std::string("the separate process to check it in cannot be set up: ") + strerror(errno);
        if (chunk >= 0)
            close(chunk);
        return;
    }
    std::string level = std::to_string(log_level), name = m.file;
    char opt[] = "--contained-load";
    char *argv[] = {program, opt, name.data(), level.data(), nullptr};
    std::vector<std::string> env = child_environment();
    std::vector<char *> envp;
    for (std::string &e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0)
        become_child(chunk, out[1], program, argv, envp.data());
    close(chunk);
    close(out[1]);
    bool late = false;
    const std::string report = pid > 0 ? read_report(out[0], &late) : std::string();
    close(out[0]);
    int status = 0;
    if (pid > 0) {
        if (late)
            kill(pid, SIGKILL);
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
    }
    std::string log;
    if (pid < 0) {
        m.contained_failure =
            std::string("the separate process to check it in cannot be started: ") +
            strerror(errno);
    } else if (late || !WIFEXITED(status) || WEXITSTATUS(status) != 0 ||
               !fill_from(m, report, &log)) {
        m.contained_failure =
            "the separate process that loaded the precompiled chunk " + child_end(status, late);
        m.result = -2;
    } else {
        replay_log(log, watcher);
    }
}

int contained_main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    try {
        const std::string text = read_rest(STDIN_FILENO, "the chunk", kiv_source_limit());
        kiv_set_text_only(false);
        kiv_set_log_level(atoi(argv[3]));
        script_model m;
        kiv_any_load load = records_of(m);
        report_head h{};
        memcpy(h.magic, MAGIC, sizeof MAGIC);
        const std::string log =
            with_log([&] { h.result = kiv_load_any(argv[2], text.data(), text.size(), &load); });
        h.kind = static_cast<uint8_t>(load.kind);
        h.calib_size = load.calib_size;
        h.calib_count = static_cast<uint32_t>(m.calib.size());
        h.log_len = log.size();
        const bool written = write_all(STDOUT_FILENO, &h, sizeof h) &&
                             write_all(STDOUT_FILENO, m.cfg.get(), sizeof *m.cfg) &&
                             write_all(STDOUT_FILENO, m.hevc.get(), sizeof *m.hevc) &&
                             write_all(STDOUT_FILENO, &m.aisp, sizeof m.aisp) &&
                             write_all(STDOUT_FILENO, &m.fill, sizeof m.fill) &&
                             write_all(STDOUT_FILENO, m.calib.data(),
                                       m.calib.size() * sizeof(kiv_calib_data_item)) &&
                             write_all(STDOUT_FILENO, log.data(), log.size());
        return written ? 0 : 3;
    } catch (const std::exception &) {
        return 3;
    }
}

} // namespace kivtool
