// Where things stand in a configuration script: a scan of the Lua 5.3 text,
// without running it, that finds every table constructor with the places of
// its fields, every assignment to a field outside them, and every function
// literal.  At run time the tool learns, for
// each table the script creates, the line the interpreter's debug
// information gives to its creation and the function that ran it; this map
// tells which constructor that was and where each of its keys was written.
#ifndef KIV_TOOL_MODEL_SOURCE_H
#define KIV_TOOL_MODEL_SOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kivtool
{

// A place in a script.  line and col count from 1; col counts bytes from the
// start of the line; offset counts bytes from the start of the text.  A
// line break is "\n", "\r", "\r\n" or "\n\r", as the interpreter counts them.
struct src_pos {
    uint32_t line = 0, col = 0, offset = 0;
};

// A stretch of text: begin is its first byte, end the byte just after its
// last (so for one character end.col == begin.col + 1).  A default span
// (line 0) is "none".
struct src_span {
    src_pos begin, end;
    bool none() const { return begin.line == 0; }
};

// One field of a table constructor: `name = exp`, `[exp] = exp` or `exp`.
struct src_field {
    enum kind_t : uint8_t { named, bracketed, positional } kind = positional;
    // named: the name; bracketed: the key's string when it is a string
    // literal (escapes decoded, long strings too).
    std::string name;
    // positional: its array position (1, 2, ...); bracketed: the integer when
    // the key is an integer literal, or a float literal with an integral
    // value (Lua 5.3 stores [2.0] under 2), a minus sign before it included.
    int64_t index = 0;
    // bracketed: the key is a string literal, or a number literal (with or
    // without a minus sign) that the table stores under an integer.
    bool literal_key = false;
    src_span key;   // named: the name; bracketed: '[' to ']'; positional: the same as value
    src_span value; // the value expression, first token to last; none when it is missing
    // When the value is exactly one table constructor `{...}` (nothing
    // before or after it in the field): its index in src_map::constructors;
    // otherwise -1.
    int32_t constructor = -1;
};

// A table constructor `{ ... }`.
struct src_constructor {
    src_span span; // '{' to '}' inclusive; an unclosed one ends at the end of the text
    // The line the interpreter's debug information gives to the creation of
    // this table: the line on which the token just before '{' ends (1 when
    // there is none), or the line of the '{' itself when the token before it
    // is a name that starts a field of the enclosing constructor (`{ f {} }`:
    // the interpreter has already read the '{' to see whether `=` follows).
    uint32_t table_line = 0;
    // The innermost function literal containing it: index into src_map::functions.
    int32_t function = 0;
    int32_t parent = -1; // the constructor of which this one is directly a field's value, or -1
    // In source order; positional fields past the 4096th whose value is not
    // a constructor are left out (no configuration array is that long).
    std::vector<src_field> fields;
};

// A function literal, or the main chunk.
struct src_function {
    src_span span; // from `function` to its `end`; the main chunk: the whole text
    // As the interpreter's debug information reports it: for `function a.b:c(`
    // the line of `function`; for `local function f(` and `function (` the
    // line of the '(' that opens the parameters; 0 for the main chunk and
    // when the text ends before the '('.
    uint32_t line_defined = 0;
    // The line of its `end`; 0 for the main chunk and an unclosed function.
    uint32_t last_line_defined = 0;
};

// A comment that silences lint rules: `-- kiv-lint: disable=RULE[,RULE...]`
// silences them on its own line when code stands before it there, otherwise
// on the next line that holds a token (none when no token follows);
// `-- kiv-lint: disable-file=RULE[,RULE...]` silences them in the whole file.
// The directive may follow a remark in the same comment (`-- feeds the warp;
// kiv-lint: disable=unbound-buffer`).
struct src_suppression {
    uint32_t line = 0; // the line whose findings it silences; 0: the whole file
    std::string rule;
};

// An assignment statement to a field of a table, outside any constructor:
// `prefix.name = value`, `prefix[key] = value`, one per such target of a
// multiple assignment (`a.x, b[2], c = 1, 2, 3` gives `a.x` and `b[2]`).
// Targets that are plain names are not fields and are left out.
struct src_assignment {
    // The key when it is a name (`.name`) or a string literal (`["name"]`,
    // escapes decoded).
    std::string name;
    // The key when it is an integer literal, or a float literal with an
    // integral value, a minus sign before it included (as src_field::index).
    int64_t index = 0;
    // The key is a name or a literal: name or index above holds it.
    bool literal_key = false;
    // The text of the prefix expression the key indexes (`cfg.channels[1].vsrc`
    // for `cfg . channels [ 1 ] . vsrc . bits = 10`): its tokens as written,
    // blanks and comments left out but for a space between two tokens that
    // would otherwise run together (`t[a and b]`); cut at max_target bytes.
    std::string target;
    src_span key; // `.name` from the dot to the end of the name, or '[' to ']'
    // The value assigned to this target: the expression at the same position
    // in the expression list, first token to last; none when there is none
    // (fewer expressions than targets).
    src_span value;
    // When that value is exactly one table constructor: its index in
    // src_map::constructors; otherwise -1.
    int32_t constructor = -1;
    // The innermost function literal containing the statement: index into
    // src_map::functions.
    int32_t function = 0;

    static constexpr size_t max_target = 256;
};

struct src_map {
    std::vector<src_constructor> constructors; // in the order of their '{'
    // [0] is the main chunk, the others in the order of their `function`.
    std::vector<src_function> functions;
    std::vector<src_suppression> suppressions; // in the order of their comments
    // In the order of their keys.  A statement cut short where the scan
    // stops is kept when its '=' was read, its last value running to the
    // last token read; targets that no '=' follows are left out (`a.x, b.y`
    // and no '=').
    std::vector<src_assignment> assignments;
    // False when the scan could not follow the text to its end: a token that
    // cannot be read (an unfinished string or comment, a malformed number or
    // escape, a byte that starts no token), a closing bracket, `end` or
    // `until` that closes nothing open, a constructor, bracket or block
    // still open at the end, or more fields, constructors, functions or
    // assignments than any configuration has (half a million, so that the
    // map of any text stays within about a hundred MB).  What came before
    // is kept.
    bool complete = true;
    src_pos stopped; // where the scan stopped when not complete: where the bad token began
};

// The map of a script's text, as the interpreter reads a script file (a
// leading UTF-8 byte order mark is skipped, and a first line starting with
// '#').  Any text can be given: the scan takes time linear in its length and
// never nests on the call stack.
src_map scan_source(std::string_view text);

// The text of a span ("" for none or a span outside the text).
std::string_view span_text(std::string_view text, const src_span &s);

} // namespace kivtool

#endif
