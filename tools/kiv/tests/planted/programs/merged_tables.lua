-- Two-sensor intercom, door and hall.  Every table is made by merge(): a
-- list of the keys its kind carries, the board's defaults for them, and
-- what this one table changes.  Sizes come from the sensor descriptions.

local function merge(keys, defaults, overrides)
	local t = {}
	for n = 1, #keys do
		local k = keys[n]
		local v = overrides[k]
		if v == nil then
			v = defaults[k]
		end
		t[k] = v
	end
	return t
end

local door = { mode = "2560x1440", w = 2560, h = 1440, fps = 30 }
local hall = { mode = "1920x1080", w = 1920, h = 1080, fps = 25 }

local SRC_KEYS = { "vsrc_id", "mode", "fps", "max_fps", "hdr_mode", "bits", "mirror", "bayer" }
local SRC_DEFAULTS = { hdr_mode = "linear", bits = 12, mirror = 0, bayer = 0 }

local CHAN_KEYS = {
	"id", "vsrc", "sensor_ctrl", "max_padding_width", "idsp_fps", "max_main_input_width",
	"max_raw_height", "expo_num", "srcbuf_to_skip_blend", "img_stats_src_chan", "main", "third",
}
local CHAN_DEFAULTS = { sensor_ctrl = 1, max_padding_width = 256, idsp_fps = 0, expo_num = 1, srcbuf_to_skip_blend = 0x4 }

local CANVAS_KEYS = { "type", "size", "vout_id", "source", "frame_rate", "cached_items" }
local CANVAS_DEFAULTS = { type = "encode", cached_items = 1 }

local STREAM_KEYS = { "id", "max_size", "max_M", "codec_enable", "possible_enc_src_map", "dis_enable", "dis_cached_items" }
local STREAM_DEFAULTS = { max_M = 1, codec_enable = 1, dis_enable = 0 }

local s = door
local chan_door = merge(CHAN_KEYS, CHAN_DEFAULTS, {
	id = 0,
	vsrc = merge(SRC_KEYS, SRC_DEFAULTS, { vsrc_id = 0, mode = s.mode, fps = s.fps, max_fps = s.fps }),
	max_main_input_width = s.w,
	max_raw_height = s.h,
	img_stats_src_chan = "chan_0",
	main = { max_output = {s.w, s.h}, input = {0, 0, s.w, s.h}, output = {0, 0, s.w, s.h} },
	third = { max_output = {s.w // 4, s.h // 4}, input = {0, 0, s.w, s.h}, output = {0, 0, s.w // 4, s.h // 4} },
})

s = hall
local chan_hall = merge(CHAN_KEYS, CHAN_DEFAULTS, {
	id = 1,
	vsrc = merge(SRC_KEYS, SRC_DEFAULTS, { vsrc_id = 1, mode = s.mode, fps = s.fps, max_fps = s.fps, bits = 10 }),
	max_main_input_width = s.w,
	max_raw_height = s.h,
	img_stats_src_chan = "chan_1",
	main = { max_output = {s.w, s.h}, input = {0, 0, s.w, s.h}, output = {0, 0, s.w, s.h} },
	third = { max_output = {s.w // 4, s.h // 4}, input = {0, 0, s.w, s.h}, output = {door.w // 4, 0, s.w // 4, s.h // 4} },
})

_resource_config_ = {
	version = 1,
	log_level = 1,
	channels = { chan_door, chan_hall },
	canvas = {
		merge(CANVAS_KEYS, CANVAS_DEFAULTS, { size = {door.w, door.h}, source = {"chan_0.main"}, frame_rate = door.fps }),
		merge(CANVAS_KEYS, CANVAS_DEFAULTS, { size = {hall.w, hall.h}, source = {"chan_1.main"}, frame_rate = hall.fps }),
		merge(CANVAS_KEYS, CANVAS_DEFAULTS, {
			type = "prev", vout_id = 0,
			size = {door.w // 4 + hall.w // 4, door.h // 4},
			source = {"chan_0.third", "chan_1.third"},
		}),
	},
	streams = {
		merge(STREAM_KEYS, STREAM_DEFAULTS, { id = 0, max_size = {door.w, door.h}, possible_enc_src_map = 0x1 }),
		merge(STREAM_KEYS, STREAM_DEFAULTS, { id = 1, max_size = {hall.w, hall.h}, possible_enc_src_map = 0x2 }),
		merge(STREAM_KEYS, STREAM_DEFAULTS, {
			id = 2, max_size = {door.w // 2, door.h // 2}, possible_enc_src_map = 0x1,
			max_M = 0, dis_enable = 1, dis_cached_items = 8,
		}),
	},
}

return _resource_config_
