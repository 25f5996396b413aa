// Every shipped example loads, and a multi-channel example survives its own
// dump: loading the dump gives the same record and dumping that again gives
// the same text.
#include "kiv_test.h"

#include <cstring>
#include <memory>

using namespace kivtest;

namespace
{

class Examples : public Settings
{
};

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

const char *const MULTI_CHANNEL[] = {"single_1080p.lua", "two_channel_encode_preview.lua",
                                     "three_channel_4k.lua", "hdr_virtual_mode.lua"};

} // namespace

TEST_F(Examples, MultiChannelExamplesLoadAndSurviveTheirDump)
{
    for (const char *name : MULTI_CHANNEL) {
        SCOPED_TRACE(name);
        auto cfg = std::make_unique<kiv_multi_chan_cfg>();
        auto again = std::make_unique<kiv_multi_chan_cfg>();
        std::string path = example(name);
        int32_t ret = 0;
        std::string log = masked([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), cfg.get()); });
        ASSERT_EQ(ret, 0) << log;
        EXPECT_EQ(log.find("KIV_ERROR"), std::string::npos) << log;

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
    EXPECT_EQ(log.find("KIV_ERROR"), std::string::npos) << log;
}
