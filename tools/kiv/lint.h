// kiv lint: what loads but cannot work as meant, or what a dump silently
// changes.  The script is loaded with the library exactly as `kiv check`
// loads it, with a watcher on the reading (kiv_set_watcher): the keys the
// loader looks up, stores and skips are the known keys, so every rule
// covers every key the loader reads, without a list of its own.
#ifndef KIV_TOOL_LINT_H
#define KIV_TOOL_LINT_H

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace kivtool
{

enum class severity { info, warning, error };

struct rule {
    const char *id;
    severity level;
    const char *summary; // one line: what the rule finds
};

// Every rule, in the order of the documentation.
const std::vector<rule> &lint_rules();
const rule *find_rule(const std::string &id);

struct finding {
    std::string file;
    const rule *r;
    std::string path; // the record's field ("channels[1].vsrc.fps"), or the script's key
    std::string message;
    size_t order; // when its key was read
};

// The findings of one script, in the order its keys are read.  Throws
// io_error when the file cannot be read.
std::vector<finding> lint_file(const std::string &path);

// The findings as the text lines "FILE: severity: path: message [id]".
std::string lint_text(const std::vector<finding> &fs);
// As a JSON array of objects (file, severity, path, message, rule).
nlohmann::ordered_json lint_json(const std::vector<finding> &fs);
// As a SARIF 2.1.0 log: one run, the rules with their ids and help text,
// each finding a result located in its file.
nlohmann::ordered_json lint_sarif(const std::vector<finding> &fs);

const char *severity_name(severity s);

} // namespace kivtool

#endif
