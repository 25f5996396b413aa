// kiv dump FILE [-o OUT]: loads a multi-channel script and writes it back in
// canonical form.
#include <CLI/CLI.hpp>

#include "common.h"
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
    sub->add_option("FILE", opt->file, "Multi-channel configuration script (-: standard input)")
        ->required();
    add_script_input(sub);
    sub->add_option("-o,--output", opt->out,
                    "Write to this file instead of standard output (-: standard output)");
    add_log_options(sub);
    sub->callback([opt, &rc] {
        const script_model m = load_multi_chan(opt->file);
        // The dump logs nothing on standard output itself; where the file
        // cannot be written, it goes nowhere (the library alone would fall
        // back to standard output) and one line says why.
        write_output(opt->out, kiv_write_script, m.cfg.get());
        rc = EXIT_OK;
    });
}

} // namespace kivtool
