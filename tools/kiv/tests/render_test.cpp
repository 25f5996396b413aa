// The text of a record is checked by the golden cases of `kiv show`; a
// record only an application can make stays here.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "records.h"
#include "render.h"
#include "tool_test.h"

// A text member that fills its whole capacity, with no terminating zero,
// is shown up to its end and no further.
TEST(Render, TextThatFillsItsMember)
{
    kiv_multi_chan_cfg cfg = tooltest::sample();
    memset(cfg.channels[0].vsrc.calib_data, 'x', sizeof cfg.channels[0].vsrc.calib_data);
    std::ostringstream s;
    kivtool::write_text(s, kivtool::multi_chan_desc(), &cfg);
    EXPECT_NE(s.str().find("    calib_data = \"" + std::string(256, 'x') + "\"\n    fps_hp"),
              std::string::npos);
}
