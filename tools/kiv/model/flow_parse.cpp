// The evaluator's parser: the grammar of Lua 5.3 by recursive descent, with
// the interpreter's operator priorities and its resolution of names (a name
// is the innermost local declared before it, else an upvalue of the
// enclosing functions, else a global).
#include <algorithm>

#include "model/flow_ast.h"
#include "model/lex.h"

namespace kivtool::flow
{

namespace
{

// Nesting deeper than this is refused, as the interpreter refuses it
// ("too many C levels"), so the evaluator never nests deeper on the call
// stack than the interpreter would let a script.  The interpreter counts a
// level for each statement and each expression of the grammar (not for a
// block, a suffix or a constructor of its own) and allows 200 with the
// level of the loader's call it parses in.
constexpr int MAX_LEVELS = 199;
// The interpreter's limits of a function: its local variables in scope
// (each loop has three of its own besides its variables), its upvalues (the
// table of globals one of them when it names a global), and the registers
// of a list of values, which follow its locals (a call's also hold the
// function, and a method call's its object).
constexpr size_t MAX_LOCALS = 200;
constexpr size_t MAX_UPVALUES = 255;
constexpr size_t MAX_REGISTERS = 255;

struct tok {
    tk kind;
    std::string_view text;
    src_pos begin, end;
    const std::string *value = nullptr; // a string literal's value
};

struct failed {
    std::string why;
};

struct scope_fn {
    proto *p;
    scope_fn *parent;
    std::vector<std::pair<std::string_view, int32_t>> active; // locals in scope, in order
    std::vector<std::string_view> up_names;                   // parallel to p->up
    int loops;                                                // loops open around here
    bool env; // has the table of globals as an upvalue
};

class parser
{
  public:
    parser(std::string_view text, const src_map &source, ast &a) : source_(source), a_(a)
    {
        lexer lx(text);
        for (;;) {
            token t = lx.next();
            if (t.kind == tk::comment)
                continue;
            if (t.kind == tk::bad)
                throw failed{"a token the interpreter cannot read"};
            tok k{t.kind, t.text, t.begin, t.end};
            if (t.kind == tk::string) {
                a_.strings.push_back(lx.value());
                k.value = &a_.strings.back();
            }
            toks_.push_back(k);
            if (t.kind == tk::eof)
                break;
        }
    }

    void chunk()
    {
        proto *p = &a_.protos.emplace_back();
        p->vararg = true;
        a_.main = p;
        scope_fn fs{p, nullptr, {}, {}, 0, true};
        fs_ = &fs;
        p->body = block_of();
        if (cur().kind != tk::eof)
            throw failed{"'<eof>' expected"};
    }

  private:
    const src_map &source_;
    ast &a_;
    std::vector<tok> toks_;
    size_t at_ = 0;
    scope_fn *fs_ = nullptr;
    int levels_ = 0;

    struct level {
        parser &p;
        explicit level(parser &q) : p(q)
        {
            if (++p.levels_ > MAX_LEVELS)
                throw failed{"too many nested levels"};
        }
        ~level() { --p.levels_; }
    };

    const tok &cur() const { return toks_[at_]; }
    const tok &ahead() const { return toks_[std::min(at_ + 1, toks_.size() - 1)]; }
    bool is(std::string_view s) const
    {
        const tok &t = cur();
        return t.kind != tk::string && t.kind != tk::eof && t.text == s;
    }
    src_pos last_end() const { return at_ > 0 ? toks_[at_ - 1].end : cur().begin; }
    const tok &take() { return toks_[at_ < toks_.size() - 1 ? at_++ : at_]; }
    bool accept(std::string_view s)
    {
        if (!is(s))
            return false;
        take();
        return true;
    }
    void expect(std::string_view s)
    {
        if (!accept(s))
            throw failed{"'" + std::string(s) + "' expected"};
    }
    std::string_view name()
    {
        if (cur().kind != tk::name)
            throw failed{"<name> expected"};
        return take().text;
    }

    site *new_site(src_pos b, src_pos e)
    {
        site *s = &a_.sites.emplace_back();
        s->where = {b, e};
        return s;
    }
    expr *new_expr(ek k, src_pos b)
    {
        expr *e = &a_.exprs.emplace_back();
        e->k = k;
        e->at = new_site(b, last_end());
        return e;
    }
    const origin *written(const site *s)
    {
        origin *o = &a_.origins.emplace_back();
        o->kind = origin::written;
        o->at = s;
        return o;
    }
    stat *new_stat(sk k)
    {
        stat *s = &a_.stats.emplace_back();
        s->k = k;
        return s;
    }

    // Names.
    int32_t declare(std::string_view n)
    {
        if (n == "_ENV")
            throw failed{"_ENV is not followed"};
        hide(0);
        const int32_t v = fs_->p->vars++;
        fs_->active.emplace_back(n, v);
        return v;
    }
    // Local variables of the interpreter's own that no name reaches: a
    // loop's state.
    void hide(int n)
    {
        if (fs_->active.size() + static_cast<size_t>(n) >= MAX_LOCALS)
            throw failed{"too many local variables"};
        for (int k = 0; k < n; ++k)
            fs_->active.emplace_back("(for state)", -1);
    }
    void registers(size_t values)
    {
        if (fs_->active.size() + values >= MAX_REGISTERS)
            throw failed{"function or expression needs too many registers"};
    }
    static void more_upvalues(const scope_fn *fs)
    {
        if (fs->p->up.size() + fs->env + 1 > MAX_UPVALUES)
            throw failed{"too many upvalues"};
    }
    static int32_t local_in(const scope_fn *fs, std::string_view n)
    {
        for (auto it = fs->active.rbegin(); it != fs->active.rend(); ++it)
            if (it->first == n)
                return it->second;
        return -1;
    }
    static int32_t upval_in(scope_fn *fs, std::string_view n)
    {
        for (size_t i = 0; i < fs->up_names.size(); ++i)
            if (fs->up_names[i] == n)
                return static_cast<int32_t>(i);
        if (!fs->parent)
            return -1;
        upval_ref ref{true, local_in(fs->parent, n)};
        if (ref.index < 0) {
            ref = {false, upval_in(fs->parent, n)};
            if (ref.index < 0)
                return -1;
        }
        more_upvalues(fs);
        fs->p->up.push_back(ref);
        fs->up_names.push_back(n);
        return static_cast<int32_t>(fs->p->up.size() - 1);
    }
    expr *variable(std::string_view n, src_pos b)
    {
        if (const int32_t v = local_in(fs_, n); v >= 0) {
            expr *e = new_expr(ek::local, b);
            e->slot = v;
            return e;
        }
        if (const int32_t u = upval_in(fs_, n); u >= 0) {
            expr *e = new_expr(ek::upval, b);
            e->slot = u;
            return e;
        }
        if (n == "_ENV")
            throw failed{"_ENV is not followed"};
        for (scope_fn *f = fs_; f && !f->env; f = f->parent) {
            more_upvalues(f);
            f->env = true;
        }
        expr *e = new_expr(ek::global, b);
        e->str = &a_.strings.emplace_back(n);
        return e;
    }

    // Blocks and statements.
    static bool block_ends(const tok &t)
    {
        if (t.kind == tk::eof)
            return true;
        if (t.kind == tk::string)
            return false;
        return t.text == "end" || t.text == "else" || t.text == "elseif" || t.text == "until";
    }
    block block_of()
    {
        const size_t scope = fs_->active.size();
        block b;
        while (!block_ends(cur())) {
            if (is("return")) {
                b.push_back(return_stat());
                break;
            }
            if (stat *s = statement())
                b.push_back(s);
        }
        fs_->active.resize(scope);
        return b;
    }
    // The body of a loop, where `break` may stand.
    block loop_body()
    {
        ++fs_->loops;
        block b = block_of();
        --fs_->loops;
        return b;
    }
    // `return` and its values, which end their block.
    stat *return_stat()
    {
        level l(*this); // a statement of its own to the interpreter
        take();
        stat *s = new_stat(sk::ret);
        if (!block_ends(cur()) && !is(";"))
            s->rhs = exprlist();
        accept(";");
        return s;
    }
    stat *statement()
    {
        level l(*this);
        const tok &t = cur();
        if (t.kind == tk::string)
            return expr_stat();
        if (t.text == ";") {
            take();
            return nullptr;
        }
        if (t.text == "if")
            return if_stat();
        if (t.text == "while") {
            const src_pos b = take().begin;
            stat *s = new_stat(sk::while_);
            s->cond = expression();
            expect("do");
            s->loop = loop_at(b, {});
            s->body = loop_body();
            expect("end");
            return s;
        }
        if (t.text == "do") {
            take();
            stat *s = new_stat(sk::block);
            s->body = block_of();
            expect("end");
            return s;
        }
        if (t.text == "for")
            return for_stat();
        if (t.text == "repeat") {
            const src_pos b = take().begin;
            stat *s = new_stat(sk::repeat);
            const size_t scope = fs_->active.size();
            s->loop = loop_at(b, {});
            block body;
            ++fs_->loops;
            while (!block_ends(cur())) {
                if (is("return")) {
                    body.push_back(return_stat());
                    break;
                }
                if (stat *st = statement())
                    body.push_back(st);
            }
            --fs_->loops;
            s->body = std::move(body);
            expect("until");
            s->cond = expression();
            fs_->active.resize(scope);
            return s;
        }
        if (t.text == "function")
            return function_stat();
        if (t.text == "local") {
            take();
            if (accept("function")) {
                stat *s = new_stat(sk::localfunc);
                const src_pos b = cur().begin;
                s->vars.push_back(declare(name()));
                s->fn = body(false, b);
                return s;
            }
            stat *s = new_stat(sk::local);
            std::vector<std::string_view> names{name()};
            while (accept(","))
                names.push_back(name());
            if (accept("="))
                s->rhs = exprlist();
            for (std::string_view n : names)
                s->vars.push_back(declare(n));
            return s;
        }
        if (t.text == "return")
            throw failed{"'return' must end its block"};
        if (t.text == "break") {
            take();
            if (fs_->loops == 0)
                throw failed{"break outside a loop"};
            return new_stat(sk::brk);
        }
        if (t.text == "goto" || t.text == "::")
            throw failed{"goto and labels are not followed"};
        return expr_stat();
    }
    const loop_site *loop_at(src_pos b, src_span start)
    {
        loop_site *l = &a_.loops.emplace_back();
        l->header = {b, last_end()};
        l->start = start;
        return l;
    }
    stat *if_stat()
    {
        stat *s = new_stat(sk::if_);
        do {
            take(); // if / elseif
            expr *c = expression();
            expect("then");
            s->arms.emplace_back(c, block_of());
        } while (is("elseif"));
        if (accept("else"))
            s->orelse = block_of();
        expect("end");
        return s;
    }
    stat *for_stat()
    {
        const src_pos b = take().begin;
        const std::string_view first = name();
        if (accept("=")) {
            stat *s = new_stat(sk::fornum);
            const src_pos sb = cur().begin;
            s->rhs.push_back(expression());
            const src_span start{sb, last_end()};
            expect(",");
            const src_pos lb = cur().begin;
            s->rhs.push_back(expression());
            const src_span limit{lb, last_end()};
            if (accept(","))
                s->rhs.push_back(expression());
            expect("do");
            s->loop = loop_at(b, start);
            const_cast<loop_site *>(s->loop)->limit = limit;
            origin *vo = const_cast<origin *>(written(new_site(b, last_end())));
            vo->variable = true;
            s->var_origin = vo;
            const size_t scope = fs_->active.size();
            hide(3);
            s->vars.push_back(declare(first));
            s->body = loop_body();
            fs_->active.resize(scope);
            expect("end");
            return s;
        }
        stat *s = new_stat(sk::forin);
        std::vector<std::string_view> names{first};
        while (accept(","))
            names.push_back(name());
        expect("in");
        s->rhs = exprlist();
        expect("do");
        s->loop = loop_at(b, {});
        const size_t scope = fs_->active.size();
        hide(3);
        for (std::string_view n : names)
            s->vars.push_back(declare(n));
        s->body = loop_body();
        fs_->active.resize(scope);
        expect("end");
        return s;
    }
    // function a.b.c:m() ... end: an assignment of the function to its name.
    stat *function_stat()
    {
        const src_pos b = take().begin;
        const src_pos nb = cur().begin;
        expr *target = variable(name(), nb);
        bool method = false;
        src_pos key_begin{};
        while (is(".") || is(":")) {
            method = take().text == ":";
            key_begin = toks_[at_ - 1].begin;
            const src_pos kb = cur().begin;
            expr *k = new_expr(ek::string, kb);
            k->str = &a_.strings.emplace_back(name());
            k->at = new_site(kb, last_end());
            expr *ix = new_expr(ek::index, nb);
            ix->a = target;
            ix->b = k;
            target = ix;
            if (method)
                break;
        }
        stat *s = new_stat(sk::assign);
        expr *fn = new_expr(ek::function, b);
        fn->fn = body(method, b);
        fn->at = new_site(b, last_end());
        fn->lit = written(fn->at);
        s->lhs.push_back(target);
        s->rhs.push_back(fn);
        site *st = new_site(key_begin.line ? key_begin : nb, last_end());
        st->key = target->k == ek::index ? src_span{key_begin, target->b->at->where.end}
                                         : target->at->where;
        st->value = fn->at->where;
        s->sites.push_back(st);
        return s;
    }
    stat *expr_stat()
    {
        const src_pos b = cur().begin;
        expr *e = suffixed();
        if (is("=") || is(",")) {
            stat *s = new_stat(sk::assign);
            s->lhs.push_back(e);
            while (accept(","))
                s->lhs.push_back(suffixed());
            expect("=");
            std::vector<src_span> spans;
            s->rhs = exprlist(&spans);
            for (size_t i = 0; i < s->lhs.size(); ++i) {
                expr *t = s->lhs[i];
                if (t->k != ek::local && t->k != ek::upval && t->k != ek::global &&
                    t->k != ek::index)
                    throw failed{"syntax error near '='"};
                site *st = new_site({}, {});
                st->key = t->k == ek::index ? key_span(t) : t->at->where;
                st->value = i < spans.size() ? spans[i] : src_span{};
                st->where = {st->key.begin, st->value.none() ? st->key.end : st->value.end};
                s->sites.push_back(st);
            }
            (void)b;
            return s;
        }
        if (e->k != ek::call && e->k != ek::method)
            throw failed{"syntax error"};
        stat *s = new_stat(sk::call);
        s->rhs.push_back(e);
        return s;
    }
    // The key of an index expression as written: `.name` from its dot, or
    // `[k]` from its bracket.
    static src_span key_span(const expr *ix) { return {ix->at->key.begin, ix->at->where.end}; }

    // Functions.
    proto *body(bool method, src_pos b)
    {
        (void)b;
        proto *p = &a_.protos.emplace_back();
        scope_fn fs{p, fs_, {}, {}, 0, false};
        fs_ = &fs;
        if (method)
            declare("self");
        expect("(");
        if (!is(")")) {
            do {
                if (accept("...")) {
                    p->vararg = true;
                    break;
                }
                declare(name());
            } while (accept(","));
        }
        p->params = p->vars;
        expect(")");
        p->body = block_of();
        expect("end");
        fs_ = fs.parent;
        return p;
    }

    // Expressions.
    // A list of values, `held` registers before them (a call's function).
    std::vector<expr *> exprlist(std::vector<src_span> *spans = nullptr, size_t held = 0)
    {
        std::vector<expr *> v;
        do {
            const src_pos b = cur().begin;
            v.push_back(expression());
            if (spans)
                spans->push_back({b, last_end()});
        } while (accept(","));
        registers(held + v.size());
        return v;
    }
    expr *expression() { return subexpr(0); }

    struct prio {
        op o;
        int left, right;
    };
    bool binary(prio &p) const
    {
        static const std::pair<std::string_view, prio> table[] = {
            {"+", {op::add, 10, 10}},   {"-", {op::sub, 10, 10}},  {"*", {op::mul, 11, 11}},
            {"%", {op::mod, 11, 11}},   {"^", {op::pow, 14, 13}},  {"/", {op::div, 11, 11}},
            {"//", {op::idiv, 11, 11}}, {"&", {op::band, 6, 6}},   {"|", {op::bor, 4, 4}},
            {"~", {op::bxor, 5, 5}},    {"<<", {op::shl, 7, 7}},   {">>", {op::shr, 7, 7}},
            {"..", {op::concat, 9, 8}}, {"==", {op::eq, 3, 3}},    {"<", {op::lt, 3, 3}},
            {"<=", {op::le, 3, 3}},     {"~=", {op::ne, 3, 3}},    {">", {op::gt, 3, 3}},
            {">=", {op::ge, 3, 3}},     {"and", {op::and_, 2, 2}}, {"or", {op::or_, 1, 1}},
        };
        if (cur().kind == tk::string || cur().kind == tk::eof)
            return false;
        for (const auto &[text, pr] : table)
            if (cur().text == text) {
                p = pr;
                return true;
            }
        return false;
    }
    expr *subexpr(int limit)
    {
        level l(*this);
        const src_pos b = cur().begin;
        expr *left;
        op u{};
        bool unary = true;
        if (is("not"))
            u = op::not_;
        else if (is("-"))
            u = op::neg;
        else if (is("#"))
            u = op::len;
        else if (is("~"))
            u = op::bnot;
        else
            unary = false;
        if (unary) {
            take();
            expr *operand = subexpr(12);
            left = new_expr(ek::unop, b);
            left->o = u;
            left->a = operand;
            // -1 written out is a literal, as the interpreter folds it.
            if (u == op::neg && (operand->k == ek::integer || operand->k == ek::number))
                left->lit = written(left->at);
        } else {
            left = simple();
        }
        prio p{};
        while (binary(p) && p.left > limit) {
            take();
            expr *right = subexpr(p.right);
            expr *e = new_expr(p.o == op::and_  ? ek::and_
                               : p.o == op::or_ ? ek::or_
                                                : ek::binop,
                               b);
            e->o = p.o;
            e->a = left;
            e->b = right;
            left = e;
        }
        return left;
    }
    expr *simple()
    {
        const tok &t = cur();
        const src_pos b = t.begin;
        if (t.kind == tk::number) {
            number n;
            if (!read_numeral(t.text, n))
                throw failed{"malformed number"};
            take();
            expr *e = new_expr(n.integer ? ek::integer : ek::number, b);
            e->i = n.i;
            e->d = n.d;
            e->lit = written(e->at);
            return e;
        }
        if (t.kind == tk::string) {
            take();
            expr *e = new_expr(ek::string, b);
            e->str = t.value;
            e->lit = written(e->at);
            return e;
        }
        if (t.kind == tk::lbrace)
            return constructor();
        if (t.kind != tk::name) {
            static const std::pair<std::string_view, ek> words[] = {
                {"nil", ek::nil}, {"true", ek::t}, {"false", ek::f}, {"...", ek::vararg}};
            for (const auto &[w, k] : words)
                if (t.text == w) {
                    take();
                    if (k == ek::vararg && !fs_->p->vararg)
                        throw failed{"cannot use '...' outside a vararg function"};
                    expr *e = new_expr(k, b);
                    e->lit = written(e->at);
                    return e;
                }
            if (t.text == "function") {
                take();
                expr *e = new_expr(ek::function, b);
                e->fn = body(false, b);
                e->at = new_site(b, last_end());
                e->lit = written(e->at);
                return e;
            }
        }
        return suffixed();
    }
    expr *primary()
    {
        const src_pos b = cur().begin;
        if (cur().kind == tk::name)
            return variable(name(), b);
        if (accept("(")) {
            expr *inner = expression();
            expect(")");
            expr *e = new_expr(ek::paren, b);
            e->a = inner;
            return e;
        }
        throw failed{"unexpected symbol"};
    }
    expr *suffixed()
    {
        const src_pos b = cur().begin;
        expr *e = primary();
        for (;;) {
            const src_pos kb = cur().begin;
            if (accept(".")) {
                const src_pos nb = cur().begin;
                expr *k = new_expr(ek::string, nb);
                k->str = &a_.strings.emplace_back(name());
                k->at = new_site(nb, last_end());
                k->lit = written(k->at);
                e = index(e, k, b, kb);
            } else if (accept("[")) {
                expr *k = expression();
                expect("]");
                e = index(e, k, b, kb);
            } else if (accept(":")) {
                const std::string_view n = name();
                expr *c = new_expr(ek::method, b);
                c->a = e;
                c->str = &a_.strings.emplace_back(n);
                c->args = call_args(2);
                c->at = new_site(b, last_end());
                e = c;
            } else if (is("(") || cur().kind == tk::string || cur().kind == tk::lbrace) {
                expr *c = new_expr(ek::call, b);
                c->a = e;
                c->args = call_args(1);
                c->at = new_site(b, last_end());
                e = c;
            } else {
                return e;
            }
        }
    }
    expr *index(expr *obj, expr *key, src_pos b, src_pos key_begin)
    {
        expr *e = new_expr(ek::index, b);
        e->a = obj;
        e->b = key;
        const_cast<site *>(e->at)->key = {key_begin, last_end()};
        return e;
    }
    std::vector<expr *> call_args(size_t held)
    {
        if (cur().kind == tk::string)
            return {simple()};
        if (cur().kind == tk::lbrace)
            return {constructor()};
        expect("(");
        std::vector<expr *> args;
        if (!is(")"))
            args = exprlist(nullptr, held);
        expect(")");
        return args;
    }
    expr *constructor()
    {
        const src_pos b = cur().begin;
        take(); // '{'
        ctor *c = &a_.ctors.emplace_back();
        c->source = source_ctor(b.offset);
        while (!is("}")) {
            field f;
            const src_pos fb = cur().begin;
            src_span key_at{};
            if (cur().kind == tk::name && ahead().kind == tk::assign && ahead().text == "=") {
                f.kind = field::named;
                expr *k = new_expr(ek::string, fb);
                k->str = &a_.strings.emplace_back(name());
                k->at = new_site(fb, last_end());
                k->lit = written(k->at);
                f.key = k;
                key_at = k->at->where;
                expect("=");
            } else if (is("[")) {
                take();
                f.kind = field::bracketed;
                f.key = expression();
                expect("]");
                key_at = {fb, last_end()};
                expect("=");
            }
            const src_pos vb = cur().begin;
            f.value = expression();
            site *s = new_site(fb, last_end());
            s->key = key_at;
            s->value = {vb, last_end()};
            f.at = s;
            c->fields.push_back(f);
            if (!accept(",") && !accept(";"))
                break;
        }
        expect("}");
        expr *e = new_expr(ek::table, b);
        e->tab = c;
        e->lit = written(e->at);
        return e;
    }
    int32_t source_ctor(uint32_t offset) const
    {
        const auto &cs = source_.constructors;
        auto it = std::lower_bound(
            cs.begin(), cs.end(), offset,
            [](const src_constructor &c, uint32_t o) { return c.span.begin.offset < o; });
        return it != cs.end() && it->span.begin.offset == offset
                   ? static_cast<int32_t>(it - cs.begin())
                   : -1;
    }
};

} // namespace

bool parse(std::string_view text, const src_map &source, ast &a, std::string &why)
{
    try {
        parser p(text, source, a);
        p.chunk();
        return true;
    } catch (const failed &f) {
        why = f.why;
        return false;
    }
}

} // namespace kivtool::flow
