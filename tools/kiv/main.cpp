#include <csignal>

#include "common.h"

int main(int argc, char **argv)
{
    // A write past the file size limit fails with an error the tool reports
    // (exit code 2, one line) instead of ending it without a word.
    signal(SIGXFSZ, SIG_IGN);
    return kivtool::run(argc, argv);
}
