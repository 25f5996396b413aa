// The text, JSON and flat forms of a record, and the difference of two.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "common.h"
#include "records.h"
#include "render.h"
#include "tool_test.h"

using namespace kivtool;

namespace
{

std::string text_of(const kiv_multi_chan_cfg &cfg)
{
    std::ostringstream s;
    write_text(s, multi_chan_desc(), &cfg);
    return s.str();
}

} // namespace

TEST(Render, TextIsNestedLikeTheRecord)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    strcpy(cfg.channels[0].vsrc.calib_data, "cal/\"a\".lua");
    cfg.channels[0].pyramid.buf_addr = -5;
    std::string t = text_of(cfg);
    EXPECT_EQ(t.rfind("version = 1\nchan_num = 2\ncanvas_num = 2\nstream_num = 2\n"
                      "enable_hp_fps = 0\nvin_short_line_detect = 0\nchannels[0]:\n  id = 0\n"
                      "  img_stats_src_chan = 0\n  configured = 1\n",
                      0),
              0u);
    for (const char *part :
         {"  vsrc:\n    vsrc_id = 0\n    mode = 0x28\n    fps = 30\n",
          "    calib_data = \"cal/\\\"a\\\".lua\"\n",
          "  src_buf[0][1]:\n    max_output = [640, 360]\n    input = [0, 0, 1920, 1080]\n"
          "    output = [1280, 720, 640, 360]\n    canvas_id = 0\n",
          "  src_buf[0][2]:\n    max_output = [0, 0]\n    input = [0, 0, 0, 0]\n"
          "    output = [0, 0, 0, 0]\n    canvas_id = -1\n",
          "  pass_cfg[1]:\n    input_pass_id = 0\n    input_buf_id = 0\n", "    buf_addr = -5\n",
          "    layers[5]:\n      crop_win = [0, 0, 0, 0]\n",
          "  source_chan_ids = [1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0]\n",
          "resource_mem_layout:\n  max_chan_num = 0\n  max_stream_num = 0\n  channels_mem[0]:\n"
          "    mask_possible = 0\n"})
        EXPECT_NE(t.find(part), std::string::npos) << part;
    // A text member that fills its whole capacity is shown up to its end.
    memset(cfg.channels[0].vsrc.calib_data, 'x', sizeof cfg.channels[0].vsrc.calib_data);
    EXPECT_NE(text_of(cfg).find("calib_data = \"" + std::string(256, 'x') + "\"\n"),
              std::string::npos);
}

TEST(Render, JsonAndFlatPaths)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    json j = to_json(multi_chan_desc(), &cfg);
    EXPECT_EQ(j["channels"][0]["src_buf"][0][1]["output"], json({1280, 720, 640, 360}));
    EXPECT_EQ(j["channels"][1]["src_buf"][1][0]["canvas_id"], 1);
    EXPECT_EQ(j["channels"][2]["id"], 255);
    EXPECT_EQ(j["canvas"][1]["vout_id"], 1);
    EXPECT_EQ(j["canvas"][5]["id"], -1);
    EXPECT_EQ(j["channels"][0]["vsrc"]["calib_data"], "");
    EXPECT_EQ(j["resource_mem_layout"]["streams_mem"].size(), 13u);
    EXPECT_EQ(j.begin().key(), "version");

    std::vector<leaf_value> flat = flatten(multi_chan_desc(), &cfg);
    EXPECT_EQ(flat.front().path, "version");
    EXPECT_EQ(flat.back().path, "resource_mem_layout.streams_mem[12].max_stream[1]");
    bool found = false;
    for (const leaf_value &l : flat)
        if (l.path == "channels[0].src_buf[0][1].output[2]") {
            EXPECT_EQ(l.value, "640");
            found = true;
        }
    EXPECT_TRUE(found);

    kiv_hevc_scaling_cfg hevc{};
    hevc.scaling_list[3][5][63] = 7;
    hevc.scaling_list_dc[3][5] = 9;
    json h = to_json(hevc_scaling_desc(), &hevc);
    EXPECT_EQ(h["scaling_list"][3][5][63], 7);
    EXPECT_EQ(h["scaling_list_dc"][3][5], 9);
    std::ostringstream s;
    write_text(s, hevc_scaling_desc(), &hevc);
    EXPECT_NE(s.str().find("scaling_list[3][5] = [0, 0,"), std::string::npos);
    EXPECT_NE(s.str().find(", 0, 7]\nscaling_list_dc[0] = [0, 0, 0, 0, 0, 0]\n"),
              std::string::npos);
}

TEST(Render, DiffListsEveryChangedField)
{
    kiv_multi_chan_cfg a = tooltest::sample(), b = tooltest::sample();
    std::ostringstream same;
    EXPECT_FALSE(write_diff(same, a, b));
    EXPECT_EQ(same.str(), "");

    b.channels[1].hflip = 1;
    b.channels[0].src_buf[0][1].output[2] = 320;
    strcpy(b.channels[0].vsrc.calib_data, "c.lua");
    b.streams[1].possible_enc_src_map = 3;
    b.resource_mem_layout.streams_mem[12].max_stream[1] = 2160;
    std::ostringstream d;
    EXPECT_TRUE(write_diff(d, a, b));
    EXPECT_EQ(d.str(), "channels[0].vsrc.calib_data: \"\" -> \"c.lua\"\n"
                       "channels[0].src_buf[0][1].output[2]: 640 -> 320\n"
                       "channels[1].hflip: 0 -> 1\n"
                       "streams[1].possible_enc_src_map: 0x1 -> 0x3\n"
                       "resource_mem_layout.streams_mem[12].max_stream[1]: 0 -> 2160\n");
}
