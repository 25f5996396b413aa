#include "kiv_test.h"
using namespace kivtest;
class Frame : public Settings
{
};
TEST_F(Frame, MinimalScript)
{
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, log_level = 3, channels = { {\n"
                  "  id = 0, sensor_ctrl = 1, max_padding_width = 0,\n"
                  "  main = { max_output = {1, 1}, input = {0, 0, 1, 1}, output = {0, 0, 1, 1} },\n"
                  "  vsrc = { vsrc_id = 0, mode = 'auto', fps = 30, hdr_mode = 'linear' } } } }",
                  &cfg);
    EXPECT_EQ(r.ret, 0) << r.log;
}
