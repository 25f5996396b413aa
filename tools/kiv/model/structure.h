// What a script's indentation tells of the syntax error the interpreter
// found in it.  The interpreter names the line where it could not go on,
// which for a bracket or block left open is often far from the mistake (at
// the end of the file, or at the next field of the outer table).  The
// script's own indentation shows where each one should have closed: a line
// at the indentation of an opener's line closes it (`}`, `end`, `})`) or
// goes on with it (`else`, `until`), and no line inside it is indented less.
//
// The result, for the interpreter's error at line `line`:
// - an opener the indentation shows open: `{`, `(` or `[` not closed, or
//   `function`, `if`, `for`, `while` or `do` without its `end`, `repeat`
//   without its `until`.  Placed at the opener: "the '{' at line 12 is not
//   closed: the lines after it go back to its indentation at line 19".
//   When another opener of its kind on its line was closed after it, that
//   closer may have been its own and the other opener the one left open:
//   "a '{' at line 12 ...", "a block at line 12 has no 'end' ...", placed
//   from the first of them to the last such closer.  Given only when, with
//   that one closer put where the indentation says, every bracket and block
//   of the script closes where its indentation says it does, and the
//   interpreter stopped at or after that place;
// - a ',' missing between two fields on consecutive lines of a table
//   constructor: the interpreter wanted the constructor's '}' at the first
//   token of a line, that token begins a field, the line before ends a
//   value, and the constructor closes where its indentation says.  Placed
//   at the last character of that value: "is a ',' missing at the end of
//   line 11?";
// - nothing (where.none()) when the indentation does not tell: an error
//   that is none of these, brackets that close as indented, lines whose
//   indentation mixes tabs and spaces so that neither is deeper, a script
//   written without indentation, or more than one opener left open.
#ifndef KIV_TOOL_MODEL_STRUCTURE_H
#define KIV_TOOL_MODEL_STRUCTURE_H

#include <cstdint>
#include <string>
#include <string_view>

#include "model/source.h"

namespace kivtool
{

struct structure_hint {
    src_span where;
    std::string note;
};

// The hint for a syntax error of the interpreter in script `text`: `line`
// is the line it names and `message` what it says after "FILE:LINE: "
// ("'}' expected (to close '{' at line 3) near 'fps'").
structure_hint hint_structure(std::string_view text, uint32_t line, std::string_view message);

} // namespace kivtool

#endif
