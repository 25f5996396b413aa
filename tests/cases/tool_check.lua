-- kiv check: what the loader refused or logged as an error at its place, one
-- line per file, the kind of each script, the library's own log when asked
-- for, and the exit code of the worst file.  The
-- prelude is a complete one-channel script (one encode canvas fed by main
-- and second, one stream); {prelude} names it alone.
-- include: one_channel
--- a complete script | kiv check {}
--- quiet: nothing when every file loads | kiv check -q {}
--- a failing file and a good one | kiv check {} {prelude}
_resource_config_ = { version = 2 }
--- without version, from log level 3 | kiv check --log-level 3 {}
_resource_config_ = {}
--- quiet still says why and where the file failed | kiv check -q {}
_resource_config_ = {}
--- an unreadable file outweighs a failing one | kiv check --quiet /nonexistent.lua {}
_resource_config_ = {}
--- level 0 shows errors only, though the example sets log_level | kiv check --log-level 0 {src}/examples/three_channel_4k.lua
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
--- show of a failing load: why and where, on standard error | kiv show {}
_resource_config_ = { version = 2 }
--- show --json of a failing load | kiv show --json {}
_resource_config_ = { version = 2 }
--- dump of a failing load | kiv dump {}
_resource_config_ = { version = 2 }
--- diff of a failing load | kiv diff {} {}
_resource_config_ = { version = 2 }
--- layout of a failing load draws what was read, under a banner | kiv layout {} -o {out}
_resource_config_ = { version = 2 }
--- level 1 lists the keys left to their defaults, as the library logs them | grep=vsrc_ctx,ok kiv check --log-level 1 {prelude}
--- files checked side by side, reported in the order given | kiv check -j 2 {} {prelude} {}
_resource_config_ = { version = 2 }
--- a script on standard input is named <stdin> | stdin kiv check -
_resource_config_ = { version = 2 }
--- or as --stdin-name says, the same text for a second - | stdin kiv check --stdin-name board.lua - -
_resource_config_ = { version = 2 }
--- JSON: one object per file, its findings as lint gives them | kiv check --format json {} {prelude} /nonexistent.lua
_resource_config_ = { version = 2 }
--- JSON counts a load's errors, warnings and infos apart | json=/0/status,/0/errors,/0/warnings,/0/infos kiv check --format json {}
-- edit: log_level = 1 => log_level = 5
-- edit: sensor_ctrl = 1, => sensor_ctrl = 1, srcbuf_to_fusion = 6,
--- lint reads standard input too | stdin kiv lint --stdin-name board.lua -
--- and so do show, dump and diff | stdin json=/kiv_version,/version kiv show -q --json -
--- dump of standard input | stdin grep=version kiv dump -q -
--- diff against standard input | stdin kiv diff -q {prelude} -
