-- A board with two sensors: the front camera (1080p) on channel 0 with a
-- pyramid for analytics, the rear camera (720p) on channel 1.  Three
-- canvases (two encoded, one preview), three streams, and the memory the
-- pipeline reserves for them.
local front = {
	vsrc_id = 0,
	mode = "1080p",
	fps = 30,
	max_fps = 30,
	hdr_mode = "linear",
	bits = 12,
	virt_mode_cfg_enable = 0,
}

local rear = {
	vsrc_id = 1,
	mode = "720p",
	fps = 25,
	max_fps = 30,
	hdr_mode = "linear",
	bits = 10,
	virt_mode_cfg_enable = 0,
}

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	channels = {
		{
			id = 0,
			vsrc = front,
			sensor_ctrl = 1,
			idsp_fps = 30,
			max_padding_width = 256,
			max_main_input_width = 1920,
			img_stats_src_chan = "chan_0",
			pass_num = 1,
			main = { max_output = {1920, 1080}, input = {0, 0, 1920, 1080}, output = {0, 0, 1920, 1080} },
			second = { max_output = {720, 480}, input = {0, 0, 1920, 1080}, output = {0, 0, 720, 480} },
			third = { max_output = {640, 360}, input = {0, 0, 1920, 1080}, output = {0, 0, 640, 360} },
			pyramid = {
				input_buf_id = 0,
				layer_map = 0x3,
				scale_type = 0,
				rescale_size = {1920, 1080},
				layers = {
					{ crop_win = {0, 0, 1920, 1080} },
					{ crop_win = {0, 0, 960, 540} },
				},
			},
		},
		{
			id = 1,
			vsrc = rear,
			sensor_ctrl = 1,
			idsp_fps = 25,
			max_padding_width = 256,
			max_main_input_width = 1280,
			img_stats_src_chan = "chan_1",
			pass_num = 1,
			main = { max_output = {1280, 720}, input = {0, 0, 1280, 720}, output = {0, 0, 1280, 720} },
		},
	},
	canvas = {
		{ type = "encode", size = {1920, 1080}, source = {"chan_0.main"}, frame_rate = 30 },
		{ type = "encode", size = {1280, 720}, source = {"chan_1.main"}, frame_rate = 25 },
		{ type = "prev", size = {720, 480}, source = {"chan_0.second"}, vout_id = 1, frame_rate = 30 },
		{ type = "encode", size = {640, 360}, source = {"chan_0.third"}, frame_rate = 30 },
	},
	streams = {
		{ id = 0, max_size = {1920, 1080}, max_M = 1, codec_enable = 3, possible_enc_src_map = 0x1 },
		{ id = 1, max_size = {1280, 720}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x2 },
		{ id = 2, max_size = {640, 360}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x8 },
	},
	resource_mem_layout = {
		max_chan_num = 2,
		max_stream_num = 3,
		channels_mem = {
			{ max_vin = {1920, 1080} },
			{ max_vin = {1280, 720} },
		},
		streams_mem = {
			{ max_stream = {1920, 1080} },
			{ max_stream = {1280, 720} },
			{ max_stream = {640, 360} },
		},
	},
}
