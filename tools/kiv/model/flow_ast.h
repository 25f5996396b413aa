// The evaluator's program: a script parsed into statements and
// expressions, each name resolved to a local, an upvalue or a global as the
// interpreter resolves it, each place a value can be written or stored
// kept as a site of the text.  Internal to flow.cpp and flow_parse.cpp.
#ifndef KIV_TOOL_MODEL_FLOW_AST_H
#define KIV_TOOL_MODEL_FLOW_AST_H

#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "model/flow.h"

namespace kivtool::flow
{

// A place of the text where a value is written or stored.
struct site {
    src_span where; // the expression; for a store, the key and the value
    src_span key;   // a store: the name, `.name` or `[k]`; none for a positional element
    src_span value; // a store: the value expression
};

// A loop of the text: its header, from `for` or `while` to `do`, and for a
// numeric `for` its start expression.
struct loop_site {
    src_span header;
    src_span start;
    src_span limit; // a numeric `for`'s limit expression
};

// One pass of a loop, for the stores made in it.
struct pass {
    const loop_site *loop;
    int64_t n; // 1 for the first
    const pass *outer;
    bool has_var; // a numeric loop: its variable's value in this pass
    int64_t var;
    // A numeric loop whose limit is the length of a table (`#sensors`):
    // that table, whose element n made this pass.
    const struct table *over;
};

// How a value came where it is: written at a site, computed at one from
// operands, stored at one (its value `from`), or, for a nil, looked up at
// an index expression and not found (`key` the integer looked up, when it
// was one).
struct origin {
    enum kind_t : uint8_t { written, computed, stored, absent } kind = written;
    bool integer_key = false;
    // A loop's variable: not written by the script's author where the loop
    // stands, but where its value is first stored.
    bool variable = false;
    const site *at = nullptr;
    // computed: the first operand; stored: the value; absent: the store of
    // nil that left the entry absent, if one did
    const origin *from = nullptr;
    const origin *also = nullptr; // computed: the second operand
    const pass *in = nullptr;     // stored, absent: the pass of the innermost loop
    int64_t key = 0;              // absent
    // stored: the table stored into; absent: the table looked in
    const struct table *table = nullptr;
};

enum class ek : uint8_t {
    nil,
    t,
    f,
    integer,
    number,
    string,
    vararg,
    function,
    table,
    local,
    upval,
    global,
    index,  // a[b]
    call,   // a(args)
    method, // a:name(args), name in `str`
    binop,
    unop,
    and_,
    or_,
    paren,
};

// Operators, by the interpreter's priorities.
enum class op : uint8_t {
    add,
    sub,
    mul,
    mod,
    pow,
    div,
    idiv,
    band,
    bor,
    bxor,
    shl,
    shr,
    concat,
    eq,
    lt,
    le,
    ne,
    gt,
    ge,
    and_,
    or_,
    neg,
    not_,
    len,
    bnot,
};

struct proto;
struct ctor;

struct expr {
    ek k = ek::nil;
    op o = op::add;
    int32_t slot = 0; // local: its variable; upval: its index in the closure
    int64_t i = 0;
    double d = 0;
    const std::string *str = nullptr; // string literal, global name, method name
    const site *at = nullptr;         // the expression's text
    const origin *lit = nullptr;      // literals, constructors, functions: where written
    expr *a = nullptr, *b = nullptr;
    std::vector<expr *> args;
    proto *fn = nullptr;
    ctor *tab = nullptr;
};

struct field {
    enum kind_t : uint8_t { named, bracketed, positional } kind = positional;
    expr *key = nullptr; // named: a string literal; positional: none
    expr *value = nullptr;
    const site *at = nullptr;
};

struct ctor {
    std::vector<field> fields;
    int32_t source = -1; // its constructor in the source map
};

enum class sk : uint8_t {
    local,
    localfunc,
    assign,
    call,
    block,
    while_,
    repeat,
    if_,
    fornum,
    forin,
    ret,
    brk
};

struct stat;
using block = std::vector<stat *>;

struct stat {
    sk k = sk::block;
    std::vector<expr *> lhs, rhs;    // assign: targets and values; local, ret: values; call: rhs[0]
    std::vector<const site *> sites; // assign: the store of each target
    std::vector<int32_t> vars;       // local, localfunc, fornum, forin: the variables declared
    block body, orelse;              // orelse: if's last `else`
    std::vector<std::pair<expr *, block>> arms; // if and elseif
    expr *cond = nullptr;                       // while, repeat
    const loop_site *loop = nullptr;
    const origin *var_origin = nullptr; // fornum: the loop variable's origin
    proto *fn = nullptr;                // localfunc
};

struct upval_ref {
    bool in_parent_locals; // the enclosing function's variable, or its upvalue
    int32_t index;
};

struct proto {
    int32_t params = 0; // variables 0 .. params - 1
    bool vararg = false;
    int32_t vars = 0;
    std::vector<upval_ref> up;
    block body;
};

// Everything the parser made, owned in one place.
struct ast {
    std::deque<expr> exprs;
    std::deque<stat> stats;
    std::deque<proto> protos;
    std::deque<ctor> ctors;
    std::deque<site> sites;
    std::deque<loop_site> loops;
    std::deque<origin> origins;
    std::deque<std::string> strings;
    proto *main = nullptr;
};

// Parses a script's text into a; false (with why) when it cannot, or uses
// what the evaluator does not follow (goto, labels).  Constructors are tied
// to the source map's by the place of their '{'.
bool parse(std::string_view text, const src_map &source, ast &a, std::string &why);

} // namespace kivtool::flow

#endif
