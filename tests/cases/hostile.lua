-- Scripts made to keep the library busy as long as they can, each stopped by the bound made for it
-- (instructions, with what the script allocates and parses counted in; memory; string length; stack;
-- reading of tables; time), under the library's bounds unless the case says otherwise (time=0: the
-- library's time limit; by default none to speak of).  The benchmark times the cases before the
-- first that sets a bound of its own.  Those made by a program are in tests/frame_test.cpp.
--- endless loop | level=0
while true do end
--- endless loop in a table constructor | level=0
local function f() while true do end end
_resource_config_ = { version = 1, x = f() }
--- garbage | level=0
while true do local t = {1, 2, 3} end
--- doubling string: stopped when it outgrows the string limit | level=0
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
--- a 32 MB numeric string converted in arithmetic again and again: the string is never made | level=0
local s = " " for i = 1, 25 do s = s .. s end s = s .. "1"  while true do local x = s + 0 end
--- a 32 MB string compared with itself again and again | level=0
local s = " " for i = 1, 25 do s = s .. s end s = s .. "1"
local a = s .. "a"  while true do local x = a <= a end
--- a 32 MB numeric string under 95 keys of _resource_config_, which the reading would convert | level=0
local s = " " for i = 1, 25 do s = s .. s end s = s .. "1"
_resource_config_ = {
k0 = s, k1 = s, k2 = s, k3 = s, k4 = s, k5 = s, k6 = s, k7 = s, 
k8 = s, k9 = s, k10 = s, k11 = s, k12 = s, k13 = s, k14 = s, k15 = s, 
k16 = s, k17 = s, k18 = s, k19 = s, k20 = s, k21 = s, k22 = s, k23 = s, 
k24 = s, k25 = s, k26 = s, k27 = s, k28 = s, k29 = s, k30 = s, k31 = s, 
k32 = s, k33 = s, k34 = s, k35 = s, k36 = s, k37 = s, k38 = s, k39 = s, 
k40 = s, k41 = s, k42 = s, k43 = s, k44 = s, k45 = s, k46 = s, k47 = s, 
k48 = s, k49 = s, k50 = s, k51 = s, k52 = s, k53 = s, k54 = s, k55 = s, 
k56 = s, k57 = s, k58 = s, k59 = s, k60 = s, k61 = s, k62 = s, k63 = s, 
k64 = s, k65 = s, k66 = s, k67 = s, k68 = s, k69 = s, k70 = s, k71 = s, 
k72 = s, k73 = s, k74 = s, k75 = s, k76 = s, k77 = s, k78 = s, k79 = s, 
k80 = s, k81 = s, k82 = s, k83 = s, k84 = s, k85 = s, k86 = s, k87 = s, 
k88 = s, k89 = s, k90 = s, k91 = s, k92 = s, k93 = s, k94 = s, }
--- copies of a string at the limit: every copy counted as what it allocates | level=0
local s = "x" for i = 1, 15 do s = s .. s end while true do local t = s .. "y" end
--- a string just under the limit converted again and again: each instruction scans it, the time limit holds | level=0 time=0
local s = " " for i = 1, 15 do s = s .. s end s = s .. "1" while true do local x = s + 0 end
--- colliding long keys: keys of 256 characters whose hashes are all alike (the interpreter hashes a long string from every ninth character counted from its end, indices 255, 246, 237, ..., and the 8 digits that differ sit at indices 247 to 254, between two of those) | level=0 time=0
local p = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa"
local t = {} for i = 10000000, 10100000 do t[p .. i .. "b"] = true end
--- integer keys that all collide (multiples of 2^20 fall on one chain in a table of up to 2^20 entries): the time limit holds | level=0 time=0
local t = {} for i = 1, 100000 do t[i * 1048576] = true end
--- the length of a table whose array is full and whose hash part chains the keys N+1, 2(N+1), 4(N+1), ... past the largest integer's half: each # scans all 2^21 elements, and the time limit holds | level=0 time=0
local t = {} for i = 1, 1 << 21 do t[i] = true end
for i = 1, 600 do t["k" .. i] = true end
local j = (1 << 21) + 1 while j > 0 do t[j] = true j = j * 2 end
local n = 0 while true do n = n + #t end
--- a new key for a table of 2^22 elements again and again, where the one other key it holds leaves no free slot: the new key rehashes the whole table, and the time limit holds | level=0 time=0
local t = {} for i = 1, 1 << 22 do t[i] = true end t.keep = true
local k = 0 while true do k = k + 1 t["x" .. k] = true t["x" .. k] = nil end
--- memory filled with blocks of one size, dropped and filled with blocks of another: the bound counts the memory given to the state, freed blocks included | level=0
local t = {} for i = 1, 1500000 do t[i] = {} end
t = nil
local u = {} for i = 1, 1500000 do u[i] = {i, i, i, i} end
--- a string literal longer than the limit: refused while parsing | level=0 strings=1024
local s = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
--- the time limit holds while the script runs | level=0 time=20 instructions=1000000000000
while true do end
--- and while a script living at the memory cap makes the collector run again and again | level=0 mem=2097152 time=20 instructions=1000000000000
local keep = {} for i = 1, 60000 do keep[i] = i end while true do local t = {} end
--- and the instruction budget counts each of those collections as the allocation of the heap it walks | level=0 mem=2097152
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
