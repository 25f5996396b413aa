-- One channel with only its required items: every optional item of the
-- channel, its source, canvas and stream is absent, so a load at the default
-- log level prints a WARN line for each of them.
_resource_config_ = {
	version = 1,
	channels = {
		{
			id = 0,
			sensor_ctrl = 0,
			max_padding_width = 0,
			main = {
				max_output = { 1920, 1080 },
				input = { 0, 0, 1920, 1080 },
				output = { 0, 0, 1920, 1080 },
			},
			vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" },
		},
	},
	canvas = {
		{ type = "encode", size = { 0, 0 }, source = { "chan_0.main" } },
	},
	streams = {
		{ id = 0, max_size = { 1920, 1080 } },
	},
}
