-- Loading-dock recorder.  Each fitted sensor is recorded on a channel, a
-- canvas and a stream of its own: the list says what is fitted, and one
-- pass of the loop builds everything that belongs to one sensor, its ids
-- counted from the pass.

local sensors = {
	{ mode = "1920x1080", w = 1920, h = 1080, fps = 30, hdr = "linear", bits = 12, flip = 0 },
	{ mode = "2688x1520", w = 2688, h = 1520, fps = 25, hdr = "linear", bits = 12, flip = 1 },
	{ mode = "1280x720", w = 1280, h = 720, fps = 30, hdr = "linear", bits = 10, flip = 0 },
}

local PAD = 128

local channels, canvas, streams = {}, {}, {}
local chan_mem, stream_mem = {}, {}

for i = 1, #sensors do
	local s = sensors[i]
	local c = i - 1
	local name = "chan_" .. c
	channels[i] = {
		id = c,
		sensor_ctrl = 1,
		max_padding_width = PAD,
		idsp_fps = s.fps,
		max_main_input_width = s.w,
		max_raw_height = s.h,
		vflip = s.flip,
		img_stats_src_chan = name,
		vsrc = { vsrc_id = c, mode = s.mode, fps = s.fps, max_fps = s.fps, hdr_mode = s.hdr, bits = s.bits },
		main = { max_output = {s.w, s.h}, input = {0, 0, s.w, s.h}, output = {0, 0, s.w, s.h} },
		second = { max_output = {s.w // 2, s.h // 2}, input = {0, 0, s.w, s.h}, output = {s.w, 0, s.w // 2, s.h // 2} },
	}
	canvas[i] = {
		type = "encode",
		size = {s.w + s.w // 2, s.h},
		source = { name .. ".main", name .. ".second" },
		frame_rate = s.fps,
	}
	streams[i] = {
		id = c,
		max_size = {s.w + s.w // 2, s.h},
		max_M = 1,
		codec_enable = 1,
		possible_enc_src_map = 1 << c,
	}
	chan_mem[i] = { warp_possible = 0, max_vin = {s.w, s.h} }
	stream_mem[i] = { qpm_possible = 0, max_stream = {s.w + s.w // 2, s.h} }
end

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	channels = channels,
	canvas = canvas,
	streams = streams,
	resource_mem_layout = {
		max_chan_num = #channels,
		max_stream_num = #streams,
		channels_mem = chan_mem,
		streams_mem = stream_mem,
	},
}

return _resource_config_
