// kiv check FILE...: loads each script with the loader of its kind, shows
// the library's log and one summary line per file.
#include <CLI/CLI.hpp>

#include <iostream>

#include "common.h"
#include "core/log.h"

namespace kivtool
{

namespace
{

struct check_options {
    std::vector<std::string> files;
    bool quiet = false;
    int log_level = 1; // the library's own starting level
};

// The exit code of one file; its log and summary go to standard output.
int check_one(const std::string &path, const check_options &opt)
{
    try {
        require_readable(path);
    } catch (const io_error &e) {
        std::cerr << "kiv: " << e.what() << '\n';
        return EXIT_USAGE;
    }
    // Each file starts from the same level: a script's log_level stays in
    // force after its load and would otherwise change the next file's log.
    kiv_set_log_level(opt.log_level);
    loaded l;
    auto cfg = std::make_unique<kiv_multi_chan_cfg>();
    std::string log = capture_log([&] { l = load_script(path, cfg.get()); });
    if (l.result == 0 && opt.quiet)
        return EXIT_OK;
    // A script's own log_level may raise the level; what is shown stays
    // within the tool's.
    std::cout << filter_log(log, opt.log_level);
    if (l.result == 0)
        std::cout << path << ": ok (" << l.summary << ")\n";
    else
        std::cout << path << ": failed (result " << l.result << ")\n";
    return l.result == 0 ? EXIT_OK : EXIT_FAILED;
}

} // namespace

void add_check(CLI::App &app, int &rc)
{
    auto opt = std::make_shared<check_options>();
    CLI::App *sub = app.add_subcommand(
        "check", "Load each multi-channel script, show the library's log and one summary line per "
                 "file.");
    sub->add_option("FILE", opt->files, "Multi-channel configuration scripts")->required();
    sub->add_flag("-q,--quiet", opt->quiet, "Show only the files that fail, with their log");
    sub->add_option("--log-level", opt->log_level,
                    "Log level at the start of each load: 0 errors, 1 warnings (default), 3 debug")
        ->check(CLI::Range(0, 255));
    sub->callback([opt, &rc] {
        // A file that cannot be read outweighs one that fails to load.
        int worst = EXIT_OK;
        for (const std::string &f : opt->files)
            worst = std::max(worst, check_one(f, *opt));
        rc = worst;
    });
}

} // namespace kivtool
