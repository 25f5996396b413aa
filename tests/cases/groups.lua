-- Channel groups: each listed channel carries its group and its position in
-- it; a failure keeps what was written before.  chan_2, when there is one,
-- gives a group of its own that a list naming it replaces.
local function buf(w, h)
  return { max_output = {w, h}, input = {0, 0, w, h}, output = {0, 0, w, h} }
end
-- A channel with its required items; `t` adds or replaces items.
local function chan(t)
  t.id = t.id or 0
  t.sensor_ctrl = t.sensor_ctrl or 1
  t.max_padding_width = t.max_padding_width or 64
  t.main = t.main or buf(1920, 1080)
  t.vsrc = t.vsrc or { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" }
  return t
end
-- A whole configuration: `t` gives channels, streams, chan_groups and the
-- memory layout ("none" leaves a section out); one channel, one canvas,
-- one stream and no groups otherwise.
local function config(t)
  local function given(v, default)
    if v == "none" then return nil end
    if v == nil then return default end
    return v
  end
  _resource_config_ = { version = 1,
    channels = given(t.channels, { chan {} }),
    canvas = { { type = "encode", size = {1920, 1080}, source = {"chan_0.main"}, manual_feed = 0,
      feed_frame_num = 0, extra_dram_buf = 0, min_unlocked_buf_num = 0,
      set_min_unlocked_buf_num = 0, cached_items = 0, enc_dummy_latency = 0, frame_rate = 30,
      zero_fps = 0, fps_locked_enable = 0, clear_background = 0, dsp_priv_dram = 0,
      disable_yuv_dram = 0, disable_me_dram = 0, enable_frame_tag = 0, me_for_mf = 0,
      frame_tag_value = 0, frame_tag_mask = 0 } },
    streams = given(t.streams, { { id = 0, max_size = {1920, 1080}, max_M = 1, fast_seek_enable = 0,
      possible_enc_src_map = 1, two_ref_enable = 0, max_svct_layers_minus_1 = 0,
      max_num_minus_1_ltrs = 0, codec_enable = 1, stream_mv_statis_enable = 0,
      stream_pic_statis_enable = 0, js_enable = 0, used_for_vout_enable = 0, efm_enable = 0,
      dis_enable = 0 } }),
    chan_groups = given(t.chan_groups, {}),
    resource_mem_layout = given(t.mem, nil),
  }
end
local function groups(chans, list)
  local c = { chan { id = 0 }, chan { id = 1 } }
  if chans == 1 then
    c[2] = nil
  elseif chans == 3 then
    c[3] = chan { id = 2, enable_group = 1, group_idx = 3, group_order_idx = 6 }
  end
  return config { channels = c, chan_groups = list }
end
--- no list: a WARN | level=1 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(1, "none")
--- an empty list | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, {})
--- an empty group, then two channels in their order | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { {}, { "chan_1", "chan_0" } })
--- an entry no table is skipped; a channel listed twice takes its last place | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(2, { 5, { "chan_0", "chan_1", "chan_0" } })
--- more groups than channels | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(2, { { "chan_0" }, {}, {} })
--- a channel beyond the last: the one before stays | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0", "chan_3" } })
--- a channel not loaded | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(2, { { "chan_2" } })
--- a name in the wrong case | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "CHAN_0", "chan_0" } })
--- a long name is cut in the message | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx" } })
--- a member no string | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0", {} } })
--- a member no string in a later group | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0" }, { "chan_1", true } })
--- a channel in two groups | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0" }, { "chan_0", "chan_1" } })
--- a channel in two groups, the second later | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_2" }, { "chan_0" }, { "chan_1", "chan_2" } })
--- a channel twice in the later groups | level=0 only=channels[0].enable_group,channels[0].group,channels[1].enable_group,channels[1].group,channels[2].enable_group,channels[2].group
groups(3, { { "chan_0" }, { "chan_1" }, { "chan_1" } })
--- the dump lists an empty group, then the members by their order, ties by channel | level=0 dump only=channels[0].group,channels[1].group,channels[2].group
local function member(id, order)
  return chan { id = id, enable_group = 1, group_idx = 1, group_order_idx = order }
end
config { channels = { member(0, 5), member(1, 2), member(2, 2) } }
