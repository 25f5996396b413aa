-- kiv calib, hevc and aisp: the standalone scripts as text and JSON, and
-- the scripts that load nothing (exit 1, the reason on standard error).
--- calibration items | kiv calib {}
calib_data = { {0x3009, 0x40}, {0x80100000, 4096} }
--- calibration items as JSON | kiv calib --json {}
calib_data = { {0x3009, 0x40}, {0x80100000, 4096} }
--- no calibration items | kiv calib {}
calib_data = {}
--- no calibration table | kiv calib {}
other = 1
--- a calibration script that fails | kiv calib {}
error('x')
--- scaling lists | kiv hevc {}
__hevc_scalelist__ = { INTRA4X4_LUMA = {1, 2, 3} }
--- scaling lists as JSON | json=/scaling_list/0/0,/scaling_list/3/5,/scaling_list/4,/scaling_list_dc/3 kiv hevc --json {}
__hevc_scalelist__ = { INTRA4X4_LUMA = {1, 2, 3} }
--- no scaling lists | kiv hevc {}
x = 1
--- the AISP example, with the entries of each network | kiv aisp {src}/examples/custom_aisp.lua
--- the AISP example as JSON | json=/interface_entries,/networks,/config/interfaces/2/port/id,/config/fifo_addr kiv aisp --json {src}/examples/custom_aisp.lua
--- an AISP script without networks | kiv aisp {}
_custom_aisp_config_ = {}
--- calibration items from standard input | stdin kiv calib -
calib_data = { {0x3009, 0x40} }
--- a failing AISP script from standard input, named | stdin kiv aisp --stdin-name net.lua -
_custom_aisp_config_ = { boot_param = {} }
