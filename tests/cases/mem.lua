-- The resource memory layout: its counts, its entries and what a failure
-- keeps.  The layout's dump is part of the three-channel case.
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
local function chan_mem()
  return { mask_possible = 1, mc_mask_possible = 0, warp_possible = 1, mask_buf_max_num = 64,
    mc_mask_buf_max_num = 5, mc_mask_buf_ds = 2, warp_buf_max_num = 6, warp_area_max_num = 7,
    max_vin = {1920, 1080} }
end
local function stream_mem()
  return { qpm_possible = 1, qpm_max_matrix_num = 9, qpm_buf_max_num = 17, max_stream = {640, 480} }
end
local function layout(chans, streams, chan_list, stream_list)
  return config { mem = { max_chan_num = chans, max_stream_num = streams, channels_mem = chan_list,
    streams_mem = stream_list } }
end
--- entries read, values cut to their fields | level=0 only=resource_mem_layout
layout(2, 1, { chan_mem(), { max_vin = {1, 2, 3} } }, { stream_mem() })
--- no layout | level=0 only=resource_mem_layout
config {}
--- a layout that is no table | level=0 only=resource_mem_layout
config { mem = 5 }
--- no max_chan_num | level=0 only=resource_mem_layout
config { mem = {} }
--- max_chan_num 0 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 0 } }
--- max_chan_num 4 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 4 } }
--- no max_stream_num: the channel count stays | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 2 } }
--- max_stream_num 14 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 2, max_stream_num = 14 } }
--- max_stream_num -1 | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 2, max_stream_num = -1 } }
--- more channel entries than counted | level=0 only=resource_mem_layout
layout(2, 1, { chan_mem(), chan_mem(), chan_mem() }, { stream_mem() })
--- no channel entries | level=0 only=resource_mem_layout
config { mem = { max_chan_num = 1, max_stream_num = 0 } }
--- fewer stream entries than counted: the channel entries stay | level=0 only=resource_mem_layout
layout(1, 2, { chan_mem() }, { stream_mem() })
--- a channel entry with max_vin short | level=0 only=resource_mem_layout
layout(2, 1, { chan_mem(), { max_vin = {1} } }, { stream_mem() })
--- a channel entry no table | level=0 only=resource_mem_layout
layout(2, 0, { chan_mem(), true }, {})
--- a stream entry with max_stream empty | level=0 only=resource_mem_layout
layout(1, 2, { chan_mem() }, { stream_mem(), { max_stream = {} } })
