// The interpreter's lexer, on a script's text: tokens with their places,
// string literals decoded and numerals read as the interpreter reads them.
// The source map's scan and the flow of values both read the text through it.
#ifndef KIV_TOOL_MODEL_LEX_H
#define KIV_TOOL_MODEL_LEX_H

#include <cstdint>
#include <string>
#include <string_view>

#include "model/source.h"

namespace kivtool
{

// Token kinds: bad is a token that cannot be read, comment a short comment
// (long ones are skipped unless kept, long_comment tells next() so); other is any
// other operator or punctuation, kw_other any other keyword.
enum class tk : uint8_t {
    eof,
    bad,
    comment,
    long_comment,
    name,
    string,
    number,
    lbrace,
    rbrace,
    lparen,
    rparen,
    lbracket,
    rbracket,
    comma,
    semi,
    assign,
    minus,
    other,
    kw_function,
    kw_end,
    kw_if,
    kw_do,
    kw_repeat,
    kw_until,
    kw_local,
    kw_other
};

struct token {
    tk kind = tk::eof;
    src_pos begin, end;
    std::string_view text;
};

bool is_digit(int c);
bool is_alpha(int c);

// A number literal's value.
struct number {
    bool integer = false;
    int64_t i = 0;
    double d = 0;
};

// Reads a numeral as the interpreter does; false when it calls it malformed.
bool read_numeral(std::string_view s, number &out);
// The integer under which a table stores a number key, if it does.
bool integer_key(const number &n, bool negate, int64_t &key);

// The interpreter's lexer, on a script file's text (or, not `script`, on a
// piece of one).
class lexer
{
  public:
    explicit lexer(std::string_view text, bool script = true) : t_(text)
    {
        if (script)
            skip_prefix();
    }

    // The next token: eof at the end of the text, bad when one cannot be
    // read (then its begin is where it starts).
    token next();
    // Long comments come out of next() as long_comment tokens from now on
    // (the editor's folding of comments); otherwise they are skipped.
    void keep_long_comments() { long_comments_ = true; }
    src_pos here() const { return {line_, uint32_t(i_ - line_start_ + 1), uint32_t(i_)}; }
    // The end of the text, its line breaks after the current point counted.
    src_pos end_of_text();
    // The value of the last string token, escapes decoded.
    const std::string &value() const { return value_; }
    std::string_view text() const { return t_; }

  private:
    int peek(size_t k = 0) const { return i_ + k < t_.size() ? (unsigned char)t_[i_ + k] : -1; }
    void skip_prefix();
    void newline();
    tk read();
    tk two(int second, tk one_kind = tk::other);
    tk comment();
    int long_open(size_t at) const;
    bool long_bracket(int level, bool keep);
    tk short_string();
    bool escape();
    bool utf8_escape();
    tk numeral();
    tk name();

    std::string_view t_;
    size_t i_ = 0;
    uint32_t line_ = 1;
    size_t line_start_ = 0;
    std::string value_;
    bool long_comments_ = false;
};

} // namespace kivtool

#endif
