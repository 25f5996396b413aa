-- Traffic camera: a 4K front sensor on two channels (full view and an
-- analytics channel with a second pass) and a 2x HDR side sensor.
-- Frame rates are in thousandths (enable_hp_fps).  Sizes are worked out
-- from the sensor descriptions; a few settings are patched in at the end.

local desc = {
	front = { vsrc_id = 0, mode = "3840x2160", w = 3840, h = 2160, fps = 29970, max_fps = 30000, hdr = "linear", bits = 12 },
	side = { vsrc_id = 1, mode = "2688x1520", w = 2688, h = 1520, fps = 25000, max_fps = 25000, hdr = "2x", bits = 12 },
}

local function source_of(d)
	return {
		vsrc_id = d.vsrc_id,
		mode = d.mode,
		fps = d.fps,
		max_fps = d.max_fps,
		hdr_mode = d.hdr,
		bits = d.bits,
		mirror = 0,
		bayer = 0,
	}
end

local front = source_of(desc.front)
local side = source_of(desc.side)
local F, S = desc.front, desc.side

local chan_full = {
	id = 0,
	vsrc = front,
	sensor_ctrl = 1,
	max_padding_width = 256,
	idsp_fps = F.fps,
	max_main_input_width = F.w,
	max_raw_height = F.h,
	img_stats_src_chan = "chan_0",
	pass_num = 1,
	main = { max_output = {F.w, F.h}, input = {0, 0, F.w, F.h}, output = {0, 0, F.w, F.h} },
	second = { max_output = {F.w // 2, F.h // 2}, input = {0, 0, F.w, F.h}, output = {0, 0, F.w // 2, F.h // 2} },
	third = { max_output = {F.w // 4, F.h // 4}, input = {0, 0, F.w, F.h}, output = {0, 0, F.w // 4, F.h // 4} },
}

local chan_analytics = {
	id = 1,
	vsrc = front,
	sensor_ctrl = 0,
	reuse_src_chan_iso_cfg = 1,
	max_padding_width = 256,
	idsp_fps = 14985,
	max_main_input_width = F.w,
	max_raw_height = F.h,
	img_stats_src_chan = "chan_0",
	pass_num = 2,
	main = { max_output = {F.w // 2, F.h // 2}, input = {0, 0, F.w, F.h}, output = {0, 0, F.w // 2, F.h // 2} },
	pass_1 = {
		input_pass_id = 0,
		input_buf_id = 0,
		main = { max_output = {640, 360}, input = {0, 0, F.w // 2, F.h // 2}, output = {0, F.h // 4, 640, 360} },
	},
}

local chan_side = {
	id = 2,
	vsrc = side,
	sensor_ctrl = 1,
	max_padding_width = 128,
	idsp_fps = S.fps,
	max_main_input_width = S.w,
	max_raw_height = S.h,
	expo_num = 2,
	img_stats_src_chan = "chan_2",
	pass_num = 1,
	main = { max_output = {S.w, S.h}, input = {0, 0, S.w, S.h}, output = {0, 0, S.w, S.h} },
	second = { max_output = {S.w // 2, S.h // 2}, input = {0, 0, S.w, S.h}, output = {F.w // 4, 0, S.w // 2, S.h // 2} },
}

local canvas = {
	{ type = "encode", size = {F.w, F.h}, source = {"chan_0.main"}, frame_rate = 29970 },
	{ type = "encode", size = {F.w // 2, F.h // 2}, source = {"chan_0.second"}, frame_rate = 29970 },
	{ type = "encode", size = {S.w, S.h}, source = {"chan_2.main"}, frame_rate = 25000 },
	{ type = "encode", size = {F.w // 2, F.h // 2}, source = {"chan_1.main"}, frame_rate = 14985 },
	{ type = "prev", vout_id = 0, size = {0, 0}, source = {"chan_0.third", "chan_1.main_1", "chan_2.second"}, frame_rate = 29970 },
}

local streams = {
	{ id = 0, max_size = {F.w, F.h}, max_M = 3, codec_enable = 1, possible_enc_src_map = 0x1 },
	{ id = 1, max_size = {F.w // 2, F.h // 2}, max_M = 1, codec_enable = 2, possible_enc_src_map = 0x2 },
	{ id = 2, max_size = {S.w, S.h}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x4 },
	{ id = 3, max_size = {F.w // 2, F.h // 2}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x8 },
}

-- the analytics stream takes efm frames from the host as well
streams[4].efm_enable = 1
streams[4].efm_buf_num = 4
streams[4].efm_size = {F.w // 2, F.h // 2}
-- the side sensor is mounted upside down
chan_side.hflip = 1
chan_side.vflip = 1

local streams_mem = {}
for i = 1, #streams do
	streams_mem[i] = { qpm_possible = 0, max_stream = streams[i].max_size }
end

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 1,
	channels = { chan_full, chan_analytics, chan_side },
	canvas = canvas,
	streams = streams,
	resource_mem_layout = {
		max_chan_num = 3,
		max_stream_num = #streams,
		channels_mem = {
			{ warp_possible = 0, max_vin = {F.w, F.h} },
			{ warp_possible = 0, max_vin = {F.w, F.h} },
			{ warp_possible = 0, max_vin = {S.w, S.h} },
		},
		streams_mem = streams_mem,
	},
}

return _resource_config_
