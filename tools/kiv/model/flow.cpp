// The evaluator: runs the parsed script as the interpreter would, with no
// standard library, every value carrying its origin.  Numbers follow Lua
// 5.3 (integers that wrap, floats, the conversions between them and from
// strings, the formatting of numbers in concatenations); a table is a hash
// of its entries whose length is a border, found from the last one; errors
// stop the run where the interpreter's would.
#include "model/flow.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "model/flow_ast.h"
#include "model/lex.h"

namespace kivtool::flow
{

// The evaluator's bounds.  A configuration runs a few thousand steps and
// makes a few thousand values; the bounds are hundreds of times that, and
// keep any script's run within a few tenths of a second and about a
// hundred MB (the most a hostile text was seen to take).  Past one, the run stops and the reading
// places what it went past as it would without the evaluator.
constexpr int64_t MAX_STEPS = 4000000;
constexpr size_t MAX_OBJECTS = 1000000; // origins, cells, tables, closures, entries
constexpr size_t MAX_STRING_BYTES = 32u << 20;
constexpr size_t MAX_TEXT = 4u << 20; // longer texts are not followed at all
constexpr int MAX_DEPTH = 180;        // nested calls
constexpr size_t MAX_WAY = 64;        // steps of one value's way
// Origins followed back from a value for its way.
constexpr size_t MAX_WAY_DEPTH = 1024;
// Statements and expressions nested on the call stack, calls included
// (a few hundred bytes of stack each).
constexpr int MAX_NEST = 4000;
// ... and the stack they may take, whatever the size of each (several
// times larger in a build with sanitizers).
constexpr uintptr_t MAX_STACK = 4u << 20;

struct table;
struct closure;

struct value {
    flow_value::type_t t = flow_value::nil;
    bool b = false;
    int64_t i = 0;
    double d = 0;
    const std::string *s = nullptr;
    table *tab = nullptr;
    closure *fn = nullptr;
    const origin *o = nullptr;
};

struct key {
    flow_value::type_t t = flow_value::nil;
    int64_t i = 0;
    double d = 0;
    std::string_view s{};
    const void *p = nullptr;
    bool operator==(const key &k) const
    {
        return t == k.t && i == k.i && (t != flow_value::number || d == k.d) && s == k.s &&
               p == k.p;
    }
};
struct key_hash {
    size_t operator()(const key &k) const
    {
        switch (k.t) {
        case flow_value::string:
            return std::hash<std::string_view>()(k.s);
        case flow_value::number:
            return std::hash<double>()(k.d);
        default:
            return std::hash<int64_t>()(k.i) ^ std::hash<const void *>()(k.p) ^ k.t;
        }
    }
};

struct entry {
    value v;
    const origin *key_origin = nullptr;
};

struct cell {
    value v;
};

struct closure {
    const proto *p;
    std::vector<cell *> up;
};

struct stop {
    std::string why;
};

// Entries stored as nil are kept, nil, with their origin: where a key was
// given a value that was nil is where its absence comes from.
struct table {
    std::unordered_map<key, entry, key_hash> entries;
    int32_t source = -1;
    const site *made = nullptr; // its constructor
    int64_t border = 0;
    // Positive integer keys holding a value: how many, and a bound none of
    // them is above.  The border is the only one when they are 1 .. count.
    int64_t count = 0, top = 0;
};

struct program {
    const src_map *source = nullptr;
    std::string_view text;
    ast a;
    std::string stopped;
    std::deque<table> tables;
    std::deque<closure> closures;
    std::deque<cell> cells;
    std::deque<origin> origins;
    std::deque<pass> passes;
    std::deque<std::string> strings;
    table *env = nullptr;
    value_flow::failure failure;
    bool failed = false;
    bool open_length = false; // a length taken of a table with holes
};

namespace
{

const char *type_name(const value &v)
{
    static const char *const names[] = {"no value", "nil",    "boolean", "number",
                                        "number",   "string", "table",   "function"};
    return names[v.t];
}

bool truthy(const value &v)
{
    return v.t != flow_value::nil && !(v.t == flow_value::boolean && !v.b);
}

// The interpreter's text for a number in a concatenation.
std::string number_text(const value &v)
{
    char buf[64];
    if (v.t == flow_value::integer) {
        snprintf(buf, sizeof buf, "%lld", static_cast<long long>(v.i));
        return buf;
    }
    snprintf(buf, sizeof buf, "%.14g", v.d);
    std::string s = buf;
    if (s.find_first_not_of("-0123456789") == std::string::npos)
        s += ".0";
    return s;
}

// A string converted to a number, as arithmetic converts it: blanks around
// it, a sign, then a numeral.
bool string_number(std::string_view s, value &out)
{
    const auto blank = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && blank(s.back()))
        s.remove_suffix(1);
    bool neg = false;
    if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
        neg = s.front() == '-';
        s.remove_prefix(1);
    }
    if (s.empty() || s.find_first_of("nN") != std::string_view::npos)
        return false;
    number n;
    if (!read_numeral(s, n))
        return false;
    if (n.integer) {
        out.t = flow_value::integer;
        out.i = neg ? int64_t(0 - uint64_t(n.i)) : n.i;
    } else {
        out.t = flow_value::number;
        out.d = neg ? -n.d : n.d;
    }
    return true;
}

bool to_number(const value &v, value &out)
{
    if (v.t == flow_value::integer || v.t == flow_value::number) {
        out = v;
        return true;
    }
    return v.t == flow_value::string && string_number(*v.s, out);
}

double as_float(const value &v)
{
    return v.t == flow_value::integer ? static_cast<double>(v.i) : v.d;
}

// A float with an exact integer value, as the integer.
bool float_integer(double d, int64_t &i)
{
    if (!(d >= -0x1p63 && d < 0x1p63) || d != std::floor(d))
        return false;
    i = static_cast<int64_t>(d);
    return true;
}

bool to_integer(const value &v, int64_t &i)
{
    value n;
    if (!to_number(v, n))
        return false;
    if (n.t == flow_value::integer) {
        i = n.i;
        return true;
    }
    return float_integer(n.d, i);
}

int64_t wrap(uint64_t u)
{
    return static_cast<int64_t>(u);
}

int64_t shift_left(int64_t x, int64_t y)
{
    if (y < 0)
        return y <= -64 ? 0 : wrap(static_cast<uint64_t>(x) >> -y);
    return y >= 64 ? 0 : wrap(static_cast<uint64_t>(x) << y);
}

class runner
{
  public:
    explicit runner(program &p) : p_(p) {}

    void run()
    {
        stack_base_ = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
        p_.env = new_table(-1);
        closure *main = new_closure(p_.a.main);
        std::vector<value> none, out;
        call_closure(main, none, out);
    }

  private:
    program &p_;
    int64_t steps_ = MAX_STEPS;
    size_t objects_ = 0;
    size_t string_bytes_ = 0;
    int depth_ = 0;
    const pass *pass_ = nullptr; // the innermost loop pass running
    int nest_ = 0;               // evaluations and statements nested on the call stack
    // The value a numeric loop's variable takes in the pass about to start.
    bool var_set_ = false;
    int64_t var_ = 0;
    const table *over_ = nullptr; // a numeric loop's list, when its limit is #list
    uintptr_t stack_base_ = 0;    // where the run's stack starts
    struct nested {
        runner &r;
        explicit nested(runner &q) : r(q)
        {
            const auto here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
            const uintptr_t used =
                r.stack_base_ > here ? r.stack_base_ - here : here - r.stack_base_;
            if (++r.nest_ > MAX_NEST || used > MAX_STACK)
                throw stop{"expressions nested deeper than the evaluator follows"};
        }
        ~nested() { --r.nest_; }
    };

    struct frame {
        std::vector<cell *> vars;
        closure *cl;
        std::vector<value> varargs;
        std::vector<value> ret;
    };
    enum class flow_ctl { normal, brk, ret };

    void step()
    {
        if (--steps_ < 0)
            throw stop{"the evaluator's step bound"};
    }
    // Work that grows with a string's length (converting, comparing or
    // hashing it) or with the number of values passed: a step for every
    // 32 bytes or 16 values, so that such work too stays within the bound
    // (copies of a function's extra arguments count as objects too).
    void work(size_t units)
    {
        steps_ -= static_cast<int64_t>(units);
        if (steps_ < 0)
            throw stop{"the evaluator's step bound"};
    }
    void charge(const value &v)
    {
        if (v.t == flow_value::string)
            work(v.s->size() >> 5);
    }
    void grow(size_t n = 1)
    {
        objects_ += n;
        if (objects_ > MAX_OBJECTS)
            throw stop{"the evaluator's memory bound"};
    }
    [[noreturn]] void fail(const std::string &why, const site *at)
    {
        if (!p_.failed && at) {
            p_.failed = true;
            p_.failure.where = at->where;
        }
        throw stop{why};
    }

    table *new_table(int32_t source)
    {
        grow();
        table *t = &p_.tables.emplace_back();
        t->source = source;
        return t;
    }
    closure *new_closure(const proto *pr)
    {
        grow();
        closure *c = &p_.closures.emplace_back();
        c->p = pr;
        return c;
    }
    cell *new_cell(const value &v)
    {
        grow();
        cell *c = &p_.cells.emplace_back();
        c->v = v;
        return c;
    }
    const origin *new_origin(origin::kind_t k, const site *at, const origin *from,
                             const origin *also = nullptr)
    {
        grow();
        origin *o = &p_.origins.emplace_back();
        o->kind = k;
        o->at = at;
        o->from = from;
        o->also = also;
        o->in = pass_;
        return o;
    }
    value new_string(std::string s, const origin *o)
    {
        string_bytes_ += s.size();
        if (string_bytes_ > MAX_STRING_BYTES)
            throw stop{"the evaluator's string bound"};
        grow();
        value v;
        v.t = flow_value::string;
        v.s = &p_.strings.emplace_back(std::move(s));
        v.o = o;
        return v;
    }

    // Tables.
    key key_of(const value &k, const site *at, bool storing)
    {
        charge(k);
        key out;
        out.t = k.t;
        switch (k.t) {
        case flow_value::nil:
            if (storing) {
                note_nil(k, at);
                throw stop{"index is nil"};
            }
            break;
        case flow_value::boolean:
            out.i = k.b;
            break;
        case flow_value::integer:
            out.i = k.i;
            break;
        case flow_value::number:
            if (float_integer(k.d, out.i))
                out.t = flow_value::integer;
            else if (std::isnan(k.d) && storing)
                fail("index is NaN", at);
            else
                out.d = k.d;
            break;
        case flow_value::string:
            out.s = *k.s;
            break;
        case flow_value::table:
            out.p = k.tab;
            break;
        case flow_value::function:
            out.p = k.fn;
            break;
        default:
            break;
        }
        return out;
    }
    value get(table *t, const value &k, const site *at)
    {
        const key kk = key_of(k, at, false);
        auto it = t->entries.find(kk);
        if (it != t->entries.end() && it->second.v.t != flow_value::nil)
            return it->second.v;
        value nil;
        origin *o = const_cast<origin *>(
            new_origin(origin::absent, at, it != t->entries.end() ? it->second.v.o : nullptr));
        o->table = t;
        if (kk.t == flow_value::integer) {
            o->integer_key = true;
            o->key = kk.i;
        }
        nil.o = o;
        return nil;
    }
    void set(table *t, const value &k, const value &v, const site *at, const origin *key_origin)
    {
        const key kk = key_of(k, at, true);
        grow();
        entry &e = t->entries[kk];
        if (kk.t == flow_value::integer && kk.i > 0) {
            const bool had = e.v.t != flow_value::nil, has = v.t != flow_value::nil;
            t->count += has - had;
            if (has && kk.i > t->top)
                t->top = kk.i;
            else if (!has && kk.i == t->top)
                t->top = kk.i - 1;
        }
        e.v = v;
        origin *o = const_cast<origin *>(new_origin(origin::stored, at, v.o));
        o->table = t;
        e.v.o = o;
        e.key_origin = key_origin;
    }
    int64_t length(table *t)
    {
        int64_t n = t->border;
        const auto has = [t](int64_t i) {
            key k;
            k.t = flow_value::integer;
            k.i = i;
            auto it = t->entries.find(k);
            return it != t->entries.end() && it->second.v.t != flow_value::nil;
        };
        while (n > 0 && !has(n)) {
            step();
            --n;
        }
        while (has(n + 1)) {
            step();
            ++n;
        }
        t->border = n;
        // A table with holes has several borders, and which the interpreter
        // finds depends on how it laid the table out, which it does not
        // tell: the run notes that what follows may differ from the real one.
        if (!p_.open_length && (t->count != n || t->top > n)) {
            if (t->count == n) {
                work(t->entries.size() >> 4);
                t->top = n;
                for (const auto &[k, e] : t->entries)
                    if (k.t == flow_value::integer && k.i > n && e.v.t != flow_value::nil)
                        t->top = std::max(t->top, k.i);
            }
            p_.open_length = t->count != n || t->top > n;
        }
        return n;
    }

    // Calls.
    void call(const value &f, std::vector<value> &args, std::vector<value> &out, const expr *e)
    {
        if (f.t != flow_value::function)
            fail(std::string("attempt to call a ") + type_name(f) + " value", e->at);
        call_closure(f.fn, args, out);
    }
    void call_closure(closure *c, std::vector<value> &args, std::vector<value> &out)
    {
        if (++depth_ > MAX_DEPTH)
            throw stop{"calls nested deeper than the evaluator follows"};
        const proto *pr = c->p;
        frame fr;
        fr.cl = c;
        fr.vars.assign(static_cast<size_t>(pr->vars), nullptr);
        for (int32_t i = 0; i < pr->params; ++i)
            fr.vars[static_cast<size_t>(i)] = new_cell(
                static_cast<size_t>(i) < args.size() ? args[static_cast<size_t>(i)] : value{});
        work(args.size() >> 4);
        if (pr->vararg && args.size() > static_cast<size_t>(pr->params)) {
            grow(args.size() - static_cast<size_t>(pr->params));
            fr.varargs.assign(args.begin() + pr->params, args.end());
        }
        exec(pr->body, fr);
        out = std::move(fr.ret);
        --depth_;
    }

    // Statements.
    flow_ctl exec(const block &b, frame &fr)
    {
        for (const stat *s : b) {
            const flow_ctl c = exec(s, fr);
            if (c != flow_ctl::normal)
                return c;
        }
        return flow_ctl::normal;
    }
    flow_ctl exec(const stat *s, frame &fr)
    {
        nested guard(*this);
        step();
        switch (s->k) {
        case sk::local: {
            std::vector<value> vs;
            eval_list(s->rhs, fr, vs);
            for (size_t i = 0; i < s->vars.size(); ++i)
                fr.vars[static_cast<size_t>(s->vars[i])] =
                    new_cell(i < vs.size() ? vs[i] : value{});
            return flow_ctl::normal;
        }
        case sk::localfunc: {
            cell *c = new_cell({});
            fr.vars[static_cast<size_t>(s->vars[0])] = c;
            c->v = make_closure(s->fn, fr, nullptr);
            return flow_ctl::normal;
        }
        case sk::assign:
            assign(s, fr);
            return flow_ctl::normal;
        case sk::call: {
            std::vector<value> out;
            eval_multi(s->rhs[0], fr, out);
            return flow_ctl::normal;
        }
        case sk::block:
            return exec(s->body, fr);
        case sk::while_:
            return loop(s, fr, [&](int64_t) { return truthy(eval(s->cond, fr)); });
        case sk::repeat: {
            bool first = true;
            return loop(s, fr, [&](int64_t) {
                if (first) {
                    first = false;
                    return true;
                }
                return !truthy(eval(s->cond, fr));
            });
        }
        case sk::if_:
            for (const auto &[c, body] : s->arms)
                if (truthy(eval(c, fr)))
                    return exec(body, fr);
            return exec(s->orelse, fr);
        case sk::fornum:
            return for_num(s, fr);
        case sk::forin:
            return for_in(s, fr);
        case sk::ret:
            fr.ret.clear();
            eval_list(s->rhs, fr, fr.ret);
            return flow_ctl::ret;
        case sk::brk:
            return flow_ctl::brk;
        }
        return flow_ctl::normal;
    }
    // Runs a loop's body while `more(pass)` says so, each pass known to the
    // stores made in it.
    // A name, or a field of one by a literal key: evaluating it again has
    // no effect and gives the same.
    static bool plain(const expr *e)
    {
        if (e->k == ek::local || e->k == ek::upval || e->k == ek::global)
            return true;
        return e->k == ek::index && plain(e->a) &&
               (e->b->k == ek::string || e->b->k == ek::integer);
    }
    template <typename More>
    flow_ctl loop(const stat *s, frame &fr, More more)
    {
        const pass *outer = pass_;
        const table *over = over_; // set by a numeric loop for its own passes only
        over_ = nullptr;
        flow_ctl result = flow_ctl::normal;
        for (int64_t n = 1;; ++n) {
            step();
            if (!more(n))
                break;
            grow();
            pass_ = &p_.passes.emplace_back(pass{s->loop, n, outer, var_set_, var_, over});
            var_set_ = false;
            const flow_ctl c = exec(s->body, fr);
            pass_ = outer;
            if (c == flow_ctl::brk)
                break;
            if (c == flow_ctl::ret) {
                result = c;
                break;
            }
        }
        pass_ = outer;
        return result;
    }
    flow_ctl for_num(const stat *s, frame &fr)
    {
        const value v0 = eval(s->rhs[0], fr), v1 = eval(s->rhs[1], fr);
        const table *over = nullptr;
        if (const expr *l = s->rhs[1]; l->k == ek::unop && l->o == op::len && plain(l->a)) {
            const value listed = eval(l->a, fr); // evaluated again: it has no effect of its own
            if (listed.t == flow_value::table)
                over = listed.tab;
        }
        value v2;
        v2.t = flow_value::integer;
        v2.i = 1;
        if (s->rhs.size() > 2)
            v2 = eval(s->rhs[2], fr);
        value init, limit, stepv;
        charge(v0);
        charge(v1);
        charge(v2);
        if (!to_number(v1, limit))
            fail("'for' limit must be a number", s->rhs[1]->at);
        if (!to_number(v2, stepv))
            fail("'for' step must be a number", s->rhs[2]->at);
        if (!to_number(v0, init))
            fail("'for' initial value must be a number", s->rhs[0]->at);
        // An integer loop when the start and the step are integers as written
        // (a string converted makes a float loop), as the interpreter decides.
        const bool ints = v0.t == flow_value::integer && v2.t == flow_value::integer;
        int64_t ii = v0.i, il = 0;
        const int64_t is = v2.i;
        const double fl = as_float(limit), fs = as_float(stepv);
        // A float loop starts from its start less its step, the step added
        // before each pass, the first too (which can round).
        double fi = as_float(init) - fs;
        if (ints) {
            // A float limit is cut to the integers it allows; NaN allows
            // none above the least.
            if (limit.t == flow_value::integer)
                il = limit.i;
            else if (std::isnan(limit.d))
                il = INT64_MIN;
            else {
                const double f = is > 0 ? std::floor(limit.d) : std::ceil(limit.d);
                il = f >= 0x1p63 ? INT64_MAX : f < -0x1p63 ? INT64_MIN : static_cast<int64_t>(f);
            }
        }
        over_ = over;
        return loop(s, fr, [&](int64_t n) {
            value v;
            v.o = s->var_origin;
            if (ints) {
                // The next value, wrapping past the largest integer (and
                // then going on) as the interpreter's does.
                if (n > 1)
                    ii = wrap(static_cast<uint64_t>(ii) + static_cast<uint64_t>(is));
                if (is > 0 ? ii > il : ii < il)
                    return false;
                v.t = flow_value::integer;
                v.i = ii;
                var_set_ = true;
                var_ = ii;
            } else {
                fi += fs;
                if (fs > 0 ? !(fi <= fl) : !(fl <= fi))
                    return false;
                v.t = flow_value::number;
                v.d = fi;
            }
            fr.vars[static_cast<size_t>(s->vars[0])] = new_cell(v);
            return true;
        });
    }
    flow_ctl for_in(const stat *s, frame &fr)
    {
        std::vector<value> init;
        eval_list(s->rhs, fr, init);
        init.resize(3);
        value f = init[0], state = init[1], control = init[2];
        const expr *at = s->rhs.back();
        return loop(s, fr, [&](int64_t) {
            std::vector<value> args{state, control}, out;
            call(f, args, out, at);
            out.resize(s->vars.size() > 0 ? s->vars.size() : 1);
            if (out[0].t == flow_value::nil)
                return false;
            control = out[0];
            for (size_t i = 0; i < s->vars.size(); ++i)
                fr.vars[static_cast<size_t>(s->vars[i])] = new_cell(out[i]);
            return true;
        });
    }
    void assign(const stat *s, frame &fr)
    {
        // Targets' tables and keys first, left to right, then the values,
        // then the stores, the last target first, as the interpreter does.
        struct target {
            value obj, k;
        };
        std::vector<target> ts(s->lhs.size());
        for (size_t i = 0; i < s->lhs.size(); ++i)
            if (const expr *t = s->lhs[i]; t->k == ek::index) {
                ts[i].obj = eval(t->a, fr);
                ts[i].k = eval(t->b, fr);
            }
        std::vector<value> vs;
        eval_list(s->rhs, fr, vs);
        vs.resize(s->lhs.size());
        // A target's table that is a local or an upvalue, or its key that is
        // a local, is the variable itself to the interpreter, read when the
        // value is stored (after a call among the values changed it, if one
        // did), unless a later target of the statement is that variable:
        // then it was copied before the values.
        const auto late = [&](size_t i, const expr *x, bool upvalue) {
            if (x->k != ek::local && !(upvalue && x->k == ek::upval))
                return false;
            for (size_t j = i + 1; j < s->lhs.size(); ++j)
                if (s->lhs[j]->k == x->k && s->lhs[j]->slot == x->slot)
                    return false;
            return true;
        };
        for (size_t i = 0; i < s->lhs.size(); ++i)
            if (const expr *t = s->lhs[i]; t->k == ek::index) {
                if (late(i, t->a, true))
                    ts[i].obj = t->a->k == ek::local
                                    ? fr.vars[static_cast<size_t>(t->a->slot)]->v
                                    : fr.cl->up[static_cast<size_t>(t->a->slot)]->v;
                if (late(i, t->b, false))
                    ts[i].k = fr.vars[static_cast<size_t>(t->b->slot)]->v;
            }
        for (size_t j = s->lhs.size(); j-- > 0;) {
            const expr *t = s->lhs[j];
            const value &v = vs[j];
            switch (t->k) {
            case ek::local:
                fr.vars[static_cast<size_t>(t->slot)]->v = v;
                break;
            case ek::upval:
                fr.cl->up[static_cast<size_t>(t->slot)]->v = v;
                break;
            case ek::global: {
                value name = string_value(t->str, t->lit);
                set(p_.env, name, v, s->sites[j], t->at ? origin_at(t->at) : nullptr);
                break;
            }
            default:
                if (ts[j].obj.t != flow_value::table)
                    index_failed(ts[j].obj, t);
                set(ts[j].obj.tab, ts[j].k, v, s->sites[j], key_origin(t->b, ts[j].k));
            }
        }
    }
    // Where the key of a store was written: a name's own text, else where
    // the key's value came from.
    const origin *key_origin(const expr *k, const value &kv)
    {
        if (k->lit)
            return k->lit;
        return kv.o;
    }
    const origin *origin_at(const site *at) { return new_origin(origin::written, at, nullptr); }
    value string_value(const std::string *s, const origin *o)
    {
        value v;
        v.t = flow_value::string;
        v.s = s;
        v.o = o;
        return v;
    }
    [[noreturn]] void index_failed(const value &obj, const expr *e)
    {
        note_nil(obj, e->at);
        throw stop{std::string("attempt to index a ") + type_name(obj) + " value"};
    }
    // The run fails at `at` for a nil (indexed, called, or used as a key):
    // where the nil came from and, when its lookup's key was the value of a
    // loop at its first pass, that loop.
    void note_nil(const value &v, const site *at)
    {
        if (p_.failed)
            return;
        p_.failed = true;
        value_flow::failure &f = p_.failure;
        f.where = at->where;
        const origin *o = v.o;
        if (v.t != flow_value::nil || !o || o->kind != origin::absent)
            return;
        f.nil_of = std::string(span_text_of(o->at->where));
        for (const pass *ps = pass_; ps; ps = ps->outer)
            if (ps->n == 1 && o->integer_key && ps->has_var && ps->var == o->key &&
                !ps->loop->start.none()) {
                f.loop = ps->loop->header;
                f.loop_start = ps->loop->start;
                f.start = o->key;
                break;
            }
    }
    std::string_view span_text_of(const src_span &s) const { return span_text(text_, s); }

  public:
    std::string_view text_;

  private:
    value make_closure(const proto *pr, frame &fr, const origin *o)
    {
        closure *c = new_closure(pr);
        for (const upval_ref &u : pr->up)
            c->up.push_back(u.in_parent_locals ? fr.vars[static_cast<size_t>(u.index)]
                                               : fr.cl->up[static_cast<size_t>(u.index)]);
        value v;
        v.t = flow_value::function;
        v.fn = c;
        v.o = o;
        return v;
    }

    // Expressions.
    void eval_list(const std::vector<expr *> &es, frame &fr, std::vector<value> &out)
    {
        for (size_t i = 0; i < es.size(); ++i) {
            if (i + 1 == es.size() &&
                (es[i]->k == ek::call || es[i]->k == ek::method || es[i]->k == ek::vararg)) {
                std::vector<value> more;
                eval_multi(es[i], fr, more);
                out.insert(out.end(), more.begin(), more.end());
            } else {
                out.push_back(eval(es[i], fr));
            }
        }
    }
    void eval_multi(const expr *e, frame &fr, std::vector<value> &out)
    {
        step();
        if (e->k == ek::vararg) {
            grow(fr.varargs.size());
            out = fr.varargs;
            return;
        }
        if (e->k != ek::call && e->k != ek::method) {
            out.push_back(eval(e, fr));
            return;
        }
        std::vector<value> args;
        value f;
        if (e->k == ek::method) {
            const value obj = eval(e->a, fr);
            if (obj.t != flow_value::table)
                index_failed(obj, e);
            f = get(obj.tab, string_value(e->str, nullptr), e->at);
            args.push_back(obj);
        } else {
            f = eval(e->a, fr);
        }
        eval_list(e->args, fr, args);
        call(f, args, out, e);
    }
    value eval(const expr *e, frame &fr)
    {
        nested guard(*this);
        step();
        value v;
        v.o = e->lit;
        switch (e->k) {
        case ek::nil:
            return v;
        case ek::t:
        case ek::f:
            v.t = flow_value::boolean;
            v.b = e->k == ek::t;
            return v;
        case ek::integer:
            v.t = flow_value::integer;
            v.i = e->i;
            return v;
        case ek::number:
            v.t = flow_value::number;
            v.d = e->d;
            return v;
        case ek::string:
            return string_value(e->str, e->lit);
        case ek::vararg:
            return fr.varargs.empty() ? v : fr.varargs[0];
        case ek::function:
            return make_closure(e->fn, fr, e->lit);
        case ek::table:
            return construct(e, fr);
        case ek::local:
            return fr.vars[static_cast<size_t>(e->slot)]->v;
        case ek::upval:
            return fr.cl->up[static_cast<size_t>(e->slot)]->v;
        case ek::global:
            return get(p_.env, string_value(e->str, nullptr), e->at);
        case ek::index: {
            value obj = eval(e->a, fr);
            const value k = eval(e->b, fr);
            obj = reread(e->a, fr, obj, true);
            if (obj.t != flow_value::table)
                index_failed(obj, e);
            return get(obj.tab, k, e->at);
        }
        case ek::call:
        case ek::method: {
            std::vector<value> out;
            eval_multi(e, fr, out);
            return out.empty() ? v : out[0];
        }
        case ek::paren:
            return eval(e->a, fr);
        case ek::and_: {
            const value a = eval(e->a, fr);
            return truthy(a) ? eval(e->b, fr) : a;
        }
        case ek::or_: {
            const value a = eval(e->a, fr);
            return truthy(a) ? a : eval(e->b, fr);
        }
        case ek::unop:
            return unary(e, eval(e->a, fr));
        case ek::binop: {
            // The operands in order (as arguments, they could be computed
            // in either).
            value a = eval(e->a, fr);
            const value b = eval(e->b, fr);
            if (e->o != op::concat)
                a = reread(e->a, fr, a);
            return binary(e, a, b);
        }
        }
        return v;
    }
    // A local of the function (in parentheses or not) as the left operand
    // of an operation, the table indexed (an upvalue too) or a key of a
    // constructor is the variable itself to the interpreter, read by the
    // operation, after the right operand, the key or the value: a + f()
    // adds what f left in a.  (A concatenation copies its operands first.)
    // Other values were computed before.
    static value reread(const expr *x, frame &fr, const value &v, bool upvalue = false)
    {
        if (upvalue && x->k == ek::upval)
            return fr.cl->up[static_cast<size_t>(x->slot)]->v;
        while (x->k == ek::paren)
            x = x->a;
        return x->k == ek::local ? fr.vars[static_cast<size_t>(x->slot)]->v : v;
    }
    value construct(const expr *e, frame &fr)
    {
        table *t = new_table(e->tab->source);
        t->made = e->at;
        // Elements given by position are stored 50 at a time, before the
        // field that follows the 50th and at the end, after the fields
        // written with their keys before them: {'b', [1] = 'a'} holds 'b'.
        int64_t n = 0;
        std::vector<std::pair<value, const site *>> pending;
        const auto flush = [&] {
            for (const auto &[v, at] : pending) {
                value k;
                k.t = flow_value::integer;
                k.i = ++n;
                set(t, k, v, at, nullptr);
            }
            pending.clear();
        };
        const std::vector<field> &fs = e->tab->fields;
        for (size_t i = 0; i < fs.size(); ++i) {
            const field &f = fs[i];
            if (pending.size() >= 50)
                flush();
            if (f.kind == field::positional) {
                std::vector<value> vs;
                if (i + 1 == fs.size())
                    eval_multi(f.value, fr, vs);
                else
                    vs.push_back(eval(f.value, fr));
                for (const value &v : vs)
                    pending.emplace_back(v, f.at);
            } else {
                value k = eval(f.key, fr);
                const value v = eval(f.value, fr);
                k = reread(f.key, fr, k);
                set(t, k, v, f.at, key_origin(f.key, k));
            }
        }
        flush();
        value v;
        v.t = flow_value::table;
        v.tab = t;
        v.o = e->lit;
        return v;
    }
    value unary(const expr *e, const value &a)
    {
        charge(a);
        value r;
        r.o = e->lit ? e->lit : new_origin(origin::computed, e->at, a.o);
        switch (e->o) {
        case op::not_:
            r.t = flow_value::boolean;
            r.b = !truthy(a);
            return r;
        case op::len:
            r.t = flow_value::integer;
            if (a.t == flow_value::string)
                r.i = static_cast<int64_t>(a.s->size());
            else if (a.t == flow_value::table)
                r.i = length(a.tab);
            else
                fail(std::string("attempt to get length of a ") + type_name(a) + " value", e->at);
            return r;
        case op::neg: {
            value n;
            if (!to_number(a, n))
                fail(std::string("attempt to perform arithmetic on a ") + type_name(a) + " value",
                     e->at);
            if (n.t == flow_value::integer && a.t == flow_value::integer) {
                r.t = flow_value::integer;
                r.i = wrap(0 - static_cast<uint64_t>(n.i));
            } else {
                r.t = flow_value::number;
                r.d = -as_float(n);
            }
            return r;
        }
        default: { // bnot
            int64_t i;
            if (!to_integer(a, i))
                fail("number has no integer representation", e->at);
            r.t = flow_value::integer;
            r.i = ~i;
            return r;
        }
        }
    }
    static bool less(const value &a, const value &b, bool or_equal, bool &ok)
    {
        ok = true;
        const bool an = a.t == flow_value::integer || a.t == flow_value::number;
        const bool bn = b.t == flow_value::integer || b.t == flow_value::number;
        if (an && bn) {
            if (a.t == flow_value::integer && b.t == flow_value::integer)
                return or_equal ? a.i <= b.i : a.i < b.i;
            const long double x = a.t == flow_value::integer ? static_cast<long double>(a.i) : a.d;
            const long double y = b.t == flow_value::integer ? static_cast<long double>(b.i) : b.d;
            return or_equal ? x <= y : x < y;
        }
        if (a.t == flow_value::string && b.t == flow_value::string) {
            const int c = a.s->compare(*b.s);
            return or_equal ? c <= 0 : c < 0;
        }
        ok = false;
        return false;
    }
    static bool equal(const value &a, const value &b)
    {
        const bool an = a.t == flow_value::integer || a.t == flow_value::number;
        const bool bn = b.t == flow_value::integer || b.t == flow_value::number;
        if (an && bn) {
            if (a.t == flow_value::integer && b.t == flow_value::integer)
                return a.i == b.i;
            const long double x = a.t == flow_value::integer ? static_cast<long double>(a.i) : a.d;
            const long double y = b.t == flow_value::integer ? static_cast<long double>(b.i) : b.d;
            return x == y;
        }
        if (a.t != b.t)
            return false;
        switch (a.t) {
        case flow_value::nil:
            return true;
        case flow_value::boolean:
            return a.b == b.b;
        case flow_value::string:
            return *a.s == *b.s;
        case flow_value::table:
            return a.tab == b.tab;
        default:
            return a.fn == b.fn;
        }
    }
    value binary(const expr *e, const value &a, const value &b)
    {
        charge(a);
        charge(b);
        value r;
        r.o = new_origin(origin::computed, e->at, a.o, b.o);
        switch (e->o) {
        case op::eq:
        case op::ne:
            r.t = flow_value::boolean;
            r.b = equal(a, b) == (e->o == op::eq);
            return r;
        case op::lt:
        case op::le:
        case op::gt:
        case op::ge: {
            bool ok;
            const bool swap = e->o == op::gt || e->o == op::ge;
            r.t = flow_value::boolean;
            r.b = less(swap ? b : a, swap ? a : b, e->o == op::le || e->o == op::ge, ok);
            if (!ok)
                fail(std::string("attempt to compare ") + type_name(a) + " with " + type_name(b),
                     e->at);
            return r;
        }
        case op::concat: {
            const auto text = [&](const value &v) -> std::string {
                if (v.t == flow_value::string)
                    return *v.s;
                if (v.t == flow_value::integer || v.t == flow_value::number)
                    return number_text(v);
                fail(std::string("attempt to concatenate a ") + type_name(v) + " value", e->at);
            };
            return new_string(text(a) + text(b), r.o);
        }
        case op::band:
        case op::bor:
        case op::bxor:
        case op::shl:
        case op::shr: {
            int64_t x, y;
            if (!to_integer(a, x) || !to_integer(b, y)) {
                value n;
                const value &bad = !to_number(a, n) ? a : b;
                if (!to_number(bad, n))
                    fail(std::string("attempt to perform bitwise operation on a ") +
                             type_name(bad) + " value",
                         e->at);
                fail("number has no integer representation", e->at);
            }
            r.t = flow_value::integer;
            r.i = e->o == op::band   ? (x & y)
                  : e->o == op::bor  ? (x | y)
                  : e->o == op::bxor ? (x ^ y)
                  : e->o == op::shl  ? shift_left(x, y)
                                     : shift_left(x, y == INT64_MIN ? INT64_MAX : -y);
            return r;
        }
        default:
            break;
        }
        value x, y;
        if (!to_number(a, x) || !to_number(b, y))
            fail(std::string("attempt to perform arithmetic on a ") +
                     type_name(to_number(a, x) ? b : a) + " value",
                 e->at);
        // Integers only when both were integers before any conversion of a string.
        const bool ints = a.t == flow_value::integer && b.t == flow_value::integer;
        if (ints && e->o != op::div && e->o != op::pow) {
            const uint64_t ux = static_cast<uint64_t>(x.i), uy = static_cast<uint64_t>(y.i);
            r.t = flow_value::integer;
            switch (e->o) {
            case op::add:
                r.i = wrap(ux + uy);
                break;
            case op::sub:
                r.i = wrap(ux - uy);
                break;
            case op::mul:
                r.i = wrap(ux * uy);
                break;
            case op::idiv:
                if (y.i == 0)
                    fail("attempt to perform 'n//0'", e->at);
                if (y.i == -1)
                    r.i = wrap(0 - ux);
                else {
                    r.i = x.i / y.i;
                    if ((x.i ^ y.i) < 0 && x.i % y.i != 0)
                        r.i -= 1;
                }
                break;
            default: // mod
                if (y.i == 0)
                    fail("attempt to perform 'n%%0'", e->at);
                if (y.i == -1)
                    r.i = 0;
                else {
                    r.i = x.i % y.i;
                    if (r.i != 0 && (r.i ^ y.i) < 0)
                        r.i += y.i;
                }
            }
            return r;
        }
        const double fx = as_float(x), fy = as_float(y);
        r.t = flow_value::number;
        switch (e->o) {
        case op::add:
            r.d = fx + fy;
            break;
        case op::sub:
            r.d = fx - fy;
            break;
        case op::mul:
            r.d = fx * fy;
            break;
        case op::div:
            r.d = fx / fy;
            break;
        case op::pow:
            r.d = std::pow(fx, fy);
            break;
        case op::idiv:
            r.d = std::floor(fx / fy);
            break;
        default: { // mod
            // The remainder takes the divisor's sign: -33.5 % -2 is -1.5,
            // -5 % (1/0) is inf.
            double m = std::fmod(fx, fy);
            if (m * fy < 0)
                m += fy;
            r.d = m;
        }
        }
        return r;
    }
};

flow_value view(const value &v, const origin *key_origin)
{
    flow_value out;
    out.type = v.t;
    out.b = v.b;
    out.i = v.i;
    out.d = v.d;
    if (v.s)
        out.s = *v.s;
    out.t = v.tab;
    out.origin = v.o;
    out.key = key_origin;
    return out;
}

flow_step step_of(const origin *o)
{
    flow_step s;
    s.kind = o->kind == origin::stored     ? flow_step::stored
             : o->kind == origin::computed ? flow_step::computed
                                           : flow_step::written;
    s.where = o->at->where;
    s.variable = o->variable;
    if (s.kind == flow_step::stored) {
        s.key = o->at->key;
        s.value = o->at->value;
        if (o->in) {
            s.pass = o->in->n;
            s.loop = o->in->loop->header;
            s.limit = o->in->loop->limit;
            if (const table *over = o->in->over) {
                key k;
                k.t = flow_value::integer;
                k.i = o->in->n;
                auto it = over->entries.find(k);
                if (it != over->entries.end() && it->second.v.o)
                    s.element = it->second.v.o->at->where;
            }
        }
    }
    return s;
}

bool within(const src_span &inner, const src_span &outer)
{
    return inner.begin.offset >= outer.begin.offset && inner.end.offset <= outer.end.offset;
}

// `depth` origins back from the value asked about: a way longer than
// MAX_WAY_DEPTH (a string grown a piece at a time by a long loop) is cut
// at its start, so that following it takes no deeper a stack than that.
void way_of(const origin *o, std::vector<flow_step> &out, size_t depth = 0)
{
    if (!o || out.size() >= MAX_WAY || depth >= MAX_WAY_DEPTH)
        return;
    switch (o->kind) {
    case origin::absent:
        way_of(o->from, out, depth + 1);
        return;
    case origin::computed:
        way_of(o->from, out, depth + 1);
        way_of(o->also, out, depth + 1);
        break;
    case origin::stored:
        way_of(o->from, out, depth + 1);
        break;
    default:
        break;
    }
    if (out.size() < MAX_WAY)
        out.push_back(step_of(o));
}

} // namespace

} // namespace kivtool::flow

namespace kivtool
{

value_flow::value_flow(std::string_view text, const src_map &source)
    : p_(std::make_unique<flow::program>())
{
    p_->source = &source;
    p_->text = text;
    if (text.size() > flow::MAX_TEXT) {
        p_->stopped = "a text longer than the evaluator follows";
        return;
    }
    if (!flow::parse(text, source, p_->a, p_->stopped)) {
        if (p_->stopped.empty())
            p_->stopped = "a text the evaluator does not follow";
        return;
    }
    flow::runner r(*p_);
    r.text_ = text;
    try {
        r.run();
    } catch (const flow::stop &s) {
        p_->stopped = s.why;
    } catch (const std::exception &) {
        p_->stopped = "out of memory";
    }
}

value_flow::~value_flow() = default;

const std::string &value_flow::stopped() const
{
    return p_->stopped;
}

flow_value value_flow::globals() const
{
    flow_value v;
    if (p_->env) {
        v.type = flow_value::table;
        v.t = p_->env;
    }
    return v;
}

namespace flow
{
namespace
{

// The entry of t under key k as the reading sees it: nil when t has none.
flow_value entry_view(const table *t, const key &k)
{
    if (!t)
        return {};
    auto it = t->entries.find(k);
    if (it == t->entries.end()) {
        flow_value nil;
        nil.type = flow_value::nil;
        return nil;
    }
    return view(it->second.v, it->second.key_origin);
}

} // namespace
} // namespace flow

flow_value value_flow::field(const flow::table *t, std::string_view name) const
{
    flow::key k;
    k.t = flow_value::string;
    k.s = name;
    return flow::entry_view(t, k);
}

flow_value value_flow::element(const flow::table *t, int64_t key) const
{
    flow::key k;
    k.t = flow_value::integer;
    k.i = key;
    return flow::entry_view(t, k);
}

int32_t value_flow::constructor(const flow::table *t) const
{
    return t ? t->source : -1;
}

std::vector<flow_step> value_flow::way(const flow::origin *o) const
{
    std::vector<flow_step> out;
    flow::way_of(o, out);
    return out;
}

flow_step value_flow::written_at(const flow::origin *o, const copy_test &keep) const
{
    if (!o || o->kind == flow::origin::absent)
        return {};
    for (size_t n = 0; o->kind == flow::origin::stored && o->from && n < flow::MAX_WAY; ++n) {
        const flow::origin *from = o->from;
        // A nil read from an entry that was given nil: that entry's store;
        // read from a table made elsewhere that lacks it: that table.
        if (from->kind == flow::origin::absent && from->from)
            from = from->from;
        else if (from->kind == flow::origin::absent && from->table && from->table->made &&
                 !flow::within(from->table->made->where, o->at->where)) {
            flow_step lacking;
            lacking.where = from->table->made->where;
            return lacking;
        }
        if (from->kind == flow::origin::stored) {
            if (keep && keep(key_text(o->at->key), key_text(from->at->key)))
                break;
            o = from;
            continue;
        }
        if (from->kind != flow::origin::absent && !from->variable &&
            !flow::within(from->at->where, o->at->where))
            o = from;
        break;
    }
    return flow::step_of(o);
}

// filled_at, `depth` tables deep in the table asked for.
src_span value_flow::filled(const flow::table *t, int depth) const
{
    if (!t || !t->made || t->entries.empty() || depth > 8)
        return {};
    // Only a helper function's constructor is a template its caller fills.
    const auto &cs = p_->source->constructors;
    if (t->source < 0 || static_cast<size_t>(t->source) >= cs.size() ||
        cs[static_cast<size_t>(t->source)].function == 0)
        return {};
    src_span out;
    for (const auto &[k, e] : t->entries) {
        if (e.v.t == flow_value::nil)
            continue;
        src_span at = written_at(e.v.o).where;
        // A table the constructor makes in place is filled from elsewhere
        // when its own entries are.
        if (e.v.t == flow_value::table && e.v.tab->made &&
            flow::within(e.v.tab->made->where, t->made->where))
            at = filled(e.v.tab, depth + 1);
        if (at.none() || flow::within(at, t->made->where))
            return {};
        if (out.none()) {
            out = at;
            continue;
        }
        if (at.begin.line != out.begin.line)
            return {};
        if (at.begin.offset < out.begin.offset)
            out.begin = at.begin;
        if (at.end.offset > out.end.offset)
            out.end = at.end;
    }
    return out;
}

// A store's key as written, without the dot of `.name`; "" for `[k]` and
// an element given by position.
std::string_view value_flow::key_text(const src_span &key) const
{
    std::string_view k = span_text(p_->text, key);
    if (k.starts_with("."))
        k.remove_prefix(1);
    return k.starts_with("[") ? std::string_view() : k;
}

src_span value_flow::filled_at(const flow::table *t) const
{
    return filled(t, 0);
}

const flow::table *value_flow::keys_list(const flow::table *t) const
{
    const flow::table *list = nullptr;
    for (const auto &[k, e] : t ? t->entries : decltype(t->entries){}) {
        if (k.t != flow_value::string)
            continue;
        const flow::origin *o = e.key_origin;
        // Back to the store that put the key's string in a list.
        for (size_t n = 0; n < flow::MAX_WAY_DEPTH && o && o->kind == flow::origin::stored &&
                           o->from && o->from->kind == flow::origin::stored;
             ++n)
            o = o->from;
        if (!o || o->kind != flow::origin::stored || !o->at->key.none() || !o->table ||
            (list && list != o->table))
            return {};
        list = o->table;
    }
    return list;
}

src_span value_flow::made_at(const flow::table *t) const
{
    return t && t->made ? t->made->where : src_span{};
}

namespace
{

// Marks the stores on the ways of a value (its copies and its operands).
void mark_way(const flow::origin *o, std::unordered_set<const flow::origin *> &marked,
              size_t depth = 0)
{
    for (; o && depth < flow::MAX_WAY; o = o->from, ++depth) {
        if (!marked.insert(o).second)
            return;
        if (o->also)
            mark_way(o->also, marked, depth + 1);
    }
}

} // namespace

std::vector<std::pair<std::string, flow_value>> value_flow::fields(const flow::table *t) const
{
    std::vector<std::pair<std::string, flow_value>> out;
    if (t)
        for (const auto &[k, e] : t->entries)
            if (k.t == flow_value::string && e.v.t != flow_value::nil)
                out.emplace_back(std::string(k.s), flow::view(e.v, e.key_origin));
    return out;
}

std::vector<std::pair<std::string, src_span>>
value_flow::unreached_keys(const std::vector<const flow::table *> &read) const
{
    std::unordered_set<const flow::origin *> marked;
    const std::unordered_set<const flow::table *> is_read(read.begin(), read.end());
    for (const flow::table *t : read)
        for (const auto &[k, e] : t ? t->entries : decltype(t->entries){}) {
            mark_way(e.v.o, marked);
            mark_way(e.key_origin, marked);
        }
    std::unordered_set<const flow::table *> giving;
    for (const flow::origin *o : marked)
        if (o->kind == flow::origin::stored && o->table && !is_read.count(o->table))
            giving.insert(o->table);
    std::vector<std::pair<std::string, src_span>> out;
    for (const flow::table *t : giving)
        for (const auto &[k, e] : t->entries)
            if (k.t == flow_value::string && e.v.t != flow_value::nil && !marked.count(e.v.o) &&
                e.key_origin && e.key_origin->at)
                out.emplace_back(std::string(k.s), e.key_origin->at->where);
    std::sort(out.begin(), out.end(), [](const auto &a, const auto &b) {
        return a.second.begin.offset < b.second.begin.offset;
    });
    return out;
}

std::vector<const flow::table *> value_flow::tables_of(const flow::origin *o) const
{
    std::vector<const flow::table *> out;
    for (size_t n = 0; o && n < flow::MAX_WAY; ++n, o = o->from)
        if (o->kind == flow::origin::stored && o->table)
            out.push_back(o->table);
    std::reverse(out.begin(), out.end());
    return out;
}

void value_flow::each_key(
    const std::function<void(const flow::table *, std::string_view, const src_span &)> &fn) const
{
    for (const flow::table &t : p_->tables)
        for (const auto &[k, e] : t.entries)
            if (k.t == flow_value::string && e.v.t != flow_value::nil)
                fn(&t, k.s,
                   e.key_origin && e.key_origin->at ? e.key_origin->at->where : src_span{});
}

bool value_flow::open_length() const
{
    return p_->open_length;
}

const value_flow::failure *value_flow::failed() const
{
    return p_->failed ? &p_->failure : nullptr;
}

} // namespace kivtool
