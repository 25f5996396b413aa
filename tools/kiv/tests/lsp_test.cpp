// kiv lsp: scripted sessions kept as data (tools/kiv/tests/lsp/*.session),
// run against the server in this process with its checks run at once; the
// framing on a real pipe; places as the editor counts them; every quick fix
// of a planted mistake, applied, giving back the shipped text; and in
// scripts whose tables helpers build (tools/kiv/tests/lsp/helper_built.lua
// and the examples), definitions, symbols and quick fixes at the places
// the tables were written, references and definitions that agree both
// ways, and folding ranges that nest.
#include <gtest/gtest.h>

#include <set>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "kiv_test.h"
#include "lsp/assist.h"
#include "lsp/hints.h"
#include "lsp/rpc.h"
#include "lsp/server.h"
#include "model/lex.h"

using namespace kivtool::lsp;
using LspSession = kivtest::Settings;

namespace
{

// A session file: blocks that begin with "=== title", each a run of a fresh
// server.  Lines:
//   open NAME FILE            didOpen of file:///ws/NAME with FILE's text (from the source tree)
//   edit NAME OLD => NEW      didChange: the first OLD of NAME's text becomes NEW (\n, \t escapes)
//   -> JSON                   a message to the server
//   <- JSON                   a message it sent in answer to the last one matches JSON
//   <! JSON                   none of the messages it sent matches JSON
// JSON matches a message when each member it has matches the message's
// member of that name, and each element of an array matches an element of
// the message's array, in order (others may come between).  In a message
// to the server and in JSON to match, a string "@TEXT" under "position",
// "start" or "end" stands for the place of the first TEXT in the document
// named by the message's textDocument.uri (or the last one opened), and
// "@TEXT|" for the place just after it.
struct session {
    std::map<std::string, std::string> texts; // by URI
    std::string last_uri;
    std::vector<json> sent;
    server srv{[this](const json &m) { sent.push_back(m); }, {std::chrono::milliseconds(0), true}};

    json place(const std::string &uri, const std::string &ref) const
    {
        const bool after = ref.ends_with("|");
        const std::string what = ref.substr(1, ref.size() - 1 - after);
        const std::string &text = texts.at(uri);
        const size_t at = text.find(what);
        EXPECT_NE(at, std::string::npos) << what;
        const position p = line_index(text).at(at + (after ? what.size() : 0));
        return {{"line", p.line}, {"character", p.character}};
    }
    void resolve(json &j, const std::string &uri) const
    {
        if (j.is_object())
            for (auto &[k, v] : j.items()) {
                if ((k == "position" || k == "start" || k == "end") && v.is_string() &&
                    v.get<std::string>().starts_with("@"))
                    v = place(uri, v.get<std::string>());
                else
                    resolve(v, uri);
            }
        else if (j.is_array())
            for (json &e : j)
                resolve(e, uri);
    }
    std::string uri_of(const json &msg) const
    {
        const json *td = msg.contains("params") && msg["params"].contains("textDocument")
                             ? &msg["params"]["textDocument"]
                             : nullptr;
        return td && td->contains("uri") ? (*td)["uri"].get<std::string>() : last_uri;
    }
    void send(json msg)
    {
        resolve(msg, uri_of(msg));
        sent.clear();
        srv.handle(msg);
    }
    void initialize()
    {
        send({{"jsonrpc", "2.0"},
              {"id", 0},
              {"method", "initialize"},
              {"params", {{"capabilities", json::object()}}}});
    }
    void open(const std::string &uri, const std::string &text)
    {
        texts[uri] = text;
        last_uri = uri;
        send({{"jsonrpc", "2.0"},
              {"method", "textDocument/didOpen"},
              {"params",
               {{"textDocument",
                 {{"uri", uri}, {"languageId", "lua"}, {"version", 1}, {"text", text}}}}}});
    }
    // A request about the last document opened, and the result of its answer.
    json ask(const std::string &method, json params)
    {
        params["textDocument"] = {{"uri", last_uri}};
        send({{"jsonrpc", "2.0"}, {"id", 99}, {"method", method}, {"params", params}});
        for (const json &m : sent)
            if (m.value("id", 0) == 99 && m.contains("result"))
                return m["result"];
        ADD_FAILURE() << method << " got no answer";
        return nullptr;
    }
    // The diagnostics last published for the last document opened.
    json diagnostics() const
    {
        for (auto m = sent.rbegin(); m != sent.rend(); ++m)
            if (m->value("method", "") == "textDocument/publishDiagnostics")
                return (*m)["params"]["diagnostics"];
        return json::array();
    }
};

bool matches(const json &want, const json &got)
{
    if (want.is_object()) {
        if (!got.is_object())
            return false;
        for (const auto &[k, v] : want.items())
            if (!got.contains(k) || !matches(v, got[k]))
                return false;
        return true;
    }
    if (want.is_array()) {
        if (!got.is_array())
            return false;
        size_t i = 0;
        for (const json &w : want) {
            while (i < got.size() && !matches(w, got[i]))
                ++i;
            if (i++ >= got.size())
                return false;
        }
        return true;
    }
    return want == got;
}

std::string unescaped(std::string s)
{
    s = std::regex_replace(s, std::regex(R"(\\n)"), "\n");
    return std::regex_replace(s, std::regex(R"(\\t)"), "\t");
}

void run_block(const std::string &title, const std::vector<std::string> &lines)
{
    SCOPED_TRACE(title);
    session s;
    for (const std::string &line : lines) {
        SCOPED_TRACE(line);
        std::smatch m;
        if (std::regex_match(line, m, std::regex(R"(open (\S+) (\S+))"))) {
            s.open("file:///ws/" + m[1].str(),
                   kivtest::read_file(std::string(KIV_SOURCE_DIR) + "/" + m[2].str()));
        } else if (std::regex_match(line, m, std::regex(R"(edit (\S+) (.*?) => (.*))"))) {
            const std::string uri = "file:///ws/" + m[1].str();
            std::string &text = s.texts[uri];
            const std::string from = unescaped(m[2]), to = unescaped(m[3]);
            const size_t at = text.find(from);
            ASSERT_NE(at, std::string::npos) << from;
            text.replace(at, from.size(), to);
            s.last_uri = uri;
            s.send({{"jsonrpc", "2.0"},
                    {"method", "textDocument/didChange"},
                    {"params",
                     {{"textDocument", {{"uri", uri}, {"version", 2}}},
                      {"contentChanges", json::array({{{"text", text}}})}}}});
        } else if (line.starts_with("-> ")) {
            s.send(json::parse(line.substr(3)));
        } else if (line.starts_with("<- ") || line.starts_with("<! ")) {
            json want = json::parse(line.substr(3));
            s.resolve(want, s.last_uri);
            const bool found = std::any_of(s.sent.begin(), s.sent.end(),
                                           [&](const json &got) { return matches(want, got); });
            std::string all;
            for (const json &got : s.sent)
                all += got.dump() + "\n";
            EXPECT_EQ(found, line[1] == '-') << "sent:\n" << all;
        } else {
            ADD_FAILURE() << "not a session line";
        }
    }
}

} // namespace

TEST_F(LspSession, ScriptedSessionsGetTheirAnswers)
{
    int blocks = 0;
    for (const auto &file : std::filesystem::directory_iterator(std::string(KIV_SOURCE_DIR) +
                                                                "/tools/kiv/tests/lsp")) {
        if (file.path().extension() != ".session")
            continue;
        std::ifstream in(file.path());
        std::string line, title;
        std::vector<std::string> lines;
        while (std::getline(in, line)) {
            if (line.starts_with("=== ")) {
                if (!title.empty())
                    run_block(title, lines), ++blocks;
                title = line.substr(4);
                lines.clear();
            } else if (!line.empty() && !line.starts_with("#")) {
                lines.push_back(line);
            }
        }
        if (!title.empty())
            run_block(title, lines), ++blocks;
    }
    EXPECT_GE(blocks, 5);
}

// Places both ways, as the editor counts them: lines broken by "\n",
// "\r\n" and "\r"; characters in UTF-16 units, one for a character of 1, 2
// or 3 bytes (a, é, €, 中), two for one of 4 (😀, a surrogate pair).  A
// place past a line's end is its end (before the break), past the text the
// text's end; a place inside a character (between the units of a pair, or
// an offset inside its bytes) is after it.
TEST(LspText, PlacesAsTheEditorCountsThem)
{
    const std::string text = "a = 1\r\nb = \"é€中😀\" x\rc\n😀😀";
    const line_index lines(text);
    struct row {
        size_t offset;
        position p;
    };
    const row both_ways[] = {
        {0, {0, 0}},  {5, {0, 5}},  {7, {1, 0}},   {12, {1, 5}},  {14, {1, 6}},
        {17, {1, 7}}, {20, {1, 8}}, {24, {1, 10}}, {27, {1, 13}}, {28, {2, 0}},
        {29, {2, 1}}, {30, {3, 0}}, {34, {3, 2}},  {38, {3, 4}},
    };
    for (const row &r : both_ways) {
        EXPECT_EQ(lines.at(r.offset), r.p) << r.offset;
        EXPECT_EQ(lines.offset(r.p), r.offset) << r.p.line << ":" << r.p.character;
    }
    for (const row &r : {row{5, {0, 99}}, row{24, {1, 9}}, row{27, {1, 99}}, row{38, {3, 3}},
                         row{38, {3, 99}}, row{38, {9, 0}}})
        EXPECT_EQ(lines.offset(r.p), r.offset) << r.p.line << ":" << r.p.character;
    for (const row &r : {row{15, {1, 7}}, row{22, {1, 10}}, row{999, {3, 4}}})
        EXPECT_EQ(lines.at(r.offset), r.p) << r.offset;
}

TEST(LspText, StringsAroundAPlace)
{
    struct row {
        const char *text;
        size_t at;
        size_t open; // npos: in none
    };
    const size_t none = std::string_view::npos;
    for (const row &r : {row{R"(mode = "10)", 10, 7}, row{R"(mode = "1080p", x)", 9, 7},
                         row{R"(mode = "1080p", x)", 16, none}, row{R"(a = 'x\'y' -- "z)", 8, 4},
                         row{R"(a = 1 -- "z)", 10, none}, row{R"({"chan_0.main", "c)", 18, 16}})
        EXPECT_EQ(string_at(r.text, r.at).open, r.open) << r.text;
}

// The framing on a pipe: headers in any case and order, blank lines
// between messages, a message too big to take, and a stream that breaks.
TEST(LspRpc, FramingOnAPipe)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    const std::string in = "Content-Type: x\r\ncontent-length: 2\r\n\r\n{}"
                           "\r\nContent-Length:  7 \r\n\r\n[1,2,3]"
                           "Content-Length: " +
                           std::to_string(MAX_MESSAGE + 1) + "\r\n\r\n";
    ASSERT_EQ(write(fds[1], in.data(), in.size()), static_cast<ssize_t>(in.size()));
    close(fds[1]);
    std::string body;
    EXPECT_EQ(read_message(fds[0], &body), read_result::message);
    EXPECT_EQ(body, "{}");
    EXPECT_EQ(read_message(fds[0], &body), read_result::message);
    EXPECT_EQ(body, "[1,2,3]");
    EXPECT_EQ(read_message(fds[0], &body), read_result::broken); // cut short
    close(fds[0]);
    for (const char *bad :
         {"Content-Length: x\r\n\r\n", "Content-Length: -1\r\n\r\n", "X: 1\r\n\r\n{}"}) {
        ASSERT_EQ(pipe(fds), 0);
        ASSERT_GT(write(fds[1], bad, strlen(bad)), 0);
        close(fds[1]);
        EXPECT_EQ(read_message(fds[0], &body), read_result::broken) << bad;
        close(fds[0]);
    }
}

// Each planted mistake's quick fix gives back the text as shipped, and the
// mistakes without one fix offer none.
TEST(LspFix, QuickFixesUndoPlantedMistakes)
{
    struct row {
        const char *file, *shipped, *planted;
        bool fixed;
    };
    const row rows[] = {
        {"single_1080p.lua", "\tmctf_cmpr = 1,", "\tmctf_cmp = 1,", true},
        {"single_1080p.lua", "\tsensor_ctrl = 1,", "\tsensor_ctl = 1,", true},
        {"single_1080p.lua", "mode = \"1080p\"", "mode = \"1080px\"", true},
        {"single_1080p.lua", "hdr_mode = \"linear\"", "hdr_mode = \"Linear\"", true},
        {"three_channel_4k.lua", "\"chan_1.main\"", "\"chan_1.mian\"", true},
        {"single_1080p.lua", "\tmctf_cmpr = 1,", "\tzzzz = 1,", false},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.planted);
        const std::string shipped = kivtest::read_file(kivtest::example(r.file));
        std::string text = shipped;
        const size_t at = text.find(r.shipped);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, strlen(r.shipped), r.planted);
        const auto a = run_check({"file:///ws/x.lua", "x.lua", 1, text});
        int fixes = 0;
        for (const kivtool::finding &f : a->findings)
            if (const auto fix = fix_of(a->model, f)) {
                ++fixes;
                std::string fixed = text;
                fixed.replace(fix->begin, fix->end - fix->begin, fix->text);
                EXPECT_EQ(fixed, shipped) << fix->title;
            }
        EXPECT_EQ(fixes, r.fixed ? 1 : 0);
    }
}

namespace
{

// serve() on two pipes, on a thread of its own, and the editor's side of
// them: what it sends the server and reads back.
struct piped {
    int to_server[2] = {-1, -1}, from_server[2] = {-1, -1};
    int rc = -1;
    std::thread srv;

    explicit piped(std::chrono::milliseconds debounce)
    {
        EXPECT_EQ(pipe(to_server), 0);
        EXPECT_EQ(pipe(from_server), 0);
        srv = std::thread([this, debounce] { rc = serve(to_server[0], from_server[1], debounce); });
    }
    ~piped()
    {
        join();
        for (int fd : {to_server[0], to_server[1], from_server[0], from_server[1]})
            close(fd);
    }
    void send(const json &m) { EXPECT_TRUE(write_message(to_server[1], m.dump())); }
    json receive()
    {
        std::string body;
        EXPECT_EQ(read_message(from_server[0], &body), read_result::message);
        return json::parse(body);
    }
    // Waits for the server to end; its exit code.
    int join()
    {
        if (srv.joinable())
            srv.join();
        return rc;
    }
};

} // namespace

// The server on pipes, with its threads: changes that come faster than the
// checks end in one set of diagnostics for the newest text, requests are
// answered meanwhile, and shutdown then exit end it with 0.
TEST(LspServe, TheNewestTextWinsAndTheSessionEnds)
{
    piped p(std::chrono::milliseconds(5));
    auto send = [&](const json &m) { p.send(m); };
    auto receive = [&] { return p.receive(); };
    const std::string text = kivtest::read_file(kivtest::example("three_channel_4k.lua"));
    send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"}, {"params", json::object()}});
    EXPECT_EQ(receive()["id"], 1);
    send({{"jsonrpc", "2.0"},
          {"method", "textDocument/didOpen"},
          {"params",
           {{"textDocument", {{"uri", "file:///ws/a.lua"}, {"version", 1}, {"text", text}}}}}});
    for (int v = 2; v <= 6; ++v)
        send({{"jsonrpc", "2.0"},
              {"method", "textDocument/didChange"},
              {"params",
               {{"textDocument", {{"uri", "file:///ws/a.lua"}, {"version", v}}},
                {"contentChanges", json::array({{{"text", v == 6 ? text + "x" : text}}})}}}});
    send({{"jsonrpc", "2.0"},
          {"id", 2},
          {"method", "textDocument/hover"},
          {"params",
           {{"textDocument", {{"uri", "file:///ws/a.lua"}}},
            {"position", {{"line", 0}, {"character", 0}}}}}});
    bool answered = false;
    for (;;) {
        const json m = receive();
        if (m.value("id", 0) == 2)
            answered = true;
        // Diagnostics of a stale text may come first; the last are those of
        // version 6, whose stray "x" does not parse.
        if (m.value("method", "") == "textDocument/publishDiagnostics" &&
            m["params"]["version"] == 6) {
            EXPECT_EQ(m["params"]["diagnostics"][0]["code"], "load-failed");
            break;
        }
    }
    send({{"jsonrpc", "2.0"}, {"id", 3}, {"method", "shutdown"}});
    json m = receive();
    answered |= m.value("id", 0) == 2;
    if (m.value("id", 0) == 2)
        m = receive();
    EXPECT_EQ(m["id"], 3);
    EXPECT_TRUE(answered);
    send({{"jsonrpc", "2.0"}, {"method", "exit"}});
    EXPECT_EQ(p.join(), 0);
}

// `kiv lsp` as an editor starts it, on pipes: a buffer is checked once it
// has stayed unchanged for the debounce time (40 ms, or --debounce), from
// the buffer and not the file; nothing is written beside the script; the
// exit code is 0 after shutdown and exit, 1 after an exit without shutdown
// or when the input ends without exit.
TEST(LspServe, TheProgramDebouncesWritesNothingAndExitsAsTheProtocolSays)
{
    char tmpl[] = "/tmp/kivlsp-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string dir = tmpl, file = dir + "/cfg.lua";
    const std::string shipped = kivtest::read_file(kivtest::example("single_1080p.lua"));
    std::ofstream(file) << shipped;
    std::string typed = shipped;
    typed.replace(typed.find("mctf_cmpr"), 9, "mctf_cmp");
    struct row {
        std::vector<std::string> args;
        bool shutdown, exit;
        int rc;
        int min_ms, max_ms; // from didOpen to the diagnostics
    };
    const row rows[] = {
        {{"lsp"}, true, true, 0, 40, 1000},
        {{"lsp", "--debounce", "300"}, false, true, 1, 300, 10000},
        {{"lsp", "--debounce", "0"}, true, false, 1, 0, 10000},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.args.back());
        int to[2], from[2];
        ASSERT_EQ(pipe(to), 0);
        ASSERT_EQ(pipe(from), 0);
        fflush(nullptr);
        const pid_t pid = fork();
        if (pid == 0) {
            dup2(to[0], 0);
            dup2(from[1], 1);
            const int null = open("/dev/null", O_WRONLY);
            dup2(null, 2);
            std::vector<char *> argv{const_cast<char *>(KIV_CLI)};
            for (const std::string &a : r.args)
                argv.push_back(const_cast<char *>(a.c_str()));
            argv.push_back(nullptr);
            for (int fd : {to[0], to[1], from[0], from[1], null})
                close(fd);
            execv(KIV_CLI, argv.data());
            _exit(98);
        }
        close(to[0]);
        close(from[1]);
        auto send = [&](const json &m) { EXPECT_TRUE(write_message(to[1], m.dump())); };
        // The next message from the server that `wanted` takes (null at the end).
        auto receive = [&](const std::function<bool(const json &)> &wanted) {
            for (std::string body; read_message(from[0], &body) == read_result::message;)
                if (const json m = json::parse(body); wanted(m))
                    return m;
            return json();
        };
        send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"}, {"params", json::object()}});
        receive([](const json &m) { return m.contains("id"); });
        const auto opened = std::chrono::steady_clock::now();
        send({{"jsonrpc", "2.0"},
              {"method", "textDocument/didOpen"},
              {"params",
               {{"textDocument", {{"uri", "file://" + file}, {"version", 1}, {"text", typed}}}}}});
        const json diags = receive([](const json &m) {
            return m.value("method", "") == "textDocument/publishDiagnostics";
        });
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                            std::chrono::steady_clock::now() - opened)
                            .count();
        EXPECT_GE(ms, r.min_ms);
        EXPECT_LT(ms, r.max_ms);
        ASSERT_TRUE(diags.is_object());
        EXPECT_EQ(diags["params"]["diagnostics"][0]["code"], "unknown-key");
        if (r.shutdown) {
            send({{"jsonrpc", "2.0"}, {"id", 2}, {"method", "shutdown"}});
            EXPECT_EQ(receive([](const json &m) { return m.contains("id"); })["id"], 2);
        }
        if (r.exit)
            send({{"jsonrpc", "2.0"}, {"method", "exit"}});
        close(to[1]);
        // Read to the end, so that the next run's pipe starts afresh.
        std::string rest;
        while (read_message(from[0], &rest) == read_result::message) {
        }
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), r.rc);
        close(from[0]);
    }
    std::vector<std::string> left;
    for (const auto &e : std::filesystem::directory_iterator(dir))
        left.push_back(e.path().filename());
    EXPECT_EQ(left, std::vector<std::string>{"cfg.lua"});
    EXPECT_EQ(kivtest::read_file(file), shipped);
    std::filesystem::remove_all(dir);
}

// Every key written in a table of a shipped example gets its documentation
// on hover, and every table its keys on completion.
TEST_F(LspSession, EveryKeyOfTheExamplesHasItsDocumentation)
{
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example(""))) {
        if (e.path().extension() != ".lua" || e.path().filename() == "calib_table.lua")
            continue; // a calibration table has no keys, only pairs
        SCOPED_TRACE(e.path().string());
        document d;
        d.uri = "file:///ws/x.lua";
        d.text = kivtest::read_file(e.path().string());
        d.last = d.good = d.loaded = run_check({d.uri, "x.lua", 1, d.text});
        const line_index lines(d.text);
        const kivtool::src_map map = kivtool::scan_source(d.text);
        int keys = 0;
        for (const kivtool::src_constructor &c : map.constructors)
            for (const kivtool::src_field &f : c.fields) {
                if (f.kind != kivtool::src_field::named)
                    continue;
                ++keys;
                const json h = hover(d, lines.at(f.key.begin.offset));
                EXPECT_TRUE(h.is_object() && h["contents"]["value"].get<std::string>().find(
                                                 "**`" + f.name + "`**") != std::string::npos)
                    << f.name << " at line " << f.key.begin.line;
            }
        EXPECT_GT(keys, 20);
    }
}

namespace
{

range range_of(const json &r)
{
    return {{r["start"]["line"].get<uint32_t>(), r["start"]["character"].get<uint32_t>()},
            {r["end"]["line"].get<uint32_t>(), r["end"]["character"].get<uint32_t>()}};
}

bool inside(const range &out, const range &in)
{
    auto at = [](position p) { return std::pair(p.line, p.character); };
    return at(out.start) <= at(in.start) && at(in.end) <= at(out.end);
}

json position_json(const std::string &text, size_t offset)
{
    const position p = line_index(text).at(offset);
    return {{"line", p.line}, {"character", p.character}};
}

const std::string HELPER_BUILT = "tools/kiv/tests/lsp/helper_built.lua";

std::string source_file(const std::string &file)
{
    return kivtest::read_file(std::string(KIV_SOURCE_DIR) + "/" + file);
}

} // namespace

// Every symbol of every shipped example, and of a script whose tables
// helpers build, lies inside its parent, and its selection inside itself:
// an editor's outline follows the cursor through them.
TEST_F(LspSession, DocumentSymbolsNestInTheirParents)
{
    std::vector<std::string> files = {std::string(KIV_SOURCE_DIR) + "/" + HELPER_BUILT};
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example("")))
        if (e.path().extension() == ".lua")
            files.push_back(e.path().string());
    int nested = 0;
    for (const std::string &file : files) {
        SCOPED_TRACE(file);
        session s;
        s.initialize();
        s.open("file:///ws/x.lua", kivtest::read_file(file));
        std::function<void(const json &, const json *)> check = [&](const json &sym,
                                                                    const json *up) {
            EXPECT_TRUE(inside(range_of(sym["range"]), range_of(sym["selectionRange"])))
                << sym["name"];
            if (up) {
                ++nested;
                EXPECT_TRUE(inside(range_of((*up)["range"]), range_of(sym["range"])))
                    << sym["name"] << " in " << (*up)["name"];
            }
            for (const json &c : sym["children"])
                check(c, &sym);
        };
        for (const json &sym : s.ask("textDocument/documentSymbol", json::object()))
            check(sym, nullptr);
    }
    EXPECT_GE(nested, 40);
}

// In the scripts whose tables helpers build, a source buffer's name in a
// canvas leads to where the helper's caller wrote that buffer (`main =
// buf(...)` in the channel's call, in `pass_1 = {` for a further pass), and
// a channel's name to the call of its helper, never into a helper.
TEST_F(LspSession, NamesOfBuffersAndChannelsLeadToTheHelpersCallers)
{
    struct row {
        std::string file;
        int buffers, channels; // names of each in the script
    };
    const row rows[] = {
        {"examples/three_channel_4k.lua", 8, 5},
        {"examples/two_channel_encode_preview.lua", 3, 2},
        {"examples/hdr_virtual_mode.lua", 2, 1},
        {HELPER_BUILT, 3, 2},
    };
    static const std::regex NAME(R"re("chan_(\d)(?:\.([a-z]+)(?:_(\d))?)?")re");
    for (const row &r : rows) {
        SCOPED_TRACE(r.file);
        const std::string text = source_file(r.file);
        session s;
        s.initialize();
        s.open("file:///ws/x.lua", text);
        const line_index lines(text);
        int buffers = 0, channels = 0;
        for (std::sregex_iterator n(text.begin(), text.end(), NAME), end; n != end; ++n) {
            SCOPED_TRACE(n->str());
            const json to = s.ask("textDocument/definition",
                                  {{"position", position_json(text, n->position(0) + 1)}});
            ASSERT_TRUE(to.is_object());
            const range at = range_of(to["range"]);
            const size_t b = lines.offset(at.start), e = lines.offset(at.end);
            const std::string landed = text.substr(b, e - b);
            // The call of the helper that made the channel named.
            const size_t call = text.rfind("channel {", b), id = text.find("id = ", call);
            ASSERT_NE(id, std::string::npos);
            EXPECT_EQ(text.substr(id + 5, 2), (*n)[1].str() + ",");
            EXPECT_LT(id, b == call ? e : b);
            if (!(*n)[2].matched) {
                ++channels;
                EXPECT_EQ(b, call);
                EXPECT_TRUE(landed.ends_with("}")) << landed;
                continue;
            }
            ++buffers;
            EXPECT_TRUE(landed.starts_with((*n)[2].str() + " = buf(")) << landed;
            const size_t pass = text.find("pass_1 = {", call);
            EXPECT_EQ((*n)[3].matched, pass < b) << landed;
        }
        EXPECT_EQ(buffers, r.buffers);
        EXPECT_EQ(channels, r.channels);
    }
}

// Quick fixes on scripts whose tables helpers build, asked for where an
// editor asks (the diagnostic's place, or the table being written) and
// applied as the editor applies them: a required key is written where the
// value was to come from (the helper's caller, or the helper's table when
// it lacks the key for every caller), a misspelt name where it was written,
// and the script then checks clean.
TEST_F(LspSession, QuickFixesOnHelperBuiltScriptsApplyCleanly)
{
    struct row {
        std::string file;
        const char *shipped, *planted; // the mistake planted
        const char *ask;               // the place asked about, in the planted text
        const char *title;             // part of the action's title
        const char *fixed;             // what the fixed text holds
    };
    const row rows[] = {
        {HELPER_BUILT, "\t\t\tsensor_ctrl = 1,\n", "", "sensor_ctrl = o.sensor_ctrl",
         "this channel table: sensor_ctrl", "channel { sensor_ctrl = 0,\n\t\t\tid = 0,"},
        {HELPER_BUILT, "\t\t\tsensor_ctrl = 1,\n", "", "\t\t\tid = 0",
         "this channel table: sensor_ctrl", "channel { sensor_ctrl = 0,\n\t\t\tid = 0,"},
        {HELPER_BUILT, "\t\t\tsensor_ctrl = 0,\n", "", "main = buf(960",
         "this channel table: sensor_ctrl", "channel { sensor_ctrl = 0,\n\t\t\tid = 1,"},
        {HELPER_BUILT, "\t\tmax_padding_width = 256,\n", "", "pass_num = 1",
         "this channel table: max_padding_width", "return { max_padding_width = 0,\n"},
        {HELPER_BUILT, "mode = \"1080p\"", "mode = \"1080px\"", "1080px",
         "Replace `1080px` with `1080p`", "mode = \"1080p\""},
        {HELPER_BUILT, "max_padding_width = 256", "max_padding_widht = 256", "max_padding_widht",
         "Replace `max_padding_widht`", "\t\tmax_padding_width = 256,\n"},
        {HELPER_BUILT, "= \"chan_0\",\n\t\t\tmain = buf(1920",
         "= \"chan_O\",\n\t\t\tmain = buf(1920", "chan_O", "Replace `chan_O` with `chan_0`",
         "= \"chan_0\",\n\t\t\tmain = buf(1920"},
        {HELPER_BUILT, "{\"chan_1.main\"}", "{\"chan_1.mian\"}", "chan_1.mian",
         "Replace `chan_1.mian`", "{\"chan_1.main\"}"},
        {"examples/three_channel_4k.lua", "\t\t\tsensor_ctrl = 1,\n", "",
         "sensor_ctrl = o.sensor_ctrl", "this channel table: sensor_ctrl",
         "channel { sensor_ctrl = 0,\n\t\t\tid = 0,"},
        {"examples/single_1080p.lua", "\tsensor_ctrl = 1,\n", "", "\tid = 0",
         "this channel table: sensor_ctrl", "chan_0 = { sensor_ctrl = 0,"},
        // Two findings (the load's and the unknown key's) with one fix: one action.
        {"examples/single_1080p.lua", "channels = {", "chanels = {", "chanels",
         "Replace `chanels` with `channels`", "channels = {"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.file + ": " + r.shipped + " => " + r.planted);
        std::string text = source_file(r.file);
        const size_t at = text.find(r.shipped);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, strlen(r.shipped), r.planted);
        session s;
        s.initialize();
        s.open("file:///ws/x.lua", text);
        EXPECT_FALSE(s.diagnostics().empty());
        const size_t asked = text.find(r.ask);
        ASSERT_NE(asked, std::string::npos);
        const json actions =
            s.ask("textDocument/codeAction",
                  {{"range",
                    {{"start", position_json(text, asked)}, {"end", position_json(text, asked)}}},
                   {"context", {{"diagnostics", json::array()}}}});
        const json *fix = nullptr;
        std::string titles;
        for (const json &a : actions) {
            titles += a["title"].get<std::string>() + "\n";
            if (a["title"].get<std::string>().find(r.title) != std::string::npos)
                fix = &a;
        }
        ASSERT_TRUE(fix) << titles;
        // No action twice.
        std::set<std::string> once;
        for (const json &a : actions)
            EXPECT_TRUE(once.insert(a["title"].get<std::string>()).second) << titles;
        // The edits, from the last to the first.
        std::vector<std::pair<size_t, json>> edits;
        const line_index lines(text);
        for (const json &e : (*fix)["edit"]["changes"]["file:///ws/x.lua"])
            edits.emplace_back(lines.offset(range_of(e["range"]).start), e);
        std::sort(edits.begin(), edits.end(),
                  [](const auto &a, const auto &b) { return a.first > b.first; });
        std::string fixed = text;
        for (const auto &[b, e] : edits)
            fixed.replace(b, lines.offset(range_of(e["range"]).end) - b,
                          e["newText"].get<std::string>());
        EXPECT_NE(fixed.find(r.fixed), std::string::npos) << fixed;
        session again;
        again.initialize();
        again.open("file:///ws/x.lua", fixed);
        EXPECT_EQ(again.diagnostics(), json::array()) << fixed;
    }
}

// A table that lacks a required key gets the insertion where the editor
// asks for the diagnostic's fixes: at the diagnostic's own range (an editor
// whose cursor cannot pass a `{` that ends its line asks there), tied to
// that diagnostic and preferred.
TEST_F(LspSession, MissingKeysAreInsertedFromTheirDiagnostic)
{
    const struct {
        const char *removed, *key;
    } rows[] = {
        {"\tmode = \"1080p\",\n", "mode"},
        {"\tfps = 30,\n", "fps"},
        {"\t\tinput      = {0, 0, 1920, 1080},\n", "input"},
        {"max_size = {1920, 1080}, ", "max_size"},
        {"type = \"encode\", ", "type"},
        {"\tid = 0,\n", "id"},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.removed);
        std::string text = source_file("examples/single_1080p.lua");
        const size_t at = text.find(r.removed);
        ASSERT_NE(at, std::string::npos);
        text.erase(at, strlen(r.removed));
        session s;
        s.initialize();
        s.open("file:///ws/x.lua", text);
        const json diags = s.diagnostics();
        ASSERT_EQ(diags.size(), 1u) << diags;
        const json actions =
            s.ask("textDocument/codeAction",
                  {{"range", diags[0]["range"]}, {"context", {{"diagnostics", diags}}}});
        const json *insert = nullptr;
        for (const json &a : actions)
            if (a["title"].get<std::string>().starts_with("Insert the missing required keys"))
                insert = &a;
        ASSERT_TRUE(insert) << actions;
        EXPECT_NE((*insert)["title"].get<std::string>().find(r.key), std::string::npos);
        EXPECT_EQ(insert->value("isPreferred", false), true);
        ASSERT_TRUE(insert->contains("diagnostics")) << *insert;
        EXPECT_EQ((*insert)["diagnostics"][0]["message"], diags[0]["message"]);
    }
}

// A message larger than the server takes is skipped, and the client is
// told: a request in it gets its error answer, a buffer it changed shows
// that it is not checked until a text that fits comes; a broken framing
// is said before the server stops with 1.
TEST(LspServe, WhatCannotBeReadIsToldToTheClient)
{
    piped p(std::chrono::milliseconds(0));
    auto send = [&](const json &m) { p.send(m); };
    auto receive = [&] { return p.receive(); };
    // The next message of a method (or the answer to an id), past others.
    auto next = [&](const std::string &method) {
        for (;;)
            if (json m = receive(); m.value("method", "") == method || m.contains("id"))
                return m;
    };
    const std::string uri = "file:///ws/a.lua";
    const std::string text = kivtest::read_file(kivtest::example("single_1080p.lua"));
    send({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"}, {"params", json::object()}});
    EXPECT_EQ(receive()["id"], 1);
    send({{"jsonrpc", "2.0"},
          {"method", "textDocument/didOpen"},
          {"params", {{"textDocument", {{"uri", uri}, {"version", 1}, {"text", text}}}}}});
    EXPECT_EQ(next("textDocument/publishDiagnostics")["params"]["diagnostics"], json::array());
    // Written as they are (a dump of 64 MiB is slow): the document of the
    // first comes after its text, the id of the second before its padding.
    const std::string huge[] = {
        R"({"jsonrpc":"2.0","method":"textDocument/didChange","params":{"contentChanges":[{"text":")" +
            std::string(MAX_MESSAGE, '-') + R"("}],"textDocument":{"uri":")" + uri +
            R"(","version":2}}})",
        R"({"jsonrpc":"2.0","id":"big","method":"textDocument/hover","params":{"pad":")" +
            std::string(MAX_MESSAGE, ' ') + R"("}})",
    };
    std::thread writer([&] {
        for (const std::string &m : huge)
            EXPECT_TRUE(write_message(p.to_server[1], m));
    });
    json m = next("window/showMessage");
    EXPECT_EQ(m["params"]["type"], 1);
    EXPECT_NE(m["params"]["message"].get<std::string>().find("textDocument/didChange"),
              std::string::npos);
    m = next("textDocument/publishDiagnostics");
    EXPECT_EQ(m["params"]["uri"], uri);
    EXPECT_NE(m["params"]["diagnostics"].dump().find("not checked"), std::string::npos);
    EXPECT_EQ(next("window/showMessage")["params"]["type"], 1);
    m = next("");
    EXPECT_EQ(m["id"], "big");
    EXPECT_EQ(m["error"]["code"], -32600);
    writer.join();
    // A pull says the same as the push.
    send({{"jsonrpc", "2.0"},
          {"id", 5},
          {"method", "textDocument/diagnostic"},
          {"params", {{"textDocument", {{"uri", uri}}}}}});
    EXPECT_NE(next("")["result"]["items"].dump().find("not checked"), std::string::npos);
    // A text that fits is checked again.
    send({{"jsonrpc", "2.0"},
          {"method", "textDocument/didChange"},
          {"params",
           {{"textDocument", {{"uri", uri}, {"version", 3}}},
            {"contentChanges", json::array({{{"text", text}}})}}}});
    EXPECT_EQ(next("textDocument/publishDiagnostics")["params"]["diagnostics"], json::array());
    // Then the framing breaks.
    const char bad[] = "Content-Length: twelve\r\n\r\n";
    ASSERT_EQ(write(p.to_server[1], bad, strlen(bad)), static_cast<ssize_t>(strlen(bad)));
    m = next("window/showMessage");
    EXPECT_NE(m["params"]["message"].get<std::string>().find("exit code 1"), std::string::npos);
    EXPECT_EQ(p.join(), 1);
}

namespace
{

std::vector<std::string> navigated_scripts()
{
    std::vector<std::string> files = {std::string(KIV_SOURCE_DIR) + "/" + HELPER_BUILT};
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example("")))
        if (e.path().extension() == ".lua")
            files.push_back(e.path().string());
    return files;
}

// A definition's answer as a list of locations.
json locations(const json &j)
{
    return j.is_null() ? json::array() : j.is_array() ? j : json::array({j});
}

} // namespace

// References and definitions agree both ways in every shipped example and
// in the script whose tables helpers build: asked at every name, string and
// brace, where definition leads is what references with the declaration
// give first, and every place references give leads back there.
TEST_F(LspSession, ReferencesAndDefinitionsAgreeBothWays)
{
    int asked = 0, named = 0;
    for (const std::string &file : navigated_scripts()) {
        SCOPED_TRACE(file);
        const std::string text = kivtest::read_file(file);
        session s;
        s.initialize();
        s.open("file:///ws/x.lua", text);
        kivtool::lexer lx(text);
        for (kivtool::token t = lx.next(); t.kind != kivtool::tk::eof && t.kind != kivtool::tk::bad;
             t = lx.next()) {
            if (t.kind != kivtool::tk::name && t.kind != kivtool::tk::string &&
                t.kind != kivtool::tk::lbrace && t.kind != kivtool::tk::number)
                continue;
            const json at = position_json(text, t.begin.offset + (t.kind == kivtool::tk::string));
            const json refs =
                s.ask("textDocument/references",
                      {{"position", at}, {"context", {{"includeDeclaration", true}}}});
            if (refs.empty())
                continue;
            SCOPED_TRACE(std::string(t.text) + " at line " + std::to_string(t.begin.line));
            ++asked;
            const json decl = locations(s.ask("textDocument/definition", {{"position", at}}));
            ASSERT_FALSE(decl.empty());
            ASSERT_LE(decl.size(), refs.size());
            for (size_t i = 0; i < decl.size(); ++i)
                EXPECT_EQ(refs[i], decl[i]);
            for (size_t i = decl.size(); i < refs.size(); ++i, ++named) {
                const json back = locations(
                    s.ask("textDocument/definition", {{"position", refs[i]["range"]["start"]}}));
                for (const json &d : decl)
                    EXPECT_NE(std::find(back.begin(), back.end(), d), back.end())
                        << refs[i].dump() << " leads to " << back.dump();
            }
        }
    }
    EXPECT_GE(asked, 120);
    EXPECT_GE(named, 150);
}

// Folding ranges in every shipped example: sorted, one per start line, each
// over more than one line, nested or apart; every table over several lines
// starts one.
TEST_F(LspSession, FoldingRangesNest)
{
    for (const std::string &file : navigated_scripts()) {
        SCOPED_TRACE(file);
        const std::string text = kivtest::read_file(file);
        session s;
        s.initialize();
        s.open("file:///ws/x.lua", text);
        const json folds = s.ask("textDocument/foldingRange", json::object());
        std::set<uint32_t> starts;
        for (size_t i = 0; i < folds.size(); ++i) {
            const uint32_t b = folds[i]["startLine"], e = folds[i]["endLine"];
            EXPECT_LT(b, e);
            EXPECT_TRUE(starts.insert(b).second) << b;
            for (size_t j = 0; j < i; ++j) {
                const uint32_t ob = folds[j]["startLine"], oe = folds[j]["endLine"];
                EXPECT_LT(ob, b);
                EXPECT_TRUE(b > oe || e <= oe) << b << "-" << e << " across " << ob << "-" << oe;
            }
        }
        const line_index lines(text);
        for (const kivtool::src_constructor &c : kivtool::scan_source(text).constructors) {
            const uint32_t b = lines.at(c.span.begin.offset).line;
            const bool several = lines.at(c.span.end.offset).line > b + 1;
            EXPECT_TRUE(!several || starts.count(b)) << c.span.begin.line;
        }
    }
}

// The inlay hints of every shipped example: none, but where the loader
// really stores another value than the one written.  Each hint is listed
// as `written → label`, with why it is a change.
TEST_F(LspSession, ExamplesGetHintsOnlyWhereAValueChanges)
{
    const std::map<std::string, std::vector<std::string>> expected = {
        // enable_hp_fps = 1: 29.970 and 14.985 fps keep their thousandths, but
        // the whole rate is rounded up to 30 and 15.
        {"hdr_virtual_mode.lua",
         {"fps = 29970 → 30 whole, 29970 thousandths",
          "idsp_fps = 29970 → 30 whole, 29970 thousandths",
          "frame_rate = 29970 → 30 whole, 29970 thousandths",
          "frame_rate = 14985 → 15 whole, 14985 thousandths"}},
    };
    int files = 0;
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example(""))) {
        if (e.path().extension() != ".lua")
            continue;
        ++files;
        const std::string name = e.path().filename().string();
        document d;
        d.uri = "file:///ws/x.lua";
        d.text = kivtest::read_file(e.path().string());
        d.last = run_check({d.uri, name, 1, d.text});
        const line_index lines(d.text);
        std::vector<std::string> got;
        for (const json &h : inlay_hints(d, {{0, 0}, {1u << 30, 0}})) {
            // The value hinted and its key: back to the field's start.
            const size_t at = lines.offset({h["position"]["line"].get<uint32_t>(),
                                            h["position"]["character"].get<uint32_t>()});
            const size_t from = d.text.find_last_of("{,\t\n", at - 1) + 1;
            got.push_back(d.text.substr(from, at - from) + " " + h["label"].get<std::string>());
            for (char &c : got.back())
                c = c == '\t' ? ' ' : c;
            got.back().erase(0, got.back().find_first_not_of(' '));
        }
        const auto it = expected.find(name);
        EXPECT_EQ(got, it == expected.end() ? std::vector<std::string>{} : it->second) << name;
    }
    EXPECT_GE(files, 7);
}

// A pull of the diagnostics of a text not checked yet is answered when its
// check finishes: not by a check of an older text, nor by one of older
// settings; a pull of a document closed meanwhile, or cancelled, gets an
// error.  The debounce of initializationOptions holds the checks back.
TEST(LspPull, APullWaitsForTheCheckOfTheTextAsItIsNow)
{
    std::vector<json> sent;
    server srv([&](const json &m) { sent.push_back(m); }, {std::chrono::milliseconds(40), false});
    const std::string uri = "file:///ws/a.lua";
    const std::string shipped = kivtest::read_file(kivtest::example("single_1080p.lua"));
    const std::string misspelt = std::regex_replace(shipped, std::regex("mctf_cmpr"), "mctf_cmp");
    auto send = [&](const std::string &method, json params, json id = nullptr) {
        sent.clear();
        json m = {{"jsonrpc", "2.0"}, {"method", method}, {"params", std::move(params)}};
        if (!id.is_null())
            m["id"] = id;
        srv.handle(m);
    };
    auto change = [&](const std::string &text) {
        send("textDocument/didChange",
             {{"textDocument", {{"uri", uri}}}, {"contentChanges", {{{"text", text}}}}});
    };
    auto pull = [&](int id) {
        send("textDocument/diagnostic", {{"textDocument", {{"uri", uri}}}}, id);
    };
    auto answer = [&](int id) -> json {
        for (const json &m : sent)
            if (m.value("id", 0) == id)
                return m;
        return nullptr;
    };
    auto published = [&]() -> json {
        for (const json &m : sent)
            if (m.value("method", "") == "textDocument/publishDiagnostics")
                return m["params"]["diagnostics"];
        return nullptr;
    };
    const auto later = clock::now() + std::chrono::seconds(6);
    clock::duration wait;
    auto check = [&] {
        const auto job = srv.take_due(later, &wait);
        EXPECT_TRUE(job);
        return run_check(job.value_or(check_job{}));
    };

    send("initialize",
         {{"capabilities", json::object()}, {"initializationOptions", {{"debounce", 5000}}}}, 1);
    send("textDocument/didOpen",
         {{"textDocument", {{"uri", uri}, {"version", 1}, {"text", misspelt}}}});
    pull(2);
    EXPECT_TRUE(sent.empty());
    EXPECT_FALSE(srv.take_due(clock::now(), &wait));
    EXPECT_GT(wait, std::chrono::seconds(4));
    // A change while the check runs: the check is dropped, the pull waits on.
    auto stale = check();
    change(misspelt + "\n");
    srv.finish(stale);
    EXPECT_TRUE(published().is_null());
    EXPECT_TRUE(answer(2).is_null());
    srv.finish(check());
    ASSERT_FALSE(published().is_null());
    EXPECT_EQ(answer(2)["result"]["kind"], "full");
    EXPECT_EQ(answer(2)["result"]["items"], published());
    EXPECT_EQ(published()[0]["code"], "unknown-key");

    // New settings while a check runs: it is dropped; the next leaves out
    // the rule, with the debounce of initialize still.
    change(misspelt);
    stale = check();
    send("workspace/didChangeConfiguration", {{"settings", {{"disable", {"unknown-key"}}}}});
    EXPECT_FALSE(srv.take_due(clock::now(), &wait));
    EXPECT_GT(wait, std::chrono::seconds(4));
    pull(3);
    srv.finish(stale);
    EXPECT_TRUE(published().is_null());
    srv.finish(check());
    EXPECT_EQ(published(), json::array());
    EXPECT_EQ(answer(3)["result"]["items"], json::array());

    change(shipped);
    pull(4);
    pull(5);
    send("$/cancelRequest", {{"id", 5}});
    EXPECT_EQ(answer(5)["error"]["code"], -32800);
    send("textDocument/didClose", {{"textDocument", {{"uri", uri}}}});
    EXPECT_EQ(answer(4)["error"]["code"], -32803);
}
