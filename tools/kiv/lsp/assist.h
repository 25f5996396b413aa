// What the server answers about a buffer: completion, hover, code actions,
// symbols and definitions.  Each reads the buffer's text as it is now and
// its last check, which may be of an older text: places of the check are
// carried over to the new text where the two agree (before the first and
// after the last changed byte), and left out where they do not.
#ifndef KIV_TOOL_LSP_ASSIST_H
#define KIV_TOOL_LSP_ASSIST_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "lsp/server.h"
#include "lsp/text.h"

namespace kivtool::lsp
{

json completion(const document &d, position p);
json hover(const document &d, position p);
// The quick fixes of the diagnostics in `params.context` and the insertion
// of a table's missing required keys at `params.range`.
json code_actions(const document &d, const json &params);
json document_symbols(const document &d);
json definition(const document &d, position p);

// A finding's diagnostic, placed by the lines of the text that was checked;
// with `uri` (the document's) its related places as relatedInformation
// there, for a client that takes it.
json diagnostic(const line_index &lines, const finding &f, std::string_view uri = {});

// The edit that fixes a finding that says what was meant ("did you mean
// `hflip`?"): the misspelt name, found once in the finding's place or its
// table, and the name meant.  Null when the finding names no such fix or
// the name is not found exactly once.
struct text_fix {
    size_t begin = 0, end = 0; // bytes of the checked text
    std::string text, title;
};
std::optional<text_fix> fix_of(const script_model &m, const finding &f);

// Where spans of the buffer's last check stand in its text as it is now;
// none for one where the two texts differ.
std::vector<std::optional<range>> carried(const document &d, const std::vector<src_span> &spans);

} // namespace kivtool::lsp

#endif
