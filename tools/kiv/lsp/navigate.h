// The pipeline's own navigation in a buffer: the objects a script
// configures (channels, their source buffers, canvases, video sources),
// where each was written and where the pipeline names it, from the model of
// the buffer's last check (the loader's read tables and places, the
// evaluator's ways of their values), never from a search of the text:
//
//   a source buffer  is named by the `source` entries of the canvases that
//                    bind it ("chan_0.main");
//   a channel        by the names of it in img_stats_src_chan and chan_groups;
//   a canvas         by the possible_enc_src_map of each stream whose map has
//                    its bit (bit c is canvas c);
//   a video source   by the channels that take it (`vsrc = sensor`); channels
//                    that share a sensor give it the same vsrc_id, which is
//                    what makes two vsrc tables one source.
//
// An object is asked about where it was written (its key, `main = `, the
// name of the local that holds it, the braces of a table without a key),
// where a variable holding it is stored, or where it is named.  Its
// definition is where it was written: for a table a helper built, the
// caller's line, as the symbols show it.
#ifndef KIV_TOOL_LSP_NAVIGATE_H
#define KIV_TOOL_LSP_NAVIGATE_H

#include <cstddef>

#include "lsp/server.h"
#include "lsp/text.h"

namespace kivtool::lsp
{

// textDocument/references: the places that name the objects at p, and with
// `declaration` first where they were written.
json references(const document &d, position p, bool declaration);
// textDocument/documentHighlight: where the objects at p were written (kind
// Write, narrowed to the key or the first line of the table) and where they
// are named (kind Read).
json document_highlights(const document &d, position p);
// textDocument/foldingRange, from the map of the text as it is now: each
// table constructor and function over several lines, and each run of two
// or more lines that hold comments only.  A range ends on the line before
// its closing `}` or `end` when that starts its line (the closing line
// stays in sight, as editors show a folded block), else on the closing
// line.  One range per start line (the outermost), sorted by start line;
// at most `limit` of them (0: no limit).
json folding_ranges(const document &d, size_t limit);
// Where the objects at p were written, as definition gives it: a Location,
// an array of them when p names several (a stream's map of canvases), null
// when p names none.
json object_definition(const document &d, position p);

} // namespace kivtool::lsp

#endif
