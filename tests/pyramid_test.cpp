// The pyramid of a channel, read on its own.
#include "channel/channel.h"
#include "core/log.h"
#include "kiv_test.h"

using namespace kivtest;

namespace
{

class Pyramid : public Settings
{
  protected:
    int32_t read(const std::string &items, std::string *log = nullptr)
    {
        lua_script s("chan = { pyramid = { " + items + " } }", "chan");
        chan = kiv_channel_cfg{};
        int32_t ret = 0;
        std::string text = masked([&] { ret = kiv_get_pyramid_cfg(s.L(), &chan); });
        EXPECT_EQ(lua_gettop(s.L()), s.top());
        if (log)
            *log = text;
        return ret;
    }
    kiv_channel_cfg chan{};
};

const std::string W = "KIV_WARN:: kiv_get_pyramid_cfg(N): item(";
const std::string E = "KIV_ERROR:: kiv_get_pyramid_cfg(N): ";
const std::string HEAD = "input_buf_id = 1, layer_map = 0x5, scale_type = 2, ";

} // namespace

TEST_F(Pyramid, DefaultsSelectedLayersAndFrameRates)
{
    std::string log;
    kiv_set_hp_fps(1);
    ASSERT_EQ(read(HEAD + "buf_addr = 0x80001000, manual_feed = 0, item_num = 4, "
                          "rescale_size = {640, 480}, frame_rate = 14985, layers = { { crop_win "
                          "= {1, 2, 3, 4} }, { crop_win = {9, 9, 9, 9} }, { crop_win = {5, 6, 7, "
                          "8, 99} } }",
                   &log),
              0);
    const std::string d0 = ") doesn't exist, set 0 by default.\n";
    EXPECT_EQ(log, W + "max_layer_map" + d0 + W + "buf_size" + d0 + W + "cached_items" + d0 + W +
                       "max_rescale_size) doesn't exist, set 640x480 by default.\n" + W +
                       "enable_frame_tag" + d0 + W + "frame_tag_value" + d0 + W + "frame_tag_mask" +
                       d0);
    const kiv_pyramid_cfg &p = chan.pyramid;
    EXPECT_EQ(p.buf_addr, static_cast<int64_t>(0xffffffff80001000ull));
    EXPECT_EQ(p.item_num, 0); // no manual feed: not read
    EXPECT_EQ(p.cached_items, 1u);
    EXPECT_EQ(p.max_rescale_size[1], 480u);
    EXPECT_EQ(p.frame_rate, 15);
    EXPECT_EQ(p.frame_rate_hp, 14985u);
    EXPECT_EQ(p.layers[0].crop_win[3], 4u);
    EXPECT_EQ(p.layers[1].crop_win[0], 0u);
    EXPECT_EQ(p.layers[2].crop_win[0], 5u);

    kiv_set_hp_fps(0);
    ASSERT_EQ(read(HEAD + "manual_feed = 1, item_num = 260, frame_rate = 15, layers = 5", &log), 0);
    EXPECT_EQ(p.item_num, 4);
    EXPECT_EQ(p.frame_rate_hp, 15000u);
    EXPECT_EQ(p.layers[0].crop_win[0], 0u);
    EXPECT_NE(log.find(W + "set_min_unlocked_buf_num" + d0 + W + "cached_items" + d0 + W +
                       "rescale_size) doesn't exist, set 0x0 by default.\n" + W +
                       "max_rescale_size) doesn't exist, set 0x0 by default.\n"),
              std::string::npos);
    read(HEAD, &log);
    EXPECT_NE(log.find(W + "frame_rate) doesn't exist, set 0 by default, and will be the same as "
                           "the idsp fps\n"),
              std::string::npos);
}

TEST_F(Pyramid, FailuresKeepWhatWasRead)
{
    {
        lua_script s("chan = { pyramid = 1 }", "chan");
        EXPECT_EQ(masked([&] { EXPECT_NE(kiv_get_pyramid_cfg(s.L(), &chan), 0); }),
                  W + "pyramid) doesn't exist\n");
        EXPECT_EQ(lua_gettop(s.L()), s.top());
    }
    const std::pair<std::string, std::string> failures[] = {
        {"layer_map = 1", E + "item(input_buf_id) doesn't exist.\n"},
        {"input_buf_id = 1, scale_type = 1", E + "item(layer_map) doesn't exist.\n"},
        {"input_buf_id = 1, layer_map = 1", E + "item(scale_type) doesn't exist.\n"},
        {HEAD + "rescale_size = {1}", E + "Wrong item num(1) in item(rescale_size).\n"},
        {HEAD + "max_rescale_size = 3", E + "Wrong item num(0) in item(max_rescale_size).\n"},
        {HEAD + "layers = { { crop_win = {1, 2, 3, 4} }, {}, { crop_win = {1, 2, 3} } }",
         E + "Wrong item num(3) in item(crop_win) of index(2)\n"},
        {HEAD + "layers = { { crop_win = {1, 2, 3, 4} } }",
         E + "Wrong item num(0) in item(crop_win) of index(2)\n"},
    };
    for (const auto &[items, line] : failures) {
        std::string log;
        EXPECT_NE(read(items, &log), 0) << items;
        EXPECT_NE(log.find(line), std::string::npos) << items << log;
        EXPECT_EQ(log.find("KIV_ERROR"), log.find(line)) << items;
        EXPECT_EQ(chan.pyramid.input_buf_id, items.find("input_buf_id") == 0 ? 1u : 0u) << items;
    }
    EXPECT_EQ(chan.pyramid.layers[0].crop_win[0], 1u); // read before the failing layer

    // A faulty pyramid never fails its channel.
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, channels = { { id = 0, sensor_ctrl = 1, "
                  "max_padding_width = 1, main = { max_output = {1, 1}, input = {1, 1, 1, 1}, "
                  "output = {1, 1, 1, 1} }, pyramid = { input_buf_id = 1 }, vsrc = { vsrc_id = "
                  "0, mode = 'auto', fps = 1, hdr_mode = 'linear' } } }, " +
                      std::string(CANVAS_0) + ", " + STREAM_0 + " }",
                  &cfg);
    EXPECT_EQ(r.ret, 0);
    EXPECT_NE(r.log.find(E + "item(layer_map) doesn't exist.\nKIV_WARN:: kiv_get_channel_cfg(N): "
                             "pyramid of channel(0) doen't exist\n"),
              std::string::npos);
}
