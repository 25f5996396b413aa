-- Dashcam board, three sensors on three channels.
-- One pass of the loop below per fitted sensor builds its channel, its
-- record canvas, its stream and its share of the memory reservation; the
-- half-size views of all sensors go side by side on the display canvas.

local sensors = {
	{ mode = "1920x1080", w = 1920, h = 1080, fps = 30, rate = 30, bits = 12, hdr = "linear", ctrl = 1 },
	{ mode = "1280x720", w = 1280, h = 720, fps = 30, rate = 15, bits = 10, hdr = "linear", ctrl = 1 },
	{ mode = "640x480", w = 640, h = 480, fps = 25, rate = 25, bits = 10, hdr = "linear", ctrl = 1 },
}

local PREVIEW_VOUT = 1
local PADDING = 128

local channels = {}
local canvas = {}
local streams = {}
local channels_mem = {}
local streams_mem = {}
local preview_source = {}
local preview_x = 0

for i = 1, #sensors do
	local s = sensors[i]
	local c = i - 1
	local name = "chan_" .. c
	local pw, ph = s.w // 2, s.h // 2
	channels[i] = {
		id = c,
		sensor_ctrl = s.ctrl,
		max_padding_width = PADDING,
		idsp_fps = s.rate,
		max_main_input_width = s.w,
		max_raw_height = s.h,
		mctf_cmpr = 1,
		img_stats_src_chan = name,
		vsrc = { vsrc_id = c, mode = s.mode, fps = s.fps, max_fps = s.fps, hdr_mode = s.hdr, bits = s.bits, mirror = 0, bayer = 0 },
		main = { max_output = {s.w, s.h}, input = {0, 0, s.w, s.h}, output = {0, 0, s.w, s.h} },
		second = { max_output = {pw, ph}, input = {0, 0, s.w, s.h}, output = {preview_x, 0, pw, ph} },
	}
	canvas[i] = { type = "encode", size = {s.w, s.h}, source = {name .. ".main"}, frame_rate = s.rate }
	streams[i] = { id = c, max_size = {s.w, s.h}, max_M = 1, codec_enable = 1, possible_enc_src_map = 1 << c }
	channels_mem[i] = { mask_possible = 0, warp_possible = 0, max_vin = {s.w, s.h} }
	streams_mem[i] = { qpm_possible = 0, max_stream = {s.w, s.h} }
	preview_source[i] = name .. ".second"
	preview_x = preview_x + pw
end

-- the display canvas comes after the record canvases; its size is the
-- extent of the views placed on it
canvas[#canvas + 1] = {
	type = "prev",
	vout_id = PREVIEW_VOUT,
	vout_YUV422 = 0,
	size = {0, 0},
	source = preview_source,
	enable_order = 0,
	frame_rate = 15,
}

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	vin_short_line_detect = 0,
	channels = channels,
	canvas = canvas,
	streams = streams,
	resource_mem_layout = {
		max_chan_num = #sensors,
		max_stream_num = #streams,
		channels_mem = channels_mem,
		streams_mem = streams_mem,
	},
}

return _resource_config_
