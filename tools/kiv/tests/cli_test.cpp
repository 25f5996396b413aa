// The program as engineers run it is checked by the golden cases
// tests/cases/tool_*.lua (subcommands, output, errors on standard error and
// exit codes); what they cannot arrange stays here.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "common.h"
#include "kiv_test.h"

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
