-- Canvases: the canvas list and its failures, the binding of the channels'
-- source buffers, the extent a size of 0 asks for, and the canvas table of
-- the dump.  `config(t)` makes a whole configuration of t.canvas with
-- t.chans channels (default 1) of t.passes passes each (default 1, or
-- t.pass_nums, one per channel); t.out gives buffers their output window, as
-- {channel, pass, name, x, y, w, h}.  The logs show errors and the lines of
-- absent arrays.
local function buf(x, y, w, h)
  return { max_output = {w, h}, input = {0, 0, w, h}, output = {x, y, w, h} }
end
local function config(t)
  local chans = {}
  for c = 1, t.chans or 1 do
    local p = t.passes or 1
    if t.pass_nums then p = t.pass_nums[c] end
    chans[c] = { id = c - 1, sensor_ctrl = 1, max_padding_width = 64, pass_num = p,
      main = buf(0, 0, 8, 8), pass_1 = {},
      vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" } }
  end
  local out = t.out or {}
  for i = 1, #out do
    local o, c = out[i], chans[out[i][1] + 1]
    if o[2] == 1 then c = c.pass_1 end
    c[o[3]] = buf(o[4], o[5], o[6], o[7])
  end
  if t.canvas == "none" then t.canvas = nil end
  _resource_config_ = { version = 1, enable_hp_fps = t.hp, channels = chans, chan_groups = {},
    canvas = t.canvas, streams = { { id = 0, max_size = {8, 8} } } }
end
local function enc(source)
  return { type = "encode", size = {1, 1}, source = source }
end
local E40 = "eeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeeee"
--- no canvas list: the record keeps no canvas | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = "none" }
--- a canvas list that is no table | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = 5 }
--- an empty canvas list | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = {} }
--- thirteen canvases | grep=ERROR,item(canvas),item(source),item(size) only=canvas
local list = {}
for i = 1, 13 do list[i] = enc {"chan_0.main"} end
config { canvas = list }
--- twelve canvases, each with a buffer of its own | grep=ERROR,item(canvas),item(source),item(size) only=canvas_num,canvas[11]
local names, list = { "main", "second", "third", "fourth", "fifth", "sixth", "premain" }, {}
for i = 1, 12 do list[i] = enc { "chan_" .. (i - 1) // 7 .. "." .. names[(i - 1) % 7 + 1] } end
config { chans = 2, canvas = list }
--- no type | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { size = {1, 1}, source = {"chan_0.main"} } } }
--- a canvas that is no table | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { 5 } }
--- types are compared exactly | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { type = "Encode", size = {1, 1}, source = {"chan_0.main"} } } }
--- a long type is shown cut to 32 characters | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { type = E40, size = {1, 1}, source = {"chan_0.main"} } } }
--- a short size fails without a line of its own | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { type = "prev", size = {1920}, source = {"chan_0.main"} } } }
--- no size | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { type = "off", source = {"chan_0.main"} } } }
--- a preview canvas needs its vout_id | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { type = "prev", size = {1, 1}, source = {"chan_0.main"} } } }
--- no source | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { { type = "encode", size = {1, 1}, x = 0 } } }
--- a source that is no list | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { enc "chan_0.main" } }
--- an empty source | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { enc {} } }
--- a pass the channel does not have | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { enc {"chan_0.main_1"} } }
--- a pass the record does not have | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { chans = 2, passes = 2, canvas = { enc {"chan_0.main_2"} } }
--- a channel the configuration does not have | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { chans = 3, canvas = { enc {"chan_3.main"} } }
--- a long source name is shown cut to 32 characters | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { enc {"chan_0.main" .. E40} } }
--- a source element without a string form | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { enc {{}} } }
--- a buffer named twice | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { canvas = { enc {"chan_0.main", "chan_0.main"} } }
--- a buffer of a later pass bound to two canvases | grep=ERROR,item(canvas),item(source),item(size) only=canvas,channels[1].src_buf[1][2].canvas_id
config { chans = 2, passes = 2, canvas = { enc {"chan_1.third_1"}, enc {"chan_1.third_1"} } }
--- a failing canvas keeps what was stored before the failure; an empty source writes no binding | grep=ERROR,item(canvas),item(source),item(size) only=canvas,channels[1].src_buf[0][1].canvas_id
config { chans = 2, passes = 2, canvas = {
  { type = "prev", vout_id = 1, size = {3, 4}, source = {"chan_1.second"} },
  { type = "off", size = {5, 6}, source = {} } } }
--- after an unknown or bound buffer the channel list and enable_order are still written; earlier bindings stay | grep=ERROR,item(canvas),item(source),item(size) only=canvas,channels[0].src_buf[0][0].canvas_id
config { chans = 2, passes = 2, canvas = { enc {"chan_1.main"},
  { type = "encode", size = {1, 1}, enable_order = 1, source = {"chan_0.main", "chan_1.main", "x"} },
  enc {"chan_0.second", "chan_0.x"} } }
--- the channels in the order the list first names them; enable_order only for two or more; a 0 in the size asks for the extent of the bound buffers | grep=ERROR,item(canvas),item(source),item(size) only=canvas
config { chans = 3, pass_nums = {2, 2, 0},
  out = { {0, 0, "main", 0, 0, 1920, 1080}, {0, 0, "second", 1920, 0, 640, 360},
    {1, 1, "premain", 100, 1000, 100, 100}, {1, 0, "third", 5000, 5000, 1, 1} },
  canvas = {
    { type = "off", size = {0, 0}, enable_order = 3,
      source = {"chan_1.premain_1", "chan_0.second", "chan_1.main", "chan_0.main"} },
    { type = "off", size = {0, 1080}, enable_order = 1, source = {"chan_1.third", "chan_1.fifth"} },
    { type = "off", size = {1280, 720}, source = {"chan_1.fourth"} } } }
--- the extent is summed in 32 bits without sign | grep=ERROR only=canvas[0].width,canvas[0].height
config { out = { {0, 0, "main", 0, 0, 1920, 1080}, {0, 0, "second", -1, 0, 3, 0} },
  canvas = { { type = "off", size = {0, 0}, source = {"chan_0.main", "chan_0.second"} } } }
--- every key of a canvas, kept in the bits its field has; the dump (where a buffer bound to no canvas has zeros) reads back to the same record | grep=ERROR only=canvas dump=canvas
local c = { type = "prev", size = {720, 480}, vout_id = 3, vout_YUV422 = 1, manual_feed = 1,
  feed_frame_num = 200, extra_dram_buf = -1, min_unlocked_buf_num = 257,
  set_min_unlocked_buf_num = 1, cached_items = 511, enc_dummy_latency = 17, frame_rate = 30,
  zero_fps = 1, fps_locked_enable = 1, clear_background = 1, enable_order = 1,
  source = {"chan_2.fourth_1", "chan_0.second", "chan_2.main"}, dsp_priv_dram = 1,
  disable_yuv_dram = 1, disable_me_dram = 1, enable_frame_tag = 1, me_for_mf = 1,
  frame_tag_value = 0x1deadbeef, frame_tag_mask = 0xffff0000 }
config { chans = 3, passes = 2,
  out = { {0, 0, "main", 0, 0, 1920, 1080}, {1, 0, "sixth", 0, 0, 320, 240} },
  canvas = { c,
    { type = "encode", size = {0, 0}, frame_rate = 60, vout_id = 1,
      source = {"chan_0.main", "chan_1.premain_1", "chan_2.fourth"} },
    { type = "off", size = {16, 0}, source = {"chan_1.sixth", "chan_1.main"} } } }
--- with enable_hp_fps the rates are thousandths | grep=ERROR only=canvas[0].frame,canvas[1].frame dump=canvas
config { chans = 3, passes = 2, hp = 1,
  canvas = {
    { type = "prev", size = {720, 480}, vout_id = 1, frame_rate = 29970,
      source = {"chan_0.main"} },
    { type = "encode", size = {8, 8}, frame_rate = 30, source = {"chan_1.main", "chan_2.main"} } } }
