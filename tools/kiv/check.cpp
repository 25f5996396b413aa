// kiv check FILE...: loads each script with the loader of its kind and says,
// per file, what the loader refused or logged as an error, each at its place
// in the script, and one summary line.
#include <CLI/CLI.hpp>

#include <iostream>

#include "common.h"
#include "jobs.h"
#include "report.h"

#include <nlohmann/json.hpp>

namespace kivtool
{

namespace
{

using json = nlohmann::ordered_json;

struct check_options {
    std::vector<std::string> files;
    bool quiet = false;
    int log_level = -1; // the library's own log too, up to this level
    unsigned jobs = 0;
    std::string format = "text";
};

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

// One file's object of `--format json`: what its text lines say, as data.
// The findings are those of lint's JSON, so one reader takes both.
json file_json(const file_report &r)
{
    json o = {{"file", r.file}};
    if (!r.readable()) {
        o["status"] = "unreadable";
        o["error"] = r.error;
        return o;
    }
    o["status"] = r.result != 0 ? "failed" : r.logged_errors ? "loaded with errors" : "ok";
    o["result"] = r.result;
    o["summary"] = r.summary;
    o["absent_keys"] = r.absent;
    size_t counts[3] = {0, 0, 0};
    for (const finding &f : r.findings)
        ++counts[static_cast<int>(f.r->level)];
    o["errors"] = counts[static_cast<int>(severity::error)];
    o["warnings"] = counts[static_cast<int>(severity::warning)];
    o["infos"] = counts[static_cast<int>(severity::info)];
    o["findings"] = findings_json({r});
    return o;
}

// The exit code of one file.
int exit_of(const file_report &r)
{
    return !r.readable() ? EXIT_USAGE : r.result != 0 || r.logged_errors ? EXIT_FAILED : EXIT_OK;
}

} // namespace

void add_check(CLI::App &app, int &rc)
{
    auto opt = std::make_shared<check_options>();
    CLI::App *sub = app.add_subcommand(
        "check", "Load each script and say what the loader refused or logged as an error, each at "
                 "its line of the script, and one summary line per file.");
    sub->add_option("FILE", opt->files, "Configuration scripts (-: standard input)")->required();
    add_script_input(sub);
    sub->add_flag("-q,--quiet", opt->quiet, "Show only the files that fail or load with errors");
    sub->add_option("--log-level", opt->log_level,
                    "Also show the library's own log, from the start of each load, up to this "
                    "level: 0 errors, 1 warnings, 3 debug")
        ->check(CLI::Range(0, 255));
    sub->add_option("-j,--jobs", opt->jobs, "Files checked at once (default: one per core)");
    sub->add_option("--format", opt->format,
                    "text (default), or json: an array of one object per file (status, result, "
                    "counts and the located findings, as lint's JSON gives them)")
        ->check(CLI::IsMember({"text", "json"}));
    sub->callback([opt, &rc] {
        std::vector<file_report> reports(opt->files.size());
        int worst = EXIT_OK;
        json files = json::array();
        run_jobs(
            opt->files.size(), opt->jobs ? opt->jobs : default_jobs(),
            [&](size_t i) {
                reports[i] = report_file(opt->files[i], true, {}, opt->log_level,
                                         std::max(opt->log_level, 1));
            },
            [&](size_t i) {
                // A file that cannot be read outweighs one that fails to load.
                if (opt->format == "json") {
                    // Said on standard error too, as every error of the tool.
                    if (!reports[i].readable())
                        std::cerr << "kiv: " << reports[i].error << '\n';
                    std::cerr << reports[i].raw_log;
                    files.push_back(file_json(reports[i]));
                    worst = std::max(worst, exit_of(reports[i]));
                } else {
                    worst = std::max(worst, show_file(reports[i], *opt));
                }
                reports[i] = {};
            });
        if (opt->format == "json")
            std::cout << dump_json(files) << '\n';
        rc = worst;
    });
}

} // namespace kivtool
