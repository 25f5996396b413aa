// What the subcommands share: exit codes, errors, where the library's log
// goes, and loading a multi-channel script.
#ifndef KIV_TOOL_COMMON_H
#define KIV_TOOL_COMMON_H

#include <cstdio>
#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

#include "kiv.h"
#include "model/model.h"

namespace CLI
{
class App;
}

namespace kivtool
{

// Exit codes of every subcommand.
enum : int {
    EXIT_OK = 0,     // success, or no difference
    EXIT_FAILED = 1, // a configuration failed to load, or two differ
    EXIT_USAGE = 2,  // bad command line, or a file that cannot be read or written
};

// A file that cannot be read or written: reported as "kiv: <what>" on
// standard error, exit code 2.
struct io_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A configuration that failed to load: reported as "kiv: <what>" on
// standard error, exit code 1.
struct config_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// How the subcommands that read scripts take them: --special-files reads
// paths that are not regular files (pipes, devices), --precompiled checks
// precompiled chunks in a separate process (model/contained.h).
struct input_options {
    bool special_files = false;
    bool precompiled = false;
};
input_options &script_input();

// Throws io_error unless `path` names a readable regular file (or, with
// --special-files, anything readable but a directory).
void require_readable(const std::string &path);
// Writes what `text` writes to the file at `path` with the library's file
// writer, so with its guarantees (no partial file left, nothing a shell
// redirect `> path` could not do), or to standard output when `path` is
// empty or "-".  Throws io_error, one line, when the file cannot be written.
void write_output(const std::string &path, void (*text)(FILE *out, const void *ctx),
                  const void *ctx);

// Runs fn and returns what the library logged meanwhile instead of
// printing it, whole and in order (a watcher takes the lines).
std::string with_log(const std::function<void()> &fn);

// What of the library's log a subcommand shows besides its findings: none
// (the default), or the messages of levels up to `level` (--log-level; a
// script's own log_level can only add lines the tool then leaves out).
// quiet (-q): not even the findings of the load.
struct log_options {
    bool quiet = false;
    int level = -1;
    bool utf8_noted = false; // the note about bytes that are not UTF-8 was given
};
log_options &tool_log();
// Adds -q/--quiet and --log-level to a subcommand (they set tool_log()).
void add_log_options(CLI::App *sub);
// The messages of `log` whose level is at most `level` (a message runs from
// its KIV_ERROR/KIV_WARN/KIV_DEBUG tag to the next tag).
std::string filter_log(const std::string &log, int level);

// Scripts named "-" come from standard input: read whole, once (a second
// "-" in the same command is the same text), and named in findings and
// messages as stdin_name(): "<stdin>", or what --stdin-name says.
std::string &stdin_name();
// Forgets what standard input gave (each run of the tool starts afresh).
void reset_stdin();
// Adds --stdin-name, --special-files and --precompiled to a subcommand that
// reads scripts.
void add_script_input(CLI::App *sub);
// The name a script goes by: its path, or stdin_name() for "-".
std::string script_name(const std::string &path);
// Loads the script at path ("-": standard input) of any kind into a model.
// Throws io_error when it cannot be read; a failed load is the model's
// result, not an exception.
script_model load_script(const std::string &path, const load_options &opt = {});

// The versions of the tool, the library and Lua: "kiv 1.0.0 (libkiv
// 1.0.0, Lua 5.3.6)".
std::string version_text();

// Loads the multi-channel script at path for a subcommand that shows it:
// what the load found (errors and warnings, at their places) and, with
// --log-level, the library's log go to standard error; throws io_error for
// an unreadable file and config_error (saying why and where) when the
// load fails or the script is of another kind.
script_model load_multi_chan(const std::string &path);
// The same, but a load that failed is said in *failure (its message, as
// the config_error would say it; "" when it loaded) instead of thrown, for
// a subcommand that shows what was read all the same.
script_model load_multi_chan(const std::string &path, std::string *failure);

// JSON text, indented by two; bytes of strings that are not valid UTF-8
// are replaced by U+FFFD, with a note on standard error.
std::string dump_json(const nlohmann::ordered_json &j);
// The note on standard error (once per run) that a string's bad bytes are
// shown `how`.
void note_bad_utf8(const char *how);

// The fields that differ between two records, one "path: old -> new" line
// each, in record order; returns whether any does.
bool write_diff(std::ostream &out, const kiv_multi_chan_cfg &a, const kiv_multi_chan_cfg &b);

// The subcommands; each adds itself to the application and, when it runs,
// stores its exit code in `rc`.
void add_check(CLI::App &app, int &rc);
void add_dump(CLI::App &app, int &rc);
void add_show(CLI::App &app, int &rc);
void add_diff(CLI::App &app, int &rc);
void add_layout(CLI::App &app, int &rc);
void add_lint(CLI::App &app, int &rc);
void add_standalone(CLI::App &app, int &rc); // calib, hevc and aisp
void add_lsp(CLI::App &app, int &rc);
void add_completion(CLI::App &app, int &rc);

// The whole program: parses argv, runs one subcommand and returns the exit
// code.
int run(int argc, char **argv);

} // namespace kivtool

#endif
