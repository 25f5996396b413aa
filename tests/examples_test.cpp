// Every shipped example loads, and a multi-channel example survives its own
// dump: loading the dump gives the same record and dumping that again gives
// the same text.  Loads of the examples from several threads at once give
// the same records as loads one after another (the build under
// ThreadSanitizer runs Threads.* to show they share no unsynchronised state).
#include "kiv_test.h"

#include <atomic>
#include <cstring>
#include <latch>
#include <memory>
#include <thread>

using namespace kivtest;

namespace
{

using Examples = Margins;
using Threads = Settings;

// The fields a dump does not carry: the calibration path of each source and
// the values of buffers bound to no canvas (written as zeros).
void forget_undumped(kiv_multi_chan_cfg *cfg)
{
    for (kiv_channel_cfg &chan : cfg->channels) {
        memset(chan.vsrc.calib_data, 0, sizeof chan.vsrc.calib_data);
        for (auto &pass : chan.src_buf)
            for (kiv_src_buf_cfg &buf : pass)
                if (buf.canvas_id == -1)
                    memset(&buf, 0, offsetof(kiv_src_buf_cfg, canvas_id));
    }
}

} // namespace

TEST_F(Examples, MultiChannelExamplesLoadAndSurviveTheirDump)
{
    for (const char *name : {"single_1080p.lua", "two_channel_encode_preview.lua",
                             "three_channel_4k.lua", "hdr_virtual_mode.lua"}) {
        SCOPED_TRACE(name);
        auto cfg = std::make_unique<kiv_multi_chan_cfg>();
        auto again = std::make_unique<kiv_multi_chan_cfg>();
        std::string path = example(name);
        int32_t ret = 0;
        std::string log = masked([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), cfg.get()); });
        ASSERT_EQ(ret, 0) << log;
        EXPECT_EQ(only(log, "KIV_ERROR"), "");

        std::string text = dump(*cfg);
        auto r = load(text, again.get());
        ASSERT_EQ(r.ret, 0) << r.log;
        EXPECT_EQ(dump(*again), text);
        forget_undumped(cfg.get());
        forget_undumped(again.get());
        EXPECT_EQ(memcmp(cfg.get(), again.get(), sizeof *cfg), 0);
    }
}

TEST_F(Examples, StandaloneExamplesLoad)
{
    std::string calib = example("calib_table.lua");
    std::string hevc = example("hevc_default_scaling.lua");
    std::string aisp = example("custom_aisp.lua");
    std::string log = masked([&] {
        int32_t n = kiv_get_calib_data_size(calib.c_str());
        ASSERT_GT(n, 0);
        std::vector<kiv_calib_data_item> items(static_cast<size_t>(n));
        EXPECT_EQ(kiv_load_calib_data(calib.c_str(), items.data(), static_cast<uint32_t>(n)), 0);
        auto lists = std::make_unique<kiv_hevc_scaling_cfg>();
        EXPECT_EQ(kiv_get_hevc_scaling_cfg(hevc.c_str(), lists.get()), 0);
        kiv_aisp_cfg nn{};
        EXPECT_EQ(kiv_get_aisp_cfg(aisp.c_str(), &nn, 1), 0);
    });
    EXPECT_EQ(only(log, "KIV_ERROR"), "");
}

TEST_F(Threads, ConcurrentLoadsMatchSequentialOnes)
{
    // One script gives its rates in thousandths (enable_hp_fps = 1), the
    // other in whole frames: each load reads them with its own flag.
    const std::string multi[] = {example("three_channel_4k.lua"), example("hdr_virtual_mode.lua")};
    const std::string aisp = example("custom_aisp.lua"), calib = example("calib_table.lua");
    auto expected = std::make_unique<kiv_multi_chan_cfg[]>(2);
    kiv_aisp_cfg expected_nn{};
    int32_t calib_n = 0;
    std::atomic<int> mismatches{0};
    // The examples set log level 1: their WARN lines are captured.
    capture([&] {
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(kiv_get_multi_chan_cfg(multi[i].c_str(), &expected[i]), 0);
        ASSERT_EQ(kiv_get_aisp_cfg(aisp.c_str(), &expected_nn, 1), 0);
        calib_n = kiv_get_calib_data_size(calib.c_str());
        std::vector<std::thread> threads;
        std::latch start(4);
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                auto cfg = std::make_unique<kiv_multi_chan_cfg>();
                start.arrive_and_wait();
                for (int round = 0; round < 40; ++round) {
                    int i = (t + round) % 2;
                    if (kiv_get_multi_chan_cfg(multi[i].c_str(), cfg.get()) != 0 ||
                        memcmp(cfg.get(), &expected[i], sizeof *cfg) != 0)
                        ++mismatches;
                    kiv_aisp_cfg nn{};
                    if (kiv_get_aisp_cfg(aisp.c_str(), &nn, 1) != 0 ||
                        memcmp(&nn, &expected_nn, sizeof nn) != 0)
                        ++mismatches;
                    if (kiv_get_calib_data_size(calib.c_str()) != calib_n)
                        ++mismatches;
                }
            });
        }
        for (auto &th : threads)
            th.join();
    });
    EXPECT_GT(calib_n, 0);
    EXPECT_EQ(mismatches.load(), 0);
}
