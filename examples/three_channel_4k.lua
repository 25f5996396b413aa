-- Three channels from two sensors: a 4K main camera feeding channels 0 and 1
-- (the full view and a second-pass analytics view) and a 5 MP tele camera
-- on channel 2.  Channels 0 and 1 form a channel group.  Five canvases,
-- some fed by several channels, serve four encoded streams and a preview
-- output; a fifth stream encodes a cropped view with efm frames.
--
-- What a dump of this script does not carry, on purpose, is silenced for
-- kiv lint where it stands: the calibration paths (a dump has no place for
-- them), buffers that feed the warp, a further pass or analytics instead of
-- a canvas, and the preview's picture in picture.

-- The main sensor, shared by channels 0 and 1.
local main_sensor = {
	vsrc_id = 0,
	vsrc_status = 0,
	mode = "3840x2160",
	fps = 30,
	max_fps = 30,
	hdr_mode = "linear",
	dg_mode = 0,
	bits = 12,
	vsrc_ctx_switch = 0,
	mirror = 0,
	bayer = 0,
	calib_data = "/etc/camera/calib_main.lua", -- kiv-lint: disable=lossy-round-trip
	virt_mode_cfg_enable = 0,
}

local tele_sensor = {
	vsrc_id = 1,
	vsrc_status = 0,
	mode = "2592x1944",
	fps = 30,
	max_fps = 30,
	hdr_mode = "linear",
	dg_mode = 0,
	bits = 10,
	vsrc_ctx_switch = 0,
	mirror = 255,
	bayer = 255,
	calib_data = "/etc/camera/calib_tele.lua", -- kiv-lint: disable=lossy-round-trip
	virt_mode_cfg_enable = 0,
}

-- One source buffer: largest output, input window, output window.
local function buf(mw, mh, input, output)
	return { max_output = {mw, mh}, input = input, output = output }
end

-- The keys every channel of this board shares; o holds what differs.
local function channel(o)
	return {
		id = o.id,
		vsrc = o.vsrc,
		vsrc_ctx = 0,
		app_img_profile = 0,
		low_delay_vin_vout = 0,
		packing_mode_enable = 0,
		raw_capture = 0,
		hdec_raw_format = 0,
		raw_dsp_priv_dram = 0,
		eis_delay_count = 0,
		raw_manual_feed = 0,
		raw_feed_frame_num = 0,
		raw_cached_items = 0,
		extra_iso_cfg = 0,
		sensor_ctrl = o.sensor_ctrl,
		reuse_src_chan_iso_cfg = o.reuse_src_chan_iso_cfg or 0,
		idsp_fps = o.idsp_fps or 30,
		idsp_fps_locked_enable = 0,
		max_padding_width = 256,
		debug_stitch_slice_num = 0,
		mcts_crop_out_enable = 0,
		max_raw_height = o.max_raw_height,
		extra_downscale = 0,
		max_main_input_width = o.max_main_input_width,
		lens_warp = o.lens_warp or 0,
		lens_warp_hi_ef_factor = 0,
		max_vwarp_wait_lines = o.max_vwarp_wait_lines or 0,
		max_vwarp_blk_height = o.max_vwarp_blk_height or 0,
		expo_num = 1,
		blend_left_or_top = 0,
		blend_right_or_bot = 0,
		max_cawarp_h_spacing = 0,
		srcbuf_to_skip_blend = 0,
		mctf_cmpr = 1,
		mctf_10bit_ref = 0,
		main_burst_tile = 1,
		use_vsrc_ctx_pattern = 0,
		trigger_led = 0,
		enable_group = 0,
		invert_mode = 0,
		rotate_cw = 0,
		hflip = 0,
		vflip = 0,
		raw_vflip = 0,
		vcap_mode_flags = 0x80,
		dis_enable = 0,
		debug_default_hds_coeff = 0,
		debug_disable_vin_12x_ds = 0,
		vsrc_region_num = 1,
		vsrc_region_map = 0,
		luma_alpha_blend = 0,
		extract_mono = 0,
		is_still_fusion = 0,
		enable_tml_raw_packing = 0,
		enable_tml_proc = 0,
		srcbuf_to_fusion = 0,
		pass_num = o.pass_num,
		mc_mask_buf_ds = 0,
		img_stats_src_chan = o.img_stats_src_chan,
		max_warp_input_width = o.max_warp_input_width or 0,
		max_warp_output_width = o.max_warp_output_width or 0,
		main = o.main,
		second = o.second,
		third = o.third,
		premain = o.premain,
		pass_1 = o.pass_1,
		pyramid = o.pyramid,
	}
end

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	vin_short_line_detect = 0,
	channels = {
		channel {
			id = 0,
			vsrc = main_sensor,
			sensor_ctrl = 1,
			max_raw_height = 2160,
			max_main_input_width = 3840,
			lens_warp = 1,
			max_vwarp_wait_lines = 256,
			max_vwarp_blk_height = 32,
			max_warp_input_width = 3840,
			max_warp_output_width = 3840,
			img_stats_src_chan = "chan_0",
			pass_num = 2,
			premain = buf(3840, 2160, {0, 0, 3840, 2160}, {0, 0, 3840, 2160}), -- kiv-lint: disable=unbound-buffer
			main = buf(3840, 2160, {0, 0, 3840, 2160}, {0, 0, 3840, 2160}),
			second = buf(1920, 1080, {0, 0, 3840, 2160}, {0, 0, 1920, 1080}),
			third = buf(1280, 720, {0, 0, 3840, 2160}, {1280, 0, 1280, 720}),
			pass_1 = {
				input_pass_id = 0,
				input_buf_id = 1,
				main = buf(960, 540, {0, 0, 1920, 1080}, {0, 0, 960, 540}),
				second = buf(640, 360, {0, 0, 1920, 1080}, {0, 0, 640, 360}), -- kiv-lint: disable=unbound-buffer
			},
			pyramid = {
				input_buf_id = 0,
				layer_map = 0x0f,
				max_layer_map = 0x3f,
				scale_type = 0,
				buf_addr = 0,
				buf_size = 0,
				manual_feed = 0,
				cached_items = 2,
				rescale_size = {3840, 2160},
				max_rescale_size = {3840, 2160},
				frame_rate = 15,
				enable_frame_tag = 0,
				frame_tag_value = 0,
				frame_tag_mask = 0,
				layers = {
					{ crop_win = {0, 0, 3840, 2160} },
					{ crop_win = {0, 0, 1920, 1080} },
					{ crop_win = {0, 0, 960, 540} },
					{ crop_win = {0, 0, 480, 270} },
				},
			},
		},
		channel {
			id = 1,
			vsrc = main_sensor,
			sensor_ctrl = 0,
			reuse_src_chan_iso_cfg = 1,
			max_raw_height = 2160,
			max_main_input_width = 3840,
			img_stats_src_chan = "chan_0",
			pass_num = 2,
			main = buf(640, 360, {960, 540, 1920, 1080}, {1280, 720, 640, 360}), -- kiv-lint: disable=overlapping-windows
			second = buf(1280, 720, {0, 0, 3840, 2160}, {0, 0, 1280, 720}), -- kiv-lint: disable=unbound-buffer
			pass_1 = {
				input_pass_id = 0,
				input_buf_id = 1,
				main = buf(640, 360, {0, 0, 1280, 720}, {960, 0, 640, 360}),
			},
			pyramid = {
				input_buf_id = 0,
				layer_map = 0x03,
				max_layer_map = 0x03,
				scale_type = 1,
				buf_addr = 0,
				buf_size = 0,
				manual_feed = 1,
				item_num = 4,
				min_unlocked_buf_num = 1,
				set_min_unlocked_buf_num = 1,
				cached_items = 1,
				rescale_size = {1920, 1080},
				max_rescale_size = {1920, 1080},
				frame_rate = 0,
				enable_frame_tag = 0,
				frame_tag_value = 0,
				frame_tag_mask = 0,
				layers = {
					{ crop_win = {0, 0, 1920, 1080} },
					{ crop_win = {0, 0, 960, 540} },
				},
			},
		},
		channel {
			id = 2,
			vsrc = tele_sensor,
			sensor_ctrl = 1,
			max_raw_height = 1944,
			max_main_input_width = 2592,
			img_stats_src_chan = "chan_2",
			pass_num = 1,
			main = buf(2592, 1944, {0, 0, 2592, 1944}, {0, 0, 2560, 1920}),
			second = buf(1280, 960, {0, 0, 2592, 1944}, {0, 0, 1280, 960}),
			pyramid = {
				input_buf_id = 1,
				layer_map = 0x01,
				max_layer_map = 0x01,
				scale_type = 0,
				buf_addr = 0,
				buf_size = 0,
				manual_feed = 0,
				cached_items = 1,
				rescale_size = {1280, 960},
				max_rescale_size = {1280, 960},
				frame_rate = 0,
				enable_frame_tag = 0,
				frame_tag_value = 0,
				frame_tag_mask = 0,
				layers = {
					{ crop_win = {0, 0, 1280, 960} },
				},
			},
		},
	},
	chan_groups = {
		{ "chan_0", "chan_1" },
	},
	canvas = {
		-- 4K main stream
		{ type = "encode", size = {3840, 2160}, source = {"chan_0.main"}, frame_rate = 30,
		  cached_items = 0, extra_dram_buf = 1 },
		-- side by side: the tele view and the main view scaled; size computed
		{ type = "encode", size = {0, 0}, source = {"chan_2.second", "chan_0.third"},
		  enable_order = 1, frame_rate = 30, extra_dram_buf = 0 },
		-- analytics: the second passes of both main-sensor channels
		{ type = "encode", size = {0, 0}, source = {"chan_0.main_1", "chan_1.main_1"},
		  enable_order = 0, frame_rate = 15 },
		-- tele camera at full size
		{ type = "encode", size = {2560, 1920}, source = {"chan_2.main"}, frame_rate = 30 },
		-- preview on the first video output, the centre crop as picture in picture
		{ type = "prev", size = {1920, 1080}, source = {"chan_0.second", "chan_1.main"},
		  vout_id = 0, vout_YUV422 = 0, enable_order = 1, frame_rate = 30 },
	},
	streams = {
		{ id = 0, max_size = {3840, 2160}, max_M = 1, codec_enable = 3, two_ref_enable = 0,
		  max_svct_layers_minus_1 = 0, possible_enc_src_map = 0x1 },
		{ id = 1, max_size = {2560, 960}, max_M = 1, codec_enable = 3, possible_enc_src_map = 0x2 },
		{ id = 2, max_size = {1600, 540}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x4,
		  dis_enable = 1, dis_cached_items = 4 },
		{ id = 3, max_size = {2560, 1920}, max_M = 1, codec_enable = 3, possible_enc_src_map = 0x8,
		  used_for_vout_enable = 0 },
		{ id = 4, max_size = {1280, 720}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x1,
		  efm_enable = 1, efm_buf_num = 5, efm_size = {1280, 720}, efm_skip_waiting = 0,
		  efm_extern_src_enable = 0, efm_extern_src_stream = 0 },
	},
	resource_mem_layout = {
		max_chan_num = 3,
		max_stream_num = 5,
		channels_mem = {
			{ mask_possible = 1, mc_mask_possible = 0, warp_possible = 1, mask_buf_max_num = 4,
			  mc_mask_buf_max_num = 0, mc_mask_buf_ds = 0, warp_buf_max_num = 2,
			  warp_area_max_num = 4, max_vin = {3840, 2160} },
			{ mask_possible = 0, mc_mask_possible = 0, warp_possible = 0, mask_buf_max_num = 0,
			  mc_mask_buf_max_num = 0, mc_mask_buf_ds = 0, warp_buf_max_num = 0,
			  warp_area_max_num = 0, max_vin = {3840, 2160} },
			{ mask_possible = 1, mc_mask_possible = 1, warp_possible = 0, mask_buf_max_num = 2,
			  mc_mask_buf_max_num = 2, mc_mask_buf_ds = 1, warp_buf_max_num = 0,
			  warp_area_max_num = 0, max_vin = {2592, 1944} },
		},
		streams_mem = {
			{ qpm_possible = 1, qpm_max_matrix_num = 2, qpm_buf_max_num = 3, max_stream = {3840, 2160} },
			{ qpm_possible = 0, qpm_max_matrix_num = 0, qpm_buf_max_num = 0, max_stream = {2560, 960} },
			{ qpm_possible = 0, qpm_max_matrix_num = 0, qpm_buf_max_num = 0, max_stream = {1600, 540} },
			{ qpm_possible = 1, qpm_max_matrix_num = 1, qpm_buf_max_num = 2, max_stream = {2560, 1920} },
			{ qpm_possible = 0, qpm_max_matrix_num = 0, qpm_buf_max_num = 0, max_stream = {1280, 720} },
		},
	},
}

return _resource_config_
