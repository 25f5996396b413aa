// Shared pieces of the subcommands.
#include "common.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <iostream>
#include <memory>
#include <mutex>
#include <utility>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include <lua.h>

#include "core/log.h"
#include "core/access.h"
#include "core/run.h"
#include "core/safe_file.h"
#include "report.h"

namespace kivtool
{

input_options &script_input()
{
    static input_options opts;
    return opts;
}

void require_readable(const std::string &path)
{
    check_script_path(path, script_input().special_files);
    if (access(path.c_str(), R_OK) != 0)
        throw io_error("cannot read " + path + ": " + strerror(errno));
}

void write_output(const std::string &path, void (*text)(FILE *out, const void *ctx),
                  const void *ctx)
{
    if (path.empty() || path == "-") {
        // A file under a size limit there takes the whole text or none of it.
        if (const int err = kiv_stdout_fits(text, ctx))
            throw io_error(std::string("cannot write standard output: ") + strerror(err) +
                           ", nothing was written");
        text(stdout, ctx);
        return;
    }
    // No check of our own first: the writer is refused exactly where a
    // shell redirect would be.  Its log says what the line below says.
    kiv_file_result r = KIV_FILE_WRITTEN;
    int err = 0;
    with_log([&] { r = kiv_write_file("kiv", path.c_str(), text, ctx, &err); });
    if (r != KIV_FILE_WRITTEN)
        throw io_error("cannot write " + path + ": " +
                       (err > 0 ? strerror(err) : "it was replaced meanwhile"));
}

std::string with_log(const std::function<void()> &fn)
{
    std::string log;
    kiv_watcher w{};
    w.ctx = &log;
    w.log = [](void *ctx, const char *text, size_t n) {
        static_cast<std::string *>(ctx)->append(text, n);
    };
    const kiv_watcher *outer = kiv_get_watcher();
    kiv_set_watcher(&w);
    try {
        fn();
    } catch (...) {
        kiv_set_watcher(outer);
        throw;
    }
    kiv_set_watcher(outer);
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
    sub->add_flag("-q,--quiet", o.quiet, "Show nothing of the load but its failure");
    sub->add_option("--log-level", o.level,
                    "Also show the library's own log up to this level: 0 errors, 1 warnings, "
                    "3 debug")
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

namespace
{

// Standard input as scripts see it in one run of the tool: read whole the
// first time a script names it, then the same text for every "-".
struct input_state {
    std::mutex mu;
    bool read = false;
    std::string text, error, name = "<stdin>";
};

input_state &tool_input()
{
    static input_state state;
    return state;
}

const std::string &standard_input()
{
    input_state &in = tool_input();
    std::lock_guard<std::mutex> lock(in.mu); // -j reads it from several threads
    if (!std::exchange(in.read, true)) {
        try {
            in.text = read_rest(STDIN_FILENO, "standard input", kiv_source_limit());
        } catch (const io_error &e) {
            in.error = e.what();
        }
    }
    if (!in.error.empty())
        throw io_error(in.error);
    return in.text;
}

} // namespace

void reset_stdin()
{
    input_state &in = tool_input();
    std::lock_guard<std::mutex> lock(in.mu);
    in.read = false;
    in.text.clear();
    in.error.clear();
    in.name = "<stdin>";
}

std::string &stdin_name()
{
    return tool_input().name;
}

void add_script_input(CLI::App *sub)
{
    sub->add_option("--stdin-name", stdin_name(),
                    "The name a script read from standard input (FILE -) goes by in messages "
                    "(default <stdin>)");
    input_options &in = script_input();
    sub->add_flag("--special-files", in.special_files,
                  "Also read paths that are not regular files (pipes, devices), which may block "
                  "or never end");
    sub->add_flag("--precompiled", in.precompiled,
                  "Check precompiled chunks too, each in a separate process without privileges "
                  "(by default they are refused: the interpreter trusts their code)");
}

std::string script_name(const std::string &path)
{
    return path == "-" ? stdin_name() : path;
}

script_model load_script(const std::string &path, const load_options &given)
{
    load_options opt = given;
    opt.special_files = script_input().special_files;
    opt.precompiled = script_input().precompiled;
    if (path == "-")
        return load_model_text(stdin_name(), standard_input(), opt);
    return load_model(path, opt);
}

std::string version_text()
{
    return std::string("kiv ") + KIV_TOOL_VERSION + " (libkiv " + kiv_version() + ", " +
           LUA_RELEASE + ")";
}

script_model load_multi_chan(const std::string &path, std::string *failure)
{
    const log_options &o = tool_log();
    script_model m = load_script(path, {std::max(o.level, 1)});
    const std::string name = m.file;
    if (o.level >= 0)
        std::cerr << raw_log(m, o.level) << std::flush;
    if (m.kind != kiv_kind::multi_chan)
        throw config_error(name + ": not a multi-channel script (it defines " +
                           (m.kind == kiv_kind::calib  ? "calib_data"
                            : m.kind == kiv_kind::hevc ? "__hevc_scalelist__"
                                                       : "_custom_aisp_config_") +
                           ")");
    const file_report r = report_of(m, true, {});
    failure->clear();
    for (const finding &f : r.findings) {
        if (f.r->id != std::string("load-failed")) {
            if (!o.quiet)
                std::cerr << finding_text(name, f);
        } else if (m.result != 0 && failure->empty()) {
            *failure = finding_text(name, f, false);
        }
    }
    if (m.result != 0 && failure->empty())
        *failure = name + ": configuration failed (result " + std::to_string(m.result) + ")";
    return m;
}

script_model load_multi_chan(const std::string &path)
{
    std::string failure;
    script_model m = load_multi_chan(path, &failure);
    if (!failure.empty())
        throw config_error(failure);
    return m;
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
