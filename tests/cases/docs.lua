-- Every switch on and every table present with its required keys only, so
-- that each optional key is named in the log (as absent) and each required
-- one in the script; an empty scaling-list table names every list and DC
-- key.  docs_test.cpp checks that docs/format.md shows each of these keys.
--- every switch on | level=3 only=version
_resource_config_ = {
	version = 1, log_level = 3,
	channels = {
		{ id = 0, sensor_ctrl = 1, max_padding_width = 0, use_vsrc_ctx_pattern = 1,
		  vsrc_ctx_pattern = 0, vsrc_ctx_pattern_mask = 0, enable_group = 1, group_idx = 0,
		  pass_num = 2, pass_1 = {},
		  main = { max_output = {1, 1}, input = {0, 0, 1, 1}, output = {0, 0, 1, 1} },
		  pyramid = { input_buf_id = 0, layer_map = 1, scale_type = 0, manual_feed = 1,
		              layers = { { crop_win = {0, 0, 1, 1} } } },
		  vsrc = { vsrc_id = 0, mode = "auto", fps = 30, hdr_mode = "linear", virt_mode_cfg_enable = 1,
		           virt_mode_cfg = { width = 1, height = 1, hdr_mode = "linear", video_type = "rgb_raw" } } },
		{ id = 1, sensor_ctrl = 1, max_padding_width = 0,
		  main = { max_output = {1, 1}, input = {0, 0, 1, 1}, output = {0, 0, 1, 1} },
		  vsrc = { vsrc_id = 1, mode = "vga", fps = 30, hdr_mode = "wdr" } },
	},
	chan_groups = { {"chan_0", "chan_1"} },
	canvas = { { type = "prev", vout_id = 0, size = {0, 0}, source = {"chan_0.main", "chan_1.main"} } },
	streams = { { id = 0, max_size = {1, 1}, used_for_vout_enable = 1, efm_enable = 1, efm_buf_num = 1,
	              efm_size = {1, 1}, dis_enable = 1 } },
	resource_mem_layout = { max_chan_num = 1, max_stream_num = 1, channels_mem = { { max_vin = {1, 1} } },
	                        streams_mem = { { max_stream = {1, 1} } } },
}
--- every scaling list absent | hevc level=3
__hevc_scalelist__ = {}
--- a network with every key | aisp=1 level=3 only=if_cnt
_custom_aisp_config_ = {
	boot_param = { fifo_addr = 0, fifo_len = 0, dag_addr = 0 },
	custom_nn = { { if_cnt = 1, interfaces = { {
		port = { dvi_id = 0, start = 0, cnt = 1, id = {0} },
		poke = { dvi_id = 0, start = 0, cnt = 1, id = {0} } } } } },
}
