_resource_config_ = {
  version = 1,
  log_level = 1,
  enable_hp_fps = 0,
  vin_short_line_detect = 0,
  channels = {
    {
      id = 0,
      sensor_ctrl = 1,
      max_padding_width = 256,
      idsp_fps = 30,
      vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" },
      main = { max_output = {1920, 1080}, input = {0, 0, 1920, 1080}, output = {0, 0, 1920, 1080} },
      second = { max_output = {640, 360}, input = {0, 0, 1920, 1080}, output = {1280, 720, 640, 360} },
    },
  },
  canvas = {
    { type = "encode", size = {1920, 1080}, frame_rate = 30, source = {"chan_0.main", "chan_0.second"} },
  },
  streams = {
    { id = 0, max_size = {1920, 1080}, possible_enc_src_map = 1 },
  },
}
