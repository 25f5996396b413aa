// kiv lint FILE...: every rule's findings, each at its place in the script.
#include "lint.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>

#include "common.h"
#include "jobs.h"
#include "report.h"

namespace kivtool
{

void add_lint(CLI::App &app, int &rc)
{
    struct options {
        std::vector<std::string> files, disabled;
        std::string format = "text", error_on = "warning";
        unsigned jobs = 0;
    };
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(
        "lint", "Load each script and report what loads but cannot work as meant, or what a dump "
                "silently changes; one line per finding, at its line of the script.");
    sub->add_option("FILE", opt->files, "Configuration scripts (-: standard input)")->required();
    add_script_input(sub);
    sub->add_option("--format", opt->format, "text (default), json or sarif")
        ->check(CLI::IsMember({"text", "json", "sarif"}));
    std::vector<std::string> ids;
    for (const rule &r : all_rules())
        ids.push_back(r.id);
    // The rules are listed in docs/lint.md rather than in the option's
    // type: their list would make one line too long for a terminal or a
    // manual page.  An unknown one is still refused, naming the known.
    sub->add_option("--disable", opt->disabled,
                    "Leave out the findings of rule RULE (repeatable; the rules: docs/lint.md)")
        ->type_name("RULE")
        ->check(CLI::IsMember(ids).description(""));
    sub->add_option("--error-on", opt->error_on,
                    "The lowest severity that makes the exit code 1: warning (default) or error")
        ->check(CLI::IsMember({"warning", "error"}));
    sub->add_option("-j,--jobs", opt->jobs, "Files linted at once (default: one per core)");
    add_log_options(sub);
    sub->callback([opt, &rc] {
        const int raw = tool_log().level;
        std::vector<file_report> reports(opt->files.size());
        const severity threshold = opt->error_on == "error" ? severity::error : severity::warning;
        size_t counts[3] = {0, 0, 0};
        int worst = EXIT_OK;
        const bool text = opt->format == "text";
        run_jobs(
            opt->files.size(), opt->jobs ? opt->jobs : default_jobs(),
            [&](size_t i) {
                reports[i] =
                    report_file(opt->files[i], false, opt->disabled, raw, std::max(raw, 1));
            },
            [&](size_t i) {
                file_report &r = reports[i];
                if (!r.readable()) {
                    std::cerr << "kiv: " << r.error << '\n';
                    worst = EXIT_USAGE;
                }
                std::cerr << r.raw_log;
                for (const finding &f : r.findings) {
                    ++counts[static_cast<int>(f.r->level)];
                    if (f.r->level >= threshold && worst == EXIT_OK)
                        worst = EXIT_FAILED;
                    if (text)
                        std::cout << finding_text(r.file, f);
                }
                if (text) // the rest is not needed again
                    r = {};
            });
        if (opt->format == "json") {
            std::cout << dump_json(findings_json(reports)) << '\n';
        } else if (opt->format == "sarif") {
            std::cout << dump_json(findings_sarif(reports)) << '\n';
        } else {
            auto n = [](size_t count, const char *one, const char *many) {
                return std::to_string(count) + (count == 1 ? one : many);
            };
            std::cout << n(opt->files.size(), " file: ", " files: ")
                      << n(counts[2], " error, ", " errors, ")
                      << n(counts[1], " warning, ", " warnings, ")
                      << n(counts[0], " info\n", " infos\n");
        }
        rc = worst;
    });
}

} // namespace kivtool
