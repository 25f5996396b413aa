-- Scripts made to keep the library busy as long as they can, each stopped by the bound made for it
-- (instructions, memory, stack, reading of tables, time), under the library's bounds unless the case
-- says otherwise (time=0: the library's time limit; by default none to speak of).  The benchmark times
-- the cases before the first that sets a bound of its own.  Those made by a program are in
-- tests/frame_test.cpp.
--- endless loop | level=0
while true do end
--- endless loop in a table constructor | level=0
local function f() while true do end end
_resource_config_ = { version = 1, x = f() }
--- garbage | level=0
while true do local t = {1, 2, 3} end
--- doubling string | level=0
local s = "x" while true do s = s .. s end
--- growing table of tables | level=0
local t = {} local i = 1 while true do t[i] = {i} i = i + 1 end
--- unbounded recursion | level=0
local function f(n) return 1 + f(n + 1) end f(1)
--- deep recursion keeping locals | level=0
local function f(n) local a, b, c, d = {n}, {n}, {n}, {n} local x = f(n + 1) return a, b, c, d, x end
f(1)
--- channels sharing a huge array: a channel whose buffer arrays are one array of a million numbers, given as every element of channels | level=0 only=version
local big = {} for i = 1, 1000000 do big[i] = i end
local ch = { id = 0, sensor_ctrl = 1, max_padding_width = 64,
  main = { max_output = big, input = big, output = big },
  vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" } }
local chans = {} for i = 1, 200000 do chans[i] = ch end
_resource_config_ = { version = 1, channels = chans }
--- colliding long keys: keys of 256 characters whose hashes are all alike (the interpreter hashes a long string from every ninth character counted from its end, indices 255, 246, 237, ..., and the 8 digits that differ sit at indices 247 to 254, between two of those) | level=0 time=0
local p = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
local t = {} for i = 10000000, 10100000 do t[p .. i .. "b"] = true end
--- copies of a 16 MB string | level=0 time=0
local s = "x" for i = 1, 24 do s = s .. s end while true do local t = s .. "y" end
--- the time limit holds while the script runs | level=0 time=20 instructions=1000000000000
while true do end
--- and while a script living at the memory cap makes the collector run again and again | level=0 mem=2097152 time=20 instructions=1000000000000
local keep = {} for i = 1, 60000 do keep[i] = i end while true do local t = {} end
--- reading counts only what the log shows: arrays of 100,000 elements read within a small budget at log level 1 | level=0 instructions=1000000 grep=ERROR only=version
local big = {} for i = 1, 100000 do big[i] = i end
_resource_config_ = { version = 1, log_level = 1, channels = { { id = 0, sensor_ctrl = 1,
  max_padding_width = 64, main = { max_output = big, input = big, output = big },
  vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" } } }, chan_groups = {},
  canvas = { { type = "encode", size = {0, 0}, source = {"chan_0.main"} } },
  streams = { { id = 0, max_size = {8, 8} } } }
--- not at level 3, where the count is logged | level=0 instructions=1000000 grep=ERROR only=version
local big = {} for i = 1, 100000 do big[i] = i end
_resource_config_ = { version = 1, log_level = 3, channels = { { id = 0, sensor_ctrl = 1,
  max_padding_width = 64, main = { max_output = big, input = big, output = big },
  vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" } } }, chan_groups = {},
  canvas = { { type = "encode", size = {0, 0}, source = {"chan_0.main"} } },
  streams = { { id = 0, max_size = {8, 8} } } }
--- which the library's budget allows | level=0 grep=ERROR,(100000) only=version
local big = {} for i = 1, 100000 do big[i] = i end
_resource_config_ = { version = 1, log_level = 3, channels = { { id = 0, sensor_ctrl = 1,
  max_padding_width = 64, main = { max_output = big, input = big, output = big },
  vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" } } }, chan_groups = {},
  canvas = { { type = "encode", size = {0, 0}, source = {"chan_0.main"} } },
  streams = { { id = 0, max_size = {8, 8} } } }
