-- Shop counter: one 4K sensor on a full channel and a counter channel, and
-- a second 4K sensor over the door.  Helpers build the buffers, the
-- channels and the streams; what changes after the first delivery is
-- patched in after the configuration.

local W, H = 3840, 2160

-- a buffer of a 4K source: largest output w x h, placed at (x, y)
local function buf(w, h, x, y)
	return { max_output = {w, h}, input = {0, 0, W, H}, output = {x, y, w, h} }
end

local function channel(o)
	return {
		id = o.id,
		vsrc = o.vsrc,
		sensor_ctrl = o.ctrl or 1,
		max_padding_width = 256,
		idsp_fps = o.rate or 0,
		max_main_input_width = W,
		max_raw_height = H,
		img_stats_src_chan = o.stats or "chan_" .. o.id,
		main = o.main,
		second = o.second,
	}
end

local function stream(o)
	return {
		id = o.id,
		max_size = o.size,
		max_M = o.m or 1,
		codec_enable = o.codec or 1,
		possible_enc_src_map = o.map,
		efm_buf_num = o.efm_buf,
		efm_size = o.efm_size,
	}
end

local counter = { vsrc_id = 0, mode = "3840x2160", fps = 30, max_fps = 30, hdr_mode = "linear", bits = 12 }
local entry = { vsrc_id = 1, mode = "3840x2160", fps = 15, max_fps = 15, hdr_mode = "linear", bits = 10 }

_resource_config_ = {
	version = 1,
	log_level = 1,
	channels = {
		channel { id = 0, vsrc = counter, main = buf(W, H, 0, 0), second = buf(1280, 720, 0, 0) },
		channel { id = 1, vsrc = counter, ctrl = 0, stats = "chan_0", rate = 15, main = buf(1920, 1080, 0, 0) },
		channel { id = 2, vsrc = entry, main = buf(1920, 1080, 0, 0), second = buf(640, 360, 1280, 0) },
	},
	canvas = {
		{ type = "encode", size = {W, H}, source = {"chan_0.main"}, frame_rate = 30 },
		{ type = "encode", size = {1920, 1080}, source = {"chan_1.main"}, frame_rate = 15 },
		{ type = "encode", size = {1920, 1080}, source = {"chan_2.main"}, frame_rate = 15 },
		{ type = "prev", vout_id = 1, size = {1920, 720}, source = {"chan_0.second", "chan_2.second"} },
	},
	streams = {
		stream { id = 0, size = {W, H}, map = 0x1, m = 3 },
		stream { id = 1, size = {1920, 1080}, map = 0x3 },
		stream { id = 2, size = {1920, 1080}, map = 0x4, efm_buf = 4, efm_size = {1920, 1080} },
	},
}

local cfg = _resource_config_

-- the counter stream may also take the full picture
_resource_config_.streams[2].max_size = {W, H}
-- the door stream takes frames fed by the host as well
cfg.streams[3].efm_enable = 1

-- two small streams of the door canvas for the uploader
for k = 0, 1 do
	cfg.streams[#cfg.streams + 1] = stream { id = 3 + k, size = {640 * (k + 1), 360 * (k + 1)}, map = 0x4 }
end

return _resource_config_
