#include "kiv_test.h"
using namespace kivtest;
class Frame : public Settings
{
};
// The top-level items alone are not a configuration: the canvas list is
// required, so the load runs up to the canvas parser and fails there.
TEST_F(Frame, MinimalScript)
{
    kiv_multi_chan_cfg cfg;
    auto r = load("_resource_config_ = { version = 1, log_level = 3 }", &cfg);
    EXPECT_EQ(r.ret, -2) << r.log;
    EXPECT_NE(r.log.find("KIV_ERROR:: kiv_get_canvas_cfg(N): no canvas cfg found\n"
                         "KIV_ERROR:: kiv_get_multi_chan_cfg(N): get canvas config error\n"),
              std::string::npos)
        << r.log;
}
