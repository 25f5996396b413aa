// What the subcommands share: exit codes, errors, where the library's log
// goes, and loading a multi-channel script.
#ifndef KIV_TOOL_COMMON_H
#define KIV_TOOL_COMMON_H

#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>

#include "kiv.h"

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

// Throws io_error unless `path` names a readable regular file.
void require_readable(const std::string &path);
// Throws io_error unless a file can be created at `path` (its directory
// exists and is writable, and it is not a directory itself).
void require_writable(const std::string &path);

// Runs fn with the library's log, which goes to standard output, sent to
// standard error instead.
void log_to_stderr(const std::function<void()> &fn);
// Runs fn and returns what the library logged meanwhile instead of
// printing it.
std::string capture_log(const std::function<void()> &fn);

// Loads the multi-channel script at path into cfg with the log on standard
// error; throws io_error for an unreadable file and config_error (naming
// the result) when the load fails.
void load_multi_chan(const std::string &path, kiv_multi_chan_cfg &cfg);

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
void add_standalone(CLI::App &app, int &rc); // calib, hevc and aisp

// The whole program: parses argv, runs one subcommand and returns the exit
// code.
int run(int argc, char **argv);

} // namespace kivtool

#endif
