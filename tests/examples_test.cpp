// Loads of the examples from several threads at once give the same records
// as loads one after another (the build under ThreadSanitizer runs
// Threads.* to show they share no unsynchronised state).  That each example
// loads and survives its dump is in tests/cases/examples.lua.
#include "kiv_test.h"

#include "core/log.h"

#include <atomic>
#include <cstring>
#include <latch>
#include <memory>
#include <thread>

using namespace kivtest;

// Under a fraction of the bounds: the examples are among the largest
// legitimate scripts.
using Threads = Margins;

TEST_F(Threads, ConcurrentLoadsMatchSequentialOnes)
{
    // One script gives its rates in thousandths (enable_hp_fps = 1), the
    // others in whole frames: each load reads them with its own flag, even
    // while another thread keeps flipping the process-wide one.
    const std::string multi[] = {example("three_channel_4k.lua"), example("hdr_virtual_mode.lua"),
                                 example("single_1080p.lua"),
                                 example("two_channel_encode_preview.lua")};
    const std::string aisp = example("custom_aisp.lua"), calib = example("calib_table.lua");
    auto expected = std::make_unique<kiv_multi_chan_cfg[]>(4);
    kiv_aisp_cfg expected_nn{};
    int32_t calib_n = 0;
    std::atomic<int> mismatches{0};
    // The examples set log level 1: their WARN lines are captured.
    capture([&] {
        auto lists = std::make_unique<kiv_hevc_scaling_cfg>();
        ASSERT_EQ(
            kiv_get_hevc_scaling_cfg(example("hevc_default_scaling.lua").c_str(), lists.get()), 0);
        for (int i = 0; i < 4; ++i)
            ASSERT_EQ(kiv_get_multi_chan_cfg(multi[i].c_str(), &expected[i]), 0);
        ASSERT_EQ(kiv_get_aisp_cfg(aisp.c_str(), &expected_nn, 1), 0);
        calib_n = kiv_get_calib_data_size(calib.c_str());
        std::jthread flipper([](std::stop_token stop) {
            for (int32_t v = 0; !stop.stop_requested(); v ^= 1)
                kiv_set_hp_fps(v);
        });
        std::latch start(4);               // outlives the threads that wait on it
        std::vector<std::jthread> threads; // joined as the capture ends, before the flipper
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&, t] {
                auto cfg = std::make_unique<kiv_multi_chan_cfg>();
                start.arrive_and_wait();
                for (int round = 0; round < 40; ++round) {
                    int i = (t + round) % 4;
                    kiv_aisp_cfg nn{};
                    mismatches += kiv_get_multi_chan_cfg(multi[i].c_str(), cfg.get()) != 0 ||
                                  memcmp(cfg.get(), &expected[i], sizeof *cfg) != 0 ||
                                  kiv_get_aisp_cfg(aisp.c_str(), &nn, 1) != 0 ||
                                  memcmp(&nn, &expected_nn, sizeof nn) != 0 ||
                                  kiv_get_calib_data_size(calib.c_str()) != calib_n;
                }
            });
        }
    });
    EXPECT_GT(calib_n, 0);
    EXPECT_EQ(mismatches.load(), 0);
}
