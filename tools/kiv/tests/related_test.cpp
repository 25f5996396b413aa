// The other places a finding concerns (related_place) in every output: note
// lines after the finding's line, `related` in JSON, relatedLocations in
// SARIF (valid against the schema), relatedInformation in the editor's
// diagnostics; each place counted as its output counts the finding's own
// (characters, or UTF-16 units for the editor).  The findings are made by
// hand: what the outputs do with them does not depend on which rule gives
// them.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "kiv_test.h"
#include "lsp/server.h"
#include "report.h"

using kivtool::finding;
using kivtool::src_pos;
using kivtool::src_span;
using json = nlohmann::json;
using ordered_json = nlohmann::ordered_json;

namespace
{

// Places after characters of two and four bytes ("é", and "𝄞", two UTF-16
// units): bytes, characters and UTF-16 units count their columns apart.
const std::string TEXT =
    "local sensor = {name = \"\xC3\xA9\xF0\x9D\x84\x9E\xF0\x9D\x84\x9E\", fps = 30}\n"
    "local copy = sensor\n"
    "_resource_config_ = {channels = {{vsrc = copy}}}\n";
const std::string PATH = "/ws/cfg.lua", URI = "file:///ws/cfg.lua";

// The first `what` of TEXT as the model places it (columns in bytes); ""
// is none.
src_span span_of(const std::string &what)
{
    if (what.empty())
        return {};
    const size_t at = TEXT.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    auto pos = [](size_t offset) {
        src_pos p{1, 1, static_cast<uint32_t>(offset)};
        for (size_t i = 0; i < offset; ++i) {
            ++p.col;
            if (TEXT[i] == '\n')
                ++p.line, p.col = 1;
        }
        return p;
    };
    return {pos(at), pos(at + what.size())};
}

struct place {
    const char *at, *message;
};

struct row {
    const char *rule, *path, *message, *at;
    std::vector<place> related;
    const char *text;  // finding_text
    const char *json;  // `related` of its findings_json object ("": none)
    const char *sarif; // relatedLocations of its SARIF result ("": none)
    const char *lsp;   // relatedInformation of its diagnostic ("": none)
};

const row ROWS[] = {
    {"rate-above-source",
     "channels[0].vsrc.fps",
     "30 fps, above its source",
     "vsrc = copy",
     {{"fps = 30", "written here"}, {"copy = sensor", "copied here"}},
     "/ws/cfg.lua:3:35: warning: channels[0].vsrc.fps: 30 fps, above its source "
     "[rate-above-source]\n"
     "/ws/cfg.lua:1:31: note: written here\n"
     "/ws/cfg.lua:2:7: note: copied here\n",
     R"([{"line":1,"column":31,"end_line":1,"end_column":39,"message":"written here"},
         {"line":2,"column":7,"end_line":2,"end_column":20,"message":"copied here"}])",
     R"([{"id":1,"physicalLocation":{"artifactLocation":{"uri":"file:///ws/cfg.lua"},
          "region":{"startLine":1,"startColumn":31,"endLine":1,"endColumn":39}},
          "message":{"text":"written here"}},
         {"id":2,"physicalLocation":{"artifactLocation":{"uri":"file:///ws/cfg.lua"},
          "region":{"startLine":2,"startColumn":7,"endLine":2,"endColumn":20}},
          "message":{"text":"copied here"}}])",
     R"([{"location":{"uri":"file:///ws/cfg.lua","range":{"start":{"line":0,"character":32},
          "end":{"line":0,"character":40}}},"message":"written here"},
         {"location":{"uri":"file:///ws/cfg.lua","range":{"start":{"line":1,"character":6},
          "end":{"line":1,"character":19}}},"message":"copied here"}])"},
    // None: the finding reads as it always has.
    {"unknown-key",
     "channels[0].vsrc.name",
     "no loader reads `name` here",
     "name",
     {},
     "/ws/cfg.lua:1:17: warning: channels[0].vsrc.name: no loader reads `name` here "
     "[unknown-key]\n",
     "",
     "",
     ""},
    // The file as a whole, with a place of several multi-byte characters
    // and one without a place.
    {"lossy-round-trip",
     "",
     "the dump leaves it out",
     "",
     {{"\xF0\x9D\x84\x9E\xF0\x9D\x84\x9E", "merged here"}, {"", "read apart"}},
     "/ws/cfg.lua: error: the dump leaves it out [lossy-round-trip]\n"
     "/ws/cfg.lua:1:26: note: merged here\n"
     "/ws/cfg.lua: note: read apart\n",
     R"([{"line":1,"column":26,"end_line":1,"end_column":28,"message":"merged here"},
         {"message":"read apart"}])",
     R"([{"id":1,"physicalLocation":{"artifactLocation":{"uri":"file:///ws/cfg.lua"},
          "region":{"startLine":1,"startColumn":26,"endLine":1,"endColumn":28}},
          "message":{"text":"merged here"}},
         {"id":2,"physicalLocation":{"artifactLocation":{"uri":"file:///ws/cfg.lua"}},
          "message":{"text":"read apart"}}])",
     R"([{"location":{"uri":"file:///ws/cfg.lua","range":{"start":{"line":0,"character":25},
          "end":{"line":0,"character":29}}},"message":"merged here"},
         {"location":{"uri":"file:///ws/cfg.lua","range":{"start":{"line":0,"character":0},
          "end":{"line":0,"character":0}}},"message":"read apart"}])"},
};

// The findings of ROWS as the model gives them: columns in bytes.
std::vector<finding> findings()
{
    std::vector<finding> out;
    for (const row &r : ROWS) {
        finding f{kivtool::find_rule(r.rule), r.path, r.message, span_of(r.at), {}};
        for (const place &p : r.related)
            f.related.push_back({span_of(p.at), p.message});
        out.push_back(std::move(f));
    }
    return out;
}

kivtool::file_report report()
{
    kivtool::file_report r;
    r.file = PATH;
    for (finding &f : findings())
        r.findings.push_back(kivtool::in_characters(TEXT, std::move(f)));
    return r;
}

// The member `name` of an object, null when it has none.
template <class J>
J member(const J &o, const char *name)
{
    return o.contains(name) ? o[name] : J();
}

template <class J>
J expected(const char *text)
{
    return *text ? J::parse(text) : J();
}

// What the server publishes for ROWS after `initialize` with
// `capabilities`.
json published(const json &capabilities)
{
    std::vector<json> sent;
    kivtool::lsp::server srv([&](const json &m) { sent.push_back(m); },
                             {std::chrono::hours(1), false});
    srv.handle({{"jsonrpc", "2.0"},
                {"id", 1},
                {"method", "initialize"},
                {"params", {{"capabilities", capabilities}}}});
    srv.handle({{"jsonrpc", "2.0"},
                {"method", "textDocument/didOpen"},
                {"params", {{"textDocument", {{"uri", URI}, {"version", 1}, {"text", TEXT}}}}}});
    auto a = std::make_shared<kivtool::lsp::analysis>();
    a->uri = URI;
    a->version = 1;
    a->model.text = TEXT;
    a->findings = findings();
    sent.clear();
    srv.finish(a);
    EXPECT_EQ(sent.size(), 1u);
    return sent.empty() ? json() : sent.back()["params"]["diagnostics"];
}

} // namespace

TEST(RelatedPlaces, TextJsonAndSarifCountTheirColumnsInCharacters)
{
    const kivtool::file_report r = report();
    const ordered_json a = kivtool::findings_json({r});
    const ordered_json run = kivtool::findings_sarif({r})["runs"][0];
    const ordered_json &results = run["results"];
    EXPECT_EQ(run["columnKind"], "unicodeCodePoints"); // as counted below
    ASSERT_EQ(a.size(), std::size(ROWS));
    ASSERT_EQ(results.size(), std::size(ROWS));
    for (size_t i = 0; i < std::size(ROWS); ++i) {
        const row &w = ROWS[i];
        SCOPED_TRACE(w.rule);
        const std::string text = w.text;
        EXPECT_EQ(kivtool::finding_text(r.file, r.findings[i]), text);
        // The one-line form (a failure message) leaves the notes out.
        EXPECT_EQ(kivtool::finding_text(r.file, r.findings[i], false),
                  text.substr(0, text.find(std::string(" [") + w.rule + "]\n")));
        EXPECT_EQ(member(a[i], "related"), expected<ordered_json>(w.json));
        EXPECT_EQ(member(results[i], "relatedLocations"), expected<ordered_json>(w.sarif));
    }
}

TEST(RelatedPlaces, TheEditorGetsThemInUtf16WhenItTakesThem)
{
    const json takes = json::parse(R"({"textDocument":{"publishDiagnostics":
                                       {"relatedInformation":true}}})");
    const json diags = published(takes);
    ASSERT_EQ(diags.size(), std::size(ROWS));
    for (size_t i = 0; i < std::size(ROWS); ++i)
        EXPECT_EQ(member(diags[i], "relatedInformation"), expected<json>(ROWS[i].lsp))
            << ROWS[i].rule;
    // A client that does not say it takes them, or says so oddly, gets none.
    for (const char *caps : {R"({})", R"({"textDocument":{"publishDiagnostics":{}}})",
                             R"({"textDocument":{"publishDiagnostics":
                                 {"relatedInformation":false}}})",
                             R"({"textDocument":{"publishDiagnostics":
                                 {"relatedInformation":"yes"}}})",
                             R"({"textDocument":[]})", R"([])"})
        for (const json &d : published(json::parse(caps)))
            EXPECT_FALSE(d.contains("relatedInformation")) << caps;
}

TEST(RelatedPlaces, SarifLogIsValid)
{
    const std::string dir = std::string(KIV_SOURCE_DIR) + "/tools/kiv/tests/sarif";
    if (!std::filesystem::exists(dir + "/node_modules/ajv") ||
        std::system("node --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "needs Node.js and `npm ci` in " << dir;
    const std::string log = kivtest::script(kivtool::findings_sarif({report()}).dump());
    FILE *p = popen(("node '" + dir + "/validate.js' '" + log + "' 2>&1").c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string out;
    char buf[512];
    while (size_t n = fread(buf, 1, sizeof buf, p))
        out.append(buf, n);
    EXPECT_EQ(pclose(p), 0) << out;
}
