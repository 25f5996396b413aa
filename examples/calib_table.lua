-- Calibration data of a video source: (address, data) pairs written to the
-- sensor in this order when the source starts.  Each item is
-- { address, data }; the keys are not used, only the position.

calib_data = {
	-- black level per Bayer channel
	{ 0x3009, 0x0040 },
	{ 0x300A, 0x0040 },
	{ 0x300B, 0x0040 },
	{ 0x300C, 0x0040 },
	-- white balance gains, 1.0 = 0x0100
	{ 0x3102, 0x01A8 },
	{ 0x3104, 0x0100 },
	{ 0x3106, 0x0100 },
	{ 0x3108, 0x01C4 },
	-- defect pixel correction: threshold and enable
	{ 0x3200, 0x0018 },
	{ 0x3201, 0x0001 },
	-- lens shading table base address and size in bytes
	{ 0x3400, 0x80100000 },
	{ 0x3404, 4096 },
}
