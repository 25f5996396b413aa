// Loads into different records from several threads at once give the same
// records as loads one after another.  (The build under ThreadSanitizer runs
// this test to show the loads share no unsynchronised state.)
#include "kiv_test.h"

#include "core/log.h"

#include <atomic>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

using namespace kivtest;

namespace
{

class Threads : public Settings
{
};

} // namespace

TEST_F(Threads, ConcurrentLoadsMatchSequentialOnes)
{
    // All three scripts leave the high-precision flag clear: loads that set
    // the process-wide settings differently would race on them by design.
    const std::string multi[] = {example("three_channel_4k.lua"),
                                 example("two_channel_encode_preview.lua")};
    const std::string aisp = example("custom_aisp.lua");
    const std::string calib = example("calib_table.lua");

    auto expected = std::make_unique<kiv_multi_chan_cfg[]>(2);
    kiv_aisp_cfg expected_nn{};
    capture([&] {
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(kiv_get_multi_chan_cfg(multi[i].c_str(), &expected[i]), 0);
        ASSERT_EQ(kiv_get_aisp_cfg(aisp.c_str(), &expected_nn, 1), 0);
    });
    int32_t calib_n = kiv_get_calib_data_size(calib.c_str());
    ASSERT_GT(calib_n, 0);

    kiv_set_log_level(0); // errors only: the threads print nothing
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            auto cfg = std::make_unique<kiv_multi_chan_cfg>();
            for (int round = 0; round < 8; ++round) {
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
    EXPECT_EQ(mismatches.load(), 0);
}
