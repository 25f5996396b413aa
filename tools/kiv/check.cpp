// kiv check FILE...: loads each script with the loader of its kind, shows
// the library's log and one summary line per file.
#include <CLI/CLI.hpp>

#include <iostream>

#include "aisp/aisp.h"
#include "common.h"
#include "core/log.h"
#include "core/run.h"

namespace kivtool
{

namespace
{

struct check_options {
    std::vector<std::string> files;
    bool quiet = false;
    int log_level = 1; // the library's own starting level
};

std::string plural(int n, const std::string &what)
{
    if (n == 1)
        return "1 " + what;
    // "entry" -> "entries", "canvas" -> "canvases"
    if (what.back() == 'y')
        return std::to_string(n) + " " + what.substr(0, what.size() - 1) + "ies";
    return std::to_string(n) + " " + what + (what.back() == 's' ? "es" : "s");
}

// The kinds of configuration script, told apart by the global table each
// defines; a script that defines none, or fails to run, is taken for a
// multi-channel script, whose loader then reports it.
enum class script_kind { multi_chan, calib, hevc, aisp };

script_kind kind_of(const std::string &path)
{
    script_kind kind = script_kind::multi_chan;
    auto read = [](lua_State *L, void *ctx) -> int32_t {
        const std::pair<const char *, script_kind> globals[] = {
            {"_resource_config_", script_kind::multi_chan},
            {"calib_data", script_kind::calib},
            {"__hevc_scalelist__", script_kind::hevc},
            {"_custom_aisp_config_", script_kind::aisp}};
        for (const auto &g : globals) {
            bool defined = lua_getglobal(L, g.first) != LUA_TNIL;
            lua_pop(L, 1);
            if (defined) {
                *static_cast<script_kind *>(ctx) = g.second;
                break;
            }
        }
        return 0;
    };
    capture_log([&] { kiv_run_script("kiv check", path.c_str(), read, &kind, -2, -2); });
    return kind;
}

// Loads the script with the loader of its kind; the summary of a success.
int32_t load(const std::string &path, std::string &summary)
{
    switch (kind_of(path)) {
    case script_kind::calib: {
        int32_t n = kiv_get_calib_data_size(path.c_str());
        if (n <= 0)
            return -1; // nothing to load; kiv_get_calib_data_size logged why
        std::vector<kiv_calib_data_item> items(static_cast<size_t>(n));
        summary = "calibration data, " + plural(n, "item");
        return kiv_load_calib_data(path.c_str(), items.data(), static_cast<uint32_t>(n));
    }
    case script_kind::hevc: {
        auto cfg = std::make_unique<kiv_hevc_scaling_cfg>();
        summary = "HEVC scaling lists";
        return kiv_get_hevc_scaling_cfg(path.c_str(), cfg.get());
    }
    case script_kind::aisp: {
        kiv_aisp_cfg cfg{};
        kiv_aisp_fill fill{};
        int32_t ret = kiv_get_aisp_cfg_fill(path.c_str(), &cfg, 1, &fill);
        summary = "custom AISP, " + plural(static_cast<int>(fill.nn_cnt), "network") + ", " +
                  plural(static_cast<int>(fill.filled), "interface entry");
        return ret;
    }
    case script_kind::multi_chan:
        break;
    }
    auto cfg = std::make_unique<kiv_multi_chan_cfg>();
    int32_t ret = kiv_get_multi_chan_cfg(path.c_str(), cfg.get());
    summary = plural(cfg->chan_num, "channel") + ", " + plural(cfg->canvas_num, "canvas") + ", " +
              plural(cfg->stream_num, "stream");
    return ret;
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
    int32_t ret = 0;
    std::string summary;
    std::string log = capture_log([&] { ret = load(path, summary); });
    if (ret == 0 && opt.quiet)
        return EXIT_OK;
    std::cout << log;
    if (ret == 0)
        std::cout << path << ": ok (" << summary << ")\n";
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
