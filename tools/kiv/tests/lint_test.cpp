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
        "\n### ([a-z-]+)\n[^#]*?```lua\n([^`]*)```\n\n```text\n((?:[^\n]*\n)+?)```");
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
        // Its finding and the finding's notes, then the summary.
        std::string shown = r.out.substr(0, r.out.rfind('\n', r.out.size() - 2) + 1);
        for (size_t at; (at = shown.find(path)) != std::string::npos;)
            shown.replace(at, path.size(), "cfg.lua");
        EXPECT_EQ(shown, line);
        EXPECT_EQ(std::count(line.begin(), line.end(), ':') > 0, true);
    }
    for (const kivtool::rule &r : kivtool::all_rules())
        EXPECT_TRUE(documented.count(r.id)) << r.id;
}

// Every shipped example lints clean, each of its kind, and so does the
// dump of each multi-channel one: the library's own canonical text, which
// writes keys the loader knows but skips (`enable_order` in a canvas of one
// channel) and none of the script's comments.
TEST_F(Lint, ExamplesAndTheirDumpsAreClean)
{
    struct example {
        std::string file;
        bool multi; // a multi-channel configuration, which has a dump
        // Rules the dump is linted without: what the script silences on
        // purpose where it stands, in a comment that a dump cannot carry.
        std::vector<std::string> dump_disabled;
    };
    const std::vector<example> examples = {
        {"calib_table.lua", false, {}},
        {"custom_aisp.lua", false, {}},
        {"hdr_virtual_mode.lua", true, {}},
        {"hevc_default_scaling.lua", false, {}},
        {"single_1080p.lua", true, {}},
        {"three_channel_4k.lua", true, {"overlapping-windows"}}, // the preview's picture in picture
        {"two_channel_encode_preview.lua", true, {}},
    };
    std::set<std::string> shipped, listed;
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example("")))
        if (e.path().extension() == ".lua")
            shipped.insert(e.path().filename());
    for (const example &e : examples)
        listed.insert(e.file);
    EXPECT_EQ(listed, shipped);

    const std::string clean = "1 file: 0 errors, 0 warnings, 0 infos\n";
    for (const example &e : examples) {
        SCOPED_TRACE(e.file);
        const std::string path = kivtest::example(e.file.c_str());
        run_result r = kiv({"lint", "-q", path});
        EXPECT_EQ(r.rc, 0);
        EXPECT_EQ(r.out, clean);
        EXPECT_EQ(r.err, "");
        if (!e.multi)
            continue;
        run_result dumped = kiv({"dump", "-q", path});
        ASSERT_EQ(dumped.rc, 0) << dumped.err;
        std::vector<std::string> args{"lint", "-q"};
        for (const std::string &id : e.dump_disabled)
            args.insert(args.end(), {"--disable", id});
        args.push_back(kivtest::script(dumped.out));
        r = kiv(args);
        EXPECT_EQ(r.rc, 0);
        EXPECT_EQ(r.out, clean);
        EXPECT_EQ(r.err, "");
    }
}
