// kiv lsp: the editor's view of a configuration script, a thin front over
// the model the command line uses.  The server holds the open buffers; a
// check of a buffer is one load of its unsaved text (load_model_text: no
// file is written anywhere) and the findings of every lint rule, published
// as the buffer's diagnostics.  Completion, hover, code actions, symbols,
// definitions, references and highlights read the last check and the text
// as it is now; folding ranges the text alone.
//
// The server itself is single-threaded and does no I/O: it takes parsed
// messages and hands the messages to send to a sink.  Checks are jobs the
// caller runs (on a thread of its own in `kiv lsp`, at once in the tests)
// and gives back; a check of a text that has changed since is dropped, so
// a newer change always wins over a stale check.
#ifndef KIV_TOOL_LSP_SERVER_H
#define KIV_TOOL_LSP_SERVER_H

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/model.h"
#include "model/rules.h"

namespace kivtool::lsp
{

using json = nlohmann::json;
using clock = std::chrono::steady_clock;

namespace nav
{
struct index;
}

// One check of one version of a buffer.
struct analysis {
    std::string uri;
    int64_t version = 0;
    uint64_t config = 0; // the settings it was checked with (server::config_)
    script_model model;  // its text is the text checked
    std::vector<finding> findings;
    // The pipeline's objects and their places (navigate.cpp), made by the
    // first request that needs them, on the server's thread.
    mutable std::shared_ptr<const nav::index> navigation;
};

// A check to run: the text of a buffer at a version.
struct check_job {
    std::string uri, file; // file: the path the messages name
    int64_t version = 0;
    std::string text;
    std::vector<std::string> disabled{}; // lint rules left out
    uint64_t config = 0;
};

// Runs a check (any thread; the library's loads are independent).
std::shared_ptr<const analysis> run_check(const check_job &job);

struct server_options {
    // How long a buffer must stay unchanged before it is checked: typing
    // does not start a load per key.
    std::chrono::milliseconds debounce{40};
    // Checks run inside handle(), at once (the protocol tests).
    bool inline_checks = false;
    std::vector<std::string> disabled{}; // lint rules left out (the `disable` setting)
};

struct document {
    std::string uri, file, text;
    int64_t version = 0;
    std::shared_ptr<const analysis> last; // the newest check that finished, of any version
    // The newest check whose script ran (a buffer being typed often does
    // not parse): what it defines is still what the text defines.
    std::shared_ptr<const analysis> good;
    // The newest check the library accepted: a name half typed in a canvas
    // `source` fails the load, and the buffers it may name are still those
    // of the last script that loaded.
    std::shared_ptr<const analysis> loaded;
    bool dirty = true;    // changed since its last check began
    bool checked = false; // `last` is the check of `text` with the settings now
    // Its last text came in a message too large to take: it is not checked
    // until a text that fits comes (server::oversized).
    bool oversized = false;
    std::string result_id; // of `last`'s diagnostics, for a pull that has them already
    // Pulls of its diagnostics (id, previousResultId) waiting for its check.
    std::vector<std::pair<json, std::string>> pulls;
    clock::time_point due;
    // The map and line index of `text` as it is now, made by the first
    // request that needs them (assist.cpp) and dropped when the text
    // changes: a large buffer is scanned once per change, not per request.
    mutable std::shared_ptr<const struct text_map> scanned;
};

class server
{
  public:
    using sink = std::function<void(const json &)>;
    server(sink send, server_options opt = {});

    // One message from the client.
    void handle(const json &msg);
    // A message larger than the server takes was skipped; `head` is what
    // was kept of its two ends.  The client is told: a request found there is refused,
    // a buffer it opened or changed is shown as not checked (its text here
    // is out of date) until a text that fits replaces it, and a message
    // says what happened.
    void oversized(std::string_view head);
    // The input broke the framing: the client is told the server stops.
    void broken();
    // The client said `exit`; the process ends with exit_code().
    bool exited() const { return exited_; }
    int exit_code() const { return shutdown_ ? 0 : 1; }

    // The next check due at `now`, if any; otherwise, in *wait, how long
    // until one will be (max() for none).
    std::optional<check_job> take_due(clock::time_point now, clock::duration *wait);
    // A check has finished: publishes its diagnostics when the buffer has
    // not changed since, else drops it (the buffer is checked again).
    void finish(const std::shared_ptr<const analysis> &a);

    const document *find(const std::string &uri) const;

  private:
    void request(const json &id, const std::string &method, const json &params);
    void notification(const std::string &method, const json &params);
    void changed(document &d);
    void publish(const document &d, const analysis *a);
    json diagnostics(const document &d, const analysis &a) const;
    json pulled(const document &d, const std::string &previous) const;
    static json oversized_diagnostic();
    check_job job_of(const document &d) const;
    // Takes initializationOptions or didChangeConfiguration's settings.
    void configure(const json &settings, bool initial);
    json respond(const json &id, json result);
    json fail(const json &id, int code, const std::string &message);

    sink send_;
    server_options opt_;
    std::map<std::string, document> docs_;
    bool initialized_ = false, shutdown_ = false, exited_ = false;
    // The client takes a diagnostic's relatedInformation.
    bool related_information_ = false;
    // The most folding ranges the client takes (0: any number).
    size_t folding_limit_ = 0;
    server_options base_;  // the settings absent from the client's: the command line's
    uint64_t config_ = 0;  // counts the changes of settings
    uint64_t results_ = 0; // numbers the checks published
};

// Serves the protocol: messages read from file descriptor `in`, written to
// `out`, until the client says exit (the exit code the protocol gives: 0
// after shutdown, else 1) or `in` ends (1).  Every thread it starts has
// ended when it returns; `in` and `out` stay open.
int serve(int in, int out, std::chrono::milliseconds debounce);

// The path a file: URI names ("file:///a/b%20c.lua" -> "/a/b c.lua"); any
// other URI as it is.
std::string file_of_uri(const std::string &uri);

} // namespace kivtool::lsp

#endif
