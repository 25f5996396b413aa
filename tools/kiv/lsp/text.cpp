#include "lsp/text.h"

#include <algorithm>

namespace kivtool::lsp
{

line_index::line_index(std::string_view text) : text_(text)
{
    starts_.push_back(0);
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')
            ++i;
        if (text[i] == '\n' || text[i] == '\r')
            starts_.push_back(i + 1);
    }
}

namespace
{

// The UTF-16 units of the character whose first byte is c (a stray
// continuation byte counts as a character of its own, as a replacement
// character would).
uint32_t units(unsigned char c)
{
    return c >= 0xF0 ? 2 : 1;
}

size_t char_len(std::string_view t, size_t i)
{
    const unsigned char c = static_cast<unsigned char>(t[i]);
    size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 1;
    size_t k = 1;
    while (k < n && i + k < t.size() && (static_cast<unsigned char>(t[i + k]) & 0xC0) == 0x80)
        ++k;
    return k;
}

} // namespace

uint32_t line_index::line_of(size_t offset) const
{
    offset = std::min(offset, text_.size());
    return static_cast<uint32_t>(std::upper_bound(starts_.begin(), starts_.end(), offset) -
                                 starts_.begin() - 1);
}

position line_index::at(size_t offset) const
{
    offset = std::min(offset, text_.size());
    const size_t line = line_of(offset);
    uint32_t ch = 0;
    for (size_t i = starts_[line]; i < offset; i += char_len(text_, i))
        ch += units(static_cast<unsigned char>(text_[i]));
    return {static_cast<uint32_t>(line), ch};
}

size_t line_index::offset(position p) const
{
    if (p.line >= starts_.size())
        return text_.size();
    size_t i = starts_[p.line];
    const size_t end = p.line + 1 < starts_.size() ? starts_[p.line + 1] : text_.size();
    for (uint32_t ch = 0; i < end && ch < p.character; i += char_len(text_, i)) {
        if (text_[i] == '\n' || text_[i] == '\r')
            break;
        ch += units(static_cast<unsigned char>(text_[i]));
    }
    return std::min(i, text_.size());
}

range line_index::of(const src_span &s) const
{
    if (s.none())
        return {};
    return {at(s.begin.offset), at(s.end.offset)};
}

bool name_byte(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

word word_at(std::string_view text, size_t offset)
{
    offset = std::min(offset, text.size());
    size_t b = offset, e = offset;
    while (b > 0 && name_byte(text[b - 1]))
        --b;
    while (e < text.size() && name_byte(text[e]))
        ++e;
    return {b, e, text.substr(b, e - b)};
}

string_at_t string_at(std::string_view text, size_t offset)
{
    offset = std::min(offset, text.size());
    size_t i = offset;
    while (i > 0 && text[i - 1] != '\n' && text[i - 1] != '\r')
        --i;
    for (; i < text.size() && text[i] != '\n' && text[i] != '\r';) {
        const char c = text[i];
        if (c == '-' && i + 1 < text.size() && text[i + 1] == '-')
            break; // a comment runs to the end of the line
        if (c != '"' && c != '\'') {
            ++i;
            continue;
        }
        const size_t open = i++;
        while (i < text.size() && text[i] != c && text[i] != '\n' && text[i] != '\r')
            i += text[i] == '\\' && i + 1 < text.size() ? 2 : 1;
        const bool closed = i < text.size() && text[i] == c;
        if (offset > open && (offset <= i || (!closed && offset <= i)))
            return {open, i};
        if (open >= offset)
            break;
        i += closed;
    }
    return {};
}

int32_t constructor_at(const src_map &map, std::string_view text, size_t offset)
{
    int32_t best = -1;
    for (size_t i = 0; i < map.constructors.size(); ++i) {
        const src_span &s = map.constructors[i].span;
        const bool closed = s.end.offset > 0 && s.end.offset <= text.size() &&
                            text[s.end.offset - 1] == '}' && s.end.offset - 1 > s.begin.offset;
        // Constructors come in the order of their '{': a later one that
        // holds the offset lies inside an earlier one.
        if (s.begin.offset < offset &&
            (offset < s.end.offset || (!closed && offset <= s.end.offset)))
            best = static_cast<int32_t>(i);
    }
    return best;
}

} // namespace kivtool::lsp
