-- Panorama head: N identical 1080p sensors, one channel each.  Every
-- channel gives the same three buffers (listed in BUFS): its slice of the
-- stitched panorama, a view of its own for a per-sensor stream, and a tile
-- of the display mosaic.  All channels run as one channel group.

local N = 3
local SW, SH = 1920, 1080            -- picture of each sensor

local BUFS = {
	{ name = "main", w = 1280, h = 720, tiled = true },   -- panorama slice
	{ name = "second", w = 960, h = 540, tiled = false }, -- own view
	{ name = "third", w = 640, h = 360, tiled = true },   -- display tile
}

local function make_sensor(id)
	return {
		vsrc_id = id,
		mode = "1920x1080",
		fps = 30,
		max_fps = 30,
		hdr_mode = "linear",
		bits = 12,
		mirror = 0,
		bayer = 0,
	}
end

local channels = {}
local group = {}
local pano_source = {}
local mosaic_source = {}
local own_canvas = {}

for c = 0, N - 1 do
	local ch = {
		id = c,
		vsrc = make_sensor(c),
		sensor_ctrl = 1,
		max_padding_width = 128,
		idsp_fps = 30,
		max_main_input_width = SW,
		max_raw_height = SH,
		blend_left_or_top = 1,
		blend_right_or_bot = 1,
		srcbuf_to_skip_blend = 0x6,
		use_vsrc_ctx_pattern = 1,
		vsrc_ctx_pattern = 0x1,
		vsrc_ctx_pattern_mask = 0x1,
		img_stats_src_chan = "chan_0",
		pass_num = 1,
	}
	for b = 1, #BUFS do
		local d = BUFS[b]
		local x = 0
		if d.tiled then
			x = c * d.w
		end
		ch[d.name] = { max_output = {d.w, d.h}, input = {0, 0, SW, SH}, output = {x, 0, d.w, d.h} }
	end
	channels[c + 1] = ch
	group[c + 1] = "chan_" .. c
	pano_source[c + 1] = "chan_" .. c .. ".main"
	mosaic_source[c + 1] = "chan_" .. c .. ".third"
	own_canvas[c + 1] = { type = "encode", size = {BUFS[2].w, BUFS[2].h}, source = {"chan_" .. c .. ".second"}, frame_rate = 30 }
end

local canvas = {
	{ type = "encode", size = {N * BUFS[1].w, BUFS[1].h}, source = pano_source, enable_order = 0, frame_rate = 30 },
}
for k = 1, #own_canvas do
	canvas[#canvas + 1] = own_canvas[k]
end
canvas[#canvas + 1] = { type = "prev", vout_id = 0, size = {0, 0}, source = mosaic_source, enable_order = 0, frame_rate = 30 }

local streams = { { id = 0, max_size = {N * BUFS[1].w, BUFS[1].h}, max_M = 1, codec_enable = 1, possible_enc_src_map = 0x1 } }
local channels_mem = {}
local streams_mem = { { qpm_possible = 1, qpm_max_matrix_num = 1, qpm_buf_max_num = 2, max_stream = {N * BUFS[1].w, BUFS[1].h} } }
for c = 0, N - 1 do
	streams[#streams + 1] = { id = c + 1, max_size = {BUFS[2].w, BUFS[2].h}, codec_enable = 1, possible_enc_src_map = 1 << (c + 1) }
	streams_mem[#streams_mem + 1] = { qpm_possible = 0, max_stream = {BUFS[2].w, BUFS[2].h} }
	channels_mem[c + 1] = { warp_possible = 0, max_vin = {SW, SH} }
end

_resource_config_ = {
	version = 1,
	log_level = 1,
	enable_hp_fps = 0,
	vin_short_line_detect = 0,
	channels = channels,
	chan_groups = { group },
	canvas = canvas,
	streams = streams,
	resource_mem_layout = {
		max_chan_num = N,
		max_stream_num = N + 1,
		channels_mem = channels_mem,
		streams_mem = streams_mem,
	},
}

return _resource_config_
