// The program as engineers run it is checked by the golden cases
// tests/cases/tool_*.lua (subcommands, the text of records, errors on
// standard error and exit codes); what no script can arrange stays here.
#include <gtest/gtest.h>

#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

#include "common.h"
#include "kiv_test.h"
#include "records.h"
#include "render.h"
#include "tool_test.h"

// A write to standard output that fails is an I/O error (exit 2).
TEST(Cli, FullStandardOutput)
{
    std::vector<std::string> args = {"kiv", "show", "-q", kivtest::example("single_1080p.lua")};
    std::vector<char *> argv;
    for (std::string &a : args)
        argv.push_back(a.data());
    fflush(stdout);
    int saved = dup(1), full = open("/dev/full", O_WRONLY);
    dup2(full, 1);
    int rc = kivtool::run(static_cast<int>(args.size()), argv.data());
    dup2(saved, 1);
    close(saved);
    close(full);
    EXPECT_EQ(rc, 2);
}

// A text member that fills its whole capacity, with no terminating zero (a
// record of an application: the loader refuses such a string), is shown up
// to its end and no further.
TEST(Render, TextThatFillsItsMember)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    memset(cfg.channels[0].vsrc.calib_data, 'x', sizeof cfg.channels[0].vsrc.calib_data);
    std::ostringstream s;
    kivtool::write_text(s, kivtool::multi_chan_desc(), &cfg);
    EXPECT_NE(s.str().find("    calib_data = \"" + std::string(256, 'x') + "\"\n    fps_hp"),
              std::string::npos);
}
