#include "kiv_test.h"
using namespace kivtest;
class Frame : public Settings
{
};
TEST_F(Frame, MinimalScript)
{
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, log_level = 3,"
                  " streams = {{ id = 0, max_size = {1, 1} }} }",
                  &cfg);
    EXPECT_EQ(r.ret, 0) << r.log;
}
