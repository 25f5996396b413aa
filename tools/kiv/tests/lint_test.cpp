// kiv lint: the rule scripts of docs/lint.md are the rules' tests, and the
// shipped examples have exactly the findings they say they expect.  (The
// outputs and exit codes are golden cases in tests/cases/tool_lint.lua; the
// SARIF output is validated against its schema by lint_sarif_schema.)
#include <gtest/gtest.h>

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
