// kiv dump FILE [-o OUT]: loads a multi-channel script and writes it back in
// canonical form.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>

#include "common.h"
#include "core/safe_file.h"
#include "core/sections.h"

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
    add_log_options(sub);
    sub->callback([opt, &rc] {
        if (!opt->out.empty())
            require_writable(opt->out);
        kiv_multi_chan_cfg cfg;
        load_multi_chan(opt->file, cfg);
        if (opt->out.empty()) {
            // The dump itself goes to standard output; it logs nothing there.
            kiv_dump_multi_chan_cfg(&cfg, nullptr);
        } else {
            // The library's own writer, with its guarantees; where it cannot
            // write the file, the dump goes nowhere (the library alone would
            // fall back to standard output) and one line says why.
            kiv_file_result r = KIV_FILE_WRITTEN;
            int err = 0;
            capture_log([&] {
                r = kiv_write_file("kiv dump", opt->out.c_str(), kiv_write_script, &cfg, &err);
            });
            if (r != KIV_FILE_WRITTEN)
                throw io_error("cannot write " + opt->out + ": " +
                               (err > 0 ? strerror(err) : "it was replaced meanwhile"));
        }
        rc = EXIT_OK;
    });
}

} // namespace kivtool
