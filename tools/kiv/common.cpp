// Shared pieces of the subcommands.
#include "common.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kivtool
{

void require_readable(const std::string &path)
{
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0)
        throw io_error("cannot read " + path + ": " + strerror(errno));
    struct stat st;
    bool dir = fstat(fd, &st) == 0 && S_ISDIR(st.st_mode);
    close(fd);
    if (dir)
        throw io_error("cannot read " + path + ": " + strerror(EISDIR));
}

void require_writable(const std::string &path)
{
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
        throw io_error("cannot write " + path + ": " + strerror(EISDIR));
    size_t slash = path.find_last_of('/');
    std::string dir = slash == std::string::npos ? "." : path.substr(0, slash ? slash : 1);
    if (access(dir.c_str(), W_OK | X_OK) != 0)
        throw io_error("cannot write " + path + ": " + strerror(errno));
}

namespace
{

// Points standard output at fd for the duration of fn, flushing the C
// stream on both sides of the switch so no line lands on the wrong side.
void with_stdout_on(int fd, const std::function<void()> &fn)
{
    fflush(stdout);
    int saved = dup(STDOUT_FILENO);
    if (saved < 0) {
        fn();
        return;
    }
    dup2(fd, STDOUT_FILENO);
    try {
        fn();
    } catch (...) {
        fflush(stdout);
        dup2(saved, STDOUT_FILENO);
        close(saved);
        throw;
    }
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
}

} // namespace

void log_to_stderr(const std::function<void()> &fn)
{
    fflush(stderr);
    with_stdout_on(STDERR_FILENO, fn);
}

std::string capture_log(const std::function<void()> &fn)
{
    FILE *tmp = tmpfile();
    if (!tmp)
        throw io_error(std::string("cannot create a temporary file: ") + strerror(errno));
    with_stdout_on(fileno(tmp), fn);
    std::string log;
    rewind(tmp);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, tmp)) > 0)
        log.append(buf, n);
    fclose(tmp);
    return log;
}

void load_multi_chan(const std::string &path, kiv_multi_chan_cfg &cfg)
{
    require_readable(path);
    int32_t ret = 0;
    log_to_stderr([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
    if (ret != 0)
        throw config_error(path + ": configuration failed (result " + std::to_string(ret) + ")");
}

} // namespace kivtool
