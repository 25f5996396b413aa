-- kiv check: the library's log and one line per file, the kind of each
-- script, the starting log level, and the exit code of the worst file.  The
-- prelude is a complete one-channel script (one encode canvas fed by main
-- and second, one stream); {prelude} names it alone.
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
--- a complete script | kiv check {}
--- quiet: nothing when every file loads | kiv check -q {}
--- a failing file and a good one | kiv check {} {prelude}
_resource_config_ = { version = 2 }
--- without version, from log level 3 | kiv check --log-level 3 {}
_resource_config_ = {}
--- quiet still shows the failing file's log | kiv check -q {}
_resource_config_ = {}
--- an unreadable file outweighs a failing one | kiv check --quiet /nonexistent.lua {}
_resource_config_ = {}
--- level 0 hides the example's warnings, though it sets log_level | kiv check --log-level 0 {src}/examples/three_channel_4k.lua
--- every example loads | kiv check --quiet {src}/examples/single_1080p.lua {src}/examples/two_channel_encode_preview.lua {src}/examples/three_channel_4k.lua {src}/examples/hdr_virtual_mode.lua {src}/examples/calib_table.lua {src}/examples/hevc_default_scaling.lua {src}/examples/custom_aisp.lua
--- the kind of each script | kiv check {} {src}/examples/hevc_default_scaling.lua {src}/examples/custom_aisp.lua
_resource_config_ = nil
calib_data = { {1, 2} }
--- an AISP script without networks | kiv check -q {}
_resource_config_ = nil
_custom_aisp_config_ = {}
--- calibration data without items | kiv check -q {}
_resource_config_ = nil
calib_data = {}
--- show of a failing load: the log on standard error | kiv show {}
_resource_config_ = { version = 2 }
--- show --json of a failing load | kiv show --json {}
_resource_config_ = { version = 2 }
--- dump of a failing load | kiv dump {}
_resource_config_ = { version = 2 }
--- diff of a failing load | kiv diff {} {}
_resource_config_ = { version = 2 }
--- layout of a failing load writes nothing | kiv layout {} -o {out}
_resource_config_ = { version = 2 }
