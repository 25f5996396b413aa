-- kiv lint: findings of keys the loader reads or skips (patched in after
-- the tables too), the text, JSON and SARIF outputs, what changes the exit
-- code, and the library's log on standard error when asked for.
-- The prelude is a complete one-channel script.  (Each rule's own script
-- is in docs/lint.md, run by the tool's tests.)
-- include: one_channel
local ch = _resource_config_.channels[1]
--- a switch that is off: the keys it gates are known | kiv lint -q --disable overlapping-windows {}
ch.enable_group = 0
ch.group_idx = 1
ch.zzz = {}
--- a canvas of one channel: its enable_order, read for two or more, is known | kiv lint -q --disable overlapping-windows {}
_resource_config_.canvas[1].enable_order = 1
_resource_config_.canvas[1].zzz = 1
--- an unknown key, a value that loses its sign, a table for a number | kiv lint -q --disable overlapping-windows {}
ch.vsrc.mode_x = 1
ch.vsrc.bits = -1
ch.vsrc.dg_mode = {}
--- strings where numbers go | kiv lint -q --disable overlapping-windows {}
ch.pyramid = 'none'
ch.mctf_cmpr = '1x'
--- a script that does not load | kiv lint -q --disable overlapping-windows {}
_resource_config_.channels_x = 1
x
--- a misspelt key: a warning fails, an info does not | kiv lint -q {}
ch.hflp = 1
--- the warning's rule disabled | kiv lint -q --disable unknown-key {}
ch.hflp = 1
--- only errors fail | kiv lint -q --error-on error {}
ch.hflp = 1
--- the library's own log only when asked for, on standard error | kiv lint --log-level 1 {}
ch.hflp = 1
--- the log bounded by --log-level | kiv lint --log-level 0 {}
ch.hflp = 1
--- JSON, in the order of the places | kiv lint -q --format json {}
ch.hflp = 1
--- SARIF | json=/runs/0/tool/driver/name,/runs/0/tool/driver/rules/9/id,/runs/0/tool/driver/rules/10,/runs/0/results/0/level,/runs/0/results/0/ruleId,/runs/0/results/0/locations/0/physicalLocation/artifactLocation/uri,/runs/0/results/1/level kiv lint -q --format sarif {}
ch.hflp = 1
--- an unknown format | kiv lint --format yaml {}
--- an unknown rule | kiv lint --disable no-such-rule {}
--- infos cannot fail | kiv lint --error-on info {}
--- a file that cannot be read | kiv lint -q /nonexistent.lua
--- a file that cannot be read, in SARIF: the run did not succeed | json=/runs/0/invocations,/runs/0/results kiv lint -q --format sarif /nonexistent.lua
--- several files side by side, reported in the order given | kiv lint -q -j 2 {} {prelude} {}
ch.hflp = 1
