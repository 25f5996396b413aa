-- The default scaling lists of HEVC: flat 16 for 4x4, and the intra and
-- inter default lists for 8x8, 16x16 and 32x32 (i = 0 .. 63, in the
-- up-right diagonal scan order in which the standard lists them).  Every
-- DC value is 16.

local flat_4x4 = {
	16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 16,
}

local intra_8x8 = {
	16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 17, 16, 17, 16, 17, 18,
	17, 18, 18, 17, 18, 21, 19, 20, 21, 20, 19, 21, 24, 22, 22, 24,
	24, 22, 22, 24, 25, 25, 27, 30, 27, 25, 25, 29, 31, 35, 35, 31,
	29, 36, 41, 44, 41, 36, 47, 54, 54, 47, 65, 70, 65, 88, 88, 115,
}

local inter_8x8 = {
	16, 16, 16, 16, 16, 16, 16, 16, 16, 16, 17, 17, 17, 17, 17, 18,
	18, 18, 18, 18, 18, 20, 20, 20, 20, 20, 20, 20, 24, 24, 24, 24,
	24, 24, 24, 24, 25, 25, 25, 25, 25, 25, 25, 28, 28, 28, 28, 28,
	28, 33, 33, 33, 33, 33, 41, 41, 41, 41, 54, 54, 54, 71, 71, 91,
}

__hevc_scalelist__ = {
	INTRA4X4_LUMA = flat_4x4,
	INTRA4X4_CHROMAU = flat_4x4,
	INTRA4X4_CHROMAV = flat_4x4,
	INTER4X4_LUMA = flat_4x4,
	INTER4X4_CHROMAU = flat_4x4,
	INTER4X4_CHROMAV = flat_4x4,

	INTRA8X8_LUMA = intra_8x8,
	INTRA8X8_CHROMAU = intra_8x8,
	INTRA8X8_CHROMAV = intra_8x8,
	INTER8X8_LUMA = inter_8x8,
	INTER8X8_CHROMAU = inter_8x8,
	INTER8X8_CHROMAV = inter_8x8,

	INTRA16X16_LUMA = intra_8x8,
	INTRA16X16_CHROMAU = intra_8x8,
	INTRA16X16_CHROMAV = intra_8x8,
	INTER16X16_LUMA = inter_8x8,
	INTER16X16_CHROMAU = inter_8x8,
	INTER16X16_CHROMAV = inter_8x8,

	INTRA32X32_LUMA = intra_8x8,
	INTER32X32_LUMA = inter_8x8,

	INTRA4X4_LUMA_DC = 16,
	INTRA4X4_CHROMAU_DC = 16,
	INTRA4X4_CHROMAV_DC = 16,
	INTER4X4_LUMA_DC = 16,
	INTER4X4_CHROMAU_DC = 16,
	INTER4X4_CHROMAV_DC = 16,

	INTRA8X8_LUMA_DC = 16,
	INTRA8X8_CHROMAU_DC = 16,
	INTRA8X8_CHROMAV_DC = 16,
	INTER8X8_LUMA_DC = 16,
	INTER8X8_CHROMAU_DC = 16,
	INTER8X8_CHROMAV_DC = 16,

	INTRA16X16_LUMA_DC = 16,
	INTRA16X16_CHROMAU_DC = 16,
	INTRA16X16_CHROMAV_DC = 16,
	INTER16X16_LUMA_DC = 16,
	INTER16X16_CHROMAU_DC = 16,
	INTER16X16_CHROMAV_DC = 16,

	INTRA32X32_LUMA_DC = 16,
	INTER32X32_LUMA_DC = 16,
}
