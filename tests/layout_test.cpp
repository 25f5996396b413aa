// The records cross the C boundary: their layout must match, bit for bit,
// what applications built against the header expect.  Each row names a
// field, the byte offset of the 32-bit unit (or of the member) holding it,
// its first bit in that unit and its width.
#include <gtest/gtest.h>

#include <cstring>

#include "kiv.h"

namespace
{

struct row {
    const char *name;
    int first, width; // as placed: absolute first bit and bits set (-1 when contiguous fails)
    int unit, bit, want;
};

// Sets every bit of one field in a zeroed record and finds the bits set.
template <class T, class F>
row place(const char *name, F set, int unit, int bit, int want)
{
    T rec;
    std::memset(&rec, 0, sizeof rec);
    set(rec, ~uint64_t{0});
    const unsigned char *p = reinterpret_cast<const unsigned char *>(&rec);
    int first = -1, last = -1, width = 0;
    for (int i = 0; i < static_cast<int>(sizeof rec * 8); ++i)
        if ((p[i / 8] >> (i % 8)) & 1) {
            first = first < 0 ? i : first;
            last = i;
            ++width;
        }
    return {name, first, last - first + 1 == width ? width : -1, unit, bit, want};
}

// clang-format off
#define F(T, f, u, b, w) place<T>(#T "." #f, [](T &s, uint64_t v) { s.f = v; }, u, b, w)
// A whole 32-bit member at a byte offset.
#define W(T, f, u) F(T, f, u, 0, 32)
// clang-format on

using V = kiv_vsrc_cfg;
using VM = kiv_virt_mode_cfg;
using CH = kiv_channel_cfg;
using B = kiv_src_buf_cfg;
using P = kiv_pass_cfg;
using Y = kiv_pyramid_cfg;
using CV = kiv_canvas_cfg;
using S = kiv_stream_cfg;
using MC = kiv_multi_chan_cfg;
using M = kiv_mem_cfg_resource;
using CM = kiv_chan_mem_cfg;
using SM = kiv_stream_mem_cfg;
using I = kiv_calib_data_item;
using H = kiv_hevc_scaling_cfg;
using A = kiv_aisp_cfg;
using N = kiv_nn_map;

} // namespace

TEST(Layout, RecordSizes)
{
    const size_t sizes[][2] = {
        // clang-format off
        {sizeof(VM), 48}, {sizeof(V), 332}, {sizeof(P), 4}, {sizeof(B), 48}, {sizeof(Y), 160},
        {alignof(Y), 8}, {sizeof(CH), 1232}, {sizeof(CV), 56}, {sizeof(S), 28}, {sizeof(CM), 12},
        {sizeof(SM), 12}, {sizeof(M), 304}, {sizeof(MC), 5048}, {sizeof(I), 12}, {sizeof(H), 6240},
        {sizeof(N), 8}, {sizeof(kiv_nn_interface), 16},
        {sizeof(A), 16 + 16 * KIV_AISP_MAX_INTERFACES},
        // clang-format on
    };
    for (const auto &s : sizes)
        EXPECT_EQ(s[0], s[1]) << &s - sizes;
}

TEST(Layout, EveryFieldInPlace)
{
    const row rows[] = {
        // clang-format off
        F(MC, version, 0, 0, 8), F(MC, chan_num, 0, 8, 8), F(MC, canvas_num, 0, 16, 8),
        F(MC, stream_num, 0, 24, 8),
        F(MC, enable_hp_fps, 4, 0, 1), F(MC, vin_short_line_detect, 4, 1, 1),
        F(MC, channels[0].id, 8, 0, 8),
        F(MC, channels[2].id, 8 + 2 * 1232, 0, 8),
        W(MC, canvas[0].id, 8 + 3 * 1232), W(MC, streams[0].max_width, 8 + 3 * 1232 + 12 * 56 + 8),
        F(MC, resource_mem_layout.max_chan_num, 8 + 3 * 1232 + 12 * 56 + 13 * 28, 0, 5),
        F(M, max_chan_num, 0, 0, 5), F(M, max_stream_num, 0, 5, 5),
        F(M, channels_mem[1].mask_possible, 4 + 12, 0, 1),
        F(M, streams_mem[0].qpm_possible, 4 + 12 * 12, 0, 1),
        F(CM, mask_possible, 0, 0, 1), F(CM, mc_mask_possible, 0, 1, 1),
        F(CM, warp_possible, 0, 2, 1), F(CM, mask_buf_max_num, 0, 3, 6),
        F(CM, mc_mask_buf_max_num, 0, 9, 6), F(CM, warp_buf_max_num, 0, 15, 6),
        F(CM, warp_area_max_num, 0, 21, 6), F(CM, mc_mask_buf_ds, 0, 27, 3),
        W(CM, max_vin[0], 4), W(CM, max_vin[1], 8),
        F(SM, qpm_possible, 0, 0, 1), F(SM, qpm_max_matrix_num, 0, 1, 3),
        F(SM, qpm_buf_max_num, 0, 4, 4),
        W(SM, max_stream[0], 4), W(SM, max_stream[1], 8),
        W(V, vsrc_id, 0), W(V, mode, 4), W(V, fps, 8), W(V, hdr_mode, 12),
        F(V, bits, 16, 0, 5), F(V, vsrc_status, 16, 5, 3), F(V, vsrc_ctx_switch, 16, 8, 1),
        F(V, dg_mode, 16, 9, 4), F(V, virt_mode_cfg_enable, 16, 13, 1), F(V, mirror, 16, 16, 8),
        F(V, bayer, 16, 24, 8),
        F(V, calib_data[0], 20, 0, 8),
        F(V, calib_data[255], 275, 0, 8),
        W(V, fps_hp, 276), W(V, max_fps, 280), W(V, virt_mode_cfg.width, 284),
        W(VM, width, 0), W(VM, height, 4), W(VM, hdr_mode, 8), W(VM, hdr_offset_long, 12),
        W(VM, hdr_offset_short1, 16), W(VM, hdr_offset_short2, 20), W(VM, hdr_offset_short3, 24),
        W(VM, default_fps, 28), W(VM, max_fps, 32), W(VM, sensor_id, 36), W(VM, agc_db_step, 40),
        F(VM, bits, 44, 0, 5), F(VM, dual_gain_mode, 44, 5, 2), F(VM, video_type, 44, 7, 5),
        F(CH, id, 0, 0, 8), F(CH, img_stats_src_chan, 0, 8, 8), F(CH, configured, 0, 16, 1),
        F(CH, sensor_ctrl, 0, 17, 1), F(CH, lens_warp, 0, 18, 1), F(CH, expo_num, 0, 19, 3),
        F(CH, blend_left_or_top, 0, 22, 1), F(CH, blend_right_or_bot, 0, 23, 1),
        F(CH, lens_warp_hi_ef_factor, 0, 24, 3), F(CH, extra_iso_cfg, 0, 27, 5),
        W(CH, max_padding_width, 4), W(CH, max_main_input_width, 8),
        F(CH, vsrc_ctx, 12, 0, 8), F(CH, extra_downscale, 12, 8, 1), F(CH, mctf_cmpr, 12, 9, 1),
        F(CH, mctf_10bit_ref, 12, 10, 1), F(CH, main_burst_tile, 12, 11, 1),
        F(CH, low_delay_vin_vout, 12, 12, 1), F(CH, invert_mode, 12, 13, 1),
        F(CH, packing_mode_enable, 12, 14, 1), F(CH, use_vsrc_ctx_pattern, 12, 15, 1),
        F(CH, luma_alpha_blend, 12, 16, 1), F(CH, extract_mono, 12, 17, 1),
        F(CH, pass_num, 12, 24, 3), F(CH, rotate_cw, 12, 27, 1), F(CH, hflip, 12, 28, 1),
        F(CH, vflip, 12, 29, 1), F(CH, idsp_fps_locked_enable, 12, 30, 1),
        F(CH, raw_vflip, 12, 31, 1),
        F(CH, vcap_mode_flags, 16, 0, 8), F(CH, max_vwarp_blk_height, 16, 8, 7),
        F(CH, raw_capture, 16, 15, 1), F(CH, app_img_profile, 16, 16, 5),
        F(CH, vsrc_region_num, 16, 21, 4), F(CH, vsrc_region_map, 16, 25, 4),
        F(CH, is_still_fusion, 16, 29, 1), F(CH, enable_tml_raw_packing, 16, 30, 1),
        F(CH, enable_tml_proc, 16, 31, 1),
        W(CH, vsrc_ctx_pattern, 20), W(CH, vsrc_ctx_pattern_mask, 24), W(CH, vsrc.vsrc_id, 28),
        F(CH, pass_cfg[0].input_pass_id, 360, 0, 8),
        F(CH, pass_cfg[1].input_buf_id, 364, 8, 8),
        W(CH, src_buf[0][0].max_output[0], 368), W(CH, src_buf[1][6].reserved, 368 + 13 * 48 + 44),
        W(CH, pyramid.input_buf_id, 1040), W(CH, max_warp_input_width, 1200),
        W(CH, max_warp_output_width, 1204),
        F(CH, mc_mask_buf_ds, 1208, 0, 3), F(CH, enable_group, 1208, 3, 1),
        F(CH, group_idx, 1208, 4, 2), F(CH, raw_dsp_priv_dram, 1208, 6, 1),
        F(CH, group_sync, 1208, 7, 1), F(CH, eis_delay_count, 1208, 8, 3),
        F(CH, raw_manual_feed, 1208, 11, 1), F(CH, raw_feed_frame_num, 1208, 12, 7),
        F(CH, raw_cached_items, 1208, 19, 5), F(CH, srcbuf_to_skip_blend, 1208, 24, 8),
        F(CH, srcbuf_to_fusion, 1212, 0, 3), F(CH, group_order_idx, 1212, 3, 3),
        F(CH, hdec_raw_format, 1212, 6, 2), F(CH, debug_stitch_slice_num, 1212, 8, 4),
        F(CH, dis_enable, 1212, 12, 1), F(CH, mcts_crop_out_enable, 1212, 13, 1),
        F(CH, debug_default_hds_coeff, 1212, 14, 1), F(CH, debug_disable_vin_12x_ds, 1212, 15, 1),
        F(CH, max_raw_height, 1212, 16, 16),
        F(CH, max_vwarp_wait_lines, 1216, 0, 10), F(CH, max_cawarp_h_spacing, 1216, 10, 3),
        F(CH, reuse_src_chan_iso_cfg, 1216, 13, 1), F(CH, trigger_led, 1216, 14, 1),
        F(CH, vsrc_ctx_pattern_addr_offset, 1216, 16, 16),
        W(CH, idsp_fps_hp, 1220), W(CH, idsp_fps, 1224),
        W(B, max_output[1], 4), W(B, input[0], 8), W(B, output[0], 24), W(B, output[3], 36),
        W(B, canvas_id, 40), W(B, reserved, 44),
        F(P, input_pass_id, 0, 0, 8), F(P, input_buf_id, 0, 8, 8), F(P, reserved[1], 0, 24, 8),
        W(Y, input_buf_id, 0),
        F(Y, layer_map, 4, 0, 6), F(Y, max_layer_map, 4, 6, 6), F(Y, cached_items, 4, 12, 6),
        W(Y, scale_type, 8),
        F(Y, buf_addr, 16, 0, 64),
        W(Y, buf_size, 24), W(Y, layers[0].crop_win[0], 28),
        W(Y, layers[5].crop_win[3], 28 + 5 * 16 + 12), W(Y, rescale_size[0], 124),
        W(Y, max_rescale_size[1], 136),
        F(Y, item_num, 140, 0, 8), F(Y, frame_rate, 140, 8, 8), F(Y, manual_feed, 140, 16, 1),
        F(Y, set_min_unlocked_buf_num, 140, 17, 1), F(Y, enable_frame_tag, 140, 18, 1),
        F(Y, min_unlocked_buf_num, 140, 24, 8),
        W(Y, frame_tag_value, 144), W(Y, frame_tag_mask, 148), W(Y, frame_rate_hp, 152),
        W(CV, id, 0), W(CV, width, 4), W(CV, height, 8), W(CV, type, 12), W(CV, extra_dram_buf, 16),
        F(CV, frame_rate, 20, 0, 8), F(CV, manual_feed, 20, 8, 1), F(CV, feed_frame_num, 20, 9, 7),
        F(CV, clear_background, 20, 16, 1), F(CV, enc_dummy_latency, 20, 17, 4),
        F(CV, dsp_priv_dram, 20, 21, 1), F(CV, disable_yuv_dram, 20, 22, 1),
        F(CV, set_min_unlocked_buf_num, 20, 23, 1), F(CV, cached_items, 20, 24, 8),
        F(CV, canvas_id, 24, 0, 5), F(CV, enable_order, 24, 5, 1), F(CV, source_chan_num, 24, 6, 4),
        F(CV, source_chan_ids[0], 28, 0, 8),
        F(CV, source_chan_ids[11], 36, 24, 8),
        F(CV, min_unlocked_buf_num, 40, 0, 8), F(CV, enable_frame_tag, 40, 8, 1),
        F(CV, zero_fps, 40, 9, 1), F(CV, fps_locked_enable, 40, 10, 1), F(CV, vout_id, 40, 11, 1),
        F(CV, vout_YUV422, 40, 12, 1), F(CV, me_for_mf, 40, 13, 1),
        F(CV, disable_me_dram, 40, 14, 1),
        W(CV, frame_tag_value, 44), W(CV, frame_tag_mask, 48), W(CV, frame_rate_hp, 52),
        F(S, id, 0, 0, 8), F(S, max_M, 0, 8, 8), F(S, js_enable, 0, 16, 1),
        F(S, used_for_vout_enable, 0, 17, 1), F(S, used_for_vout_id, 0, 18, 1),
        F(S, fast_seek_enable, 4, 0, 1), F(S, two_ref_enable, 4, 1, 1),
        F(S, max_svct_layers_minus_1, 4, 2, 2), F(S, max_num_minus_1_ltrs, 4, 4, 1),
        F(S, codec_enable, 4, 5, 3), F(S, efm_enable, 4, 8, 1), F(S, efm_buf_num, 4, 9, 4),
        F(S, efm_skip_waiting, 4, 13, 1), F(S, efm_extern_src_enable, 4, 14, 1),
        F(S, efm_extern_src_stream, 4, 15, 7), F(S, stream_mv_statis_enable, 4, 22, 1),
        F(S, stream_pic_statis_enable, 4, 23, 1), F(S, dis_enable, 4, 24, 1),
        F(S, dis_cached_items, 4, 25, 7),
        W(S, max_width, 8), W(S, max_height, 12), W(S, efm_width, 16), W(S, efm_height, 20),
        F(S, possible_enc_src_map, 24, 0, 16),
        W(I, reserved, 0), W(I, addr, 4), W(I, data, 8),
        W(H, scaling_list[0][0][0], 0), W(H, scaling_list_dc[0][0], 4 * 6 * 64 * 4),
        W(H, scaling_list_dc[3][1], (4 * 6 * 64 + 3 * 6 + 1) * 4),
        W(A, fifo_addr, 0), W(A, fifo_len, 4), W(A, dag_addr, 8),
        F(A, if_cnt, 12, 0, 4),
        F(A, interfaces[0].port.dvi_id, 16, 0, 8),
        F(A, interfaces[0].poke.dvi_id, 24, 0, 8),
        F(A, interfaces[31].poke.id[3], 16 + 31 * 16 + 8 + 7, 0, 8),
        F(N, dvi_id, 0, 0, 8), F(N, start, 0, 8, 8), F(N, cnt, 0, 16, 8), F(N, reserved, 0, 24, 8),
        F(N, id[0], 4, 0, 8), F(N, id[3], 4, 24, 8),
        // clang-format on
    };
    for (const row &r : rows) {
        EXPECT_EQ(r.first, r.unit * 8 + r.bit) << r.name;
        EXPECT_EQ(r.width, r.want) << r.name;
    }
}
