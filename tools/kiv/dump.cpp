// kiv dump FILE [-o OUT]: loads a multi-channel script and writes it back in
// canonical form.
#include <CLI/CLI.hpp>

#include <cstdio>

#include "common.h"

namespace kivtool
{

void add_dump(CLI::App &app, int &rc)
{
    struct options {
        std::string file, out;
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "dump", "Load a multi-channel script and write it back in canonical form.");
    sub->add_option("FILE", opt->file, "Multi-channel configuration script")->required();
    sub->add_option("-o,--output", opt->out, "Write to this file instead of standard output");
    sub->callback([opt, &rc] {
        if (!opt->out.empty())
            require_writable(opt->out);
        kiv_multi_chan_cfg cfg;
        load_multi_chan(opt->file, cfg);
        if (opt->out.empty()) {
            // The dump itself goes to standard output; it logs nothing there.
            kiv_dump_multi_chan_cfg(&cfg, nullptr);
            fflush(stdout);
        } else {
            log_to_stderr([&] { kiv_dump_multi_chan_cfg(&cfg, opt->out.c_str()); });
        }
        rc = EXIT_OK;
    });
}

} // namespace kivtool
