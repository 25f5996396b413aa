#include <csignal>
#include <cstring>

#include "common.h"
#include "model/contained.h"

int main(int argc, char **argv)
{
    // A precompiled chunk checked in a process of its own (model/contained.h).
    if (argc > 1 && strcmp(argv[1], "--contained-load") == 0)
        return kivtool::contained_main(argc, argv);
    // A write past the file size limit fails with an error the tool reports
    // (exit code 2, one line) instead of ending it without a word.
    signal(SIGXFSZ, SIG_IGN);
    return kivtool::run(argc, argv);
}
