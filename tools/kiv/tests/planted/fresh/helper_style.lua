-- Two-sensor intercom: a 1080p colour sensor and a 1600x1300 monochrome
-- sensor that has no entry in the mode table (virtual mode).  Every kind
-- of table has a small constructor; the top-level table is filled key by key.

local cfg = {}
cfg["version"] = 1
cfg["log_level"] = 1
cfg["enable_hp_fps"] = 0

local function sensor(id, mode, fps, bits)
	return {
		["vsrc_id"] = id,
		["mode"] = mode,
		["fps"] = fps,
		["max_fps"] = fps,
		["hdr_mode"] = "linear",
		["bits"] = bits,
		["mirror"] = 0,
		["bayer"] = 0,
	}
end

local function buf(mw, mh, iw, ih, x, y)
	return { ["max_output"] = {mw, mh}, ["input"] = {0, 0, iw, ih}, ["output"] = {x, y, mw, mh} }
end

local function chan(o)
	return {
		["id"] = o.id,
		["vsrc"] = o.vsrc,
		["sensor_ctrl"] = o.ctrl or 1,
		["idsp_fps"] = o.rate or 30,
		["max_padding_width"] = 64,
		["max_main_input_width"] = o.w,
		["max_raw_height"] = o.h,
		["mctf_cmpr"] = 1,
		["pass_num"] = 1,
		["img_stats_src_chan"] = "chan_" .. o.id,
		["main"] = o.main,
		["second"] = o.second,
		["pyramid"] = o.pyramid,
	}
end

local function canvas(o)
	return {
		["type"] = o.type or "encode",
		["size"] = o.size or {0, 0},
		["vout_id"] = o.vout,
		["source"] = o.source,
		["enable_order"] = o.order,
		["frame_rate"] = o.rate or 0,
	}
end

local function stream(o)
	return {
		["id"] = o.id,
		["max_size"] = o.size,
		["max_M"] = o.m or 1,
		["codec_enable"] = o.codec or 1,
		["possible_enc_src_map"] = o.map,
	}
end

local colour = sensor(0, "1080p", 30, 12)
local mono = sensor(1, "auto", 25, 10)
mono["virt_mode_cfg_enable"] = 1
mono["virt_mode_cfg"] = {
	width = 1600, height = 1300, bits = 10,
	max_fps = 25, default_fps = 25,
	hdr_mode = "linear",
	sensor_id = 0x0356,
	video_type = "rgb_raw",
}

cfg["channels"] = {
	chan {
		id = 0, vsrc = colour, w = 1920, h = 1080,
		main = buf(1920, 1080, 1920, 1080, 0, 0),
		second = buf(960, 540, 1920, 1080, 0, 0),
		pyramid = {
			input_buf_id = 1,
			layer_map = 0x3,
			max_layer_map = 0x3,
			scale_type = 0,
			rescale_size = {960, 540},
			frame_rate = 15,
			layers = {
				{ crop_win = {0, 0, 960, 540} },
				{ crop_win = {240, 135, 480, 270} },
			},
		},
	},
	chan {
		id = 1, vsrc = mono, ctrl = 1, rate = 25, w = 1600, h = 1300,
		main = buf(1600, 1300, 1600, 1300, 0, 0),
		second = buf(800, 650, 1600, 1300, 960, 0),
	},
}

cfg["chan_groups"] = { {"chan_0", "chan_1"} }

cfg["canvas"] = {
	canvas { size = {1920, 1080}, source = {"chan_0.main"}, rate = 30 },
	canvas { size = {1600, 1300}, source = {"chan_1.main"}, rate = 25 },
	canvas { type = "prev", vout = 0, source = {"chan_0.second", "chan_1.second"}, order = 1 },
}

cfg["streams"] = {
	stream { id = 0, size = {1920, 1080}, codec = 3, map = 0x1 },
	stream { id = 1, size = {1600, 1300}, map = 0x2 },
	stream { id = 2, size = {960, 540}, m = 0, map = 0x1 },
}

_resource_config_ = cfg

return _resource_config_
