#include "model/structure.h"

#include <vector>

#include "model/lex.h"

namespace kivtool
{

namespace
{

enum class opener : uint8_t {
    brace,
    paren,
    bracket,
    function,
    if_block,
    for_loop,
    while_loop,
    do_block,
    repeat_loop
};

struct open_item {
    opener kind = opener::brace;
    token tok;                // the token that opened it
    std::string_view indent;  // the indentation of its line
    bool indent_known = true; // its line starts with blanks (not inside a token begun above)
    bool awaiting = false;    // a for or while before its 'do', an if before its 'then'
    // A closer of its kind closed an opener of its line after it (the end
    // of the last one): that closer may have been its own, and the other
    // opener the one left open.
    bool shared = false;
    src_pos shared_end;
};

// Deeper than the interpreter nests, a script is refused for that alone.
constexpr size_t max_depth = 200;

// Where a line stands to an opener's line: indented more (inside it), as
// much (level with it), less (out of it), or neither indentation begins
// the other (tabs against spaces).
enum class stand { inside, level, out, unknown };

stand stand_of(std::string_view line, const open_item &o)
{
    if (!o.indent_known)
        return stand::unknown;
    if (line == o.indent)
        return stand::level;
    if (line.starts_with(o.indent))
        return stand::inside;
    if (o.indent.starts_with(line))
        return stand::out;
    return stand::unknown;
}

bool is_word(const token &t, std::string_view w)
{
    return t.kind == tk::kw_other && t.text == w;
}

bool is_closer(const token &t)
{
    return t.kind == tk::rbrace || t.kind == tk::rparen || t.kind == tk::rbracket ||
           t.kind == tk::kw_end || t.kind == tk::kw_until;
}

bool closes(const token &t, opener o)
{
    switch (t.kind) {
    case tk::rbrace:
        return o == opener::brace;
    case tk::rparen:
        return o == opener::paren;
    case tk::rbracket:
        return o == opener::bracket;
    case tk::kw_end:
        return o == opener::function || o == opener::if_block || o == opener::for_loop ||
               o == opener::while_loop || o == opener::do_block;
    case tk::kw_until:
        return o == opener::repeat_loop;
    default:
        return false;
    }
}

// Whether a token can end a value, so that a field may end with it.
bool ends_value(const token &t)
{
    switch (t.kind) {
    case tk::name:
    case tk::string:
    case tk::number:
    case tk::rbrace:
    case tk::rparen:
    case tk::rbracket:
    case tk::kw_end:
        return true;
    case tk::kw_other:
        return t.text == "true" || t.text == "false" || t.text == "nil";
    case tk::other:
        return t.text == "...";
    default:
        return false;
    }
}

// Whether a token can begin a field: a name, a '[' key, or a value.
bool starts_field(const token &t)
{
    switch (t.kind) {
    case tk::name:
    case tk::string:
    case tk::number:
    case tk::lbrace:
    case tk::lparen:
    case tk::lbracket:
    case tk::minus:
    case tk::kw_function:
        return true;
    case tk::kw_other:
        return t.text == "true" || t.text == "false" || t.text == "nil" || t.text == "not";
    case tk::other:
        return t.text == "..." || t.text == "#" || t.text == "~";
    default:
        return false;
    }
}

// One read of the script's tokens, the brackets and blocks it opens held to
// its indentation.  One opener that the indentation shows open is taken as
// closed where its closer belongs (the repair); a second one, or anything
// the indentation cannot tell, ends the reading unsure.
class walk
{
  public:
    walk(std::string_view text, uint32_t line) : lex_(text), text_(text), line_(line) {}

    // Reads the whole script: true when every bracket and block closes
    // where the indentation says, the repair (if any) made.
    bool run();

    // The repair: the opener left open, the line back at its indentation,
    // and the line of the first token after where its closer belongs.
    bool repaired = false;
    open_item unclosed;
    uint32_t back_line = 0, resume_line = 0;

    // The first token of the interpreter's line, the token before it, and
    // the line of the constructor it is in (0 for none), which closed
    // where indented with nothing wrong before.
    bool at_line = false;
    token first, before;
    uint32_t brace_line = 0;
    bool brace_closed = false;

  private:
    bool line_start(const token &t);
    bool step(const token &t);
    bool push(opener kind, const token &t, bool awaiting = false);
    bool close(const token &t);
    bool goes_on(const token &t) const;
    bool leave_open(uint32_t back, const token &at);

    lexer lex_;
    std::string_view text_;
    uint32_t line_;
    std::vector<open_item> stack_;
    std::string_view indent_; // of the line being read
    bool indent_known_ = false;
    // The openers level with the line being read that it has yet to close
    // before anything else.
    size_t owed_ = 0;
    uint32_t owed_line_ = 0;
};

bool walk::run()
{
    token prev;
    bool have_prev = false;
    size_t watch = 0; // the depth of the constructor holding `first`, while open
    for (;;) {
        const token t = lex_.next();
        if (t.kind == tk::comment)
            continue;
        if (t.kind == tk::bad)
            return false;
        const bool starts = !have_prev || t.begin.line > prev.end.line;
        if (owed_ > 0 && (starts || t.kind == tk::eof)) {
            // The line before ended with an opener level with it still open.
            if (owed_ > 1 || !leave_open(owed_line_, t))
                return false;
            owed_ = 0;
        }
        if (t.kind == tk::eof)
            return stack_.empty();
        if (starts && t.begin.line == line_ && !at_line) {
            at_line = true;
            first = t;
            before = prev;
            if (have_prev && !stack_.empty() && stack_.back().kind == opener::brace) {
                watch = stack_.size();
                brace_line = stack_.back().tok.begin.line;
            }
        }
        if (starts && !line_start(t))
            return false;
        if (!step(t))
            return false;
        if (watch > 0 && stack_.size() < watch) {
            brace_closed = !repaired;
            watch = 0;
        }
        // A token over several lines leaves the line it ends on without an
        // indentation of its own.
        if (t.end.line > t.begin.line)
            indent_known_ = false;
        prev = t;
        have_prev = true;
    }
}

// A line's first token: the openers of deeper lines must have closed, and
// those level with it must close first thing on it (or go on: `else`).
bool walk::line_start(const token &t)
{
    const size_t from = t.begin.offset - (t.begin.col - 1);
    indent_ = text_.substr(from, t.begin.offset - from);
    // Not blanks alone: the line begins inside a long comment.
    if (indent_.find_first_not_of(" \t") != std::string_view::npos)
        return false;
    indent_known_ = true;
    // From the top of the stack, openers the line is out of, then level
    // with, then inside of; anything else is no indentation to go by.
    size_t k = stack_.size(), out = 0, level = 0;
    for (; k > 0 && stand_of(indent_, stack_[k - 1]) == stand::out; --k)
        ++out;
    for (; k > 0 && stand_of(indent_, stack_[k - 1]) == stand::level; --k)
        ++level;
    for (; k > 0 && stand_of(indent_, stack_[k - 1]) == stand::inside; --k) {
    }
    if (k > 0 || out > 1)
        return false;
    if (out == 1 && !leave_open(t.begin.line, t))
        return false;
    owed_ = level;
    owed_line_ = t.begin.line;
    return true;
}

bool walk::step(const token &t)
{
    if (owed_ > 0) {
        if (is_closer(t)) {
            --owed_;
            return close(t);
        }
        if (goes_on(t)) {
            owed_ = 0;
        } else {
            if (owed_ > 1 || !leave_open(owed_line_, t))
                return false;
            owed_ = 0;
        }
    }
    switch (t.kind) {
    case tk::lbrace:
        return push(opener::brace, t);
    case tk::lparen:
        return push(opener::paren, t);
    case tk::lbracket:
        return push(opener::bracket, t);
    case tk::kw_function:
        return push(opener::function, t);
    case tk::kw_if:
        return push(opener::if_block, t, true);
    case tk::kw_repeat:
        return push(opener::repeat_loop, t);
    case tk::kw_do:
        if (!stack_.empty() && stack_.back().awaiting &&
            (stack_.back().kind == opener::for_loop || stack_.back().kind == opener::while_loop)) {
            stack_.back().awaiting = false;
            return true;
        }
        return push(opener::do_block, t);
    case tk::rbrace:
    case tk::rparen:
    case tk::rbracket:
    case tk::kw_end:
    case tk::kw_until:
        return close(t);
    case tk::kw_other:
        if (t.text == "for")
            return push(opener::for_loop, t, true);
        if (t.text == "while")
            return push(opener::while_loop, t, true);
        if (t.text == "then" && !stack_.empty() && stack_.back().kind == opener::if_block)
            stack_.back().awaiting = false;
        if (t.text == "else" || t.text == "elseif") {
            if (stack_.empty() || stack_.back().kind != opener::if_block)
                return false;
            stack_.back().awaiting = t.text == "elseif";
        }
        return true;
    default:
        return true;
    }
}

bool walk::push(opener kind, const token &t, bool awaiting)
{
    if (stack_.size() >= max_depth)
        return false;
    open_item o;
    o.kind = kind;
    o.tok = t;
    o.indent = indent_;
    o.indent_known = indent_known_;
    o.awaiting = awaiting;
    stack_.push_back(o);
    return true;
}

bool walk::close(const token &t)
{
    if (stack_.empty() || !closes(t, stack_.back().kind))
        return false;
    const uint32_t line = stack_.back().tok.begin.line;
    stack_.pop_back();
    // Only the opener below can have been closed by it instead: one of
    // another kind in between would have been left open inside it.
    if (!stack_.empty() && stack_.back().tok.begin.line == line && closes(t, stack_.back().kind)) {
        stack_.back().shared = true;
        stack_.back().shared_end = t.end;
    }
    return true;
}

// Whether a token at the start of a line level with the innermost opener
// goes on with it rather than closing it.
bool walk::goes_on(const token &t) const
{
    const open_item &o = stack_.back();
    if (o.kind == opener::if_block)
        return is_word(t, "else") || is_word(t, "elseif") || (o.awaiting && is_word(t, "then"));
    if (o.kind == opener::for_loop || o.kind == opener::while_loop)
        return o.awaiting && t.kind == tk::kw_do;
    return false;
}

// The repair: the innermost opener is taken as closed just before `at`.
bool walk::leave_open(uint32_t back, const token &at)
{
    if (repaired || stack_.empty())
        return false;
    repaired = true;
    unclosed = stack_.back();
    stack_.pop_back();
    back_line = back;
    resume_line = at.begin.line;
    return true;
}

// "the '{' at line 12 is not closed: ...", or "a '{' at line 12" when
// another opener of its line may be the one.
std::string open_note(const walk &w)
{
    const open_item &o = w.unclosed;
    const bool block =
        o.kind != opener::brace && o.kind != opener::paren && o.kind != opener::bracket;
    const std::string line = " at line " + std::to_string(o.tok.begin.line);
    std::string what;
    if (!o.shared)
        what = "the '" + std::string(o.tok.text) + "'" + line;
    else if (block && o.kind != opener::repeat_loop)
        what = "a block" + line;
    else
        what = "a '" + std::string(o.tok.text) + "'" + line;
    return what +
           (!block                          ? " is not closed"
            : o.kind == opener::repeat_loop ? " has no 'until'"
                                            : " has no 'end'") +
           ": the lines after it go back to its indentation at line " + std::to_string(w.back_line);
}

// The start of the line after the last line holding code between line
// `from` (exclusive) and line `back` (exclusive); none when that is `back`
// itself (no line is free for the missing word).
src_span end_place(std::string_view text, uint32_t from, uint32_t back)
{
    std::vector<size_t> starts{0};
    for (size_t i = 0; i < text.size() && starts.size() <= back; ++i)
        if (text[i] == '\n')
            starts.push_back(i + 1);
    if (back < 2 || starts.size() < back)
        return {};
    uint32_t last = 0;
    for (uint32_t l = from + 1; l < back; ++l) {
        std::string_view code = text.substr(starts[l - 1], starts[l] - starts[l - 1]);
        const size_t b = code.find_first_not_of(" \t\r\n");
        if (b != std::string_view::npos && code.substr(b, 2) != "--")
            last = l;
    }
    if (last == 0 || last + 1 >= back)
        return {};
    const uint32_t at = static_cast<uint32_t>(starts[last]);
    return {{last + 1, 1, at}, {last + 1, 2, at + 1}};
}

} // namespace

structure_hint hint_structure(std::string_view text, uint32_t line, std::string_view message)
{
    structure_hint h;
    // Only the parser's errors, which say the token they stopped at.
    if (line == 0 || message.find(" near ") == std::string_view::npos)
        return h;
    walk w(text, line);
    const bool sure = w.run();

    if (w.at_line && w.brace_closed && ends_value(w.before) && starts_field(w.first) &&
        message.starts_with("'}' expected (to close '{' at line " + std::to_string(w.brace_line) +
                            ") near '" + std::string(w.first.text) + "'")) {
        const src_pos &e = w.before.end;
        h.where.begin = {e.line, e.col - 1, e.offset - 1};
        h.where.end = e;
        h.note = "is a ',' missing at the end of line " + std::to_string(e.line) + "?";
        return h;
    }
    if (sure && w.repaired && line >= w.resume_line) {
        const open_item &o = w.unclosed;
        h.where = {o.tok.begin, o.shared ? o.shared_end : o.tok.end};
        h.note = open_note(w);
        // A block's `end` belongs on the line after its last line of code:
        // placed there, where the author left it out.
        const bool block =
            o.kind != opener::brace && o.kind != opener::paren && o.kind != opener::bracket;
        if (block && !o.shared)
            if (const src_span e = end_place(text, o.tok.begin.line, w.back_line); !e.none())
                h.where = e;
    }
    return h;
}

} // namespace kivtool
