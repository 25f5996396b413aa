// Scripts made to keep the library busy as long as they can, each with the
// bound that stops it.  The tests check that each ends with its bound's
// message; the benchmark times each under the default bounds.
#ifndef KIV_TESTS_HOSTILE_SCRIPTS_H
#define KIV_TESTS_HOSTILE_SCRIPTS_H

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace kivtest
{

struct hostile_script {
    const char *name;
    std::string text;
    // What stops it: the end of "lua error msg is ...".
    const char *message;
    // Whether the bound is the time limit (no other bound sees the work).
    bool timed;
};

inline std::vector<hostile_script> hostile_scripts()
{
    const char *INSTRUCTIONS = "script exceeded the instruction limit";
    const char *MEMORY = "not enough memory";
    const char *STACK = "stack overflow";
    const char *READING = "reading the script's tables exceeded the instruction limit";
    const char *TIME = "script exceeded the time limit";

    // 10 MB of table constructors nested 150 deep.
    std::string nest = std::string(150, '{') + std::string(150, '}') + ",\n";
    std::string nested = "local t = {\n";
    while (nested.size() < 10'000'000)
        nested += nest;
    nested += "}\n";
    // Keys of 256 characters whose hashes are all alike: the interpreter
    // hashes a long string from every ninth character counted from its end
    // (indices 255, 246, 237, ...), and the 8 digits that differ sit at
    // indices 247 to 254, between two of those.
    std::string collide =
        "local p = '" + std::string(247, 'a') +
        "' local t = {} for i = 10000000, 10100000 do t[p .. i .. 'b'] = true end";
    // A channel whose buffer arrays are one array of a million numbers, given
    // as every element of `channels`.
    std::string shared = "local big = {} for i = 1, 1000000 do big[i] = i end "
                         "local ch = { id = 0, sensor_ctrl = 1, max_padding_width = 64, "
                         "main = { max_output = big, input = big, output = big }, "
                         "vsrc = { vsrc_id = 0, mode = '1080p', fps = 30, hdr_mode = 'linear' } } "
                         "local chans = {} for i = 1, 200000 do chans[i] = ch end "
                         "_resource_config_ = { version = 1, channels = chans }";
    // A script the fuzzer found: a recursion that builds tables keeps the
    // collector walking a deep stack until the memory cap, a second at
    // least.
    std::ostringstream gc;
    gc << std::ifstream(KIV_SOURCE_DIR "/fuzz/regressions/deep-recursion-slow-gc.lua").rdbuf();
    return {
        {"endless loop", "while true do end", INSTRUCTIONS, false},
        {"endless loop in a table constructor",
         "local function f() while true do end end _resource_config_ = { version = 1, x = f() }",
         INSTRUCTIONS, false},
        {"doubling string", "local s = 'x' while true do s = s .. s end", MEMORY, false},
        {"growing table of tables",
         "local t = {} local i = 1 while true do t[i] = {i} i = i + 1 end", MEMORY, false},
        {"unbounded recursion", "local function f(n) return 1 + f(n + 1) end f(1)", STACK, false},
        {"deep recursion keeping locals",
         "local function f(n) local a, b, c, d = {n}, {n}, {n}, {n} local x = f(n + 1) "
         "return a, b, c, d, x end f(1)",
         STACK, false},
        {"garbage", "while true do local t = {1, 2, 3} end", INSTRUCTIONS, false},
        {"10 MB of nested constructors", nested, MEMORY, false},
        {"channels sharing a huge array", shared, READING, false},
        {"colliding long keys", collide, TIME, true},
        {"the collector under deep recursion", gc.str(), TIME, true},
        {"copies of a 16 MB string",
         "local s = 'x' for i = 1, 24 do s = s .. s end while true do local t = s .. 'y' end", TIME,
         true},
    };
}

} // namespace kivtest

#endif
