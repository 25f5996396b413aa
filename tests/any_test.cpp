// What tools that check scripts are given by the library: one run of a
// script of any kind (kiv_load_any) that gives what the exported loaders of
// its kind give, a script run from a text as the same file would run, and a
// log level of a thread's own.
#include "kiv_test.h"

#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "core/access.h"
#include "core/any.h"
#include "core/log.h"

using namespace kivtest;

namespace
{

using Any = Settings;

struct records {
    std::unique_ptr<kiv_multi_chan_cfg> cfg = std::make_unique<kiv_multi_chan_cfg>();
    std::unique_ptr<kiv_hevc_scaling_cfg> hevc = std::make_unique<kiv_hevc_scaling_cfg>();
    kiv_aisp_cfg aisp{};
    kiv_aisp_fill fill{};
    std::vector<kiv_calib_data_item> calib;
    int32_t calib_size = 0;
    int32_t result = 0;
    std::string log;

    records()
    {
        memset(cfg.get(), 0xA5, sizeof *cfg);
        memset(&aisp, 0xA5, sizeof aisp);
    }
    bool same(const records &o) const
    {
        return result == o.result && log == o.log && calib_size == o.calib_size &&
               memcmp(cfg.get(), o.cfg.get(), sizeof *cfg) == 0 &&
               memcmp(hevc.get(), o.hevc.get(), sizeof *hevc) == 0 &&
               memcmp(&aisp, &o.aisp, sizeof aisp) == 0 &&
               memcmp(&fill, &o.fill, sizeof fill) == 0 && calib.size() == o.calib.size() &&
               (calib.empty() ||
                memcmp(calib.data(), o.calib.data(), calib.size() * sizeof calib[0]) == 0);
    }
};

// What the exported loaders of `kind` give for the file at path (a
// calibration script: its size, then that many items).
records exported(kiv_kind kind, const std::string &path)
{
    records r;
    const char *p = path.c_str();
    r.log = capture([&] {
        switch (kind) {
        case kiv_kind::multi_chan:
            r.result = kiv_get_multi_chan_cfg(p, r.cfg.get());
            break;
        case kiv_kind::calib:
            r.calib_size = kiv_get_calib_data_size(p);
            r.result = -1;
            if (r.calib_size > 0) {
                r.calib.assign(static_cast<size_t>(r.calib_size), {});
                r.result = kiv_load_calib_data(p, r.calib.data(), r.calib.size());
            }
            break;
        case kiv_kind::hevc:
            r.result = kiv_get_hevc_scaling_cfg(p, r.hevc.get());
            break;
        case kiv_kind::aisp:
            r.result = kiv_get_aisp_cfg_fill(p, &r.aisp, 1, &r.fill);
            break;
        }
    });
    return r;
}

// What one run gives, from the file or from its text.
records any(const std::string &path, const std::string *text, kiv_kind *kind)
{
    records r;
    kiv_any_load load{};
    load.cfg = r.cfg.get();
    load.hevc = r.hevc.get();
    load.aisp = &r.aisp;
    load.fill = &r.fill;
    load.room_ctx = &r.calib;
    load.calib_room = [](void *ctx, uint32_t n) {
        auto *items = static_cast<std::vector<kiv_calib_data_item> *>(ctx);
        items->assign(n, {});
        return items->data();
    };
    r.log = capture([&] {
        r.result = kiv_load_any(path.c_str(), text ? text->data() : nullptr,
                                text ? text->size() : 0, &load);
    });
    r.calib_size = load.calib_size;
    *kind = load.kind;
    return r;
}

const char MULTI[] = "_resource_config_ = { version = 1, channels = { { id = 0, sensor_ctrl = 1,"
                     " max_padding_width = 64, vsrc = { vsrc_id = 0, mode = '1080p', fps = 30,"
                     " hdr_mode = 'linear' }, main = { max_output = {1920, 1080}, input = {0, 0,"
                     " 1920, 1080}, output = {0, 0, 1920, 1080} } } }, canvas = { { type ="
                     " 'encode', size = {1920, 1080}, source = {'chan_0.main'} } }, streams = { {"
                     " id = 0, max_size = {1920, 1080} } } }\n";

} // namespace

// Every kind, loading and failing at each stage (running, the kind's first
// reading, the calibration's second), from the file and from its text.
TEST_F(Any, OneRunGivesWhatTheLoadersOfItsKindGive)
{
    const struct {
        const char *what;
        std::string text;
        kiv_kind kind;
    } cases[] = {
        {"multi-channel example", read_file(example("three_channel_4k.lua")), kiv_kind::multi_chan},
        {"virtual mode example", read_file(example("hdr_virtual_mode.lua")), kiv_kind::multi_chan},
        {"calibration example", read_file(example("calib_table.lua")), kiv_kind::calib},
        {"scaling lists example", read_file(example("hevc_default_scaling.lua")), kiv_kind::hevc},
        {"AISP example", read_file(example("custom_aisp.lua")), kiv_kind::aisp},
        {"a minimal multi-channel script", MULTI, kiv_kind::multi_chan},
        {"a syntax error: taken for a multi-channel script", "calib_data = {\n",
         kiv_kind::multi_chan},
        {"an error while running", "calib_data = {}\nx()\n", kiv_kind::multi_chan},
        {"no known table", "x = 1\n", kiv_kind::multi_chan},
        {"a multi-channel script that fails", "_resource_config_ = { version = 2 }\n",
         kiv_kind::multi_chan},
        {"calibration data without items", "calib_data = {}\n", kiv_kind::calib},
        {"a calibration item that is not a table", "calib_data = { {1, 2}, 3 }\n", kiv_kind::calib},
        {"scaling lists that are not a table", "__hevc_scalelist__ = 1\n", kiv_kind::hevc},
        {"an AISP script without networks",
         "_custom_aisp_config_ = { boot_param = { fifo_addr = 1, fifo_len = 2, dag_addr = 3 } }\n",
         kiv_kind::aisp},
        {"the first kind defined decides", std::string(MULTI) + "calib_data = { {1, 2} }\n",
         kiv_kind::multi_chan},
        {"a byte order mark and a first line of its own",
         "\xEF\xBB\xBF#!/usr/bin/env lua\n__hevc_scalelist__ = {}\nx(\n", kiv_kind::multi_chan},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        const std::string path = script(c.text);
        const records want = exported(c.kind, path);
        kiv_kind from_file, from_text;
        const records file = any(path, nullptr, &from_file);
        const records text = any(path, &c.text, &from_text);
        EXPECT_EQ(from_file, c.kind);
        EXPECT_EQ(from_text, c.kind);
        EXPECT_TRUE(file.same(want)) << "file: result " << file.result << "\n"
                                     << file.log << "\nwanted " << want.result << "\n"
                                     << want.log;
        EXPECT_TRUE(text.same(want)) << "text: result " << text.result << "\n"
                                     << text.log << "\nwanted " << want.result << "\n"
                                     << want.log;
    }
}

// A watcher with a log callback takes the lines in order instead of
// standard output; one without a lookup callback leaves the reading as it
// is unwatched (the same log, the same record).
TEST_F(Any, ALogWatcherTakesTheLinesAndLeavesTheReadingAlone)
{
    const std::string path = script(MULTI);
    kiv_multi_chan_cfg alone, watched;
    const std::string printed = capture([&] { kiv_get_multi_chan_cfg(path.c_str(), &alone); });
    std::string taken;
    kiv_watcher w{};
    w.ctx = &taken;
    w.log = [](void *ctx, const char *text, size_t n) {
        static_cast<std::string *>(ctx)->append(text, n);
    };
    kiv_set_watcher(&w);
    const std::string still_printed =
        capture([&] { kiv_get_multi_chan_cfg(path.c_str(), &watched); });
    kiv_set_watcher(nullptr);
    EXPECT_EQ(still_printed, "");
    EXPECT_EQ(taken, printed);
    EXPECT_EQ(memcmp(&alone, &watched, sizeof alone), 0);
}

// A script's log_level sets the level of the thread that has one of its
// own, and the process-wide level stays as it was.
TEST_F(Any, AThreadWithALogLevelOfItsOwnKeepsItToItself)
{
    const std::string path = script(std::string(MULTI) + "_resource_config_.log_level = 3\n");
    kiv_set_log_level(1);
    int in_thread = -1;
    std::thread t([&] {
        kiv_use_thread_log_level(0);
        kiv_multi_chan_cfg cfg;
        capture([&] { kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
        in_thread = kiv_get_log_level();
        kiv_use_thread_log_level(-1);
    });
    t.join();
    EXPECT_EQ(in_thread, 3);
    EXPECT_EQ(kiv_get_log_level(), 1);
}

// The calibration data is read twice in its one run, the count and then the
// items, and each reading has the budget it would have had in a run of its
// own: with a bound between what the two calls use, the count succeeds and
// the items fail, with the message of the loading call.
TEST_F(Any, EachCalibrationReadingHasTheBudgetOfItsOwnRun)
{
    std::string text = "calib_data = {\n";
    for (int i = 0; i < 2000; ++i)
        text += "\t{" + std::to_string(i) + ", " + std::to_string(i * 3) + "},\n";
    text += "}\n";
    const std::string path = script(text);
    capture([&] { kiv_get_calib_data_size(path.c_str()); });
    const kiv_run_use counting = kiv_last_run_use();
    std::vector<kiv_calib_data_item> items(2000);
    capture([&] { kiv_load_calib_data(path.c_str(), items.data(), 2000); });
    const kiv_run_use loading = kiv_last_run_use();
    const uint64_t count_work = counting.instructions + counting.reading;
    const uint64_t load_work = loading.instructions + loading.reading;
    ASSERT_LT(count_work + 1000, load_work);
    kiv_set_run_limits({.instructions = (count_work + load_work) / 2});
    const records want = exported(kiv_kind::calib, path);
    kiv_kind kind;
    const records got = any(path, &text, &kind);
    kiv_set_run_limits({});
    EXPECT_EQ(want.calib_size, 2000);
    EXPECT_NE(want.log.find("kiv_load_calib_data"), std::string::npos) << want.log;
    EXPECT_TRUE(got.same(want)) << got.log << "\nwanted\n" << want.log;
}
