// The flow of values: where each value of a configuration script was
// written and the copies it went through before the loader read it.
//
// The library's run is the one verdict on a script; it cannot tell where a
// value came from.  So the tool runs the script a second time in an
// evaluator of its own (flow.cpp), which computes the same values as the
// interpreter for the language a configuration uses (tables, functions,
// closures, loops, arithmetic, concatenation; no standard library, as in
// the loader's state) and gives every value an origin: the literal or
// expression that made it, and for every store into a table the store, the
// value it stored and the pass of the loop it was made in.  A value copied
// from a description (`mode = s.mode`), passed through a helper's
// arguments, merged with a computed key (`t[k] = v`) or patched in after
// its table was built keeps its whole way.
//
// The reading ties each table the loader enters to the evaluator's table
// at the same path, and uses the evaluator's answer only where it gives the
// value the loader found; where the evaluator stopped or went another way
// (it refuses what configurations never do: `goto`, a bound it reached), the
// reading places values as it did without it.
#ifndef KIV_TOOL_MODEL_FLOW_H
#define KIV_TOOL_MODEL_FLOW_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "model/source.h"

namespace kivtool
{

namespace flow
{
struct program;
struct table;
struct origin;
} // namespace flow

// One step of a value's way, as the script wrote it.
struct flow_step {
    enum kind_t : uint8_t {
        written,  // a literal, a table constructor or a function: `where`
        computed, // an operation (`s.h // 4`, `"chan_" .. i`): `where`, its operands before it
        stored,   // stored into a table: `where` the key and the value, `key`, `value`
    } kind = written;
    src_span where;
    bool variable = false; // written: a loop's variable, its value written by no one
    src_span key;          // stored: the name, `[k]` or, for an element given by position, none
    src_span value;        // stored: the value expression
    // A store made inside a loop: which pass of the innermost loop (1 for
    // the first) and that loop's header, from `for` to `do`.
    int64_t pass = 0;
    src_span loop;
    // ... a numeric loop: its limit expression, and when the limit is the
    // length of a list (`#sensors`), where that list's element of this
    // pass was written (the element that made the pass).
    src_span limit;
    src_span element;
};

// A value of the evaluator's run.
struct flow_value {
    enum type_t : uint8_t { none, nil, boolean, integer, number, string, table, function };
    type_t type = none; // none: the evaluator knows nothing here
    bool b = false;
    int64_t i = 0;
    double d = 0;
    std::string_view s;
    const flow::table *t = nullptr;
    const flow::origin *origin = nullptr; // how the value came here
    const flow::origin *key = nullptr;    // for a table's entry: how its key came
    bool known() const { return type != none; }
};

class value_flow
{
  public:
    // Parses and runs `text` (a script file's text, as the interpreter reads
    // it; it must outlive the evaluator).  Bounded in time and memory whatever the text: a run that
    // would go past its bounds stops there, keeping what it made.
    value_flow(std::string_view text, const src_map &source);
    // Keeps `source` (which must outlive it) to tell the constructors of
    // helper functions from those of the main chunk.
    ~value_flow();
    value_flow(const value_flow &) = delete;
    value_flow &operator=(const value_flow &) = delete;

    // Why the run stopped before the script's end ("" when it ran to its
    // end): the script's own error, or what the evaluator does not follow.
    const std::string &stopped() const;
    // The global table.
    flow_value globals() const;
    // An entry of a table: field `name`, or the value at integer key `key`.
    flow_value field(const flow::table *t, std::string_view name) const;
    flow_value element(const flow::table *t, int64_t key) const;
    // The constructor of the source map that made table t, or -1.
    int32_t constructor(const flow::table *t) const;
    // The way of a value, from where it was written to its last store.  An
    // operation's operands come before it, each with its own way.
    std::vector<flow_step> way(const flow::origin *o) const;
    // Where a value was written, as its author would look for it: back
    // through the stores that copied it, to the store that wrote it out
    // (`mode = "1080p"` in a description), or to the literal or operation
    // that made it when that stands elsewhere (`local W = 640`, `s.w // 2`
    // in a local).  For an entry's key, pass v.key.
    // `keep(later, earlier)`, when given, is asked of each copy from one
    // store to another with the two keys as written (`frame_rate`, `fps`):
    // true stops the walk at the later store, a copy that gives the value
    // a new meaning (one record field's value taken for another's).
    using copy_test = std::function<bool(std::string_view later, std::string_view earlier)>;
    flow_step written_at(const flow::origin *o, const copy_test &keep = nullptr) const;
    // Where the entries of table t were written, when its constructor
    // writes none of them out and they were all written on one line: the
    // call `buf(640, 360, 0, 0)` for the table `{x, y, w, h}` a helper
    // builds from its arguments.  None otherwise.
    src_span filled_at(const flow::table *t) const;
    // When every string key of table t was written as an element of one
    // list (`t[k] = ...` for each k of `{"type", "vout_id"}`): that list.
    // Null otherwise.
    const flow::table *keys_list(const flow::table *t) const;
    // Where a table's constructor stands; none when it was not made by one.
    src_span made_at(const flow::table *t) const;
    // The entries of table t under string keys, not nil, in no order.
    std::vector<std::pair<std::string, flow_value>> fields(const flow::table *t) const;
    // The keys of tables that are not among `read` but gave some value to
    // them, whose own values reached none of them: a defaults or overrides
    // table's key that a merge never copies (a misspelt `fsp` beside the
    // `fps` it meant), with where each key was written.
    std::vector<std::pair<std::string, src_span>>
    unreached_keys(const std::vector<const flow::table *> &read) const;
    // The tables the stores of a value's way stored it into, in order:
    // a description's, a defaults table's, then the configuration's.
    std::vector<const flow::table *> tables_of(const flow::origin *o) const;
    // Calls fn for every string key of every table the run made, with the
    // place its key was written (none when unknown).
    void each_key(const std::function<void(const flow::table *, std::string_view, const src_span &)>
                      &fn) const;

    // When the script failed: where, and, for a nil indexed or called at
    // the first pass of a loop, where the nil came from and that loop.
    struct failure {
        src_span where;      // the expression that failed
        std::string nil_of;  // "SENSORS[0]": the nil's expression and key, when known
        src_span loop;       // the loop at its first pass, when the nil's key is its variable
        src_span loop_start; // that loop's start expression
        int64_t start = 0;   // and the value it starts at
    };
    const failure *failed() const;

    // Whether the run took the length of a table with holes, which has
    // more than one border: the interpreter may have found another, and
    // what the run computed from it may differ from the real run's.
    bool open_length() const;

  private:
    src_span filled(const flow::table *t, int depth) const;
    std::string_view key_text(const src_span &key) const;
    std::unique_ptr<flow::program> p_;
};

} // namespace kivtool

#endif
