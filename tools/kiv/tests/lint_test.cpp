// kiv lint: the rule scripts of docs/lint.md are the rules' tests, the
// shipped examples have exactly the findings they say they expect, and the
// outputs and exit codes are what CI systems rely on.  (The SARIF output is
// validated against the SARIF 2.1.0 schema by the lint_sarif_schema test.)
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <unistd.h>

#include "kiv_test.h"
#include "common.h"
#include "lint.h"
#include "tool_test.h"

using tooltest::kiv;
using tooltest::run_result;

namespace
{

using Lint = kivtest::Settings;

// Runs `kiv lint ARGS... cfg.lua` on a script saved as cfg.lua in a
// directory of its own, so that the output names the file as the
// documentation does.
run_result lint_as_cfg(const std::string &text, std::vector<std::string> args = {"-q"})
{
    char dir[] = "/tmp/kiv-lint-test-XXXXXX";
    EXPECT_NE(mkdtemp(dir), nullptr);
    std::ofstream(std::string(dir) + "/cfg.lua") << text;
    char here[4096];
    EXPECT_NE(getcwd(here, sizeof here), nullptr);
    EXPECT_EQ(chdir(dir), 0);
    args.insert(args.begin(), "lint");
    args.push_back("cfg.lua");
    run_result r = kiv(args);
    EXPECT_EQ(chdir(here), 0);
    std::filesystem::remove_all(dir);
    return r;
}

} // namespace

TEST_F(Lint, EachRuleFindsItsDocumentedScriptAndNothingElse)
{
    const std::string doc = kivtest::read_file(kivtest::example("../docs/lint.md"));
    static const std::regex section(
        "\n### ([a-z-]+)\n[^#]*?```lua\n([^`]*)```\n\n```text\n([^\n]*\n)```");
    std::set<std::string> documented;
    for (auto it = std::sregex_iterator(doc.begin(), doc.end(), section);
         it != std::sregex_iterator(); ++it) {
        const std::string id = (*it)[1], script = (*it)[2], line = (*it)[3];
        SCOPED_TRACE(id);
        documented.insert(id);
        run_result r = lint_as_cfg(script);
        const kivtool::rule *rule = kivtool::find_rule(id);
        ASSERT_NE(rule, nullptr);
        EXPECT_EQ(r.rc, rule->level == kivtool::severity::info ? 0 : 1);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1), line);
        EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2) << r.out; // and the summary
    }
    for (const kivtool::rule &r : kivtool::lint_rules())
        EXPECT_TRUE(documented.count(r.id) || std::string(r.id) == "load-failed") << r.id;
}

TEST_F(Lint, ExamplesHaveOnlyTheFindingsTheySayTheyExpect)
{
    static const std::regex expects("-- kiv lint expects: ([a-z-]+) ([^:]+):");
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example(""))) {
        if (e.path().extension() != ".lua")
            continue;
        SCOPED_TRACE(e.path().string());
        const std::string text = kivtest::read_file(e.path());
        std::multiset<std::string> want, got;
        for (auto it = std::sregex_iterator(text.begin(), text.end(), expects);
             it != std::sregex_iterator(); ++it)
            want.insert((*it)[1].str() + " " + (*it)[2].str());
        kivtool::tool_log().quiet = true;
        for (const kivtool::finding &f : kivtool::lint_file(e.path()))
            got.insert(std::string(f.r->id) + " " + f.path);
        EXPECT_EQ(got, want);
    }
}

// Findings the loader's failure leaves, wrong types of every kind, values
// that lose their sign or high bits, an unknown key with nothing close.
TEST_F(Lint, KeysTheLoaderReadsOrSkips)
{
    const std::string base = tooltest::minimal_script();
    auto with = [&](const std::string &at, const std::string &text) {
        std::string s = base;
        s.insert(s.find(at) + at.size(), text);
        return s;
    };
    const struct {
        std::string script;
        std::string findings; // "rule path" lines
    } cases[] = {
        // A switch that is off: the keys it gates are known, not unknown.
        {with("idsp_fps = 30,", " enable_group = 0, group_idx = 1, zzz = {},"),
         "unknown-key channels[0].zzz\n"},
        {with("hdr_mode = \"linear\"", ", mode_x = 1, bits = -1, dg_mode = {}"),
         "unknown-key channels[0].vsrc.mode_x\ntruncated-value channels[0].vsrc.bits\n"
         "wrong-type channels[0].vsrc.dg_mode\n"},
        {with("idsp_fps = 30,", " pyramid = 'none', mctf_cmpr = '1x',"),
         "wrong-type channels[0].mctf_cmpr\nwrong-type channels[0].pyramid\n"},
        {with("version = 1,", " channels_x = 1,") + "x", "load-failed \n"},
    };
    for (const auto &c : cases) {
        run_result r =
            lint_as_cfg(c.script, {"-q", "--format", "json", "--disable", "overlapping-windows"});
        std::multiset<std::string> got, want;
        for (const auto &f : nlohmann::json::parse(r.out))
            got.insert(f["rule"].get<std::string>() + " " + f["path"].get<std::string>());
        for (size_t at = 0, nl; (nl = c.findings.find('\n', at)) != std::string::npos; at = nl + 1)
            want.insert(c.findings.substr(at, nl - at));
        EXPECT_EQ(got, want) << c.script;
        EXPECT_EQ(r.rc, 1);
    }
}

TEST_F(Lint, OutputsAndExitCodes)
{
    const std::string script = tooltest::minimal_script("hflp = 1,");
    // Text: the finding, an info that does not fail, the summary.
    run_result r = lint_as_cfg(script);
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out.substr(r.out.rfind('\n', r.out.size() - 2) + 1),
              "1 file: 0 errors, 1 warning, 1 info\n");
    EXPECT_EQ(lint_as_cfg(script, {"-q", "--disable", "unknown-key"}).rc, 0);
    EXPECT_EQ(lint_as_cfg(script, {"-q", "--error-on", "error"}).rc, 0);
    // The library's log goes to standard error, bounded by --log-level.
    r = lint_as_cfg(script, {});
    EXPECT_NE(r.err.find("KIV_WARN:: "), std::string::npos);
    EXPECT_EQ(lint_as_cfg(script, {"--log-level", "0"}).err, "");

    nlohmann::json j = nlohmann::json::parse(lint_as_cfg(script, {"-q", "--format", "json"}).out);
    ASSERT_EQ(j.size(), 2u); // in the order the keys are read: the windows, then hflp
    EXPECT_EQ(j[1], nlohmann::json::parse(R"({"file": "cfg.lua", "severity": "warning",
        "path": "channels[0].hflp", "rule": "unknown-key",
        "message": "no loader reads `hflp` here: it is ignored; did you mean `hflip`?"})"));

    j = nlohmann::json::parse(lint_as_cfg(script, {"-q", "--format", "sarif"}).out);
    const auto &run = j["runs"][0];
    EXPECT_EQ(run["tool"]["driver"]["rules"].size(), kivtool::lint_rules().size());
    EXPECT_EQ(run["results"][0]["level"], "note");
    EXPECT_EQ(run["results"][0]["locations"][0]["physicalLocation"]["artifactLocation"]["uri"],
              "cfg.lua");

    for (const std::vector<std::string> &bad :
         {std::vector<std::string>{"lint", "--format", "yaml", "x.lua"},
          {"lint", "--disable", "no-such-rule", "x.lua"},
          {"lint", "--error-on", "info", "x.lua"}}) {
        r = kiv(bad);
        EXPECT_EQ(r.rc, 2) << bad[2];
        EXPECT_EQ(r.err.rfind("kiv: ", 0), 0u) << r.err;
    }
    r = kiv({"lint", "-q", "/nonexistent.lua"});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err, "kiv: cannot read /nonexistent.lua: No such file or directory\n");
}
