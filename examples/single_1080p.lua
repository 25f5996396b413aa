-- A single 1080p30 camera: one sensor, one channel with a full-size main
-- buffer encoded as the main stream, a second buffer for a smaller stream and
-- a small third buffer for the preview output.

vsrc_0 = {
	vsrc_id = 0,
	vsrc_status = 0,
	mode = "1080p",
	hdr_mode = "linear", -- options: "linear", "2x", "3x", "wdr",
	dg_mode = 0,
	fps = 30,
	max_fps = 30,
	vsrc_ctx_switch = 0,
	bits = 12,
	mirror = 255, -- 255: as the sensor driver sets it
	bayer = 255,
	calib_data = "",
	virt_mode_cfg_enable = 0,
}

chan_0 = {
	id = 0,
	vsrc = vsrc_0,
-- =============== resampling cfg ===============
	idsp_fps = 30,
	idsp_fps_locked_enable = 0,
-- ================ vsrc_ctx cfg ================
	vsrc_ctx = 0,
	use_vsrc_ctx_pattern = 0,
-- ================    3A cfg    ================
	sensor_ctrl = 1,
	img_stats_src_chan = "chan_0",
	app_img_profile = 0,
	packing_mode_enable = 0,
	raw_capture = 0,
	hdec_raw_format = 0,
	raw_dsp_priv_dram = 0,
	raw_manual_feed = 0,
	raw_feed_frame_num = 0,
	raw_cached_items = 0,
	mctf_cmpr = 1,
	mctf_10bit_ref = 0,
	expo_num = 1,
	vcap_mode_flags = 0x80,
	dis_enable = 0,
	debug_default_hds_coeff = 0,
	debug_disable_vin_12x_ds = 0,
	vsrc_region_num = 1,
	vsrc_region_map = 0,
	luma_alpha_blend = 0,
	extract_mono = 0,
	invert_mode = 0,
	is_still_fusion = 0,
	enable_tml_raw_packing = 0,
	enable_tml_proc = 0,
	srcbuf_to_fusion = 0,
	enable_group = 0,
	extra_iso_cfg = 0,
	reuse_src_chan_iso_cfg = 0,
-- ================  dewarp cfg  ================
	lens_warp = 0,
	max_padding_width = 256,
	max_warp_input_width = 0,
	max_warp_output_width = 0,
	max_vwarp_wait_lines = 0,
	max_vwarp_blk_height = 0,
	lens_warp_hi_ef_factor = 0,
-- ================  blend cfg   ================
	blend_left_or_top = 0,
	blend_right_or_bot = 0,
	srcbuf_to_skip_blend = 0x0,
-- ============== rotate/flip cfg ===============
	rotate_cw = 0,
	hflip = 0,
	vflip = 0,
	raw_vflip = 0,
-- ================   misc cfg   ================
	extra_downscale = 0,
	low_delay_vin_vout = 0,
	main_burst_tile = 1,
	max_main_input_width = 1920,
	mc_mask_buf_ds = 0,
	eis_delay_count = 0,
	debug_stitch_slice_num = 0,
	mcts_crop_out_enable = 0,
	max_raw_height = 0,
	max_cawarp_h_spacing = 0,
	trigger_led = 0,
-- ================ src buf cfg  ================
	pass_num = 1,
	main = {
		max_output = {1920, 1080},
		input      = {0, 0, 1920, 1080},
		output     = {0, 0, 1920, 1080},
	},
	second = {
		max_output = {1280, 720},
		input      = {0, 0, 1920, 1080},
		output     = {0, 0, 1280, 720},
	},
	third = {
		max_output = {640, 360},
		input      = {0, 0, 1920, 1080},
		output     = {0, 0, 640, 360},
	},
-- ================ pyramid cfg ================
	pyramid = {
		input_buf_id = 0,
		scale_type = 0,
		buf_addr = 0x0,
		buf_size = 0x0,
		frame_rate = 0, -- 0: the channel's idsp_fps
		manual_feed = 0,
		cached_items = 1,
		rescale_size = {1920, 1080},
		max_rescale_size = {1920, 1080},
		layer_map = 0x7,
		max_layer_map = 0x7,
		enable_frame_tag = 0,
		frame_tag_value = 0x0,
		frame_tag_mask = 0x0,
		layers = {
			{ crop_win = {0, 0, 1920, 1080} },
			{ crop_win = {0, 0, 1920, 1080} },
			{ crop_win = {0, 0, 1920, 1080} },
		},
	},
}

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	vin_short_line_detect = 0,
	channels = {
		chan_0,
	},
	canvas = {
		{ type = "encode", size = {1920, 1080}, source = {"chan_0.main"}, frame_rate = 30 },
		{ type = "encode", size = {0, 0}, source = {"chan_0.second"}, frame_rate = 30 },
		{ type = "prev", size = {0, 0}, source = {"chan_0.third"}, vout_id = 0, frame_rate = 30 },
	},
	streams = {
		{ id = 0, max_size = {1920, 1080}, max_M = 1, codec_enable = 3, possible_enc_src_map = 0x1 },
		{ id = 1, max_size = {1280, 720}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x2 },
	},
}

return _resource_config_
