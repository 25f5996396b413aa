// The program as engineers run it: subcommands, output, errors on standard
// error and exit codes.  Multi-channel loads that need the channel, video
// source and stream parsers run only in a build that has them.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <fstream>
#include <unistd.h>

#include "common.h"
#include "core/log.h"
#include "kiv_test.h"
#include "tool_test.h"

using tooltest::kiv;
using tooltest::run_result;
using json = nlohmann::json;

namespace
{

class Cli : public kivtest::Settings
{
};

std::string masked(const std::string &s)
{
    return kivtest::mask_lines(s);
}

const char *const SUBCOMMANDS[] = {"check", "dump",  "show", "diff", "layout",
                                   "lint",  "calib", "hevc", "aisp"};

#define NEED_PARSERS()                                                                             \
    if (!tooltest::parsers_ready())                                                                \
    GTEST_SKIP() << "the channel, video source or stream parser is a placeholder in this build"

} // namespace

TEST_F(Cli, UsageAndHelp)
{
    run_result r = kiv({});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "kiv: A subcommand is required\nRun with --help for more information.\n");

    r = kiv({"frobnicate"});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err,
              "kiv: unknown subcommand 'frobnicate'\nRun with --help for more information.\n");

    r = kiv({"--help"});
    EXPECT_EQ(r.rc, 0);
    for (const char *sub : SUBCOMMANDS)
        EXPECT_NE(r.out.find(std::string("  ") + sub + " "), std::string::npos) << sub;
    for (const char *sub : SUBCOMMANDS) {
        r = kiv({sub, "--help"});
        EXPECT_EQ(r.rc, 0) << sub;
        EXPECT_NE(r.out.find(std::string("Usage: kiv ") + sub), std::string::npos) << sub;
        EXPECT_EQ(r.err, "") << sub;
        r = kiv({sub});
        EXPECT_EQ(r.rc, 2) << sub;
        EXPECT_EQ(r.out, "") << sub;
        EXPECT_NE(r.err.find("is required"), std::string::npos) << sub;
    }
    r = kiv({"show", "a.lua", "--bogus"});
    EXPECT_EQ(r.rc, 2);
    r = kiv({"layout", "a.lua"}); // -o is required
    EXPECT_EQ(r.rc, 2);
    EXPECT_NE(r.err.find("--output is required"), std::string::npos);
    r = kiv({"check", "--log-level", "300", "a.lua"});
    EXPECT_EQ(r.rc, 2);
}

TEST_F(Cli, UnreadableAndUnwritableFiles)
{
    const std::string missing = "/nonexistent/dir/x.lua";
    const std::string err = "kiv: cannot read " + missing + ": No such file or directory\n";
    for (const char *sub : {"show", "dump", "calib", "hevc", "aisp"}) {
        run_result r = kiv({sub, missing});
        EXPECT_EQ(r.rc, 2) << sub;
        EXPECT_EQ(r.out, "") << sub;
        EXPECT_EQ(r.err, err) << sub;
    }
    std::string ok = kivtest::script("_resource_config_ = { version = 1 }");
    run_result r = kiv({"diff", ok, missing});
    EXPECT_EQ(r.rc, 2);
    EXPECT_NE(r.err.find(err), std::string::npos);

    r = kiv({"show", "/tmp"});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err, "kiv: cannot read /tmp: Is a directory\n");

    r = kiv({"dump", ok, "-o", "/nonexistent/dir/out.lua"});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err, "kiv: cannot write /nonexistent/dir/out.lua: No such file or directory\n");
    r = kiv({"layout", ok, "-o", "/tmp"});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err, "kiv: cannot write /tmp: Is a directory\n");
}

TEST_F(Cli, CheckReportsEachFile)
{
    std::string v2 = kivtest::script("_resource_config_ = { version = 2 }");
    std::string empty = kivtest::script("_resource_config_ = {}");
    run_result r = kiv({"check", v2, empty});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(masked(r.out),
              "KIV_ERROR:: kiv_get_multi_chan_cfg(N): invalid multi-channel lua version: 2, "
              "current version is: 1\n" +
                  v2 + ": failed (result -1)\n" +
                  "KIV_ERROR:: kiv_get_multi_chan_cfg(N): item(version) doesn't exist.\n" + empty +
                  ": failed (result -2)\n");

    // The starting log level: 3 adds the access layer's DEBUG line, 0 keeps
    // only errors; each file starts from it again.
    r = kiv({"check", "--log-level", "3", empty});
    EXPECT_EQ(masked(r.out),
              "KIV_DEBUG:: kiv_is_item_exist_str(N): item(version) doesn't exist\n"
              "KIV_ERROR:: kiv_get_multi_chan_cfg(N): item(version) doesn't exist.\n" +
                  empty + ": failed (result -2)\n");
    EXPECT_EQ(kiv_get_log_level(), 3);
    // The tool's level bounds what is shown even where the script sets its
    // own (the examples set log_level = 1).
    r = kiv({"check", "--log-level", "0", kivtest::example("three_channel_4k.lua")});
    EXPECT_EQ(r.out.find("KIV_"), std::string::npos) << r.out;
    r = kiv({"check", "-q", empty});
    EXPECT_EQ(masked(r.out),
              "KIV_ERROR:: kiv_get_multi_chan_cfg(N): item(version) doesn't exist.\n" + empty +
                  ": failed (result -2)\n");

    // An unreadable file outweighs a failing one; the others are still checked.
    r = kiv({"check", "--quiet", "/nonexistent.lua", empty});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.err, "kiv: cannot read /nonexistent.lua: No such file or directory\n");
    EXPECT_NE(r.out.find(empty + ": failed (result -2)\n"), std::string::npos);
}

TEST_F(Cli, FailedLoadsKeepTheLogOffStandardOutput)
{
    std::string bad = kivtest::script("_resource_config_ = { version = 2 }");
    for (const std::vector<std::string> &args :
         {std::vector<std::string>{"show", bad},
          {"show", "--json", bad},
          {"dump", bad},
          {"diff", bad, bad},
          {"layout", bad, "-o", kivtest::script("") + ".svg"}}) {
        run_result r = kiv(args);
        EXPECT_EQ(r.rc, 1) << args[0];
        EXPECT_EQ(r.out, "") << args[0];
        EXPECT_EQ(masked(r.err), "KIV_ERROR:: kiv_get_multi_chan_cfg(N): invalid multi-channel "
                                 "lua version: 2, current version is: 1\nkiv: " +
                                     bad + ": configuration failed (result -1)\n")
            << args[0];
    }
}

TEST_F(Cli, Calib)
{
    std::string path = kivtest::script("calib_data = { {0x3009, 0x40}, {0x80100000, 4096} }");
    run_result r = kiv({"calib", path});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out, "items = 2\ncalib_data[0]:\n  addr = 0x3009\n  data = 0x40\n"
                     "calib_data[1]:\n  addr = 0x80100000\n  data = 0x1000\n");
    r = kiv({"calib", "--json", path});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(json::parse(r.out),
              json::parse(R"({"items": 2, "calib_data": [{"addr": 12297, "data": 64},
                                                          {"addr": 2148532224, "data": 4096}]})"));

    for (const char *text : {"calib_data = {}", "other = 1", "error('x')"}) {
        std::string p = kivtest::script(text);
        r = kiv({"calib", p});
        EXPECT_EQ(r.rc, 1) << text;
        EXPECT_EQ(r.out, "") << text;
        EXPECT_NE(r.err.find("kiv: " + p + ": no calibration items loaded\n"), std::string::npos)
            << text;
    }
}

TEST_F(Cli, Hevc)
{
    std::string path = kivtest::script("__hevc_scalelist__ = { INTRA4X4_LUMA = {1, 2, 3} }");
    run_result r = kiv({"hevc", path});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out.rfind("scaling_list[0][0] = [1, 2, 3, 0,", 0), 0u);
    EXPECT_NE(r.out.find("\nscaling_list_dc[3] = [0, 0, 0, 0, 0, 0]\n"), std::string::npos);
    r = kiv({"hevc", "--json", path});
    EXPECT_EQ(r.rc, 0);
    json j = json::parse(r.out);
    EXPECT_EQ(j["scaling_list"][0][0][2], 3);
    EXPECT_EQ(j["scaling_list"].size(), 4u);
    EXPECT_EQ(j["scaling_list"][3][5].size(), 64u);

    std::string bad = kivtest::script("x = 1");
    r = kiv({"hevc", bad});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("kiv: " + bad + ": configuration failed (result -1)\n"),
              std::string::npos);
}

TEST_F(Cli, AispCountsTheEntriesOfEachNetwork)
{
    std::string example = std::string(KIV_SOURCE_DIR) + "/examples/custom_aisp.lua";
    run_result r = kiv({"aisp", example});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.rfind("fifo_addr = 0x60000000\nfifo_len = 0x100000\ndag_addr = 0x60100000\n"
                          "if_cnt = 1\ninterfaces[0]:\n  port:\n    dvi_id = 0\n",
                          0),
              0u);
    EXPECT_NE(r.out.find("\ninterface_entries = 3\nnetworks[0].interface_entries = 2\n"
                         "networks[1].interface_entries = 1\n"),
              std::string::npos);
    r = kiv({"aisp", "--json", example});
    json j = json::parse(r.out);
    EXPECT_EQ(j["interface_entries"], 3);
    EXPECT_EQ(j["networks"], json::parse(R"([{"network": 0, "interface_entries": 2},
                                             {"network": 1, "interface_entries": 1}])"));
    EXPECT_EQ(j["config"]["interfaces"][2]["port"]["id"], json({6, 7, 8, 9}));

    std::string bad = kivtest::script("_custom_aisp_config_ = {}");
    r = kiv({"aisp", bad});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("kiv: " + bad + ": configuration failed (result -1)\n"),
              std::string::npos);
}

// End to end on a complete script.
TEST_F(Cli, CheckShowDumpDiffLayoutOfACompleteScript)
{
    NEED_PARSERS();
    std::string a = kivtest::script(tooltest::minimal_script());
    run_result r = kiv({"check", a});
    EXPECT_EQ(r.rc, 0);
    EXPECT_NE(r.out.find(a + ": ok (1 channel, 1 canvas, 1 stream)\n"), std::string::npos);
    EXPECT_NE(r.out.find("KIV_WARN::"), std::string::npos); // the log is shown
    r = kiv({"check", "-q", a});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "");

    r = kiv({"show", a});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out.find("KIV_"), std::string::npos);
    EXPECT_NE(r.err.find("KIV_WARN::"), std::string::npos);
    EXPECT_EQ(r.out.rfind("version = 1\nchan_num = 1\ncanvas_num = 1\nstream_num = 1\n", 0), 0u);
    r = kiv({"show", "--json", a});
    EXPECT_EQ(r.rc, 0);
    json j = json::parse(r.out);
    EXPECT_EQ(j["channels"][0]["src_buf"][0][1]["output"], json({1280, 720, 640, 360}));
    EXPECT_EQ(j["channels"][0]["src_buf"][0][1]["canvas_id"], 0);

    // The dump on standard output is the library's dump, and loads again.
    std::string to_file = kivtest::script("");
    EXPECT_EQ(kiv({"dump", a, "-o", to_file}).rc, 0);
    r = kiv({"dump", a});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, kivtest::read_file(to_file));
    EXPECT_EQ(kiv({"diff", a, to_file}).rc, 0);

    std::string b = kivtest::script(tooltest::minimal_script("hflip = 1,"));
    r = kiv({"diff", a, b});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "channels[0].hflip: 0 -> 1\n");
    r = kiv({"diff", a, a});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "");

    std::string svg = kivtest::script("") + ".svg";
    r = kiv({"layout", a, "-o", svg});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, "");
    std::string text = kivtest::read_file(svg);
    std::remove(svg.c_str());
    EXPECT_NE(text.find("<rect class=\"window\" data-source=\"chan_0.second\" x=\"446.67\" "
                        "y=\""),
              std::string::npos);
}

TEST_F(Cli, CheckTellsTheKindOfEachScript)
{
    std::string calib = kivtest::script("calib_data = { {1, 2} }");
    std::string hevc = std::string(KIV_SOURCE_DIR) + "/examples/hevc_default_scaling.lua";
    std::string aisp = std::string(KIV_SOURCE_DIR) + "/examples/custom_aisp.lua";
    run_result r = kiv({"check", calib, hevc, aisp});
    EXPECT_EQ(r.rc, 0);
    EXPECT_EQ(r.out, calib + ": ok (calibration data, 1 item)\n" + hevc +
                         ": ok (HEVC scaling lists)\n" + aisp +
                         ": ok (custom AISP, 2 networks, 3 interface entries)\n");

    std::string bad_aisp = kivtest::script("_custom_aisp_config_ = {}");
    std::string empty_calib = kivtest::script("calib_data = {}");
    r = kiv({"check", "-q", bad_aisp, empty_calib});
    EXPECT_EQ(r.rc, 1);
    EXPECT_NE(r.out.find(bad_aisp + ": failed (result -1)\n"), std::string::npos);
    EXPECT_NE(r.out.find(empty_calib + ": failed (result -1)\n"), std::string::npos);
}

// Every shipped example loads; each multi-channel one shows as JSON, draws,
// and differs from a copy with one changed key in exactly that field.
TEST_F(Cli, Examples)
{
    NEED_PARSERS();
    const std::string dir = std::string(KIV_SOURCE_DIR) + "/examples/";
    std::vector<std::string> all;
    for (const char *name :
         {"single_1080p", "two_channel_encode_preview", "three_channel_4k", "hdr_virtual_mode",
          "calib_table", "hevc_default_scaling", "custom_aisp"}) {
        std::string path = dir + name + ".lua";
        if (std::ifstream(path).good())
            all.push_back(path);
    }
    std::vector<std::string> args{"check", "--quiet"};
    args.insert(args.end(), all.begin(), all.end());
    run_result r = kiv(args);
    EXPECT_EQ(r.rc, 0) << r.out;
    EXPECT_EQ(r.out, "");

    for (const std::string &path : all) {
        if (kivtest::read_file(path).find("_resource_config_") == std::string::npos)
            continue;
        r = kiv({"show", "--json", path});
        EXPECT_EQ(r.rc, 0) << path;
        EXPECT_TRUE(json::accept(r.out)) << path;
        std::string svg = kivtest::script("") + ".svg";
        EXPECT_EQ(kiv({"layout", path, "-o", svg}).rc, 0) << path;
        EXPECT_NE(kivtest::read_file(svg).find("<rect class=\"window\""), std::string::npos);
        std::remove(svg.c_str());
    }

    std::string text = kivtest::read_file(dir + "single_1080p.lua");
    size_t at = text.find("max_padding_width = 256");
    ASSERT_NE(at, std::string::npos);
    std::string changed = kivtest::script(text.replace(at, 23, "max_padding_width = 512"));
    r = kiv({"diff", dir + "single_1080p.lua", changed});
    EXPECT_EQ(r.rc, 1);
    EXPECT_EQ(r.out, "channels[0].max_padding_width: 256 -> 512\n");
}

// A string that is not valid UTF-8 is shown escaped (text) or replaced
// (JSON), with a note; a write that fails, to standard output or to -o, is
// an I/O error (exit 2) and writes the dump nowhere else.
TEST_F(Cli, BadBytesAndFailedWrites)
{
    NEED_PARSERS();
    std::string text = tooltest::minimal_script();
    text.insert(text.find("hdr_mode = \"linear\"") + 19, ", calib_data = \"/etc/\xff\xfe.lua\"");
    const std::string bad = kivtest::script(text),
                      good = kivtest::script(tooltest::minimal_script());
    const std::string note = "kiv: note: a string is not valid UTF-8: its bad bytes are shown as ";
    const struct {
        std::vector<std::string> args;
        int rc;
        std::string shown, how;
    } cases[] = {
        {{"show", "-q", bad}, 0, "\"/etc/\\xff\\xfe.lua\"", "\\xNN"},
        {{"show", "-q", "--json", bad}, 0, "\"/etc/\xef\xbf\xbd\xef\xbf\xbd.lua\"", "U+FFFD"},
        {{"diff", "-q", good, bad}, 1, "\"/etc/\\xff\\xfe.lua\"", "\\xNN"}};
    for (const auto &c : cases) {
        run_result r = kiv(c.args);
        EXPECT_EQ(r.rc, c.rc) << c.args[1];
        EXPECT_NE(r.out.find(c.shown), std::string::npos) << r.out;
        EXPECT_EQ(r.err, note + c.how + "\n");
    }

    run_result r = kiv({"dump", "-q", good, "-o", "/dev/full"});
    EXPECT_EQ(r.rc, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err, "kiv: cannot write /dev/full: No space left on device\n");
    fflush(stdout);
    int saved = dup(1), full = open("/dev/full", O_WRONLY);
    dup2(full, 1);
    std::vector<std::string> args = {"kiv", "show", "-q", good};
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    int rc = kivtool::run(static_cast<int>(args.size()), argv.data());
    dup2(saved, 1);
    close(saved);
    close(full);
    EXPECT_EQ(rc, 2);
}
