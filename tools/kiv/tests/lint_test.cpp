// kiv lint: the rule scripts of docs/lint.md are the rules' tests, and the
// shipped examples have exactly the findings they say they expect.  (The
// outputs and exit codes are golden cases in tests/cases/tool_lint.lua; the
// SARIF output is validated against its schema by lint_sarif_schema.)
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "kiv_test.h"
#include "common.h"
#include "lint.h"
#include "tool_test.h"

using tooltest::kiv;
using tooltest::run_result;

using Lint = kivtest::Settings;

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
        std::string path = kivtest::script(script);
        run_result r = kiv({"lint", "-q", path});
        const kivtool::rule *rule = kivtool::find_rule(id);
        ASSERT_NE(rule, nullptr);
        EXPECT_EQ(r.rc, rule->level == kivtool::severity::info ? 0 : 1);
        EXPECT_EQ(r.err, "");
        // The documentation names the script cfg.lua.
        EXPECT_EQ(r.out.rfind(path, 0), 0u) << r.out;
        EXPECT_EQ("cfg.lua" + r.out.substr(path.size(), r.out.find('\n') + 1 - path.size()), line);
        EXPECT_EQ(std::count(r.out.begin(), r.out.end(), '\n'), 2) << r.out; // and the summary
    }
    for (const kivtool::rule &r : kivtool::all_rules())
        EXPECT_TRUE(documented.count(r.id)) << r.id;
}

TEST_F(Lint, ExamplesAreCleanWhereTheirCommentsSilenceWhatTheyMean)
{
    std::vector<std::string> args{"lint", "-q"};
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example("")))
        if (e.path().extension() == ".lua")
            args.push_back(e.path());
    run_result r = kiv(args);
    EXPECT_EQ(r.rc, 0) << r.out;
    EXPECT_EQ(r.out.find(": error:"), std::string::npos) << r.out;
    EXPECT_EQ(r.out.find(": warning:"), std::string::npos) << r.out;
}
