-- kiv show, dump, diff and layout of a complete script: the record as text
-- (every field, nested like the record) and as JSON, the dump on standard
-- output or to a file, the fields two scripts differ in, the SVG picture.
-- The prelude is a complete one-channel script; {prelude} names it alone.
-- include: one_channel
--- every field as text; quotes escaped, bad bytes shown as \xNN, a negative address in decimal | kiv show -q {}
_resource_config_.channels[1].vsrc.calib_data = "cal/\"a\"/\xff\xfe.lua"
_resource_config_.channels[1].pyramid = { buf_addr = -5, input_buf_id = 0, layer_map = 1, scale_type = 0 }
--- JSON on standard output, the log on standard error; bad bytes replaced | json=/version,/channels/0/src_buf/0/1/output,/channels/0/src_buf/0/1/canvas_id,/channels/0/src_buf/0/2/canvas_id,/channels/2/id,/canvas/0/type,/canvas/5/id,/channels/0/vsrc/calib_data,/resource_mem_layout/streams_mem/12,/resource_mem_layout/streams_mem/13 kiv show --json {}
_resource_config_.channels[1].vsrc.calib_data = "/etc/\xff\xfe.lua"
--- the dump on standard output | kiv dump -q {}
--- the dump to a file, the same text | kiv dump -q {} -o {out}
--- a script against itself | kiv diff -q {} {}
--- every changed field, bad bytes shown as \xNN | kiv diff -q {prelude} {}
local ch = _resource_config_.channels[1]
ch.hflip = 1
ch.second.output[3] = 320
ch.vsrc.calib_data = "/etc/\xff\xfe.lua"
_resource_config_.streams[1].possible_enc_src_map = 3
--- the picture | kiv layout -q {} -o {out}
--- every multi-channel example as JSON | json=/version kiv show -q --json {src}/examples/single_1080p.lua
--- two_channel_encode_preview as JSON | json=/version kiv show -q --json {src}/examples/two_channel_encode_preview.lua
--- three_channel_4k as JSON | json=/version kiv show -q --json {src}/examples/three_channel_4k.lua
--- hdr_virtual_mode as JSON | json=/version kiv show -q --json {src}/examples/hdr_virtual_mode.lua
--- every multi-channel example draws | kiv layout -q {src}/examples/single_1080p.lua -o /dev/null
--- two_channel_encode_preview draws | kiv layout -q {src}/examples/two_channel_encode_preview.lua -o /dev/null
--- three_channel_4k draws | kiv layout -q {src}/examples/three_channel_4k.lua -o /dev/null
--- hdr_virtual_mode draws | kiv layout -q {src}/examples/hdr_virtual_mode.lua -o /dev/null
