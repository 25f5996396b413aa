-- Wide + tele door station.  Every table is made by merge(): the key list
-- says which keys a table of that kind carries, the defaults hold the
-- board's usual values and each call only gives what differs.

local function merge(keys, defaults, overrides)
	local t = {}
	for i = 1, #keys do
		local k = keys[i]
		local v = overrides[k]
		if v == nil then
			v = defaults[k]
		end
		t[k] = v
	end
	return t
end

local VSRC_KEYS = { "vsrc_id", "vsrc_status", "mode", "fps", "max_fps", "hdr_mode", "bits", "mirror", "bayer" }
local VSRC_DEFAULTS = { vsrc_status = 0, fps = 30, max_fps = 30, hdr_mode = "linear", bits = 12, mirror = 0, bayer = 0 }

local CHAN_KEYS = {
	"id", "vsrc", "sensor_ctrl", "idsp_fps", "max_padding_width", "max_main_input_width",
	"max_raw_height", "expo_num", "mctf_cmpr", "main_burst_tile", "vcap_mode_flags",
	"vsrc_region_num", "srcbuf_to_skip_blend", "srcbuf_to_fusion", "pass_num",
	"img_stats_src_chan", "main", "second",
}
local CHAN_DEFAULTS = {
	sensor_ctrl = 1, idsp_fps = 30, max_padding_width = 256, expo_num = 1, mctf_cmpr = 1,
	main_burst_tile = 1, vcap_mode_flags = 0x80, vsrc_region_num = 1, srcbuf_to_skip_blend = 0,
	srcbuf_to_fusion = 0, pass_num = 1,
}

local CANVAS_KEYS = { "type", "size", "vout_id", "vout_YUV422", "frame_rate", "cached_items", "source", "enable_order" }
local CANVAS_DEFAULTS = { type = "encode", size = {0, 0}, frame_rate = 30, cached_items = 0 }

local STREAM_KEYS = { "id", "max_size", "max_M", "codec_enable", "two_ref_enable", "possible_enc_src_map", "efm_enable", "efm_buf_num", "efm_size" }
local STREAM_DEFAULTS = { max_M = 1, codec_enable = 1, two_ref_enable = 0, efm_enable = 0 }

local wide = merge(VSRC_KEYS, VSRC_DEFAULTS, { vsrc_id = 0, mode = "2592x1944" })
local tele = merge(VSRC_KEYS, VSRC_DEFAULTS, { vsrc_id = 1, mode = "1920x1080", fps = 60, max_fps = 60, bits = 10 })

local chan_0 = merge(CHAN_KEYS, CHAN_DEFAULTS, {
	id = 0,
	vsrc = wide,
	max_main_input_width = 2592,
	max_raw_height = 1944,
	img_stats_src_chan = "chan_0",
	main = { max_output = {2592, 1944}, input = {0, 0, 2592, 1944}, output = {0, 0, 2592, 1944} },
	second = { max_output = {1280, 960}, input = {0, 0, 2592, 1944}, output = {0, 0, 1280, 960} },
})

local chan_1 = merge(CHAN_KEYS, CHAN_DEFAULTS, {
	id = 1,
	vsrc = tele,
	idsp_fps = 60,
	max_main_input_width = 1920,
	max_raw_height = 1080,
	img_stats_src_chan = "chan_1",
	main = { max_output = {1920, 1080}, input = {0, 0, 1920, 1080}, output = {0, 0, 1920, 1080} },
	second = { max_output = {640, 360}, input = {0, 0, 1920, 1080}, output = {1280, 0, 640, 360} },
})

_resource_config_ = {
	version = 1,
	enable_hp_fps = 0,
	vin_short_line_detect = 0,
	channels = { chan_0, chan_1 },
	canvas = {
		merge(CANVAS_KEYS, CANVAS_DEFAULTS, { size = {2592, 1944}, source = {"chan_0.main"} }),
		merge(CANVAS_KEYS, CANVAS_DEFAULTS, { size = {1920, 1080}, source = {"chan_1.main"}, frame_rate = 60 }),
		merge(CANVAS_KEYS, CANVAS_DEFAULTS, {
			type = "prev", vout_id = 0, vout_YUV422 = 1,
			source = {"chan_0.second", "chan_1.second"}, enable_order = 1,
		}),
	},
	streams = {
		merge(STREAM_KEYS, STREAM_DEFAULTS, { id = 0, max_size = {2592, 1944}, codec_enable = 3, possible_enc_src_map = 0x1 }),
		merge(STREAM_KEYS, STREAM_DEFAULTS, { id = 1, max_size = {1920, 1080}, possible_enc_src_map = 0x2 }),
		merge(STREAM_KEYS, STREAM_DEFAULTS, {
			id = 2, max_size = {1280, 960}, possible_enc_src_map = 0x1,
			efm_enable = 1, efm_buf_num = 4, efm_size = {1280, 960},
		}),
	},
}

return _resource_config_
