// The program: one subcommand per run, its exit code, and every error on
// standard error.
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>

#include "common.h"
#include "core/log.h"
#include "core/run.h"

namespace kivtool
{

int run(int argc, char **argv)
{
    CLI::App app{"Checks, inspects, compares and pictures configurations of the multi-channel "
                 "video pipeline.",
                 "kiv"};
    app.require_subcommand(1);
    app.set_version_flag("--version", version_text(),
                         "Print the versions of the tool, the library and Lua, and exit");
    // Usage errors read like the tool's other errors.
    app.failure_message([](const CLI::App *, const CLI::Error &e) {
        return "kiv: " + std::string(e.what()) + "\nRun with --help for more information.\n";
    });
    app.footer("Exit codes: 0 success, 1 a configuration failed to load or two differ, "
               "2 usage or I/O error.");
    int rc = EXIT_OK;
    tool_log() = {};
    script_input() = {};
    reset_stdin();
    // The interpreter trusts precompiled code, and the tool checks scripts
    // from anywhere: it loads text only (model/contained.h).
    kiv_set_text_only(true);
    // The tool's loads keep their log level to themselves: what a script's
    // log_level sets lasts until the next load of this thread, and the
    // process-wide level is left as it was.
    kiv_use_thread_log_level(1);
    struct back_to_process_level {
        ~back_to_process_level() { kiv_use_thread_log_level(-1); }
    } restore;
    add_check(app, rc);
    add_dump(app, rc);
    add_show(app, rc);
    add_diff(app, rc);
    add_layout(app, rc);
    add_lint(app, rc);
    add_standalone(app, rc);
    add_lsp(app, rc);
    add_completion(app, rc);
    // The parser would report an unknown first word only as a missing
    // subcommand.
    if (argc > 1 && argv[1][0] != '-' &&
        app.get_subcommands([&](CLI::App *sub) { return sub->get_name() == argv[1]; }).empty()) {
        std::cerr << "kiv: unknown subcommand '" << argv[1] << "'\nRun with --help for more "
                  << "information.\n";
        return EXIT_USAGE;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        // --help exits through here with code 0 after printing the help.
        rc = app.exit(e) == 0 ? EXIT_OK : EXIT_USAGE;
    } catch (const io_error &e) {
        std::cerr << "kiv: " << e.what() << '\n';
        rc = EXIT_USAGE;
    } catch (const config_error &e) {
        std::cerr << "kiv: " << e.what() << '\n';
        rc = EXIT_FAILED;
    }
    // Every write counts: a full device or a closed pipe on standard output
    // is an I/O error like any other.
    std::cout.flush();
    if (fflush(stdout) != 0 || ferror(stdout) || !std::cout) {
        int err = errno;
        std::cerr << "kiv: cannot write standard output: " << (err ? strerror(err) : "write error")
                  << '\n';
        clearerr(stdout);
        std::cout.clear();
        rc = EXIT_USAGE;
    }
    return rc;
}

} // namespace kivtool
