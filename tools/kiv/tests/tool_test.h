// Helpers of the tool's tests: running the tool in-process with its output
// captured, and a record filled by hand.
#ifndef KIV_TOOL_TESTS_TOOL_TEST_H
#define KIV_TOOL_TESTS_TOOL_TEST_H

#include <string>
#include <vector>

#include "kiv.h"

namespace tooltest
{

struct run_result {
    int rc;
    std::string out; // standard output
    std::string err; // standard error
};

// Runs `kiv args...` in this process and captures both output streams.
run_result kiv(const std::vector<std::string> &args);

// A record as a load of a two-channel script leaves it: channel 0 with
// main (bound to canvas 0 at 0,0 1920x1080) and second (bound to canvas 0
// at 1280,720 640x360), channel 1 with two passes whose main_1 is bound to
// canvas 1 (prev, vout 1) at 0,0 1280x720; streams 0 and 1 fed by canvas 0.
kiv_multi_chan_cfg sample();

} // namespace tooltest

#endif
