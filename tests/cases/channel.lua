-- Channels: the channels array, its checks and failures, the source-buffer
-- passes and the pyramid.  Every script is a whole configuration: `config`
-- completes the channels given with one canvas, one stream and no groups
-- that log nothing.
-- include: config
--- keys, checks and switches | only=channels
config { chan { srcbuf_to_fusion = 6, srcbuf_to_skip_blend = 0x20, vsrc_ctx = 0x1ff,
  use_vsrc_ctx_pattern = 2, vsrc_ctx_pattern = 9, enable_group = 1, group_idx = 5,
  group_order_idx = 3, idsp_fps = 30, img_stats_src_chan = "chan_2" } }
--- largest blend and fusion values, a read pattern, a rate in thousandths | level=0 only=channels
HP = 1
config { chan { srcbuf_to_fusion = 9, srcbuf_to_skip_blend = 0x1f, idsp_fps = 29970,
  use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 9, vsrc_ctx_pattern_mask = 3 } }
--- fusion 5, a negative blend | level=0 only=channels[0].srcbuf
config { chan { srcbuf_to_fusion = 5, srcbuf_to_skip_blend = -1 } }
--- ids in any order: each table goes to the element its id names | level=0 only=chan_num,channels[0].vsrc_ctx,channels[1].vsrc_ctx,channels[1].img_stats
config { chan { id = 1, vsrc_ctx = 11 }, chan { id = 0, vsrc_ctx = 10 } }
--- no channels | level=0 only=chan_num
config { channels = {} }
--- an entry that is no table | level=0 only=chan_num
config { 5 }
--- no id | level=0 only=chan_num
config { { sensor_ctrl = 1 } }
--- id 3 | level=0 only=chan_num
config { chan { id = 3 } }
--- id -1 | level=0 only=chan_num
config { chan { id = -1 } }
--- no sensor_ctrl | level=0 only=chan_num
config { { id = 0, max_padding_width = 1 } }
--- no max_padding_width | level=0 only=chan_num
config { { id = 0, sensor_ctrl = 1 } }
--- a read pattern without its mask | level=0 only=chan_num
config { chan { use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 1 } }
--- a group without its index | level=0 only=chan_num
config { chan { enable_group = 3 } }
--- no main buffer | level=0 only=chan_num
config { { id = 0, sensor_ctrl = 1, max_padding_width = 1 } }
--- no source | level=0 only=chan_num
config { { id = 0, sensor_ctrl = 1, max_padding_width = 1, main = buf(1920, 1080) } }
--- statistics from a channel beyond the last: nothing stored, not configured | level=0 only=chan_num,channels[0].configured,channels[0].img_stats
config { chan { img_stats_src_chan = "chan_3" } }
--- a long statistics source name is cut in the message | level=0 only=chan_num
config { chan { img_stats_src_chan = "chan_0xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx" } }
--- four channels | level=0 only=chan_num
config { chan { id = 0 }, chan { id = 1 }, chan { id = 2 }, chan { id = 0 } }
--- an id given twice: the count is stored already | level=0 only=chan_num
config { chan { id = 0 }, chan { id = 0 } }
--- ids with a gap | level=0 only=chan_num
config { chan { id = 0 }, chan { id = 2 } }
--- optional buffers stop at their first short array; pass 1 reads its own | only=channels[0].configured,channels[0].src_buf,channels[0].pass
config { chan { second = { max_output = {320, 180, 99} }, third = 7,
  fourth = { max_output = {1, 2}, input = {1, 2, 3, 4}, output = {9} }, pass_num = 2,
  pass_1 = { input_pass_id = 0, input_buf_id = 1,
    premain = { max_output = {640, 360}, input = {1, 2, 3, 4}, output = {5, 6, 7, 8} } } } }
--- main with a short array: what was read stays | level=0 only=chan_num,channels[0].src_buf
config { chan { main = { max_output = {8, 9}, input = {1, 2, 3} } } }
--- two passes without pass_1 | level=0 only=chan_num,channels[0].configured,channels[0].max_warp
config { chan { pass_num = 2, max_warp_output_width = 5 } }
--- pass_1 no table | level=0 only=chan_num,channels[0].configured,channels[0].max_warp
config { chan { pass_num = 2, pass_1 = "main", max_warp_output_width = 5 } }
--- three passes without pass_2 | level=0 only=chan_num,channels[0].configured,channels[0].max_warp
config { chan { pass_num = 3, pass_1 = {}, max_warp_output_width = 5 } }
--- seven passes: the channel's table is read to its end first | only=chan_num,channels[0].configured,channels[0].max_warp
config { chan { pass_num = 7, pass_1 = {}, pass_2 = {}, max_warp_output_width = 5 } }
--- no passes: pass 0 is read all the same | level=0 only=chan_num,channels[0].src_buf[0][0].max_output
config { chan { pass_num = 0 } }
--- pyramid: defaults, a negative address, layers of the map only | only=channels[0].pyramid
HP = 1
config { chan { pyramid = { input_buf_id = 1, layer_map = 0x5, scale_type = 2,
  buf_addr = 0x80001000, manual_feed = 0, item_num = 4, rescale_size = {640, 480},
  frame_rate = 14985, layers = { { crop_win = {1, 2, 3, 4} }, { crop_win = {9, 9, 9, 9} },
    { crop_win = {5, 6, 7, 8, 99} } } } } }
--- pyramid with manual feed: item_num clipped, whole-number rate | only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, layer_map = 0x5, scale_type = 2, manual_feed = 1,
  item_num = 260, frame_rate = 15, layers = 5 } } }
--- pyramid no table | only=channels[0].pyramid
config { chan { pyramid = 1 } }
--- pyramid without input_buf_id: the channel loads | level=0 only=channels[0].pyramid
config { chan { pyramid = { layer_map = 1 } } }
--- pyramid without layer_map | only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, scale_type = 1 } } }
--- pyramid without scale_type | level=0 only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, layer_map = 1 } } }
--- pyramid rescale_size short | level=0 only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, layer_map = 0x5, scale_type = 2,
  rescale_size = {1} } } }
--- pyramid max_rescale_size no table | level=0 only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, layer_map = 0x5, scale_type = 2,
  max_rescale_size = 3 } } }
--- pyramid layer short: the layer before stays | level=0 only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, layer_map = 0x5, scale_type = 2,
  layers = { { crop_win = {1, 2, 3, 4} }, {}, { crop_win = {1, 2, 3} } } } } }
--- pyramid layer missing | level=0 only=channels[0].pyramid
config { chan { pyramid = { input_buf_id = 1, layer_map = 0x5, scale_type = 2,
  layers = { { crop_win = {1, 2, 3, 4} } } } } }
--- three channels, two sharing a source, one virtual: written out and read back | dump level=0 only=chan_num,channels[0].idsp_fps,channels[0].vsrc.,channels[1].vsrc.,channels[2].vsrc.mode,channels[2].pyramid.frame_rate,streams[1].efm_extern
-- Channels 0 and 1 share one source table; channel 2 has a virtual mode.
-- Every channel has two passes and a pyramid; most keys hold distinct values
-- so that a field written under another key's name shows.  Streams and a
-- memory layout complete the record.
local shared = { vsrc_id = 0, mode = "3840x2160", fps = 29970, max_fps = 60000, hdr_mode = "2x",
  bits = 12, mirror = 1, bayer = 2, vsrc_status = 1, dg_mode = 3, vsrc_ctx_switch = 1,
  calib_data = "/etc/calib/sensor0.lua" }
local virt = { vsrc_id = 1, mode = "auto", fps = 25000, hdr_mode = "linear", bits = 10,
  virt_mode_cfg_enable = 1,
  virt_mode_cfg = { width = 2560, height = 1440, bits = 10, max_fps = 30000, default_fps = 25000,
    hdr_mode = "3x", video_type = "yuv_bt1120", sensor_id = 0x1234, agc_db_step = 6,
    hdr_offset_long = -2, hdr_offset_short1 = 1, hdr_offset_short2 = 2, hdr_offset_short3 = 3,
    dual_gain_mode = 1 } }
local function buf(w, h)
  return { max_output = {w, h}, input = {0, 0, 3840, 2160}, output = {0, 0, w, h} }
end
local function channel(id, src)
  return { id = id, vsrc = src, sensor_ctrl = 1, max_padding_width = 128, idsp_fps = 29970,
    idsp_fps_locked_enable = 1, vsrc_ctx = 3, use_vsrc_ctx_pattern = 1, vsrc_ctx_pattern = 0xff,
    vsrc_ctx_pattern_mask = 7, vsrc_ctx_pattern_addr_offset = 16, img_stats_src_chan = "chan_1",
    app_img_profile = 4, packing_mode_enable = 1, raw_capture = 1, hdec_raw_format = 2,
    raw_dsp_priv_dram = 1, raw_manual_feed = 1, raw_feed_frame_num = 100, raw_cached_items = 9,
    mctf_cmpr = 1, expo_num = 3, dis_enable = 1, debug_disable_vin_12x_ds = 1,
    vsrc_region_num = 2, vsrc_region_map = 5, luma_alpha_blend = 1, invert_mode = 1,
    enable_tml_raw_packing = 1, srcbuf_to_fusion = 4, enable_group = 1, group_idx = 2,
    group_order_idx = id, group_sync = 1, extra_iso_cfg = 17, reuse_src_chan_iso_cfg = 1,
    lens_warp = 1, max_warp_input_width = 1920 * id, max_warp_output_width = 1280,
    max_vwarp_wait_lines = 1000, max_vwarp_blk_height = 100, lens_warp_hi_ef_factor = 6,
    blend_left_or_top = 1, srcbuf_to_skip_blend = 0x1a, rotate_cw = 1, vflip = 1,
    extra_downscale = 1, low_delay_vin_vout = 1, max_main_input_width = 3840, mc_mask_buf_ds = 2,
    eis_delay_count = 5, debug_stitch_slice_num = 9, mcts_crop_out_enable = 1,
    max_raw_height = 2160, max_cawarp_h_spacing = 6, trigger_led = 1,
    main = buf(1920, 1080), second = buf(720, 480), premain = id > 0 and buf(3840, 2160) or nil,
    pass_num = 2,
    pass_1 = { input_pass_id = 0, input_buf_id = 6, third = buf(640, 360),
      premain = id > 0 and buf(64, 32) or nil },
    pyramid = { input_buf_id = 1, scale_type = 2, buf_addr = 0x80001000 + id, buf_size = 0x100000,
      frame_rate = 14985, manual_feed = (id + 1) % 2, item_num = 4, set_min_unlocked_buf_num = 1,
      min_unlocked_buf_num = 2, cached_items = 3, rescale_size = {1920, 1080},
      max_rescale_size = {3840, 2160}, layer_map = 0x21, max_layer_map = 0x3f,
      enable_frame_tag = 1, frame_tag_value = 0xab, frame_tag_mask = 0xff,
      layers = { { crop_win = {0, 0, 1920, 1080} }, { crop_win = {9, 9, 9, 9} }, {}, {}, {},
                 { crop_win = {8, 8, 60, 34} } } } }
end
local mem = { mask_possible = 1, mc_mask_possible = 0, warp_possible = 1, mask_buf_max_num = 64,
  mc_mask_buf_max_num = 5, mc_mask_buf_ds = 2, warp_buf_max_num = 6, warp_area_max_num = 7,
  max_vin = {1920, 1080} }
_resource_config_ = {
  version = 1,
  enable_hp_fps = 1,
  channels = { channel(2, virt), channel(0, shared), channel(1, shared) },
  -- Every buffer is bound but chan_2.second: the dump writes only zeros for it.
  canvas = {
    { type = "encode", size = {1920, 1080},
      source = { "chan_0.main", "chan_0.second", "chan_0.third_1" } },
    { type = "encode", size = {1920, 1080}, source = { "chan_1.main", "chan_1.second",
      "chan_1.premain", "chan_1.third_1", "chan_1.premain_1" } },
    { type = "encode", size = {1920, 1080},
      source = { "chan_2.main", "chan_2.premain", "chan_2.third_1", "chan_2.premain_1" } },
  },
  streams = {
    { id = 1, max_size = {1280, 720}, max_M = 1, efm_enable = 1, efm_buf_num = 4,
      efm_size = {640, 360}, efm_extern_src_stream = 9, dis_enable = 1, dis_cached_items = 12 },
    { id = 0, max_size = {3840, 2160}, possible_enc_src_map = 0x8001, used_for_vout_enable = 1,
      used_for_vout_id = 1, js_enable = 1 } },
  resource_mem_layout = { max_chan_num = 2, max_stream_num = 1, channels_mem = { mem, mem },
    streams_mem = { { qpm_possible = 1, qpm_max_matrix_num = 9, qpm_buf_max_num = 17,
                      max_stream = {640, 480} } } },
}
