-- Video sources and virtual modes, read as part of a channel.  `src` gives a
-- source table with every item but the virtual mode, with `t` added.
-- include: config
local function src(t)
  t.vsrc_id = t.vsrc_id or 1
  t.vsrc_status = t.vsrc_status or 9
  t.mode = t.mode or "vga"
  t.fps = t.fps or 30
  t.max_fps = t.max_fps or 60
  t.hdr_mode = t.hdr_mode or "wdr"
  t.dg_mode = t.dg_mode or 17
  t.bits = t.bits or 40
  t.vsrc_ctx_switch = t.vsrc_ctx_switch or 3
  t.mirror = t.mirror or 0
  t.bayer = t.bayer or 1
  t.calib_data = t.calib_data or "c.lua"
  return t
end
-- A virtual mode with its required items and the offsets; `t` adds items.
local function virt(t)
  t.width = 1920
  t.height = 1080
  t.hdr_mode = t.hdr_mode or "2x"
  t.video_type = t.video_type or "rgb_raw"
  t.hdr_offset_long, t.hdr_offset_short1, t.hdr_offset_short2, t.hdr_offset_short3 = 1, 1, 1, 1
  t.dual_gain_mode, t.sensor_id, t.agc_db_step = 5, 4660, 3
  return t
end
local function load(vsrc)
  config { chan { vsrc = vsrc } }
end
--- every item: values cut to their fields | only=channels[0].vsrc.
load(src {})
--- rates in thousandths, the longest calibration path, a virtual mode that is no table | level=0 only=channels[0].vsrc.
HP = 1
load(src { fps = 29970, max_fps = 30000, virt_mode_cfg = 5,
  calib_data = "ppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppp" })
--- no vsrc_id | level=0 only=channels[0].vsrc.
load { mode = "1080p" }
--- vsrc_id 3 | level=0 only=channels[0].vsrc.
load { vsrc_id = 3 }
--- vsrc_id -1 | level=0 only=channels[0].vsrc.
load { vsrc_id = -1 }
--- no mode | level=0 only=channels[0].vsrc.
load { vsrc_id = 0, vsrc_status = 0 }
--- a mode name in the wrong case | level=0 only=channels[0].vsrc.
load { vsrc_id = 0, vsrc_status = 0, mode = "VGA" }
--- no rate | level=0 only=channels[0].vsrc.
load { vsrc_id = 0, vsrc_status = 0, mode = "qhd" }
--- no hdr_mode | level=0 only=channels[0].vsrc.
load { vsrc_id = 0, vsrc_status = 0, mode = "qhd", fps = 5, max_fps = 1 }
--- an unknown hdr_mode: what came before it stays | level=0 only=channels[0].vsrc.
load(src { hdr_mode = "4x" })
--- a calibration path one too long | level=0 only=channels[0].vsrc.
load(src { calib_data = "pppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppp" })
--- the source no table | level=0 only=channels[0].vsrc.
load "vsrc_0"
--- a virtual mode | only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1, virt_mode_cfg = virt { max_fps = 30, default_fps = 25 } })
--- a virtual mode switched on but absent | level=0 only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1 })
--- a virtual mode that is no table | level=0 only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1, virt_mode_cfg = 7 })
--- a virtual mode without width | level=0 only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1, virt_mode_cfg = { height = 1 } })
--- a default rate above the ceiling: stored, then refused | level=0 only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1, virt_mode_cfg = virt { bits = 1, max_fps = 25, default_fps = 30 } })
--- an unknown virtual hdr_mode | level=0 only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1,
  virt_mode_cfg = virt { bits = 1, max_fps = 1, default_fps = 1, hdr_mode = "HDR" } })
--- an unknown video_type | only=channels[0].vsrc.
load(src { virt_mode_cfg_enable = 1,
  virt_mode_cfg = virt { bits = 1, max_fps = 1, video_type = "RGB_RAW" } })
