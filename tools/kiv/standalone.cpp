// kiv calib, kiv hevc and kiv aisp: load one of the standalone scripts and
// show what was loaded, as text or JSON.
#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <functional>
#include <iostream>
#include <memory>
#include <unistd.h>

#include "aisp/aisp.h"
#include "common.h"
#include "model/contained.h"
#include "core/log.h"
#include "render.h"
#include "report.h"

namespace kivtool
{

namespace
{

struct options {
    std::string file;
    bool json = false;
    bool via_model = false; // loaded through the model (else by the exported loader)
};

// Whether the file at `path` holds a precompiled chunk.
bool starts_precompiled(const std::string &path)
{
    char head[4] = {};
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
        return false;
    const ssize_t n = read(fd, head, sizeof head);
    close(fd);
    return n > 0 && is_precompiled(std::string_view(head, static_cast<size_t>(n)));
}

// Runs fn with the library's log on standard error, as -q and --log-level
// allow (a standalone script's loader logs little besides its errors).
void log_to_stderr(const std::function<void()> &fn)
{
    const log_options &o = tool_log();
    const int level = o.level >= 0 ? o.level : o.quiet ? -1 : 1;
    kiv_set_log_level(std::max(level, 1));
    const std::string log = with_log(fn);
    if (level >= 0)
        std::cerr << filter_log(log, level) << std::flush;
}

// Adds a subcommand FILE [--json] whose action gets the options.
void add_loader(CLI::App &app, int &rc, const char *name, const char *help,
                void (*action)(const options &))
{
    auto opt = std::make_shared<options>();
    CLI::App *sub = app.add_subcommand(name, help);
    sub->add_option("FILE", opt->file, "Script to load (-: standard input)")->required();
    sub->add_flag("--json", opt->json, "Print what was loaded as JSON");
    add_script_input(sub);
    sub->callback([opt, action, &rc] {
        if (opt->file != "-") {
            require_readable(opt->file);
            // The library is handed a path, and the tool loads text only: a
            // precompiled chunk goes through the model, which checks it in
            // a separate process when asked to.
            if (starts_precompiled(opt->file)) {
                if (!script_input().precompiled)
                    throw config_error(opt->file + ": not loaded: " + PRECOMPILED_NOTE);
                opt->via_model = true;
            }
        }
        action(*opt);
        rc = EXIT_OK;
    });
}

void fail(const options &opt, int32_t ret)
{
    throw config_error(script_name(opt.file) + ": configuration failed (result " +
                       std::to_string(ret) + ")");
}

// A script from standard input, which the library cannot open by a path,
// or a precompiled chunk: run from its text, of whatever kind it is, with
// its log on standard error as log_to_stderr gives it.  A file is otherwise
// loaded by the exported loader of the subcommand, whatever it defines.
script_model from_model(const options &opt)
{
    const log_options &o = tool_log();
    const int level = o.level >= 0 ? o.level : o.quiet ? -1 : 1;
    script_model m = load_script(opt.file, {std::max(level, 1)});
    if (level >= 0)
        std::cerr << filter_log(raw_log(m, level), level) << std::flush;
    return m;
}

void calib(const options &opt)
{
    int32_t n = 0, ret = 0;
    std::vector<kiv_calib_data_item> items;
    if (opt.file == "-" || opt.via_model) {
        script_model m = from_model(opt);
        n = m.kind == kiv_kind::calib ? m.calib_size : 0;
        items = std::move(m.calib);
        ret = m.result;
    } else {
        log_to_stderr([&] { n = kiv_get_calib_data_size(opt.file.c_str()); });
    }
    // The size is 0 on every failure and for an empty table alike; neither
    // leaves anything to load.
    if (n <= 0)
        throw config_error(script_name(opt.file) + ": no calibration items loaded");
    if (opt.file != "-" && !opt.via_model) {
        items.resize(static_cast<size_t>(n));
        log_to_stderr([&] {
            ret = kiv_load_calib_data(opt.file.c_str(), items.data(), static_cast<uint32_t>(n));
        });
    }
    if (ret != 0)
        fail(opt, ret);
    const record_desc &d = calib_item_desc();
    if (opt.json) {
        json a = json::array();
        for (const auto &it : items)
            a.push_back(to_json(d, &it));
        std::cout << dump_json(json{{"items", n}, {"calib_data", a}}) << '\n';
        return;
    }
    std::cout << "items = " << n << '\n';
    for (size_t i = 0; i < items.size(); ++i) {
        std::cout << "calib_data[" << i << "]:\n";
        write_text(std::cout, d, &items[i], 2);
    }
}

void hevc(const options &opt)
{
    auto cfg = std::make_unique<kiv_hevc_scaling_cfg>();
    int32_t ret = 0;
    if (opt.file == "-" || opt.via_model) {
        script_model m = from_model(opt);
        ret = m.kind == kiv_kind::hevc ? m.result : -1;
        cfg = std::move(m.hevc);
    } else {
        log_to_stderr([&] { ret = kiv_get_hevc_scaling_cfg(opt.file.c_str(), cfg.get()); });
    }
    if (ret != 0)
        fail(opt, ret);
    if (opt.json)
        std::cout << dump_json(to_json(hevc_scaling_desc(), cfg.get())) << '\n';
    else
        write_text(std::cout, hevc_scaling_desc(), cfg.get());
}

void aisp(const options &opt)
{
    kiv_aisp_cfg cfg{};
    kiv_aisp_fill fill{};
    int32_t ret = 0;
    if (opt.file == "-" || opt.via_model) {
        const script_model m = from_model(opt);
        ret = m.kind == kiv_kind::aisp ? m.result : -1;
        cfg = m.aisp;
        fill = m.fill;
    } else {
        // Type 1 is the only type of custom network script there is.
        log_to_stderr([&] { ret = kiv_get_aisp_cfg_fill(opt.file.c_str(), &cfg, 1, &fill); });
    }
    if (ret != 0)
        fail(opt, ret);
    if (opt.json) {
        json nets = json::array();
        for (uint32_t nn = 0; nn < fill.nn_cnt; ++nn)
            nets.push_back(
                {{"network", nn}, {"interface_entries", kiv_aisp_entries_of(&fill, nn)}});
        std::cout << dump_json(json{{"config", to_json(aisp_desc(), &cfg)},
                                    {"interface_entries", fill.filled},
                                    {"networks", nets}})
                  << '\n';
        return;
    }
    write_text(std::cout, aisp_desc(), &cfg);
    std::cout << "interface_entries = " << fill.filled << '\n';
    for (uint32_t nn = 0; nn < fill.nn_cnt; ++nn)
        std::cout << "networks[" << nn << "].interface_entries = " << kiv_aisp_entries_of(&fill, nn)
                  << '\n';
}

} // namespace

void add_standalone(CLI::App &app, int &rc)
{
    add_loader(app, rc, "calib",
               "Load a calibration data script and show its (address, data) items.", calib);
    add_loader(app, rc, "hevc", "Load an HEVC scaling-list script and show the lists.", hevc);
    add_loader(app, rc, "aisp",
               "Load a custom AISP network script and show its record and how many interface "
               "entries each network filled.",
               aisp);
}

} // namespace kivtool
