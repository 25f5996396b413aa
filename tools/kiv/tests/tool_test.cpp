#include "tool_test.h"

#include <gtest/gtest.h>

#include <iostream>

#include "common.h"

namespace tooltest
{

// The output streams are captured as the tests capture the library's log.
run_result kiv(const std::vector<std::string> &args)
{
    std::vector<std::string> argv_s{"kiv"};
    argv_s.insert(argv_s.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : argv_s)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int rc = kivtool::run(static_cast<int>(argv_s.size()), argv.data());
    std::cout.flush();
    std::cerr.flush();
    std::string err = testing::internal::GetCapturedStderr();
    return {rc, testing::internal::GetCapturedStdout(), err};
}

kiv_multi_chan_cfg sample()
{
    kiv_multi_chan_cfg cfg;
    kiv_init(&cfg);
    cfg.version = 1;
    cfg.chan_num = 2;
    cfg.canvas_num = 2;
    cfg.stream_num = 2;
    for (int c = 0; c < 2; ++c) {
        kiv_channel_cfg &ch = cfg.channels[c];
        ch.id = static_cast<uint8_t>(c);
        ch.configured = 1;
        ch.pass_num = static_cast<uint32_t>(c + 1);
        ch.idsp_fps = 30;
        ch.vsrc.vsrc_id = 0;
        ch.vsrc.mode = 40;
        ch.vsrc.fps = 30;
    }
    auto bind = [&](int c, int p, int b, int canvas, uint32_t x, uint32_t y, uint32_t w,
                    uint32_t h) {
        kiv_src_buf_cfg &sb = cfg.channels[c].src_buf[p][b];
        sb.max_output[0] = w;
        sb.max_output[1] = h;
        sb.input[2] = 1920;
        sb.input[3] = 1080;
        sb.output[0] = x;
        sb.output[1] = y;
        sb.output[2] = w;
        sb.output[3] = h;
        sb.canvas_id = canvas;
    };
    bind(0, 0, 0, 0, 0, 0, 1920, 1080);
    bind(0, 0, 1, 0, 1280, 720, 640, 360);
    bind(1, 0, 0, -1, 0, 0, 1920, 1080);
    bind(1, 1, 0, 1, 0, 0, 1280, 720);
    cfg.channels[1].pass_cfg[1].input_buf_id = 0;
    const uint32_t sizes[2][2] = {{1920, 1080}, {1280, 720}};
    for (int i = 0; i < 2; ++i) {
        kiv_canvas_cfg &cv = cfg.canvas[i];
        cv.id = i;
        cv.canvas_id = static_cast<uint32_t>(i);
        cv.width = sizes[i][0];
        cv.height = sizes[i][1];
        cv.type = i == 0 ? 1 : 2;
        cv.source_chan_num = 1;
        cv.source_chan_ids[0] = static_cast<uint8_t>(i);
        cv.frame_rate = 30;
        cv.frame_rate_hp = 30000;
    }
    cfg.canvas[1].vout_id = 1;
    for (int s = 0; s < 2; ++s) {
        cfg.streams[s].id = static_cast<uint32_t>(s);
        cfg.streams[s].max_width = 1920;
        cfg.streams[s].max_height = 1080;
        cfg.streams[s].possible_enc_src_map = 1;
    }
    return cfg;
}

} // namespace tooltest
