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
-- A whole configuration: `t` is the channels array, or gives channels,
-- streams, chan_groups and the memory layout ("none" leaves a section out);
-- one channel, one canvas that logs nothing, one stream with every key and
-- no groups otherwise.  HP = 1 before `config` loads the rates in
-- thousandths.
local function config(t)
  if t[1] ~= nil then t = { channels = t } end
  local function given(v, default)
    if v == "none" then return nil end
    if v == nil then return default end
    return v
  end
  _resource_config_ = { version = 1, enable_hp_fps = HP,
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
