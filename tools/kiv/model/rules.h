// The rules over a loaded script: each a small function of the model that
// names what it finds and where in the script.  `kiv check` reports the
// loader's own verdict (the rules marked `check`), `kiv lint` every rule,
// the editor server both as the text is typed.
#ifndef KIV_TOOL_MODEL_RULES_H
#define KIV_TOOL_MODEL_RULES_H

#include <string>
#include <vector>

#include "model/model.h"

namespace kivtool
{

enum class severity { info, warning, error };
const char *severity_name(severity s);

struct finding;

struct rule {
    const char *id;
    severity level;
    const char *summary; // one line: what the rule finds
    bool check;          // part of the loader's verdict: `kiv check` reports it too
    void (*find)(const script_model &m, std::vector<finding> &out);
};

// Another place a finding concerns: where its value was copied on its way
// ("copied here"), the other side of an inconsistency, the loop that made
// an element.
struct related_place {
    src_span where;
    std::string message; // what the place is, one short phrase
};

struct finding {
    const rule *r;
    std::string path;    // the record's field ("channels[1].vsrc.fps"), or the script's key
    std::string message; // what is wrong, and how it reads in the script
    src_span where;      // where in the script; none for the file as a whole
    std::vector<related_place> related; // in the order of the value's way
};

// Every rule, in the order of the documentation.
const std::vector<rule> &all_rules();
const rule *find_rule(const std::string &id);

// The findings of the rules of a subcommand (`check` only the loader's
// verdict, else every rule), without the rules in `disabled` and those the
// script's comments silence (-- kiv-lint: disable=RULE), in the order of
// their place in the script.
std::vector<finding> findings_of(const script_model &m, bool check_only,
                                 const std::vector<std::string> &disabled = {});

// The message of a library log line as the tool shows it: the line's text
// without its tag and source, with what explains it (the name meant, the
// duplicate id, ...).
std::string explain(const script_model &m, const log_line &l);

} // namespace kivtool

#endif
