-- HEVC scaling lists: a script without the table fails with a zero record;
-- an empty table succeeds with a zero record and warns for every list and
-- DC name, in [size][list] order.  A list gives at most 64 coefficients,
-- and its first one is the DC unless the DC is given.
--- no table | hevc
x = 1
--- not a table | hevc
__hevc_scalelist__ = 7
--- empty table | hevc
__hevc_scalelist__ = {}
--- lists and DC values | hevc level=0
local function seq(n, first) local t = {} for i = 1, n do t[i] = first + i - 1 end return t end
__hevc_scalelist__ = { INTRA16X16_LUMA = seq(64, 20),
  INTER16X16_LUMA_DC = 16, INTRA8X8_LUMA = seq(3, 30),
  INTRA8X8_LUMA_DC = 99, INTER32X32_LUMA = seq(200000, 1),
  INTRA4X4_CHROMAV = seq(16, 5),
  INTER8X8_CHROMAU = {'12', 29.97, -1, 2^32 + 3} }
--- an empty list warns without the count's own line | hevc
__hevc_scalelist__ = { INTER4X4_LUMA = {}, INTRA16X16_LUMA = {20} }
