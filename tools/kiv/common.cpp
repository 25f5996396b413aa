// Shared pieces of the subcommands.
#include "common.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <iostream>
#include <memory>
#include <utility>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "aisp/aisp.h"
#include "core/log.h"
#include "core/run.h"
#include "core/safe_file.h"

namespace kivtool
{

void require_readable(const std::string &path)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw io_error("cannot read " + path + ": " + strerror(errno));
    struct stat st;
    bool dir = fstat(fd, &st) == 0 && S_ISDIR(st.st_mode);
    close(fd);
    if (dir)
        throw io_error("cannot read " + path + ": " + strerror(EISDIR));
}

void write_output(const std::string &path, void (*text)(FILE *out, const void *ctx),
                  const void *ctx)
{
    if (path.empty() || path == "-") {
        text(stdout, ctx);
        return;
    }
    // No check of our own first: the writer is refused exactly where a
    // shell redirect would be.
    kiv_file_result r = KIV_FILE_WRITTEN;
    int err = 0;
    capture_log([&] { r = kiv_write_file("kiv", path.c_str(), text, ctx, &err); }, false);
    if (r != KIV_FILE_WRITTEN)
        throw io_error("cannot write " + path + ": " +
                       (err > 0 ? strerror(err) : "it was replaced meanwhile"));
}

namespace
{

// Points standard output at fd for the duration of fn, flushing the C
// stream on both sides of the switch so no line lands on the wrong side.
// Returns 0, or why a write to fd failed meanwhile (the error is cleared).
int with_stdout_on(int fd, const std::function<void()> &fn)
{
    fflush(stdout);
    const bool failed_before = ferror(stdout);
    int saved = dup(STDOUT_FILENO);
    if (saved < 0) {
        fn();
        return 0;
    }
    dup2(fd, STDOUT_FILENO);
    auto restore = [&] {
        int err = fflush(stdout) == 0 ? 0 : errno;
        if (!failed_before && ferror(stdout)) {
            err = err ? err : EIO;
            clearerr(stdout);
        } else {
            err = 0;
        }
        dup2(saved, STDOUT_FILENO);
        close(saved);
        return err;
    };
    try {
        fn();
    } catch (...) {
        restore();
        throw;
    }
    return restore();
}

} // namespace

std::string capture_log(const std::function<void()> &fn, bool keep)
{
    if (!keep) {
        int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (null < 0)
            throw io_error(std::string("cannot open /dev/null: ") + strerror(errno));
        with_stdout_on(null, fn);
        close(null);
        return "";
    }
    FILE *tmp = tmpfile();
    if (!tmp)
        throw io_error(std::string("cannot create a temporary file: ") + strerror(errno));
    // A file size limit or a full disk can cut the log short: then it is
    // not shown as if it were whole.
    if (int err = with_stdout_on(fileno(tmp), fn)) {
        fclose(tmp);
        throw io_error(std::string("cannot keep the library's log: ") + strerror(err));
    }
    std::string log;
    rewind(tmp);
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, tmp)) > 0)
        log.append(buf, n);
    fclose(tmp);
    return log;
}

log_options &tool_log()
{
    static log_options opts;
    return opts;
}

void add_log_options(CLI::App *sub)
{
    log_options &o = tool_log();
    sub->add_flag("-q,--quiet", o.quiet, "Show none of the library's log");
    sub->add_option("--log-level", o.level,
                    "Show the library's messages up to this level: 0 errors, 1 warnings "
                    "(default), 3 debug")
        ->check(CLI::Range(0, 255));
}

std::string filter_log(const std::string &log, int level)
{
    static const std::pair<const char *, int> TAGS[] = {
        {"KIV_ERROR:: ", 0}, {"KIV_WARN:: ", 1}, {"KIV_DEBUG:: ", 3}};
    std::string out;
    size_t at = 0;
    int current = 0; // text before the first tag is shown as an error's
    while (at < log.size()) {
        size_t next = std::string::npos;
        int next_level = 0;
        for (const auto &[tag, lvl] : TAGS) {
            size_t t = log.find(tag, at + 1);
            if (t < next) {
                next = t;
                next_level = lvl;
            }
        }
        for (const auto &[tag, lvl] : TAGS)
            if (log.compare(at, strlen(tag), tag) == 0)
                current = lvl;
        if (current <= level)
            out.append(log, at, next == std::string::npos ? std::string::npos : next - at);
        at = next;
        current = next_level;
    }
    return out;
}

void log_to_stderr(const std::function<void()> &fn)
{
    kiv_set_log_level(tool_log().level);
    std::string log = capture_log(fn, !tool_log().quiet);
    if (!tool_log().quiet)
        std::cerr << filter_log(log, tool_log().level) << std::flush;
}

script_kind kind_of(const std::string &path)
{
    script_kind kind = script_kind::multi_chan;
    auto read = [](lua_State *L, void *ctx) -> int32_t {
        const std::pair<const char *, script_kind> globals[] = {
            {"_resource_config_", script_kind::multi_chan},
            {"calib_data", script_kind::calib},
            {"__hevc_scalelist__", script_kind::hevc},
            {"_custom_aisp_config_", script_kind::aisp}};
        for (const auto &g : globals) {
            bool defined = lua_getglobal(L, g.first) != LUA_TNIL;
            lua_pop(L, 1);
            if (defined) {
                *static_cast<script_kind *>(ctx) = g.second;
                break;
            }
        }
        return 0;
    };
    capture_log([&] { kiv_run_script("kiv", path.c_str(), read, &kind, -2, -2); }, false);
    return kind;
}

namespace
{

std::string plural(int n, const std::string &what)
{
    if (n == 1)
        return "1 " + what;
    // "entry" -> "entries", "canvas" -> "canvases"
    if (what.back() == 'y')
        return std::to_string(n) + " " + what.substr(0, what.size() - 1) + "ies";
    return std::to_string(n) + " " + what + (what.back() == 's' ? "es" : "s");
}

} // namespace

loaded load_script(const std::string &path, kiv_multi_chan_cfg *cfg)
{
    loaded l;
    l.kind = kind_of(path);
    switch (l.kind) {
    case script_kind::calib: {
        int32_t n = kiv_get_calib_data_size(path.c_str());
        if (n <= 0) {
            l.result = -1; // nothing to load; kiv_get_calib_data_size logged why
            return l;
        }
        std::vector<kiv_calib_data_item> items(static_cast<size_t>(n));
        l.summary = "calibration data, " + plural(n, "item");
        l.result = kiv_load_calib_data(path.c_str(), items.data(), static_cast<uint32_t>(n));
        return l;
    }
    case script_kind::hevc: {
        auto lists = std::make_unique<kiv_hevc_scaling_cfg>();
        l.summary = "HEVC scaling lists";
        l.result = kiv_get_hevc_scaling_cfg(path.c_str(), lists.get());
        return l;
    }
    case script_kind::aisp: {
        kiv_aisp_cfg nn{};
        kiv_aisp_fill fill{};
        l.result = kiv_get_aisp_cfg_fill(path.c_str(), &nn, 1, &fill);
        l.summary = "custom AISP, " + plural(static_cast<int>(fill.nn_cnt), "network") + ", " +
                    plural(static_cast<int>(fill.filled), "interface entry");
        return l;
    }
    case script_kind::multi_chan:
        break;
    }
    l.result = kiv_get_multi_chan_cfg(path.c_str(), cfg);
    l.summary = plural(cfg->chan_num, "channel") + ", " + plural(cfg->canvas_num, "canvas") + ", " +
                plural(cfg->stream_num, "stream");
    return l;
}

void load_multi_chan(const std::string &path, kiv_multi_chan_cfg &cfg)
{
    require_readable(path);
    int32_t ret = 0;
    log_to_stderr([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
    if (ret != 0)
        throw config_error(path + ": configuration failed (result " + std::to_string(ret) + ")");
}

std::string dump_json(const nlohmann::ordered_json &j)
{
    try {
        return j.dump(2);
    } catch (const nlohmann::ordered_json::type_error &) {
        note_bad_utf8("shown as U+FFFD");
        return j.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    }
}

void note_bad_utf8(const char *how)
{
    if (std::exchange(tool_log().utf8_noted, true))
        return;
    std::cerr << "kiv: note: a string is not valid UTF-8: its bad bytes are " << how << '\n';
}

} // namespace kivtool
