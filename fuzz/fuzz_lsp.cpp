// The editor server on any buffer: the check of the text, then completion,
// hover, definition, references, highlights and code actions at places
// spread over it, and its symbols and folding ranges, once with the check
// of this very text and once after an edit the check has not seen (the
// places of the check carried over to it).
#include <stddef.h>
#include <stdint.h>

#include "core/log.h"
#include "fuzz_common.h"
#include "lsp/assist.h"
#include "lsp/navigate.h"

using namespace kivtool::lsp;

namespace
{

void ask_everything(const document &d)
{
    const line_index lines(d.text);
    for (size_t k = 0; k <= 8; ++k) {
        const position p = lines.at(d.text.size() * k / 8);
        const json at = {{"line", p.line}, {"character", p.character}};
        completion(d, p);
        hover(d, p);
        definition(d, p);
        references(d, p, k % 2 == 0);
        document_highlights(d, p);
        code_actions(d, {{"range", {{"start", at}, {"end", at}}}});
    }
    // Where names and tables stand, which references mostly ask about: the
    // first strings and braces.
    int asked = 0;
    for (size_t i = 0; i < d.text.size() && asked < 16; ++i)
        if (d.text[i] == '"' || d.text[i] == '{') {
            const position p = lines.at(i + (d.text[i] == '"'));
            references(d, p, true);
            document_highlights(d, p);
            ++asked;
        }
    document_symbols(d);
    folding_ranges(d, 0);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    kivfuzz::setup();
    kiv_use_thread_log_level(1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (kivfuzz::is_binary_chunk(data, size))
        return -1;
    document d;
    d.uri = "file:///fuzz/in.lua";
    d.file = "in.lua";
    d.text.assign(reinterpret_cast<const char *>(data), size);
    d.last = d.good = d.loaded = run_check({d.uri, d.file, 1, d.text});
    ask_everything(d);
    // An edit in the middle that the check has not seen.
    d.text.erase(size / 3, size / 3);
    d.text.insert(size / 3, "x = {");
    ask_everything(d);
    return 0;
}
