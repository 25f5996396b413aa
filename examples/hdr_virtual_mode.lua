-- A sensor that is not in the table of input modes, described by a virtual
-- mode: 2688x1520, 12 bits, two-exposure HDR over a BT.1120 RGB interface,
-- frame rates in thousandths (enable_hp_fps) for a 29.97 frame rate.
-- A dump has no place for the calibration path (kiv lint's lossy-round-trip,
-- silenced on its line).

local sensor = {
	vsrc_id = 0,
	vsrc_status = 0,
	mode = "auto", -- replaced by the virtual mode
	fps = 29970,
	max_fps = 30000,
	hdr_mode = "2x",
	dg_mode = 0,
	bits = 12,
	vsrc_ctx_switch = 0,
	mirror = 0,
	bayer = 1,
	calib_data = "/etc/camera/calib_hdr.lua", -- kiv-lint: disable=lossy-round-trip
	virt_mode_cfg_enable = 1,
	virt_mode_cfg = {
		width = 2688,
		height = 1520,
		bits = 12,
		max_fps = 30000,
		default_fps = 29970,
		hdr_mode = "2x",
		hdr_offset_long = 0,
		hdr_offset_short1 = 1536,
		hdr_offset_short2 = 0,
		hdr_offset_short3 = 0,
		dual_gain_mode = 0,
		sensor_id = 0x1234,
		agc_db_step = 0x60000,
		video_type = "rgb_bt1120",
	},
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
	enable_hp_fps = 1,
	vin_short_line_detect = 0,
	channels = {
		channel {
			id = 0,
			vsrc = sensor,
			sensor_ctrl = 1,
			max_raw_height = 1520,
			max_main_input_width = 2688,
			idsp_fps = 29970,
			img_stats_src_chan = "chan_0",
			pass_num = 1,
			main = buf(2688, 1520, {0, 0, 2688, 1520}, {0, 0, 2688, 1520}),
			second = buf(1344, 760, {0, 0, 2688, 1520}, {0, 0, 1344, 760}),
		},
	},
	canvas = {
		{ type = "encode", size = {0, 0}, source = {"chan_0.main"}, frame_rate = 29970 },
		{ type = "encode", size = {0, 0}, source = {"chan_0.second"}, frame_rate = 14985 },
	},
	streams = {
		{ id = 0, max_size = {2688, 1520}, max_M = 1, codec_enable = 3, possible_enc_src_map = 0x1 },
		{ id = 1, max_size = {1344, 760}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x2 },
	},
}

return _resource_config_
