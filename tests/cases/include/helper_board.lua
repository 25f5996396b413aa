-- A board built by helpers: two 1080p sensors, a channel each made by
-- chan(), buffers made by buf() from their sizes and positions, and the
-- canvases and streams made in loops.
local RATE = 30

local function sensor(id)
	return { vsrc_id = id, mode = "1080p", fps = RATE, max_fps = 30, hdr_mode = "linear", bits = 12 }
end

-- A buffer of w x h placed at (x, y) on its canvas.
local function buf(w, h, x, y)
	return { max_output = {w, h}, input = {0, 0, 1920, 1080}, output = {x, y, w, h} }
end

local function chan(o)
	return {
		id = o.id,
		vsrc = o.vsrc,
		sensor_ctrl = 1,
		idsp_fps = o.rate or RATE,
		max_padding_width = 256,
		pass_num = 1,
		img_stats_src_chan = "chan_" .. o.id,
		main = o.main,
		second = o.second,
	}
end

local channels = {}
for i = 0, 1 do
	channels[#channels + 1] = chan {
		id = i,
		vsrc = sensor(i),
		main = buf(1920, 1080, 0, 0),
		second = buf(640, 360, i * 640, 0),
	}
end

_resource_config_ = {
	version = 1,
	channels = channels,
	canvas = {
		{ type = "encode", size = {1920, 1080}, source = {"chan_0.main"} },
		{ type = "encode", size = {1920, 1080}, source = {"chan_1.main"} },
		{ type = "prev", vout_id = 0, size = {1280, 360}, source = {"chan_0.second", "chan_1.second"} },
	},
	streams = {
		{ id = 0, max_size = {1920, 1080}, possible_enc_src_map = 0x1 },
		{ id = 1, max_size = {1920, 1080}, possible_enc_src_map = 0x2 },
	},
}
