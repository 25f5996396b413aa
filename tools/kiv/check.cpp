// kiv check FILE...: loads each multi-channel script, shows the library's
// log and one summary line per file.
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

std::string plural(int n, const char *what)
{
    return std::to_string(n) + " " + what + (n == 1 ? "" : "s");
}

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
    kiv_multi_chan_cfg cfg;
    int32_t ret = 0;
    std::string log = capture_log([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
    if (ret == 0 && opt.quiet)
        return EXIT_OK;
    std::cout << log;
    if (ret == 0)
        std::cout << path << ": ok (" << plural(cfg.chan_num, "channel") << ", "
                  << plural(cfg.canvas_num, "canvas") << ", " << plural(cfg.stream_num, "stream")
                  << ")\n";
    else
        std::cout << path << ": failed (result " << ret << ")\n";
    return ret == 0 ? EXIT_OK : EXIT_FAILED;
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
