#include "model/lex.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <iterator>

namespace kivtool
{

bool is_digit(int c)
{
    return c >= '0' && c <= '9';
}
static bool is_xdigit(int c)
{
    return is_digit(c) || ((c | 32) >= 'a' && (c | 32) <= 'f');
}
bool is_alpha(int c)
{
    return ((c | 32) >= 'a' && (c | 32) <= 'z') || c == '_';
}
static bool is_newline(int c)
{
    return c == '\n' || c == '\r';
}
// Blanks as the interpreter's "\z" skips them (line breaks included).
static bool is_space(int c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}
static int hex_value(int c)
{
    return is_digit(c) ? c - '0' : (c | 32) - 'a' + 10;
}

// The kind of a name: one of the keywords, or a plain name.
static tk name_kind(std::string_view s)
{
    static const std::string_view words[] = {"function", "end",  "if",    "do",   "repeat", "until",
                                             "local",    "and",  "break", "else", "elseif", "false",
                                             "for",      "goto", "in",    "nil",  "not",    "or",
                                             "return",   "then", "true",  "while"};
    static const tk kinds[] = {tk::kw_function, tk::kw_end,   tk::kw_if,   tk::kw_do,
                               tk::kw_repeat,   tk::kw_until, tk::kw_local};
    if (s.size() < 2 || s.size() > 8 || s[0] < 'a' || s[0] > 'w')
        return tk::name;
    for (size_t k = 0; k < std::size(words); ++k)
        if (words[k] == s)
            return k < std::size(kinds) ? kinds[k] : tk::kw_other;
    return tk::name;
}

// Digits in base 16 (hex) or 10 from s[k]; returns how many, k moved past them.
static size_t skip_digits(std::string_view s, size_t &k, bool hex)
{
    size_t from = k;
    while (k < s.size() && (hex ? is_xdigit(s[k]) : is_digit(s[k])))
        ++k;
    return k - from;
}

// Whether a float numeral too large or too small for a double is large:
// the power of its base at its first significant digit, plus its exponent,
// is positive.  (mant: the digits and point; exp: the exponent's text.)
static bool overflows(std::string_view mant, std::string_view exp, bool hex)
{
    int64_t lead = 0, e = 0;
    size_t point = mant.find('.'), first = mant.find_first_not_of("0.");
    if (point == std::string_view::npos)
        point = mant.size();
    if (first != std::string_view::npos)
        lead = first < point ? int64_t(point - first) : -int64_t(first - point);
    size_t k = exp.empty() ? 0 : 1 + (exp.size() > 1 && (exp[1] == '-' || exp[1] == '+'));
    for (; k < exp.size(); ++k)
        e = std::min<int64_t>(e * 10 + (exp[k] - '0'), int64_t(1) << 40);
    if (exp.size() > 1 && exp[1] == '-')
        e = -e;
    return (hex ? 4 * lead : lead) + e > 0;
}

// Reads a numeral as the interpreter does; false when it calls it malformed.
bool read_numeral(std::string_view s, number &out)
{
    bool hex = s.size() >= 2 && s[0] == '0' && (s[1] | 32) == 'x';
    std::string_view body = hex ? s.substr(2) : s;
    size_t k = 0;
    size_t digits = skip_digits(body, k, hex);
    if (digits > 0 && k == body.size()) { // an integer, unless a decimal one overflows
        uint64_t v = 0;
        bool fits = true;
        for (char c : body) {
            if (!hex && v > (uint64_t(INT64_MAX) - (c - '0')) / 10)
                fits = false;
            v = v * (hex ? 16 : 10) + uint64_t(hex_value(c));
        }
        if (fits) {
            out.integer = true;
            out.i = int64_t(v);
            return true;
        }
    }
    if (k < body.size() && body[k] == '.') {
        ++k;
        digits += skip_digits(body, k, hex);
    }
    size_t mant_end = k;
    if (digits == 0)
        return false;
    if (k < body.size() && (body[k] | 32) == (hex ? 'p' : 'e')) {
        ++k;
        if (k < body.size() && (body[k] == '+' || body[k] == '-'))
            ++k;
        if (skip_digits(body, k, false) == 0)
            return false;
    }
    if (k != body.size())
        return false;
    auto fmt = hex ? std::chars_format::hex : std::chars_format::general;
    out.integer = false;
    if (std::from_chars(body.data(), body.data() + body.size(), out.d, fmt).ec != std::errc())
        out.d = overflows(body.substr(0, mant_end), body.substr(mant_end), hex) ? HUGE_VAL : 0.0;
    return true;
}

// The integer under which a table stores a number key, if it does.
bool integer_key(const number &n, bool negate, int64_t &key)
{
    if (n.integer) {
        key = negate ? int64_t(0 - uint64_t(n.i)) : n.i;
        return true;
    }
    double d = negate ? -n.d : n.d;
    if (!(d >= -0x1p63 && d < 0x1p63) || d != std::floor(d))
        return false;
    key = int64_t(d);
    return true;
}

// Appends code point `cp` in UTF-8 (the interpreter's form, up to six bytes).
static void put_utf8(std::string &out, uint32_t cp)
{
    if (cp < 0x80) {
        out += char(cp);
        return;
    }
    char buf[8];
    int n = 0;
    uint32_t limit = 0x3f; // the largest value the first byte still has room for
    do {
        buf[7 - n++] = char(0x80 | (cp & 0x3f));
        cp >>= 6;
        limit >>= 1;
    } while (cp > limit);
    buf[7 - n] = char((~limit << 1) | cp);
    out.append(buf + 7 - n, size_t(n) + 1);
}

// Skips what the interpreter skips before a script file: a UTF-8 byte order
// mark, then a first line starting with '#' up to its '\n', which then ends
// line 1 as a line break of its own (a '\r' right after joins it).
void lexer::skip_prefix()
{
    if (t_.substr(0, 3) == "\xEF\xBB\xBF")
        i_ = line_start_ = 3;
    if (peek() != '#')
        return;
    size_t nl = t_.find('\n', i_);
    if (nl == std::string_view::npos) {
        i_ = t_.size();
        return;
    }
    i_ = nl + 1;
    if (peek() == '\r')
        ++i_;
    ++line_;
    line_start_ = i_;
}

// Skips one line break: "\n", "\r", "\r\n" or "\n\r".
void lexer::newline()
{
    int c = peek();
    ++i_;
    if (is_newline(peek()) && peek() != c)
        ++i_;
    ++line_;
    line_start_ = i_;
}

src_pos lexer::end_of_text()
{
    while (i_ < t_.size())
        is_newline(t_[i_]) ? newline() : void(++i_);
    return here();
}

token lexer::next()
{
    for (;;) {
        int c = peek();
        if (is_newline(c)) {
            newline();
            continue;
        }
        if (c == ' ' || c == '\t' || c == '\v' || c == '\f') {
            ++i_;
            continue;
        }
        token tok;
        tok.begin = here();
        size_t start = i_;
        tok.kind = c < 0 ? tk::eof : read();
        if (tok.kind == tk::long_comment && !long_comments_)
            continue;
        tok.end = tok.kind == tk::bad ? tok.begin : here();
        tok.text = t_.substr(start, i_ - start);
        return tok;
    }
}

tk lexer::read()
{
    int c = peek();
    switch (c) {
    case '-':
        if (peek(1) == '-')
            return comment();
        ++i_;
        return tk::minus;
    case '[': {
        int level = long_open(i_);
        if (level >= 0)
            return long_bracket(level, true) ? tk::string : tk::bad;
        if (level < -1)
            return tk::bad; // "[=" without its second '['
        ++i_;
        return tk::lbracket;
    }
    case '=':
        return two('=', tk::assign);
    case '<':
        return peek(1) == '<' ? (i_ += 2, tk::other) : two('=');
    case '>':
        return peek(1) == '>' ? (i_ += 2, tk::other) : two('=');
    case '/':
        return two('/');
    case '~':
        return two('=');
    case ':':
        return two(':');
    case '"':
    case '\'':
        return short_string();
    case '.':
        if (is_digit(peek(1)))
            return numeral();
        i_ += peek(1) != '.' ? 1 : peek(2) == '.' ? 3 : 2;
        return tk::other;
    }
    static const char singles[] = "{}()],;+*%^#&|";
    static const tk kinds[] = {tk::lbrace,   tk::rbrace, tk::lparen, tk::rparen,
                               tk::rbracket, tk::comma,  tk::semi};
    for (size_t k = 0; singles[k]; ++k)
        if (c == singles[k]) {
            ++i_;
            return k < std::size(kinds) ? kinds[k] : tk::other;
        }
    if (is_digit(c))
        return numeral();
    if (is_alpha(c))
        return name();
    return tk::bad;
}

// A one-character operator, or two characters when `second` follows.
tk lexer::two(int second, tk one_kind)
{
    if (peek(1) == second) {
        i_ += 2;
        return tk::other;
    }
    ++i_;
    return one_kind;
}

// Reads a comment from its "--": a long one when a long bracket opens it.
tk lexer::comment()
{
    i_ += 2;
    if (peek() == '[') {
        int level = long_open(i_);
        if (level >= 0)
            return long_bracket(level, false) ? tk::long_comment : tk::bad;
    }
    while (i_ < t_.size() && !is_newline(t_[i_]))
        ++i_;
    return tk::comment;
}

// At a '[': the level of the long bracket it opens ("[==[": 2), -1 when it
// opens none, less when '='s follow it without a second '['.
int lexer::long_open(size_t at) const
{
    size_t k = at + 1;
    while (k < t_.size() && t_[k] == '=')
        ++k;
    if (k - at - 1 > INT_MAX / 2)
        return -2;
    int level = int(k - at - 1);
    return k < t_.size() && t_[k] == '[' ? level : -level - 1;
}

// Reads a long string or comment from its opening bracket; its contents go
// to value_ when `keep` (a line break right after the bracket left out,
// every line break as "\n").  False when it is unfinished.
bool lexer::long_bracket(int level, bool keep)
{
    value_.clear();
    i_ += size_t(level) + 2;
    if (is_newline(peek()))
        newline();
    for (;;) {
        size_t from = i_;
        while (i_ < t_.size() && t_[i_] != ']' && !is_newline(t_[i_]))
            ++i_;
        if (keep)
            value_.append(t_, from, i_ - from);
        if (i_ >= t_.size())
            return false;
        if (is_newline(t_[i_])) {
            newline();
            if (keep)
                value_ += '\n';
            continue;
        }
        size_t k = i_ + 1;
        while (k < t_.size() && t_[k] == '=')
            ++k;
        if (k - i_ - 1 == size_t(level) && k < t_.size() && t_[k] == ']') {
            i_ = k + 1;
            return true;
        }
        if (keep)
            value_.append(t_, i_, k - i_);
        i_ = k;
    }
}

tk lexer::short_string()
{
    char quote = t_[i_++];
    value_.clear();
    for (;;) {
        size_t from = i_;
        while (i_ < t_.size() && t_[i_] != quote && t_[i_] != '\\' && !is_newline(t_[i_]))
            ++i_;
        value_.append(t_, from, i_ - from);
        if (i_ >= t_.size() || is_newline(t_[i_]))
            return tk::bad;
        if (t_[i_] == quote) {
            ++i_;
            return tk::string;
        }
        if (!escape())
            return tk::bad;
    }
}

// Reads an escape sequence from its backslash into value_; false when it is
// not one the interpreter knows.
bool lexer::escape()
{
    ++i_;
    int c = peek();
    static const std::string_view plain = "abfnrtv\\\"'", meant = "\a\b\f\n\r\t\v\\\"'";
    if (size_t k = plain.find(char(c)); c > 0 && k != std::string_view::npos) {
        value_ += meant[k];
        ++i_;
        return true;
    }
    if (is_newline(c)) {
        newline();
        value_ += '\n';
        return true;
    }
    if (c == 'x') {
        if (!is_xdigit(peek(1)) || !is_xdigit(peek(2)))
            return false;
        value_ += char(hex_value(peek(1)) * 16 + hex_value(peek(2)));
        i_ += 3;
        return true;
    }
    if (c == 'u')
        return utf8_escape();
    if (c == 'z') {
        for (++i_; is_space(peek());)
            is_newline(peek()) ? newline() : void(++i_);
        return true;
    }
    if (!is_digit(c))
        return false;
    int v = 0;
    for (int n = 0; n < 3 && is_digit(peek()); ++n)
        v = v * 10 + (t_[i_++] - '0');
    value_ += char(v);
    return v <= 255;
}

// Reads "u{XXX}" (code points up to 10FFFF) into value_.
bool lexer::utf8_escape()
{
    if (peek(1) != '{' || !is_xdigit(peek(2)))
        return false;
    i_ += 2;
    uint32_t cp = 0;
    for (; is_xdigit(peek()); ++i_) {
        cp = cp * 16 + uint32_t(hex_value(peek()));
        if (cp > 0x10FFFF)
            return false;
    }
    if (peek() != '}')
        return false;
    ++i_;
    put_utf8(value_, cp);
    return true;
}

// Reads a numeral as greedily as the interpreter does (hexadecimal digits,
// points and exponents with their signs), then checks it.
tk lexer::numeral()
{
    size_t start = i_;
    if (peek() == '.')
        ++i_;
    int first = peek();
    ++i_;
    char expo = 'e';
    if (first == '0' && (peek() | 32) == 'x') {
        ++i_;
        expo = 'p';
    }
    for (;;) {
        if ((peek() | 32) == expo) {
            ++i_;
            if (peek() == '+' || peek() == '-')
                ++i_;
        }
        if (is_xdigit(peek()) || peek() == '.')
            ++i_;
        else
            break;
    }
    number n;
    return read_numeral(t_.substr(start, i_ - start), n) ? tk::number : tk::bad;
}

tk lexer::name()
{
    size_t start = i_;
    while (is_alpha(peek()) || is_digit(peek()))
        ++i_;
    return name_kind(t_.substr(start, i_ - start));
}

} // namespace kivtool
