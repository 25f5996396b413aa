// The model of a loaded script that every subcommand shares: one read of
// the file, one run of the script through the library (the loader of its
// kind, with its exact log and record), and what the reading saw, each
// thing placed at the line and column of the script where it was written.
//
// The library stays the byte-exact loader it is; the model watches it
// (kiv_watcher): the tables it enters, the keys it looks up, the values it
// stores, the lines it logs, and every table the script makes, which the
// source map (source.h) ties to the constructor that made it.  So a field
// path resolves to where its value was written, through locals, globals,
// function returns and loops alike, without changing what the script
// computes.
#ifndef KIV_TOOL_MODEL_MODEL_H
#define KIV_TOOL_MODEL_MODEL_H

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "aisp/aisp.h"
#include "core/any.h"
#include "kiv.h"
#include "model/flow.h"
#include "model/source.h"

namespace kivtool
{

// A line of the library's log and the place of the script being read when
// it was printed.
struct log_line {
    uint8_t level = 0;   // 0 error, 1 warning, 3 debug
    std::string text;    // byte for byte, its line feed included
    std::string path;    // the field being read ("channels[0].vsrc.mode"); "" for the whole script
    src_span where;      // none: no place in the script
    bool absent = false; // an absent key's line ("... doesn't exist, set 0 by default")
    int32_t table = -1;  // the table being read (index into script_model::tables), or -1
    std::string note;    // what the tool adds ("is a ',' missing at the end of line 12?")
    // A line of a key the loader found absent right after it read a switch
    // on in the same table (`efm_enable = 1`): that switch, as written, and
    // its place; "" when there is none.
    std::string switched_by;
    src_span switch_where;
    bool found = false;     // the loader's last lookup found a value
    int32_t looked_in = -1; // the table of the loader's last lookup, or -1
};

// A table the loader read: its string keys, which of them it read, and the
// names it looked for that the table does not hold.
struct read_table {
    std::string path;              // the record path its keys are named under
    int32_t ctor = -1;             // its constructor in the source map, or -1
    std::vector<std::string> keys; // the string keys it holds, sorted
    std::vector<char> read;        // keys[i] was looked up, or is known unread by a switch
    // Names the loader looked up or knows there that the table does not
    // hold: what a key no loader reads may have meant.
    std::vector<std::string> missing;
    int32_t parent = -1;    // the table it was entered from, or -1
    int32_t position = -1;  // entered as an element of its parent: which (0 for the first)
    std::string stopped_at; // the table or array it lacked, after which its reading stopped
    // Read to its end: it was left with no ERROR logged since its last
    // lookup (an ERROR that ends the reading of a table early would make
    // every key after it look unknown).
    bool whole = false;
    // The evaluator's table at the same path (flow.h), when it computed
    // what the loader found there; null otherwise.
    const flow::table *flowed = nullptr;
    // An element of `channels` or `streams`: the value of the id that
    // named its record, where it was written (none when not placed).
    src_span id_at;
    // The keys no loader read here.
    std::vector<std::string> unread() const;
};

// A place the reading named: a record path and where its value was written
// (the key and its value), or for an absent key the constructor that lacks it.
struct place {
    src_span where; // the key and its value, or the constructor's '{'
    src_span value; // the value alone
    bool present = false;
    // How the value came there, when the evaluator followed it (flow.h),
    // and for a table the evaluator's table.
    const flow::origin *origin = nullptr;
    const flow::table *table = nullptr;
};

struct script_model {
    std::string file; // as given
    std::string text; // what was run
    src_map source;
    kiv_kind kind = kiv_kind::multi_chan;
    int32_t result = 0;
    bool ran = false; // the script ran and its tables were read (no syntax error, no bound)
    // A precompiled chunk checked in a separate process (--precompiled) that
    // crashed it or ran out of that process's limits: what happened ("" when
    // it reported); the result is then -2.
    std::string contained_failure;
    std::unique_ptr<kiv_multi_chan_cfg> cfg;
    std::vector<kiv_calib_data_item> calib;
    int32_t calib_size = 0;
    std::unique_ptr<kiv_hevc_scaling_cfg> hevc;
    kiv_aisp_cfg aisp{};
    kiv_aisp_fill fill{};
    std::vector<log_line> log;
    std::vector<read_table> tables;
    // The script run again in the tool's evaluator, where each value's way
    // is known (flow.h): a multi-channel script's, null for other kinds.
    std::shared_ptr<const value_flow> flow;
    // Each name the loader looked up, with the path of the first table it
    // looked in (what an unknown key may belong to).
    std::unordered_map<std::string, std::string> read_in;
    // Every record path the reading named and where, in reading order (a
    // path named again: the last one counts, as in the record).
    std::vector<std::pair<std::string, place>> named;
    // What each key of a key table left in its field, by record path (the
    // last store counts, as in the record).
    std::unordered_map<std::string, int64_t> held;
    // The integer the loader took for each integer key it found, before
    // any field's width, by record path (the last one counts): what a key
    // whose field is computed from it (a frame rate) was given.
    std::unordered_map<std::string, int64_t> given;
    // Values the loader could not take as their key's type, and integers
    // their field could not hold, found while reading: {path, message}.
    struct slip {
        std::string path;
        std::string message;
        src_span where;
        bool wrong_type; // else a truncated value
    };
    std::vector<slip> slips;
    // Ids given to more than one table of `channels` or `streams`:
    // {"channels" or "streams", id, where each was written}.
    struct duplicate {
        std::string list;
        int64_t id;
        std::vector<src_span> where;
    };
    std::vector<duplicate> duplicates;

    // "1 channel, 3 canvases, 2 streams", "calibration data, 12 items", ...
    std::string summary() const;
    // The number of absent-key lines in the log.
    size_t absent_count() const;
    // Whether the log has an ERROR line.
    bool logged_errors() const;
    // The place of a record path the reading named; null when it named none.
    const place *place_at(const std::string &path) const;
    // Where the value at a record path was written: the place of the path,
    // or of the nearest enclosing one the reading named; none when the
    // reading named none.
    src_span where(const std::string &path) const;
    // The text of the script at a span.
    std::string written(const src_span &s) const;

    // The assignments to fields (source.assignments) whose key is `name`,
    // in source order, and the one whose value is constructor `ctor` (-1
    // for none).
    const std::vector<int32_t> &assignments_to(const std::string &name) const;
    int32_t assignment_of(int32_t ctor) const;
    // Where a name is set to a literal, `NAME = value` (`local RATE = 30`),
    // in source order: the statement from the name on, and the value.
    struct value_set {
        src_span statement, value;
    };
    const std::vector<value_set> &sets_of(std::string_view name) const;

  private:
    // Indexes made at their first use.
    mutable std::unordered_map<std::string, size_t> named_index_;
    mutable std::unordered_map<std::string, std::vector<int32_t>> assigned_;
    mutable std::unordered_map<int32_t, int32_t> assigned_ctor_;
    mutable bool assignments_indexed_ = false;
    mutable std::unordered_map<std::string_view, std::vector<value_set>> sets_;
    mutable bool sets_indexed_ = false;
    void index_assignments() const;
};

struct load_options {
    int log_level = 1; // the library's level at the start of the load
    // Read a path that is not a regular file (a pipe, a device), which may
    // block or never end; else it is refused before it is opened.
    bool special_files = false;
    // Check a precompiled chunk, in a separate process (model/contained.h);
    // else it is refused, as the library refuses one loaded as text only.
    bool precompiled = false;
};

// Throws io_error unless the file at `file` may be read as a script: it
// exists and is no directory, and, unless special files are allowed, it is
// a regular file (a FIFO without a writer would block the open for ever, a
// device may never end).  Looked at without opening the file.
void check_script_path(const std::string &file, bool special_files);

// The rest of what file descriptor fd gives, to its end, at most `limit`
// bytes.  Throws io_error ("cannot read WHAT: reason") when a read fails or
// there is more: a longer text is more than the library parses of a script
// (kiv_source_limit()), so it could only be refused.
std::string read_rest(int fd, const std::string &what, uint64_t limit);

// Gives m fresh records (the multi-channel one reset by kiv_init) and the
// load of any kind that fills them.
kiv_any_load records_of(script_model &m);

// Reads the file once and loads it once.  Throws io_error (common.h) when
// the file cannot be read, is longer than any script can be or, unless the
// options allow it, is not a regular file.
script_model load_model(const std::string &file, const load_options &opt = {});
// The same for a text not read from a file (an editor's buffer); `file`
// names it in the messages.
script_model load_model_text(const std::string &file, std::string text,
                             const load_options &opt = {});

// The canonical script the library's dump writes for a record, as text.
std::string dump_text(const kiv_multi_chan_cfg &cfg);
// Loads a multi-channel script given as text into cfg with no log at all
// (the dump's reload); `file` names it.  The loader's result.
int32_t load_quietly(const std::string &file, const std::string &text, kiv_multi_chan_cfg *cfg);

// The span of line `line` of a text, from its first character that is not
// blank to its end; none when the text has no such line.
src_span line_span(std::string_view text, uint32_t line);

// The field of constructor `ctor` of the source map that gives key `name`
// (or, for a null name, element `index`, 0-based): the last one that
// names it, as the last assignment wins; an element given by position
// before one given as [i].  Null when the constructor has none (or ctor
// is -1).
const src_field *field_of(const src_map &source, int32_t ctor, const char *name, int32_t index);

} // namespace kivtool

#endif
