// The pyramid of a channel, read on its own.
#include "channel/channel.h"
#include "core/log.h"
#include "kiv_test.h"

using namespace kivtest;

namespace
{

const char *const FULL = "input_buf_id = 1, layer_map = 0x5, max_layer_map = 0x3f, scale_type = 2, "
                         "buf_addr = 0x80001000, buf_size = 0x100000, manual_feed = 0, "
                         "item_num = 4, cached_items = 3, rescale_size = {1920, 1080}, "
                         "max_rescale_size = {3840, 2160}, frame_rate = 15, enable_frame_tag = 1, "
                         "frame_tag_value = 0xab, frame_tag_mask = 0xff, ";

// The lines of `log` that contain `tag`.
std::string only_line(const std::string &log, const std::string &tag)
{
    std::string out;
    for (size_t at = 0; at < log.size();) {
        size_t end = log.find('\n', at);
        end = end == std::string::npos ? log.size() : end + 1;
        std::string line = log.substr(at, end - at);
        if (line.find(tag) != std::string::npos)
            out += line;
        at = end;
    }
    return out;
}

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
    static std::string err(const std::string &text)
    {
        return "KIV_ERROR:: kiv_get_pyramid_cfg(N): " + text;
    }
    static std::string warn(const std::string &text)
    {
        return "KIV_WARN:: kiv_get_pyramid_cfg(N): " + text;
    }
    kiv_channel_cfg chan{};
};

} // namespace

TEST_F(Pyramid, SelectedLayersOnlyAndStoredValues)
{
    std::string log;
    ASSERT_EQ(read(std::string(FULL) + "layers = { { crop_win = {1, 2, 3, 4} }, { crop_win = {9, "
                                       "9, 9, 9} }, { crop_win = {5, 6, 7, 8, 99} } }",
                   &log),
              0);
    EXPECT_EQ(log, "");
    const kiv_pyramid_cfg &p = chan.pyramid;
    EXPECT_EQ(p.input_buf_id, 1u);
    EXPECT_EQ(p.layer_map, 5u);
    EXPECT_EQ(p.max_layer_map, 0x3fu);
    EXPECT_EQ(p.buf_addr, static_cast<int64_t>(0xffffffff80001000ull));
    EXPECT_EQ(p.item_num, 0); // not read without manual_feed
    EXPECT_EQ(p.max_rescale_size[1], 2160u);
    EXPECT_EQ(p.frame_rate, 15);
    EXPECT_EQ(p.frame_rate_hp, 15000u);
    EXPECT_EQ(p.frame_tag_value, 0xabu);
    EXPECT_EQ(p.layers[0].crop_win[3], 4u);
    EXPECT_EQ(p.layers[1].crop_win[0], 0u);
    EXPECT_EQ(p.layers[2].crop_win[0], 5u);

    kiv_set_hp_fps(1);
    ASSERT_EQ(read("input_buf_id = 0, layer_map = 0, scale_type = 0, manual_feed = 1, "
                   "item_num = 260, min_unlocked_buf_num = 2, rescale_size = {640, 480}, "
                   "frame_rate = 15000, buf_addr = 0x1000",
                   &log),
              0);
    EXPECT_EQ(p.frame_rate, 15);
    EXPECT_EQ(p.frame_rate_hp, 15000u);
    EXPECT_EQ(p.buf_addr, 0x1000);
    EXPECT_EQ(p.item_num, 4);
    EXPECT_EQ(p.min_unlocked_buf_num, 2);
    EXPECT_EQ(p.cached_items, 1u);
    EXPECT_EQ(p.max_rescale_size[0], 640u);
    EXPECT_EQ(p.max_rescale_size[1], 480u);
    const std::string w0 = "KIV_WARN:: kiv_get_pyramid_cfg(N): item(";
    const std::string d0 = ") doesn't exist, set 0 by default.\n";
    EXPECT_EQ(log, w0 + "max_layer_map" + d0 + w0 + "buf_size" + d0 + w0 +
                       "set_min_unlocked_buf_num" + d0 + w0 + "cached_items" + d0 +
                       warn("item(max_rescale_size) doesn't exist, set 640x480 by default.\n") +
                       w0 + "enable_frame_tag" + d0 + w0 + "frame_tag_value" + d0 + w0 +
                       "frame_tag_mask" + d0);

    kiv_set_hp_fps(0);
    ASSERT_EQ(read("input_buf_id = 0, layer_map = 0, scale_type = 0, layers = 5", &log), 0);
    EXPECT_EQ(only_line(log, "rescale_size"),
              warn("item(rescale_size) doesn't exist, set 0x0 by default.\n") +
                  warn("item(max_rescale_size) doesn't exist, set 0x0 by default.\n"));
    EXPECT_EQ(only_line(log, "frame_rate"),
              warn("item(frame_rate) doesn't exist, set 0 by default, and will be the same as the "
                   "idsp fps\n"));
}

TEST_F(Pyramid, FailuresKeepWhatWasRead)
{
    std::string log;
    {
        lua_script s("chan = { pyramid = 1 }", "chan");
        EXPECT_EQ(masked([&] { EXPECT_NE(kiv_get_pyramid_cfg(s.L(), &chan), 0); }),
                  warn("item(pyramid) doesn't exist\n"));
        EXPECT_EQ(lua_gettop(s.L()), s.top());
    }
    const std::pair<std::string, std::string> failures[] = {
        {"layer_map = 1", err("item(input_buf_id) doesn't exist.\n")},
        {"input_buf_id = 1, scale_type = 1", err("item(layer_map) doesn't exist.\n")},
        {"input_buf_id = 1, layer_map = 1", err("item(scale_type) doesn't exist.\n")},
        {"input_buf_id = 1, layer_map = 1, scale_type = 1, rescale_size = {1}",
         err("Wrong item num(1) in item(rescale_size).\n")},
        {"input_buf_id = 1, layer_map = 1, scale_type = 1, max_rescale_size = 3",
         err("Wrong item num(0) in item(max_rescale_size).\n")},
        {"input_buf_id = 1, layer_map = 3, scale_type = 1, layers = { { crop_win = {1, 2, 3, 4} "
         "}, { crop_win = {1, 2, 3} } }",
         err("Wrong item num(3) in item(crop_win) of index(1)\n")},
        {"input_buf_id = 1, layer_map = 0x21, scale_type = 1, layers = { { crop_win = {1, 2, 3, "
         "4} } }",
         err("Wrong item num(0) in item(crop_win) of index(5)\n")},
    };
    for (const auto &[items, line] : failures) {
        EXPECT_NE(read(items, &log), 0) << items;
        EXPECT_EQ(only_line(log, "KIV_ERROR"), line) << items;
        EXPECT_EQ(chan.pyramid.input_buf_id,
                  items.find("input_buf_id") != std::string::npos ? 1u : 0u)
            << items;
    }
    EXPECT_EQ(chan.pyramid.layers[0].crop_win[0], 1u);

    // Through the channel: the channel's own warning, and the channel loads.
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, channels = { { id = 0, sensor_ctrl = 1, "
                  "max_padding_width = 1, main = { max_output = {1, 1}, input = {1, 1, 1, 1}, "
                  "output = {1, 1, 1, 1} }, pyramid = { input_buf_id = 1 }, vsrc = { vsrc_id = "
                  "0, mode = 'auto', fps = 1, hdr_mode = 'linear' } } } }",
                  &cfg);
    EXPECT_EQ(r.ret, 0);
    EXPECT_EQ(only_line(r.log, "pyramid of"),
              "KIV_WARN:: kiv_get_channel_cfg(N): pyramid of channel(0) doen't exist\n");
    EXPECT_EQ(only_line(r.log, "KIV_ERROR"), err("item(layer_map) doesn't exist.\n"));
}
