-- Channels: the channels array, its checks and failures, the source-buffer
-- passes and the pyramid.  Every script is a whole configuration: `config`
-- completes the channels given with one canvas, one stream and no groups
-- that log nothing.
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
local function config(channels)
  _resource_config_ = { version = 1,
    channels = channels,
    canvas = { { type = "encode", size = {0, 0}, source = {"chan_0.main"}, manual_feed = 0,
      feed_frame_num = 0, extra_dram_buf = 0, min_unlocked_buf_num = 0,
      set_min_unlocked_buf_num = 0, cached_items = 0, enc_dummy_latency = 0, frame_rate = 30,
      zero_fps = 0, fps_locked_enable = 0, clear_background = 0, dsp_priv_dram = 0,
      disable_yuv_dram = 0, disable_me_dram = 0, enable_frame_tag = 0, me_for_mf = 0,
      frame_tag_value = 0, frame_tag_mask = 0 } },
    streams = { { id = 0, max_size = {1920, 1080}, max_M = 1, fast_seek_enable = 0,
      possible_enc_src_map = 1, two_ref_enable = 0, max_svct_layers_minus_1 = 0,
      max_num_minus_1_ltrs = 0, codec_enable = 1, stream_mv_statis_enable = 0,
      stream_pic_statis_enable = 0, js_enable = 0, used_for_vout_enable = 0, efm_enable = 0,
      dis_enable = 0 } },
    chan_groups = {},
  }
end
--- keys, checks and switches | only=channels dump
config { chan { srcbuf_to_fusion = 6, srcbuf_to_skip_blend = 0x20, vsrc_ctx = 0x1ff,
  use_vsrc_ctx_pattern = 2, vsrc_ctx_pattern = 9, enable_group = 1, group_idx = 5,
  group_order_idx = 3, idsp_fps = 30, img_stats_src_chan = "chan_2" } }
