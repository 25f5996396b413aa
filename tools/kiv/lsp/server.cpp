#include "lsp/server.h"

#include "lsp/assist.h"
#include "lsp/hints.h"
#include "lsp/navigate.h"

#include <algorithm>

namespace kivtool::lsp
{

namespace
{

// Error codes of the protocol.
enum : int {
    INVALID_REQUEST = -32600,
    METHOD_NOT_FOUND = -32601,
    INVALID_PARAMS = -32602,
    INTERNAL_ERROR = -32603,
    SERVER_NOT_INITIALIZED = -32002,
    REQUEST_CANCELLED = -32800,
    REQUEST_FAILED = -32803,
};

// A request whose parameters are not what the protocol says.
struct bad_params : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const json &member(const json &j, const char *name)
{
    if (!j.is_object() || !j.contains(name))
        throw bad_params(std::string("missing ") + name);
    return j[name];
}

std::string text_member(const json &j, const char *name)
{
    const json &v = member(j, name);
    if (!v.is_string())
        throw bad_params(std::string(name) + " is not a string");
    return v.get<std::string>();
}

position place_of(const json &p)
{
    const json &l = member(p, "line"), &c = member(p, "character");
    if (!l.is_number_unsigned() || !c.is_number_unsigned())
        throw bad_params("a position is not two unsigned numbers");
    return {l.get<uint32_t>(), c.get<uint32_t>()};
}

position position_of(const json &params)
{
    return place_of(member(params, "position"));
}

// The member at the end of `path` ("capabilities", ...) in the parameters
// of `initialize`; null when there is none.
const json *nested(const json &params, std::initializer_list<const char *> path)
{
    const json *j = &params;
    for (const char *name : path) {
        if (!j->is_object() || !j->contains(name))
            return nullptr;
        j = &(*j)[name];
    }
    return j;
}

// Whether the parameters of `initialize` announce a capability: true at
// the end of `path`; anything else is no.
bool announced(const json &params, std::initializer_list<const char *> path)
{
    const json *j = nested(params, path);
    return j && j->is_boolean() && j->get<bool>();
}

// Whether a references request asks for the declaration too: its
// context's includeDeclaration (no context: no).
bool declaration_asked(const json &params)
{
    if (!params.contains("context"))
        return false;
    const json &c = params["context"];
    if (!c.is_object())
        throw bad_params("context is not an object");
    if (!c.contains("includeDeclaration"))
        return false;
    if (!c["includeDeclaration"].is_boolean())
        throw bad_params("includeDeclaration is not a boolean");
    return c["includeDeclaration"].get<bool>();
}

int hex(char c)
{
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}

} // namespace

std::string file_of_uri(const std::string &uri)
{
    if (!uri.starts_with("file://"))
        return uri;
    std::string out;
    for (size_t i = 7; i < uri.size(); ++i) {
        if (uri[i] == '%' && i + 2 < uri.size() && hex(uri[i + 1]) >= 0 && hex(uri[i + 2]) >= 0) {
            out += static_cast<char>(hex(uri[i + 1]) * 16 + hex(uri[i + 2]));
            i += 2;
        } else {
            out += uri[i];
        }
    }
    return out;
}

std::shared_ptr<const analysis> run_check(const check_job &job)
{
    auto a = std::make_shared<analysis>();
    a->uri = job.uri;
    a->version = job.version;
    a->config = job.config;
    a->model = load_model_text(job.file, job.text, {1});
    a->findings = findings_of(a->model, false, job.disabled);
    return a;
}

server::server(sink send, server_options opt) : send_(std::move(send)), opt_(opt), base_(opt) {}

json server::respond(const json &id, json result)
{
    return {{"jsonrpc", "2.0"}, {"id", id}, {"result", std::move(result)}};
}

json server::fail(const json &id, int code, const std::string &message)
{
    return {{"jsonrpc", "2.0"}, {"id", id}, {"error", {{"code", code}, {"message", message}}}};
}

const document *server::find(const std::string &uri) const
{
    auto it = docs_.find(uri);
    return it == docs_.end() ? nullptr : &it->second;
}

void server::handle(const json &msg)
{
    if (!msg.is_object() || msg.value("jsonrpc", "") != "2.0") {
        send_(fail(nullptr, INVALID_REQUEST, "not a JSON-RPC 2.0 message"));
        return;
    }
    const bool has_id = msg.contains("id") && (msg["id"].is_number() || msg["id"].is_string());
    if (!msg.contains("method") || !msg["method"].is_string()) {
        // A response to a request of ours (none are sent) or nonsense.
        if (!msg.contains("result") && !msg.contains("error"))
            send_(fail(has_id ? msg["id"] : json(nullptr), INVALID_REQUEST, "no method"));
        return;
    }
    const std::string method = msg["method"];
    const json params = msg.contains("params") ? msg["params"] : json::object();
    try {
        if (has_id)
            request(msg["id"], method, params);
        else
            notification(method, params);
    } catch (const bad_params &e) {
        if (has_id)
            send_(fail(msg["id"], INVALID_PARAMS, e.what()));
    } catch (const json::exception &e) {
        if (has_id)
            send_(fail(msg["id"], INVALID_PARAMS, e.what()));
    } catch (const std::exception &e) {
        if (has_id)
            send_(fail(msg["id"], INTERNAL_ERROR, e.what()));
    }
}

void server::request(const json &id, const std::string &method, const json &params)
{
    if (method == "initialize") {
        initialized_ = true;
        related_information_ = announced(
            params, {"capabilities", "textDocument", "publishDiagnostics", "relatedInformation"});
        folding_limit_ = 0;
        if (const json *limit =
                nested(params, {"capabilities", "textDocument", "foldingRange", "rangeLimit"});
            limit && limit->is_number_unsigned())
            folding_limit_ = limit->get<size_t>();
        send_(respond(
            id,
            {{"capabilities",
              {{"positionEncoding", "utf-16"},
               {"textDocumentSync", {{"openClose", true}, {"change", 1}}},
               {"completionProvider", {{"triggerCharacters", json::array({"\"", ".", "{", ","})}}},
               {"hoverProvider", true},
               {"codeActionProvider", {{"codeActionKinds", json::array({"quickfix"})}}},
               {"documentSymbolProvider", true},
               {"definitionProvider", true},
               {"referencesProvider", true},
               {"documentHighlightProvider", true},
               {"foldingRangeProvider", true},
               {"inlayHintProvider", true},
               {"diagnosticProvider",
                {{"interFileDependencies", false}, {"workspaceDiagnostics", false}}}}},
             {"serverInfo", {{"name", "kiv"}, {"version", KIV_TOOL_VERSION}}}}));
        if (params.contains("initializationOptions"))
            configure(params["initializationOptions"], true);
        return;
    }
    if (!initialized_) {
        send_(fail(id, SERVER_NOT_INITIALIZED, "initialize first"));
        return;
    }
    if (shutdown_) {
        send_(fail(id, INVALID_REQUEST, "the server is shutting down"));
        return;
    }
    if (method == "shutdown") {
        shutdown_ = true;
        send_(respond(id, nullptr));
        return;
    }
    static const std::string DOC_METHODS[] = {
        "textDocument/completion",        "textDocument/hover",        "textDocument/codeAction",
        "textDocument/documentSymbol",    "textDocument/definition",   "textDocument/references",
        "textDocument/documentHighlight", "textDocument/foldingRange", "textDocument/inlayHint",
        "textDocument/diagnostic",
    };
    if (std::find(std::begin(DOC_METHODS), std::end(DOC_METHODS), method) ==
        std::end(DOC_METHODS)) {
        send_(fail(id, METHOD_NOT_FOUND, "unknown method " + method));
        return;
    }
    const std::string uri = text_member(member(params, "textDocument"), "uri");
    const document *d = find(uri);
    if (!d) {
        send_(fail(id, INVALID_PARAMS, "the document is not open: " + uri));
        return;
    }
    json result;
    if (method == "textDocument/completion")
        result = completion(*d, position_of(params));
    else if (method == "textDocument/hover")
        result = hover(*d, position_of(params));
    else if (method == "textDocument/codeAction")
        result = code_actions(*d, params);
    else if (method == "textDocument/documentSymbol")
        result = document_symbols(*d);
    else if (method == "textDocument/inlayHint")
        result = inlay_hints(*d, {place_of(member(member(params, "range"), "start")),
                                  place_of(member(member(params, "range"), "end"))});
    else if (method == "textDocument/diagnostic") {
        // Answered once the text as it is now has been checked.
        const json &prev =
            params.contains("previousResultId") ? params["previousResultId"] : json();
        const std::string previous = prev.is_string() ? prev.get<std::string>() : "";
        if (!d->checked && !d->oversized) {
            docs_[uri].pulls.emplace_back(id, previous);
            return;
        }
        result = pulled(*d, previous);
    } else if (method == "textDocument/definition")
        result = definition(*d, position_of(params));
    else if (method == "textDocument/references")
        result = references(*d, position_of(params), declaration_asked(params));
    else if (method == "textDocument/documentHighlight")
        result = document_highlights(*d, position_of(params));
    else
        result = folding_ranges(*d, folding_limit_);
    send_(respond(id, std::move(result)));
}

namespace
{

// The first value of member `name` in a JSON text that may be cut short,
// when it is a string (escapes left as they are: a method or URI has none
// to speak of) or an integer; null otherwise.
json first_member(std::string_view head, const std::string &name)
{
    const std::string quoted = "\"" + name + "\"";
    auto blanks = [&](size_t i) {
        while (i < head.size() &&
               (head[i] == ' ' || head[i] == '\t' || head[i] == '\r' || head[i] == '\n'))
            ++i;
        return i;
    };
    for (size_t at = head.find(quoted); at != std::string_view::npos;
         at = head.find(quoted, at + 1)) {
        size_t i = blanks(at + quoted.size());
        if (i >= head.size() || head[i] != ':')
            continue;
        i = blanks(i + 1);
        if (i < head.size() && head[i] == '"') {
            size_t e = i + 1;
            while (e < head.size() && head[e] != '"')
                e += head[e] == '\\' ? 2 : 1;
            if (e >= head.size())
                return nullptr;
            return std::string(head.substr(i + 1, e - i - 1));
        }
        size_t e = i + (i < head.size() && head[i] == '-');
        const size_t digits = e;
        while (e < head.size() && e - digits < 18 && head[e] >= '0' && head[e] <= '9')
            ++e;
        if (e == digits)
            return nullptr;
        return std::stoll(std::string(head.substr(i, e - i)));
    }
    return nullptr;
}

} // namespace

void server::oversized(std::string_view head)
{
    const json m = first_member(head, "method");
    const std::string method = m.is_string() ? m.get<std::string>() : "";
    const std::string said = "kiv lsp: a message larger than 64 MiB" +
                             (method.empty() ? std::string() : " (" + method + ")") +
                             " was skipped: the server takes messages up to 64 MiB";
    send_({{"jsonrpc", "2.0"},
           {"method", "window/showMessage"},
           {"params", {{"type", 1}, {"message", said}}}});
    const bool opened = method == "textDocument/didOpen" || method == "textDocument/didChange";
    // A request gets its answer.
    if (const json id = first_member(head, "id"); !id.is_null() && !method.empty() && !opened) {
        send_(fail(id, INVALID_REQUEST, "the message is larger than 64 MiB"));
        return;
    }
    const json u = first_member(head, "uri");
    if (!initialized_ || shutdown_ || !opened || !u.is_string())
        return;
    const std::string uri = u.get<std::string>();
    // The buffer's text here is out of date: nothing is answered from it,
    // and its one diagnostic says why, until a text that fits comes.
    document &d = docs_[uri];
    const int64_t version = d.version;
    auto pulls = std::move(d.pulls);
    d = {};
    d.uri = uri;
    d.file = file_of_uri(uri);
    d.version = version;
    d.dirty = false;
    d.oversized = true;
    send_({{"jsonrpc", "2.0"},
           {"method", "textDocument/publishDiagnostics"},
           {"params", {{"uri", uri}, {"diagnostics", json::array({oversized_diagnostic()})}}}});
    for (const auto &[id, previous] : pulls)
        send_(respond(id, pulled(d, previous)));
}

json server::oversized_diagnostic()
{
    const json at = {{"line", 0}, {"character", 0}};
    return {{"range", {{"start", at}, {"end", at}}},
            {"severity", 1},
            {"source", "kiv"},
            {"message", "this buffer is larger than the 64 MiB the server takes: it is not "
                        "checked, and nothing is answered about it until its text fits"}};
}

void server::broken()
{
    send_({{"jsonrpc", "2.0"},
           {"method", "window/showMessage"},
           {"params",
            {{"type", 1},
             {"message", "kiv lsp: the input does not follow the protocol's framing "
                         "(Content-Length headers): the server stops, with exit code 1"}}}});
}

void server::notification(const std::string &method, const json &params)
{
    if (method == "exit") {
        exited_ = true;
        return;
    }
    if (!initialized_ || shutdown_)
        return;
    if (method == "textDocument/didOpen") {
        const json &td = member(params, "textDocument");
        const std::string uri = text_member(td, "uri");
        document &d = docs_[uri];
        auto pulls = std::move(d.pulls); // answered by the check of the new text
        d = {};
        d.pulls = std::move(pulls);
        d.uri = uri;
        d.file = file_of_uri(uri);
        d.text = text_member(td, "text");
        d.version = td.value("version", 0);
        changed(d);
    } else if (method == "textDocument/didChange") {
        const json &td = member(params, "textDocument");
        auto it = docs_.find(text_member(td, "uri"));
        const json &changes = member(params, "contentChanges");
        if (it == docs_.end() || !changes.is_array() || changes.empty())
            return;
        // The server asks for whole texts; a client that sends ranges all
        // the same has them applied in order, each to the text the one
        // before left.
        std::string text = it->second.text;
        for (const json &c : changes) {
            if (!c.contains("range")) {
                text = text_member(c, "text");
                continue;
            }
            const json &r = member(c, "range");
            const line_index lines(text);
            auto at = [&](const char *end) {
                const json &p = member(r, end);
                const json &l = member(p, "line"), &ch = member(p, "character");
                if (!l.is_number_unsigned() || !ch.is_number_unsigned())
                    throw bad_params("a range's places are not unsigned numbers");
                return lines.offset({l.get<uint32_t>(), ch.get<uint32_t>()});
            };
            const size_t b = at("start"), e = std::max(b, at("end"));
            text.replace(b, e - b, text_member(c, "text"));
        }
        it->second.text = std::move(text);
        it->second.version = td.value("version", it->second.version + 1);
        changed(it->second);
    } else if (method == "textDocument/didClose") {
        const std::string uri = text_member(member(params, "textDocument"), "uri");
        if (auto it = docs_.find(uri); it != docs_.end())
            for (const auto &[id, previous] : it->second.pulls)
                send_(fail(id, REQUEST_FAILED, "the document was closed"));
        if (docs_.erase(uri))
            send_({{"jsonrpc", "2.0"},
                   {"method", "textDocument/publishDiagnostics"},
                   {"params", {{"uri", uri}, {"diagnostics", json::array()}}}});
    } else if (method == "workspace/didChangeConfiguration") {
        configure(member(params, "settings"), false);
    } else if (method == "$/cancelRequest") {
        const json &id = member(params, "id");
        for (auto &[uri, d] : docs_)
            std::erase_if(d.pulls, [&](const auto &p) {
                if (p.first != id)
                    return false;
                send_(fail(id, REQUEST_CANCELLED, "cancelled"));
                return true;
            });
    }
}

void server::changed(document &d)
{
    d.scanned.reset();
    d.dirty = true;
    d.checked = false;
    d.oversized = false;
    d.due = clock::now() + opt_.debounce;
    if (!opt_.inline_checks)
        return;
    d.dirty = false;
    finish(run_check(job_of(d)));
}

check_job server::job_of(const document &d) const
{
    return {d.uri, d.file, d.version, d.text, opt_.disabled, config_};
}

std::optional<check_job> server::take_due(clock::time_point now, clock::duration *wait)
{
    *wait = clock::duration::max();
    for (auto &[uri, d] : docs_) {
        if (!d.dirty)
            continue;
        if (d.due <= now) {
            d.dirty = false;
            return job_of(d);
        }
        *wait = std::min(*wait, d.due - now);
    }
    return std::nullopt;
}

void server::finish(const std::shared_ptr<const analysis> &a)
{
    auto it = docs_.find(a->uri);
    if (it == docs_.end())
        return;
    document &d = it->second;
    if (a->version != d.version || a->config != config_ || a->model.text != d.text) {
        // A stale check: the newer text is checked next, at once.
        d.dirty = true;
        d.due = std::min(d.due, clock::now());
        return;
    }
    d.last = a;
    if (a->model.ran)
        d.good = a;
    if (a->model.ran && a->model.result == 0)
        d.loaded = a;
    d.checked = true;
    d.result_id = std::to_string(++results_);
    publish(d, a.get());
    for (const auto &[id, previous] : d.pulls)
        send_(respond(id, pulled(d, previous)));
    d.pulls.clear();
}

json server::pulled(const document &d, const std::string &previous) const
{
    if (d.oversized)
        return {{"kind", "full"}, {"items", json::array({oversized_diagnostic()})}};
    if (previous == d.result_id)
        return {{"kind", "unchanged"}, {"resultId", d.result_id}};
    return {{"kind", "full"}, {"resultId", d.result_id}, {"items", diagnostics(d, *d.last)}};
}

json server::diagnostics(const document &d, const analysis &a) const
{
    json diags = json::array();
    const line_index lines(a.model.text);
    for (const finding &f : a.findings)
        diags.push_back(diagnostic(
            lines, f, related_information_ ? std::string_view(d.uri) : std::string_view()));
    return diags;
}

void server::publish(const document &d, const analysis *a)
{
    const json diags = diagnostics(d, *a);
    send_({{"jsonrpc", "2.0"},
           {"method", "textDocument/publishDiagnostics"},
           {"params", {{"uri", d.uri}, {"version", d.version}, {"diagnostics", diags}}}});
}

} // namespace kivtool::lsp
