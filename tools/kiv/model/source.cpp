// The scan reads the text as the interpreter's lexer does, token by token,
// and follows only the nesting that decides where fields end: brackets,
// constructors and blocks, on a stack of its own.  Each constructor on the
// stack walks its current field through a small state machine; each block
// (the main chunk, a function body, if, do, repeat) walks its current
// statement through another, just far enough to tell where an expression
// ends and whether an assignment's target is a field.  The tokens come from the lexer (lex.h).
#include "model/source.h"

#include "model/lex.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <iterator>

namespace kivtool
{

namespace
{

// Tokens as the grammar of expressions sees them.
bool is_binary(const token &t)
{
    switch (t.kind) {
    case tk::minus:
        return true;
    case tk::other:
        return t.text != "." && t.text != ":" && t.text != "::" && t.text != "#" && t.text != "...";
    case tk::kw_other:
        return t.text == "and" || t.text == "or";
    default:
        return false;
    }
}
bool is_unary(const token &t)
{
    return t.kind == tk::minus || (t.kind == tk::other && (t.text == "#" || t.text == "~")) ||
           (t.kind == tk::kw_other && t.text == "not");
}
// A whole operand that nothing can index or call.
bool is_literal(const token &t)
{
    return t.kind == tk::number || t.kind == tk::string ||
           (t.kind == tk::other && t.text == "...") ||
           (t.kind == tk::kw_other && (t.text == "nil" || t.text == "true" || t.text == "false"));
}
bool starts_operand(const token &t)
{
    return is_unary(t) || is_literal(t) || t.kind == tk::name || t.kind == tk::lparen ||
           t.kind == tk::lbrace || t.kind == tk::kw_function;
}

// Whether a token written right after text ending in another (of kind
// `before`) would be read otherwise: `a and`, `1 ..`, `- -1`, `[ [[s]]`.
bool run_together(std::string_view text, tk before, std::string_view token)
{
    auto word = [](char c) { return is_alpha((unsigned char)c) || is_digit((unsigned char)c); };
    char a = text.back(), b = token.front();
    if ((word(a) && word(b)) || (before == tk::number && b == '.'))
        return true;
    static const std::string_view pairs[] = {
        "--", "..", "[[", "[=", "==", "<=", ">=", "~=", "//", "::", "<<", ">>"};
    const char ab[] = {a, b};
    return std::find(std::begin(pairs), std::end(pairs), std::string_view(ab, 2)) !=
           std::end(pairs);
}

// A piece of code as an assignment's target: its tokens without the blanks
// and comments between them, cut at src_assignment::max_target bytes.
std::string squeeze(std::string_view code)
{
    const size_t limit = src_assignment::max_target;
    lexer lex(code, false);
    std::string out;
    tk last = tk::eof;
    while (out.size() < limit) {
        token t = lex.next();
        if (t.kind == tk::eof || t.kind == tk::bad)
            break;
        if (t.kind == tk::comment)
            continue;
        if (!out.empty() && run_together(out, last, t.text))
            out += ' ';
        out += t.text.substr(0, limit - out.size());
        last = t.kind;
    }
    return out;
}

// The rules of a suppression comment's text (after its "--"), and whether
// it holds for the whole file; no rules when it is no such comment.
std::vector<std::string> suppressed_rules(std::string_view s, bool &whole_file)
{
    std::vector<std::string> rules;
    auto blanks = [&s] {
        while (!s.empty() && (s[0] == ' ' || s[0] == '\t'))
            s.remove_prefix(1);
    };
    auto take = [&s](std::string_view word) {
        bool ok = s.substr(0, word.size()) == word;
        if (ok)
            s.remove_prefix(word.size());
        return ok;
    };
    // The directive may follow a remark ("-- feeds pass 1 only; kiv-lint: ...").
    const size_t at = s.find("kiv-lint:");
    if (at == std::string_view::npos)
        return rules;
    s.remove_prefix(at);
    take("kiv-lint:");
    blanks();
    whole_file = take("disable-file=");
    if (!whole_file && !take("disable="))
        return rules;
    for (;;) {
        blanks();
        size_t n = 0;
        while (n < s.size() && (is_digit(s[n]) || (s[n] >= 'a' && s[n] <= 'z') || s[n] == '-'))
            ++n;
        if (n == 0)
            return rules;
        rules.emplace_back(s.substr(0, n));
        s.remove_prefix(n);
        blanks();
        if (!take(","))
            return rules;
    }
}

// What stands open at a point of the scan.
enum class fk : uint8_t {
    paren,    // (
    bracket,  // [ of an index
    key,      // [ of a constructor's bracketed key
    brace,    // a constructor
    function, // a function body
    block,    // if, do (of do, while and for)
    repeat,
};

// Where a constructor's current field is.
enum class fs : uint8_t {
    start,      // before its first token
    name,       // after a name that may be the key of `name = exp`
    key,        // inside `[...]`
    key_done,   // after `[...]`, before its '='
    value_next, // before the first token of its value
    value,      // inside its value
};

// Where a block's current statement is.
enum class ss : uint8_t {
    header,  // a function's name and parameters, until the ')' that closes them
    stat,    // before a statement
    target,  // before an assignment's next target, after a ','
    operand, // before an operand or a unary operator
    done,    // after an operand that nothing can index or call
    primary, // after a name, `(exp)`, an index or a call: another may follow
    dot,     // after the '.' of an index
    colon,   // after the ':' of a method call
    args,    // after `:name`, before the arguments
};

// What a block's current statement is.
enum class sm : uint8_t {
    none,
    targets, // the targets of an assignment, or a call
    values,  // the values of an assignment, after its '='
    other,   // anything else with expressions: local, return, for, a condition
};

// A block's current statement, as far as its targets and values go.
struct statement {
    ss state = ss::stat;
    sm mode = sm::none;
    bool candidate = false; // the operand so far may be a target: a name or `(exp)`, then suffixes
    bool index = false;     // its last suffix is an index
    bool bracket = false;   // that index is `[exp]`
    uint32_t position = 0;  // targets, values: how many came before the current one
    uint32_t target_begin = 0; // the offset of the candidate's first token
    src_pos key_begin;         // the '.' or '[' of its last suffix
    uint64_t key_seq = 0;      // the token that is that '['
    size_t pending = 0;        // targets, values: its first entry in scanner::pending_
    size_t cursor = 0;         // values: the first of them whose value may be still to come
    src_pos value_begin;       // values: the current value's first token (line 0: none yet)
    int32_t value_ctor = -1;   // values: the constructor the current value starts with
    uint64_t ctor_seq = 0;     // the token that closed value_ctor
};

struct frame {
    fk kind;
    fs state = fs::start;
    int32_t index = -1;      // brace, key: the constructor; function: the function
    int32_t outer = -1;      // function: the function around it
    int32_t value_ctor = -1; // brace: the constructor the field's value starts with
    uint64_t seq = 0;        // brace: the token that closed value_ctor; key: the '['
    uint64_t literal = 0;    // key: the token that is its literal
    int64_t positional = 0;  // brace: positional fields so far
    statement st = {};       // function, block, repeat: the current statement in it
};

// The line of a suppression that no token follows.
constexpr uint32_t unresolved = UINT32_MAX;

// The most fields, constructors and functions, and assignments and
// silencing comments, a map keeps (each about 100 and 400 bytes at most):
// more than the calibration table of 100,000 pairs holds (100,000
// constructors and 300,000 fields), more than any configuration's
// assignments by far.
constexpr size_t MAX_ITEMS = size_t{1} << 19;
constexpr size_t MAX_STATEMENTS = size_t{1} << 17;
// The positional fields of one constructor that are kept when their value
// is not a table: more than any array of a configuration has (arrays of
// tables, a calibration table's pairs, are kept whole up to MAX_ITEMS).
constexpr int64_t MAX_VALUES = 4096;

class scanner
{
  public:
    explicit scanner(std::string_view text) : lex_(text) {}
    src_map run();

  private:
    bool on_token(const token &tok);
    bool field_step(frame &f, const token &tok, bool &lookahead);
    void begin_value(frame &f, src_field &fd, const token &tok);
    void end_field(frame &f);
    bool structure(const token &tok, bool lookahead);
    void open_constructor(const token &tok, bool lookahead);
    bool close_constructor(const token &tok);
    bool close_key(const token &tok);
    void key_literal(frame &f, const token &tok);
    void open_function(const token &tok);
    void settle_function_line(const token &tok);
    bool close_block(const token &tok);
    void on_comment(const token &tok);
    void close_all(src_pos end);
    statement *context();
    void note_literal(const token &tok);
    void statement_step(statement &s, const token &tok);
    void record_target(const statement &s);
    void end_value(statement &s);
    void end_statement(statement &s);
    src_field &field_of(const frame &f) { return map_.constructors[size_t(f.index)].fields.back(); }
    // Whether the map holds more than any configuration needs: the scan
    // stops there, so that what it keeps stays within a few times the
    // memory the library lets a script have, whatever the text.
    bool too_many() const
    {
        return fields_ + map_.constructors.size() + map_.functions.size() > MAX_ITEMS ||
               map_.assignments.size() + map_.suppressions.size() > MAX_STATEMENTS;
    }
    void push(fk kind, int32_t index = -1)
    {
        stack_.push_back(frame{kind});
        stack_.back().index = index;
    }

    lexer lex_;
    src_map map_;
    std::vector<frame> stack_;
    int32_t fn_ = 0;          // the innermost open function
    uint64_t seq_ = 0;        // tokens so far, the current one included
    token prev_;              // the token before the current one (kind eof: none)
    int32_t pending_fn_ = -1; // a function whose line_defined waits for a later token
    int pending_skip_ = 0;    // tokens before that one
    bool pending_local_ = false;
    std::vector<size_t> pending_supp_; // suppressions that wait for the next token's line
    uint64_t prev_seq_ = 0;            // the number of prev_ among the tokens
    statement main_;                   // the main chunk's current statement
    // The targets of the assignments under way, their statements' innermost
    // last: the target in map_.assignments, and its position in its list.
    struct pending_target {
        size_t assignment;
        uint32_t position;
    };
    std::vector<pending_target> pending_;
    // The last literal that may be an index's key (a string right after a
    // '[', an integral number right after a '[' or '-'): its token, whether
    // a '-' came before it, and its string or integer.
    uint64_t lit_seq_ = 0;
    bool lit_neg_ = false, lit_string_ = false;
    std::string lit_name_;
    int64_t lit_index_ = 0;
    size_t fields_ = 0; // in all constructors
};

src_map scanner::run()
{
    src_function main;
    main.span.begin = {1, 1, 0};
    map_.functions.push_back(main);
    for (;;) {
        token tok = lex_.next();
        if (tok.kind == tk::comment) {
            on_comment(tok);
            continue;
        }
        if (tok.kind == tk::eof && stack_.empty())
            break;
        if (tok.kind == tk::eof || tok.kind == tk::bad || !on_token(tok) || too_many()) {
            map_.complete = false;
            map_.stopped = tok.begin;
            break;
        }
        prev_ = tok;
        prev_seq_ = seq_;
    }
    src_pos end = lex_.end_of_text();
    close_all(end);
    std::erase_if(map_.assignments, [](const src_assignment &a) { return a.function < 0; });
    std::sort(map_.assignments.begin(), map_.assignments.end(),
              [](const src_assignment &a, const src_assignment &b) {
                  return a.key.begin.offset < b.key.begin.offset;
              });
    map_.functions[0].span.end = end;
    for (size_t k : pending_supp_) // no token follows them
        map_.suppressions[k].line = unresolved;
    std::erase_if(map_.suppressions, [](const src_suppression &s) { return s.line == unresolved; });
    return std::move(map_);
}

bool scanner::on_token(const token &tok)
{
    ++seq_;
    for (size_t k : pending_supp_)
        map_.suppressions[k].line = tok.begin.line;
    pending_supp_.clear();
    settle_function_line(tok);
    note_literal(tok);
    if (statement *s = context())
        statement_step(*s, tok);
    bool lookahead = false;
    if (!stack_.empty() && stack_.back().kind == fk::brace &&
        field_step(stack_.back(), tok, lookahead))
        return true;
    return structure(tok, lookahead);
}

// Moves a constructor's current field on by a token at the constructor's
// own level; true when that token needs nothing more.  `lookahead` is set
// when a '{' follows a name that started the field.
bool scanner::field_step(frame &f, const token &tok, bool &lookahead)
{
    bool sep = tok.kind == tk::comma || tok.kind == tk::semi;
    std::vector<src_field> &fields = map_.constructors[size_t(f.index)].fields;
    switch (f.state) {
    case fs::start:
        if (sep || tok.kind == tk::rbrace)
            return sep;
        fields.emplace_back();
        ++fields_;
        if (tok.kind == tk::lbracket) {
            fields.back().kind = src_field::bracketed;
            fields.back().key.begin = tok.begin;
            f.state = fs::key;
            push(fk::key, f.index);
            stack_.back().seq = seq_;
            return true;
        }
        begin_value(f, fields.back(), tok);
        if (tok.kind != tk::name)
            return false;
        f.state = fs::name;
        return true;
    case fs::name:
        if (tok.kind == tk::name) {
            // Two names in a row are never one expression: a separator is
            // missing, as where a key is being typed above the next field
            // (`hf` over `hflip = 0,`).  The second name begins a field of
            // its own, so the field after the half-typed key keeps its name.
            end_field(f);
            fields.emplace_back();
            ++fields_;
            begin_value(f, fields.back(), tok);
            f.state = fs::name;
            return true;
        }
        if (tok.kind == tk::assign) {
            src_field &fd = fields.back();
            fd.kind = src_field::named;
            fd.name = prev_.text;
            fd.key = {prev_.begin, prev_.end};
            fd.value = {};
            fd.index = 0;
            f.positional--;
            f.state = fs::value_next;
            return true;
        }
        lookahead = tok.kind == tk::lbrace;
        f.state = fs::value;
        break;
    case fs::key:
        return false;
    case fs::key_done:
        f.state = fs::value_next;
        if (tok.kind == tk::assign)
            return true;
        [[fallthrough]];
    case fs::value_next:
        if (!sep && tok.kind != tk::rbrace) {
            fields.back().value.begin = tok.begin;
            f.value_ctor = tok.kind == tk::lbrace ? int32_t(map_.constructors.size()) : -1;
            f.state = fs::value;
            return false;
        }
        break;
    case fs::value:
        break;
    }
    if (!sep && tok.kind != tk::rbrace)
        return false;
    end_field(f);
    return sep;
}

// Starts a field, positional until a '=' makes it named, at its first token.
void scanner::begin_value(frame &f, src_field &fd, const token &tok)
{
    fd.kind = src_field::positional;
    fd.index = ++f.positional;
    fd.value.begin = tok.begin;
    f.value_ctor = tok.kind == tk::lbrace ? int32_t(map_.constructors.size()) : -1;
    f.state = fs::value;
}

// Ends a constructor's current field at the token before the current one.
void scanner::end_field(frame &f)
{
    if (f.state == fs::start)
        return;
    src_field &fd = field_of(f);
    if (!fd.value.none())
        fd.value.end = prev_.end;
    if (fd.kind == src_field::positional)
        fd.key = fd.value;
    if (f.value_ctor >= 0 && f.seq == seq_ - 1) {
        fd.constructor = f.value_ctor;
        map_.constructors[size_t(f.value_ctor)].parent = f.index;
    } else if (fd.kind == src_field::positional && fd.index > MAX_VALUES) {
        map_.constructors[size_t(f.index)].fields.pop_back();
        --fields_;
    }
    f.value_ctor = -1;
    f.state = fs::start;
}

// Follows the nesting; false when a token closes what is not open.
bool scanner::structure(const token &tok, bool lookahead)
{
    if (!stack_.empty() && stack_.back().kind == fk::key)
        key_literal(stack_.back(), tok);
    switch (tok.kind) {
    case tk::lbrace:
        open_constructor(tok, lookahead);
        return true;
    case tk::rbrace:
        return close_constructor(tok);
    case tk::lparen:
        push(fk::paren);
        return true;
    case tk::lbracket:
        push(fk::bracket);
        return true;
    case tk::rparen:
        if (stack_.empty() || stack_.back().kind != fk::paren)
            return false;
        stack_.pop_back();
        if (statement *s = context(); s && s->state == ss::header)
            s->state = ss::stat;
        return true;
    case tk::rbracket:
        return close_key(tok);
    case tk::kw_function:
        open_function(tok);
        return true;
    case tk::kw_if:
        push(fk::block);
        stack_.back().st.state = ss::operand; // its condition
        stack_.back().st.mode = sm::other;
        return true;
    case tk::kw_do:
        push(fk::block);
        return true;
    case tk::kw_repeat:
        push(fk::repeat);
        return true;
    case tk::kw_end:
        return close_block(tok);
    case tk::kw_until:
        if (!close_block(tok))
            return false;
        if (statement *s = context()) { // its condition
            s->state = ss::operand;
            s->mode = sm::other;
        }
        return true;
    default:
        return true;
    }
}

void scanner::open_constructor(const token &tok, bool lookahead)
{
    src_constructor c;
    c.span.begin = tok.begin;
    c.table_line = lookahead ? tok.end.line : prev_.kind == tk::eof ? 1 : prev_.end.line;
    c.function = fn_;
    map_.constructors.push_back(std::move(c));
    push(fk::brace, int32_t(map_.constructors.size() - 1));
}

bool scanner::close_constructor(const token &tok)
{
    if (stack_.empty() || stack_.back().kind != fk::brace)
        return false;
    int32_t index = stack_.back().index;
    map_.constructors[size_t(index)].span.end = tok.end;
    stack_.pop_back();
    if (!stack_.empty() && stack_.back().kind == fk::brace && stack_.back().value_ctor == index)
        stack_.back().seq = seq_;
    if (statement *s = context(); s && s->value_ctor == index)
        s->ctor_seq = seq_;
    return true;
}

// A ']': the end of an index, or of a constructor's key.
bool scanner::close_key(const token &tok)
{
    if (stack_.empty() || (stack_.back().kind != fk::bracket && stack_.back().kind != fk::key))
        return false;
    frame closed = stack_.back();
    stack_.pop_back();
    if (closed.kind == fk::bracket)
        return true;
    src_field &fd = field_of(closed);
    fd.key.end = tok.end;
    fd.literal_key = closed.literal != 0 && closed.literal + 1 == seq_;
    if (!fd.literal_key) {
        fd.name.clear();
        fd.index = 0;
    }
    stack_.back().state = fs::key_done;
    return true;
}

// Notes a key's literal: a string or number right after its '[', or a number
// right after "[-".
void scanner::key_literal(frame &f, const token &tok)
{
    bool negate = prev_.kind == tk::minus && seq_ == f.seq + 2;
    if (seq_ != f.seq + 1 && !negate)
        return;
    src_field &fd = field_of(f);
    if (tok.kind == tk::string && !negate) {
        fd.name = lex_.value();
        f.literal = seq_;
    }
    number n;
    if (tok.kind == tk::number && read_numeral(tok.text, n) && integer_key(n, negate, fd.index))
        f.literal = seq_;
}

void scanner::open_function(const token &tok)
{
    src_function fn;
    fn.span.begin = tok.begin;
    map_.functions.push_back(fn);
    push(fk::function, int32_t(map_.functions.size() - 1));
    stack_.back().outer = fn_;
    stack_.back().st.state = ss::header;
    fn_ = stack_.back().index;
    pending_fn_ = fn_;
    pending_local_ = prev_.kind == tk::kw_local;
    pending_skip_ = pending_local_ ? 1 : 0;
}

// Sets the line_defined of a function just opened: `function name` takes
// the line of `function`, the others that of the token after `function`
// (`function (`) or after `local function name` (its '(').
void scanner::settle_function_line(const token &tok)
{
    if (pending_fn_ < 0)
        return;
    if (pending_skip_ > 0) {
        pending_skip_--;
        return;
    }
    src_function &fn = map_.functions[size_t(pending_fn_)];
    fn.line_defined = tok.kind == tk::name && !pending_local_ ? fn.span.begin.line : tok.end.line;
    pending_fn_ = -1;
}

// `end` or `until`.
bool scanner::close_block(const token &tok)
{
    fk open = tok.kind == tk::kw_until ? fk::repeat : fk::block;
    if (stack_.empty() ||
        (stack_.back().kind != open && !(open == fk::block && stack_.back().kind == fk::function)))
        return false;
    if (stack_.back().kind == fk::function) {
        src_function &fn = map_.functions[size_t(stack_.back().index)];
        fn.span.end = tok.end;
        fn.last_line_defined = tok.end.line;
        fn_ = stack_.back().outer;
    }
    stack_.pop_back();
    return true;
}

void scanner::on_comment(const token &tok)
{
    bool whole_file = false;
    std::vector<std::string> rules = suppressed_rules(tok.text.substr(2), whole_file);
    bool trailing = prev_.kind != tk::eof && prev_.end.line == tok.begin.line;
    for (std::string &r : rules) {
        uint32_t line = whole_file ? 0 : trailing ? tok.begin.line : 0;
        if (!whole_file && !trailing)
            pending_supp_.push_back(map_.suppressions.size());
        map_.suppressions.push_back({line, std::move(r)});
    }
}

// Ends what is still open at the end of the text: statements and fields at
// the last token read, constructors and functions at `end`.
void scanner::close_all(src_pos end)
{
    for (size_t k = stack_.size(); k-- > 0;) // the innermost statements first
        if (fk kind = stack_[k].kind;
            kind == fk::function || kind == fk::block || kind == fk::repeat)
            end_statement(stack_[k].st);
    end_statement(main_);
    for (frame &f : stack_) {
        if (f.kind == fk::brace) {
            end_field(f);
            map_.constructors[size_t(f.index)].span.end = end;
        } else if (f.kind == fk::key) {
            src_field &fd = field_of(f);
            fd.key.end = end;
            fd.name.clear();
            fd.index = 0;
        } else if (f.kind == fk::function) {
            map_.functions[size_t(f.index)].span.end = end;
        }
    }
    stack_.clear();
}

// The current statement of the block the scan is in at its own level, or
// null inside brackets or a constructor.
statement *scanner::context()
{
    if (stack_.empty())
        return &main_;
    frame &f = stack_.back();
    return f.kind == fk::function || f.kind == fk::block || f.kind == fk::repeat ? &f.st : nullptr;
}

void scanner::note_literal(const token &tok)
{
    bool negate = prev_.kind == tk::minus;
    if (tok.kind == tk::string && prev_.kind == tk::lbracket) {
        lit_seq_ = seq_;
        lit_neg_ = false;
        lit_string_ = true;
        lit_name_ = lex_.value();
    } else if (tok.kind == tk::number && (negate || prev_.kind == tk::lbracket)) {
        number n;
        bool integral = read_numeral(tok.text, n) && integer_key(n, negate, lit_index_);
        lit_seq_ = integral ? seq_ : 0;
        lit_neg_ = negate;
        lit_string_ = false;
    }
}

// Moves a block's current statement on by a token at the block's own level,
// before structure() opens or closes what the token opens or closes: what
// it opens is passed over (the state is already the one after it).  A token
// that ends the statement starts the next one.
void scanner::statement_step(statement &s, const token &tok)
{
    for (;;) {
        switch (s.state) {
        case ss::header:
            return;
        case ss::stat:
        case ss::target:
            if (tok.kind == tk::name || tok.kind == tk::lparen) {
                if (s.state == ss::stat) {
                    s.mode = sm::targets;
                    s.position = 0;
                    s.pending = s.cursor = pending_.size();
                }
                s.state = ss::primary;
                s.candidate = true;
                s.index = false;
                s.target_begin = tok.begin.offset;
                return;
            }
            if (s.state == ss::target)
                break;
            if (tok.kind == tk::kw_local ||
                (tok.kind == tk::kw_other &&
                 (tok.text == "return" || tok.text == "for" || tok.text == "while" ||
                  tok.text == "elseif" || tok.text == "goto"))) {
                s.mode = sm::other;
                s.state = ss::operand;
                return;
            }
            if (!starts_operand(tok)) // a keyword or separator, or a stray token
                return;
            s.mode = sm::other;
            s.state = ss::operand;
            continue;
        case ss::operand:
            if (!starts_operand(tok))
                break;
            if (s.mode == sm::values && s.value_begin.line == 0) {
                s.value_begin = tok.begin;
                s.value_ctor = tok.kind == tk::lbrace ? int32_t(map_.constructors.size()) : -1;
            }
            if (!is_unary(tok))
                s.state = tok.kind == tk::name || tok.kind == tk::lparen ? ss::primary : ss::done;
            return;
        case ss::primary:
            if (tok.kind == tk::other && (tok.text == "." || tok.text == ":")) {
                s.state = tok.text == "." ? ss::dot : ss::colon;
                s.index = s.bracket = false;
                s.key_begin = tok.begin;
                return;
            }
            if (tok.kind == tk::lbracket) {
                s.index = s.bracket = true;
                s.key_begin = tok.begin;
                s.key_seq = seq_;
                return;
            }
            if (tok.kind == tk::lparen || tok.kind == tk::string || tok.kind == tk::lbrace) {
                s.index = false; // a call
                return;
            }
            [[fallthrough]];
        case ss::done:
            if (tok.kind == tk::assign || tok.kind == tk::comma) {
                bool comma = tok.kind == tk::comma;
                if (s.mode == sm::targets) {
                    if (s.candidate && s.index)
                        record_target(s);
                    s.position++;
                    s.state = comma ? ss::target : ss::operand;
                    if (!comma) {
                        s.mode = sm::values;
                        s.position = 0;
                    }
                } else {
                    if (s.mode == sm::values && comma) {
                        end_value(s);
                        s.position++;
                    }
                    s.state = ss::operand; // `local a, b =`, `for i = 1,`
                }
                s.candidate = false;
                return;
            }
            if (is_binary(tok) || (tok.kind == tk::kw_other && tok.text == "in")) {
                s.state = ss::operand;
                s.candidate = false;
                return;
            }
            break;
        case ss::dot:
        case ss::colon:
            if (tok.kind != tk::name)
                break;
            s.index = s.state == ss::dot;
            s.state = s.index ? ss::primary : ss::args;
            return;
        case ss::args:
            if (tok.kind != tk::lparen && tok.kind != tk::string && tok.kind != tk::lbrace)
                break;
            s.state = ss::primary;
            return;
        }
        end_statement(s); // and the token starts the next
    }
}

// Records the target that the token before the current one ends, as a
// field of an assignment still to be confirmed by its '='.
void scanner::record_target(const statement &s)
{
    src_assignment a;
    a.key = {s.key_begin, prev_.end};
    if (!s.bracket) {
        a.name = prev_.text;
        a.literal_key = true;
    } else if (lit_seq_ != 0 && lit_seq_ + 1 == prev_seq_ &&
               s.key_seq + (lit_neg_ ? 2 : 1) == lit_seq_) {
        a.literal_key = true;
        if (lit_string_)
            a.name = lit_name_;
        else
            a.index = lit_index_;
    }
    std::string_view text = lex_.text();
    a.target = squeeze(text.substr(s.target_begin, s.key_begin.offset - s.target_begin));
    a.function = fn_;
    pending_.push_back({map_.assignments.size(), s.position});
    map_.assignments.push_back(std::move(a));
}

// Ends the current value of an assignment at the token before the current
// one, and gives it to the target at its position.
void scanner::end_value(statement &s)
{
    if (s.value_begin.line == 0)
        return;
    while (s.cursor < pending_.size() && pending_[s.cursor].position < s.position)
        ++s.cursor;
    if (s.cursor < pending_.size() && pending_[s.cursor].position == s.position) {
        src_assignment &a = map_.assignments[pending_[s.cursor].assignment];
        a.value = {s.value_begin, prev_.end};
        if (s.value_ctor >= 0 && s.ctor_seq == prev_seq_)
            a.constructor = s.value_ctor;
    }
    s.value_begin = {};
    s.value_ctor = -1;
}

// Ends a block's current statement at the token before the current one.
// Targets that no '=' followed belong to no assignment: they are marked to
// be dropped.
void scanner::end_statement(statement &s)
{
    if (s.mode == sm::values)
        end_value(s);
    if (s.mode == sm::targets)
        for (size_t k = s.pending; k < pending_.size(); ++k)
            map_.assignments[pending_[k].assignment].function = -1;
    if (s.mode == sm::targets || s.mode == sm::values)
        pending_.erase(pending_.begin() + ptrdiff_t(s.pending), pending_.end());
    s.state = ss::stat;
    s.mode = sm::none;
    s.candidate = false;
    s.value_begin = {};
    s.value_ctor = -1;
}

} // namespace

src_map scan_source(std::string_view text)
{
    bool too_long = text.size() >= UINT32_MAX;
    src_map map = scanner(too_long ? text.substr(0, UINT32_MAX - 1) : text).run();
    if (too_long && map.complete) {
        map.complete = false;
        map.stopped = map.functions[0].span.end;
    }
    return map;
}

std::string_view span_text(std::string_view text, const src_span &s)
{
    if (s.none() || s.begin.offset > s.end.offset || s.end.offset > text.size())
        return {};
    return text.substr(s.begin.offset, s.end.offset - s.begin.offset);
}

} // namespace kivtool
