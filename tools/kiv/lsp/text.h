// An editor's buffer as the server reads it: places as the editor counts
// them (lines from 0, characters in UTF-16 code units, as the protocol
// asks) against byte offsets of the text, and the word, string or table
// around a place.
#ifndef KIV_TOOL_LSP_TEXT_H
#define KIV_TOOL_LSP_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/source.h"

namespace kivtool::lsp
{

// A place as the editor counts it.
struct position {
    uint32_t line = 0, character = 0;
    bool operator==(const position &) const = default;
};

struct range {
    position start, end;
};

// The starts of the lines of a text, as the editor breaks lines ("\n",
// "\r\n" or "\r"), for conversions both ways.  Any text and any place can
// be given: a place past a line's end is its end, past the text its end; a
// place inside a character (between the two units of a surrogate pair, or
// an offset inside its bytes) is just after it.
class line_index
{
  public:
    explicit line_index(std::string_view text);
    position at(size_t offset) const;
    uint32_t line_of(size_t offset) const; // at(offset).line, without counting characters
    size_t offset(position p) const;
    range of(const src_span &s) const; // none: the first character of the text

  private:
    std::string_view text_;
    std::vector<size_t> starts_;
};

// Whether c can be part of a Lua name.
bool name_byte(char c);

// The name the offset is in or just after: [begin, end) in bytes; empty
// (begin == end == offset) when there is none.
struct word {
    size_t begin = 0, end = 0;
    std::string_view text;
};
word word_at(std::string_view text, size_t offset);

// The short string literal ('...' or "...") on the offset's line that the
// offset is inside of (after its opening quote, up to and including its
// closing one); for an unclosed string, everything after the quote up to
// the end of the line.  open is npos when the offset is in none.
struct string_at_t {
    size_t open = std::string_view::npos; // the opening quote
    size_t close = 0;                     // the closing quote, or the end of the line
};
string_at_t string_at(std::string_view text, size_t offset);

// The innermost constructor of map whose '{' is before offset and whose
// '}' is at or after it (an unclosed one runs to the end); -1 for none.
int32_t constructor_at(const src_map &map, std::string_view text, size_t offset);

} // namespace kivtool::lsp

#endif
