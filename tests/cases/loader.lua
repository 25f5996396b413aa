-- The loader's own steps: the top-level items, each way a load ends, the
-- frame lines of the dump, and the absent-key warnings in reading order.
-- `config(t)` completes t with one channel, one canvas and one stream ("none"
-- leaves a section out).
local function buf(w, h)
  return { max_output = {w, h}, input = {0, 0, w, h}, output = {0, 0, w, h} }
end
local function chan(id)
  return { id = id, sensor_ctrl = 1, max_padding_width = 64, main = buf(8, 8),
    vsrc = { vsrc_id = 0, mode = "1080p", fps = 30, hdr_mode = "linear" } }
end
local function config(t)
  t.version = t.version or 1
  t.channels = t.channels or { chan(0) }
  t.chan_groups = t.chan_groups or {}
  t.canvas = t.canvas or { { type = "encode", size = {0, 0}, source = {"chan_0.main"} } }
  t.streams = t.streams or { { id = 0, max_size = {8, 8} } }
  if t.canvas == "none" then t.canvas = nil end
  if t.streams == "none" then t.streams = nil end
  _resource_config_ = t
end
--- the script does not parse | level=0
_resource_config_ = { version = 1
--- the script calls what plain Lua lacks | level=0
print("hello")
--- the script fails while running | level=0
x = nil + 1
--- no _resource_config_
other = {}
--- _resource_config_ no table
_resource_config_ = 5
--- no version; log_level is read after it | hp settings
_resource_config_ = { log_level = 3 }
--- a later version
_resource_config_ = { version = 2 }
--- the current version; log_level 3 shows the reading from then on and stays in force | settings
_resource_config_ = { version = 1, log_level = 3 }
--- a log_level above 3 keeps the level in force; a load without enable_hp_fps clears the process's flag | hp settings
_resource_config_ = { version = 1, log_level = 4 }
--- log_level 0 hides the warnings that follow | settings
_resource_config_ = { version = 1, log_level = 0 }
--- log_level -1 is taken as a byte | settings level=0
_resource_config_ = { version = 1, log_level = -1, enable_hp_fps = 0, vin_short_line_detect = 0 }
--- only bit 0 of the switches counts, for the process's flag too; the version is a byte | level=0 only=version,enable_hp_fps,vin_short settings
config { version = 257, enable_hp_fps = 3, vin_short_line_detect = 2 }
--- the other bit | level=0 only=version,enable_hp_fps,vin_short hp settings
config { enable_hp_fps = 2, vin_short_line_detect = 1 }
--- each section's failure ends the load: channels | level=0
config { channels = {} }
--- chan_groups | level=0
config { chan_groups = { {}, {} } }
--- canvas | level=0
config { canvas = "none" }
--- streams | level=0
config { streams = "none" }
--- a faulty memory layout never fails the load | level=0 only=resource
config { resource_mem_layout = { max_chan_num = 9 } }
--- the frame lines of the dump: the version written is the current one, the log level the process's | dump=_resource_config_ only=version grep=ERROR
config { version = 0, log_level = 2, enable_hp_fps = 1, vin_short_line_detect = 1 }
--- every absent optional key warns, section by section in reading order
-- Two channels with their required items only, so that a canvas reads
-- enable_order.
_resource_config_ = { version = 1, channels = { chan(0), chan(1) }, chan_groups = {},
  canvas = { { type = "off", size = {8, 8}, source = {"chan_0.main", "chan_1.main"} } },
  streams = { { id = 0, max_size = {8, 8} } },
  resource_mem_layout = { max_chan_num = 1, max_stream_num = 1,
    channels_mem = { { max_vin = {8, 8} } }, streams_mem = { { max_stream = {8, 8} } } } }
--- a table with more string keys than a view holds is read from the table itself | level=0 only=version,enable_hp_fps,chan_num,channels[0].sensor,channels[0].max_pad
local t, c = { enable_hp_fps = 1 }, chan(0)
for i = 1, 200 do t["unknown_" .. i] = i c["unknown_" .. i] = i end
c.max_padding_width = 96
t.channels = { c }
config(t)
