// The tool's evaluator of the flow of values on any text: it returns within
// its bounds, answers every question about what it made, and computes the
// globals the interpreter computes wherever the interpreter runs the text
// to its end within a small budget.
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <set>
#include <string>

#include "flow_compare.h"
#include "model/flow.h"
#include "model/source.h"

using kivtool::flow_value;
using kivtool::value_flow;

namespace
{

void ask_about(const value_flow &f, const flow_value &v)
{
    f.way(v.origin);
    f.way(v.key);
    f.written_at(v.origin);
    f.written_at(v.key);
    f.tables_of(v.origin);
}

// Every question the reading asks, about every table the run made and
// every entry with a string key, and the first elements of each table.
void ask_everything(const value_flow &f)
{
    std::set<const kivtool::flow::table *> tables;
    f.each_key([&](const kivtool::flow::table *t, std::string_view k, const kivtool::src_span &) {
        tables.insert(t);
        ask_about(f, f.field(t, k));
    });
    tables.insert(f.globals().t);
    for (const kivtool::flow::table *t : tables) {
        f.filled_at(t);
        f.keys_list(t);
        f.made_at(t);
        f.constructor(t);
        for (int64_t i = -1; i <= 4; ++i)
            ask_about(f, f.element(t, i));
    }
    f.failed();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    const kivtool::src_map source = kivtool::scan_source(text);
    const value_flow f(text, source);
    ask_everything(f);
    kivtest::interpreter_bounds bounds;
    bounds.instructions = 200000;
    bounds.bytes = 64u << 20;
    const std::string differs = kivtest::flow_differs(text, f, bounds);
    if (!differs.empty()) {
        fprintf(stderr, "the evaluator differs from the interpreter: %s\n", differs.c_str());
        abort();
    }
    return 0;
}
