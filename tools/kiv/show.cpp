// kiv show FILE [--json] and kiv diff A B: every field of a loaded record,
// named by the record description.
#include <CLI/CLI.hpp>

#include <iostream>

#include "common.h"
#include "render.h"

namespace kivtool
{

namespace
{

// The record's JSON with the version of the tool that wrote it first
// ("kiv_version": "1.0.0"), for readers that keep the output.
json versioned(const json &record)
{
    json out = {{"kiv_version", KIV_TOOL_VERSION}};
    out.update(record);
    return out;
}

} // namespace

void add_show(CLI::App &app, int &rc)
{
    struct options {
        std::string file;
        bool json = false;
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "show", "Show every field of the loaded record, nested like the record; the library's log "
                "goes to standard error.");
    sub->add_option("FILE", opt->file, "Multi-channel configuration script (-: standard input)")
        ->required();
    sub->add_flag("--json", opt->json, "Print the record, and kiv_version, as JSON");
    add_script_input(sub);
    add_log_options(sub);
    sub->callback([opt, &rc] {
        const script_model m = load_multi_chan(opt->file);
        if (opt->json)
            std::cout << dump_json(versioned(to_json(multi_chan_desc(), m.cfg.get()))) << '\n';
        else
            write_text(std::cout, multi_chan_desc(), m.cfg.get());
        rc = EXIT_OK;
    });
}

// The fields that differ between two records, one "path: old -> new" line
// each; returns whether there was any.
bool write_diff(std::ostream &out, const kiv_multi_chan_cfg &a, const kiv_multi_chan_cfg &b)
{
    std::vector<leaf_value> la = flatten(multi_chan_desc(), &a);
    std::vector<leaf_value> lb = flatten(multi_chan_desc(), &b);
    bool differ = false;
    for (size_t i = 0; i < la.size(); ++i) {
        if (la[i].value == lb[i].value)
            continue;
        out << la[i].path << ": " << la[i].value << " -> " << lb[i].value << '\n';
        differ = true;
    }
    return differ;
}

void add_diff(CLI::App &app, int &rc)
{
    struct options {
        std::string a, b;
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "diff", "Load two multi-channel scripts and list every field that differs as "
                "\"path: old -> new\"; exit code 1 when any does.");
    sub->add_option("A", opt->a, "The old configuration script (-: standard input)")->required();
    sub->add_option("B", opt->b, "The new configuration script (-: standard input)")->required();
    add_script_input(sub);
    add_log_options(sub);
    sub->callback([opt, &rc] {
        // Both records are loaded before either is compared: a load sets the
        // process-wide settings, which the record does not depend on.
        for (const std::string &f : {opt->a, opt->b})
            if (f != "-")
                require_readable(f);
        const script_model a = load_multi_chan(opt->a);
        const script_model b = load_multi_chan(opt->b);
        rc = write_diff(std::cout, *a.cfg, *b.cfg) ? EXIT_FAILED : EXIT_OK;
    });
}

} // namespace kivtool
