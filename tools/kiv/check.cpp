// kiv check FILE...: loads each script with the loader of its kind and says,
// per file, what the loader refused or logged as an error, each at its place
// in the script, and one summary line.
#include <CLI/CLI.hpp>

#include <iostream>

#include "common.h"
#include "jobs.h"
#include "report.h"

namespace kivtool
{

namespace
{

struct check_options {
    std::vector<std::string> files;
    bool quiet = false;
    int log_level = -1; // the library's own log too, up to this level
    unsigned jobs = 0;
};

file_report check_file(const std::string &path, const check_options &opt)
{
    try {
        const script_model m = load_model(path, {std::max(opt.log_level, 1)});
        return report_of(m, true, {}, opt.log_level);
    } catch (const io_error &e) {
        file_report r;
        r.file = path;
        r.error = e.what();
        return r;
    }
}

// The summary line: "ok (...)", with the count of keys left to their
// defaults, "loaded with errors (...)" or "failed (result N)".
std::string summary_line(const file_report &r, const check_options &opt)
{
    if (r.result != 0)
        return r.file + ": failed (result " + std::to_string(r.result) + ")\n";
    std::string line =
        r.file + (r.logged_errors ? ": loaded with errors (" : ": ok (") + r.summary + ")";
    if (r.absent && opt.log_level < 1)
        line += "; " + std::to_string(r.absent) + (r.absent == 1 ? " key" : " keys") +
                " absent, defaults taken (--log-level 1 lists them)";
    return line + "\n";
}

// What one file prints, and its exit code.
int show_file(const file_report &r, const check_options &opt)
{
    if (!r.readable()) {
        std::cerr << "kiv: " << r.error << '\n';
        return EXIT_USAGE;
    }
    const bool failed = r.result != 0 || r.logged_errors;
    if (opt.quiet && !failed)
        return EXIT_OK;
    std::cout << r.raw_log;
    for (const finding &f : r.findings)
        std::cout << finding_text(r.file, f);
    std::cout << summary_line(r, opt);
    return failed ? EXIT_FAILED : EXIT_OK;
}

} // namespace

void add_check(CLI::App &app, int &rc)
{
    auto opt = std::make_shared<check_options>();
    CLI::App *sub = app.add_subcommand(
        "check", "Load each script and say what the loader refused or logged as an error, each at "
                 "its line of the script, and one summary line per file.");
    sub->add_option("FILE", opt->files, "Configuration scripts")->required();
    sub->add_flag("-q,--quiet", opt->quiet, "Show only the files that fail or load with errors");
    sub->add_option("--log-level", opt->log_level,
                    "Also show the library's own log, from the start of each load, up to this "
                    "level: 0 errors, 1 warnings, 3 debug")
        ->check(CLI::Range(0, 255));
    sub->add_option("-j,--jobs", opt->jobs, "Files checked at once (default: one per core)");
    sub->callback([opt, &rc] {
        std::vector<file_report> reports(opt->files.size());
        int worst = EXIT_OK;
        run_jobs(
            opt->files.size(), opt->jobs ? opt->jobs : default_jobs(),
            [&](size_t i) { reports[i] = check_file(opt->files[i], *opt); },
            [&](size_t i) {
                // A file that cannot be read outweighs one that fails to load.
                worst = std::max(worst, show_file(reports[i], *opt));
                reports[i] = {};
            });
        rc = worst;
    });
}

} // namespace kivtool
