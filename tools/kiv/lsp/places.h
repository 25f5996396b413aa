// What the server's answers share (assist.cpp, navigate.cpp): a buffer as a
// request sees it, its text now against the text of its last check, and
// where the check's tables were written, from the reading's places and the
// evaluator's ways of their values.  Internal to the server.
#ifndef KIV_TOOL_LSP_PLACES_H
#define KIV_TOOL_LSP_PLACES_H

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "lsp/server.h"
#include "lsp/text.h"

namespace kivtool::lsp
{

// The map and lines of a buffer's text, kept with the buffer until it
// changes.
struct text_map {
    src_map map;
    line_index lines;
    explicit text_map(std::string_view text) : map(scan_source(text)), lines(text) {}
};

const text_map &scanned(const document &d);

// The buffer as a request sees it: its text now, the map of that text, and
// the last check with the offsets it shares with this text.
struct view {
    const document &d;
    std::string_view text;
    const src_map &map;
    const line_index &lines;
    const analysis *a;
    std::string_view old; // the text of the check
    size_t prefix = 0;    // bytes the two texts share at their start
    size_t suffix = 0;    // and at their end (not overlapping the prefix)

    explicit view(const document &doc)
        : d(doc), text(doc.text), map(scanned(doc).map), lines(scanned(doc).lines),
          a(doc.last.get())
    {
        if (!a)
            return;
        old = a->model.text;
        const size_t n = std::min(old.size(), text.size());
        while (prefix < n && old[prefix] == text[prefix])
            ++prefix;
        while (suffix < n - prefix &&
               old[old.size() - 1 - suffix] == text[text.size() - 1 - suffix])
            ++suffix;
    }
    bool same() const { return a && old.size() == text.size() && prefix == text.size(); }
    // An offset of this text in the checked one, or npos where they differ.
    size_t to_old(size_t at) const
    {
        if (!a)
            return std::string_view::npos;
        if (at <= prefix)
            return at;
        if (at >= text.size() - suffix)
            return at - text.size() + old.size();
        return std::string_view::npos;
    }
    // An offset of the checked text in this one, or npos.
    size_t to_new(size_t at) const
    {
        if (at <= prefix)
            return at;
        if (at >= old.size() - suffix && at <= old.size())
            return at - old.size() + text.size();
        return std::string_view::npos;
    }
    std::optional<range> span(const src_span &s) const
    {
        if (s.none())
            return std::nullopt;
        const size_t b = to_new(s.begin.offset), e = to_new(s.end.offset);
        if (b == std::string_view::npos || e == std::string_view::npos || e < b)
            return std::nullopt;
        return range{lines.at(b), lines.at(e)};
    }
};

json pos_json(position p);
json range_json(const range &r);

const read_table *table_at_path(const analysis &a, const std::string &path);
bool within(const range &out, const range &in);
bool contains(const src_span &out, const src_span &in);
bool holds(const src_span &s, size_t at);
// Whether a span stands inside a function literal: in a helper, not in the
// main chunk.
bool in_function(const src_map &map, const src_span &s);
// The name a record path's table is stored under in the table it was read
// from, as the script writes it: "main" for src_buf[p][0], "pass_1" for
// pass_cfg[1], "vsrc"; "" for an element of an array.
std::string script_key(const std::string &path);
// The evaluator's entry that holds read table t in the table it was read
// from: its value, with the way it came there.  Unknown when the evaluator
// did not follow the reading there.
flow_value entry_of(const script_model &m, const read_table &t);

// Where a table the loader read was written, as its author looks for it
// (offsets of the checked text): the reading's place of its path, but for
// a table a helper built, where the caller wrote it: `main = buf(1920,
// 1080, 0, 0)` rather than the helper's `return {`, the `channel { ... }`
// a channel helper was called with.
struct made_place {
    src_span where; // the table, or the store of it (key and value)
    src_span key;   // the key of that store, when it has one
};
made_place made_at(const script_model &m, const read_table &t);

// A span of the checked text as a location in the buffer now; null where
// the texts differ.
json location(const view &v, const src_span &s);

} // namespace kivtool::lsp

#endif
