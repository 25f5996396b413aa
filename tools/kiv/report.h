// What check and lint tell about a file: its findings at their places in
// the script, as the compiler's lines ("FILE:LINE:COL: severity: path:
// message [rule]", which editors and CI log readers understand, each
// followed by a "note" line per related place), as JSON or as SARIF 2.1.0.
#ifndef KIV_TOOL_REPORT_H
#define KIV_TOOL_REPORT_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/model.h"
#include "model/rules.h"

namespace kivtool
{

// One file's part of a report; it outlives the model it was made from.
struct file_report {
    std::string file;
    std::string error; // why the file could not be read; empty when it was
    kiv_kind kind = kiv_kind::multi_chan;
    int32_t result = 0;
    bool logged_errors = false; // ERROR lines in the log
    std::string summary;
    size_t absent = 0;             // keys absent and left to their defaults
    std::string raw_log;           // the library's own log, when asked for
    std::vector<finding> findings; // columns counted in characters, not bytes (in_characters)
    bool readable() const { return error.empty(); }
};

// A finding of the script `text` with the columns of its place and of its
// related places counted in characters (UTF-8 code points) instead of bytes.
finding in_characters(const std::string &text, finding f);

// The report of a loaded script: the findings of `check` (only the loader's
// verdict) or of every rule, and with raw_level >= 0 the library's log up
// to that level.
file_report report_of(const script_model &m, bool check_only,
                      const std::vector<std::string> &disabled, int raw_level = -1);

// The report of the script at `path` ("-": standard input), loaded with the
// library's log level `log_level` at its start.  A file that cannot be read,
// or whose check runs out of memory, is a report with an error: one file's
// failure never costs the others theirs.
file_report report_file(const std::string &path, bool check_only,
                        const std::vector<std::string> &disabled, int raw_level, int log_level);

// The library's log of a load, its lines of levels up to `level`, byte for
// byte.
std::string raw_log(const script_model &m, int level);

// "FILE:LINE:COL: severity: path: message [rule]" and a line feed, then
// per related place, in their order, "FILE:LINE:COL: note: message" and a
// line feed; without a place "FILE: severity: ..." ("FILE: note: ...").
// `rule` false gives the first line alone, without " [rule]" and the line
// feed.
std::string finding_text(const std::string &file, const finding &f, bool rule = true);

// Every finding as a JSON array of objects (file, line, column, end_line,
// end_column, severity, path, message, rule; no place: no line fields),
// with `related`, an array of objects (line, column, end_line, end_column,
// message; no place: no line fields), when it has related places.
nlohmann::ordered_json findings_json(const std::vector<file_report> &files);

// A SARIF 2.1.0 log: one run with the rules, each finding a result with
// its region in its file (a relative reference against %SRCROOT%, the
// working directory, or a file URI for an absolute path) and its related
// places as relatedLocations (ids from 1, in their order, each with its
// region in the same file and its message), and a file that could not be
// read as a tool execution notification of an unsuccessful invocation.
nlohmann::ordered_json findings_sarif(const std::vector<file_report> &files);

} // namespace kivtool

#endif
