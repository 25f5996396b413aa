// The editor server on any buffer: the check of the text, then completion,
// hover, definition, references, highlights, code actions and inlay hints
// at places spread over it, its symbols, folding ranges and pulled
// diagnostics, once with the check of this very
// text and once after an edit the check has not seen (the places of the
// check carried over to it, the pull left waiting for the next check).
#include <stddef.h>
#include <stdint.h>

#include "core/log.h"
#include "fuzz_common.h"
#include "lsp/assist.h"
#include "lsp/hints.h"
#include "lsp/navigate.h"

using namespace kivtool::lsp;

namespace
{

const std::string URI = "file:///fuzz/in.lua";

json message(const char *method, json params)
{
    return {{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}};
}

void ask_everything(server &srv, int id)
{
    const document &d = *srv.find(URI);
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
    // The hints of the whole text, and its diagnostics pulled.
    const json doc = {{"uri", URI}};
    const json everywhere = {
        {"start", {{"line", 0}, {"character", 0}}},
        {"end", {{"line", lines.at(d.text.size()).line + 1}, {"character", 0}}}};
    json hints = message("textDocument/inlayHint", {{"textDocument", doc}, {"range", everywhere}});
    hints["id"] = id;
    srv.handle(hints);
    json pull = message("textDocument/diagnostic", {{"textDocument", doc}});
    pull["id"] = id + 1;
    srv.handle(pull);
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
    // What the server sends is written out as `kiv lsp` writes it.
    server srv([](const json &m) { (void)m.dump(-1, ' ', false, json::error_handler_t::replace); },
               {std::chrono::milliseconds(0), false});
    json init = message("initialize", json::object());
    init["id"] = 1;
    srv.handle(init);
    std::string text(reinterpret_cast<const char *>(data), size);
    srv.handle(message("textDocument/didOpen",
                       {{"textDocument", {{"uri", URI}, {"version", 1}, {"text", text}}}}));
    clock::duration wait;
    if (const auto job = srv.take_due(clock::now(), &wait))
        srv.finish(run_check(*job));
    ask_everything(srv, 2);
    // An edit in the middle that the check has not seen.
    text.erase(size / 3, size / 3);
    text.insert(size / 3, "x = {");
    srv.handle(
        message("textDocument/didChange", {{"textDocument", {{"uri", URI}, {"version", 2}}},
                                           {"contentChanges", json::array({{{"text", text}}})}}));
    ask_everything(srv, 4);
    return 0;
}
