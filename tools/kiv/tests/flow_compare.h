// The evaluator against the interpreter: a script run by both, their
// globals compared entry by entry.  Shared by the tool's tests and the
// evaluator's fuzz target.
#ifndef KIV_TOOL_TESTS_FLOW_COMPARE_H
#define KIV_TOOL_TESTS_FLOW_COMPARE_H

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "model/flow.h"

namespace kivtest
{

// The interpreter's bounds: a script that goes past one of them is only
// run by the evaluator, which must return.
struct interpreter_bounds {
    long instructions = 2000000;
    size_t bytes = 256u << 20;
    std::chrono::milliseconds time{1000};
};

// A script's text as the loader hands it to the interpreter: a byte order
// mark left out, and a first line starting with '#' up to its line break.
std::string as_loaded(std::string_view text);

// Runs `text` in the interpreter (no library, as the loader runs it, text
// only) and in the evaluator.  "" when they agree; else what differs: a
// value of the globals, or one run failing where the other ran to its end.
// Not compared: a run of the interpreter stopped by `bounds`; a run of the
// evaluator stopped by a bound of its own or by what it does not follow;
// and, where the script took the length of a table with holes, what
// follows it (the interpreter's border depends on how it laid the table
// out, and for string keys on its hash seed).
std::string flow_differs(std::string_view text, const interpreter_bounds &bounds);
// The same, with the evaluator's run of `text` already made.
std::string flow_differs(std::string_view text, const kivtool::value_flow &f,
                         const interpreter_bounds &bounds);

} // namespace kivtest

#endif
