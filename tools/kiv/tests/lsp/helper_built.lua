-- Two channels from one sensor, their tables built by helpers: the
-- channels by channel(o), which copies what differs from o, the source
-- buffers by buf(w, h, x, y), called where each channel is written.

local sensor = {
	vsrc_id = 0,
	mode = "1080p",
	fps = 30,
	hdr_mode = "linear",
	bits = 10,
}

local function buf(w, h, x, y)
	return { max_output = {w, h}, input = {x, y, w, h}, output = {0, 0, w, h} }
end

local function channel(o)
	return {
		id = o.id,
		vsrc = o.vsrc,
		sensor_ctrl = o.sensor_ctrl,
		img_stats_src_chan = o.img_stats_src_chan,
		pass_num = 1,
		max_padding_width = 256,
		main = o.main,
		second = o.second,
	}
end

_resource_config_ = {
	version = 1,
	channels = {
		channel {
			id = 0,
			vsrc = sensor,
			sensor_ctrl = 1,
			img_stats_src_chan = "chan_0",
			main = buf(1920, 1080, 0, 0),
			second = buf(1280, 720, 0, 0),
		},
		channel {
			id = 1,
			vsrc = sensor,
			sensor_ctrl = 0,
			img_stats_src_chan = "chan_0",
			main = buf(960, 540, 480, 270),
		},
	},
	canvas = {
		{ type = "encode", size = {1920, 1080}, source = {"chan_0.main"}, frame_rate = 30 },
		{ type = "encode", size = {960, 540}, source = {"chan_1.main"}, frame_rate = 30 },
		{ type = "prev", size = {1280, 720}, source = {"chan_0.second"}, vout_id = 0, frame_rate = 30 },
	},
	streams = {
		{ id = 0, max_size = {1920, 1080}, max_M = 1, codec_enable = 3, possible_enc_src_map = 0x1 },
		{ id = 1, max_size = {960, 540}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x2 },
	},
}

return _resource_config_
