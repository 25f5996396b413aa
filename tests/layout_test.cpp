// The records cross the C boundary: their layout must match, bit for bit,
// what applications built against the header expect.  Each row names a
// field, the byte offset of the 32-bit unit (or of the member) holding it,
// its first bit in that unit and its width.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "kiv.h"

namespace
{

struct placed {
    int first; // absolute bit offset in the record, -1 when no bit is set
    int width; // number of bits set
    bool contiguous;
};

template <class T, class F>
placed place(F set)
{
    T rec;
    std::memset(&rec, 0, sizeof rec);
    set(rec, ~uint64_t{0});
    const unsigned char *p = reinterpret_cast<const unsigned char *>(&rec);
    int first = -1, last = -1, width = 0;
    for (int i = 0; i < static_cast<int>(sizeof rec * 8); ++i) {
        if ((p[i / 8] >> (i % 8)) & 1) {
            if (first < 0)
                first = i;
            last = i;
            ++width;
        }
    }
    return {first, width, last - first + 1 == width};
}

struct row {
    const char *name;
    placed got;
    int unit, bit, width;
};

#define F(T, f, unit, bit, width)                                                                  \
    row                                                                                            \
    {                                                                                              \
#T "." #f, place < T>([](T &s, uint64_t v) { s.f = v; }), unit, bit, width                 \
    }

void check(const row *rows, size_t n)
{
    for (size_t i = 0; i < n; ++i) {
        const row &r = rows[i];
        SCOPED_TRACE(r.name);
        EXPECT_EQ(r.got.first, r.unit * 8 + r.bit);
        EXPECT_EQ(r.got.width, r.width);
        EXPECT_TRUE(r.got.contiguous);
    }
}

} // namespace

TEST(Layout, RecordSizes)
{
    EXPECT_EQ(sizeof(kiv_virt_mode_cfg), 48u);
    EXPECT_EQ(sizeof(kiv_vsrc_cfg), 332u);
    EXPECT_EQ(sizeof(kiv_pass_cfg), 4u);
    EXPECT_EQ(sizeof(kiv_src_buf_cfg), 48u);
    EXPECT_EQ(sizeof(kiv_pyramid_cfg), 160u);
    EXPECT_EQ(alignof(kiv_pyramid_cfg), 8u);
    EXPECT_EQ(sizeof(kiv_channel_cfg), 1232u);
    EXPECT_EQ(sizeof(kiv_canvas_cfg), 56u);
    EXPECT_EQ(sizeof(kiv_stream_cfg), 28u);
    EXPECT_EQ(sizeof(kiv_chan_mem_cfg), 12u);
    EXPECT_EQ(sizeof(kiv_stream_mem_cfg), 12u);
    EXPECT_EQ(sizeof(kiv_mem_cfg_resource), 304u);
    EXPECT_EQ(sizeof(kiv_multi_chan_cfg), 5048u);
    EXPECT_EQ(sizeof(kiv_calib_data_item), 12u);
    EXPECT_EQ(sizeof(kiv_hevc_scaling_cfg), 6240u);
    EXPECT_EQ(sizeof(kiv_nn_map), 8u);
    EXPECT_EQ(sizeof(kiv_nn_interface), 16u);
    EXPECT_EQ(sizeof(kiv_aisp_cfg), 16u + 16u * KIV_AISP_MAX_INTERFACES);
}

TEST(Layout, TopLevelAndMemoryLayout)
{
    using T = kiv_multi_chan_cfg;
    using M = kiv_mem_cfg_resource;
    using C = kiv_chan_mem_cfg;
    using S = kiv_stream_mem_cfg;
    const row rows[] = {
        F(T, version, 0, 0, 8),
        F(T, chan_num, 0, 8, 8),
        F(T, canvas_num, 0, 16, 8),
        F(T, stream_num, 0, 24, 8),
        F(T, enable_hp_fps, 4, 0, 1),
        F(T, vin_short_line_detect, 4, 1, 1),
        F(T, channels[0].id, 8, 0, 8),
        F(T, channels[2].id, 8 + 2 * 1232, 0, 8),
        F(T, canvas[0].id, 8 + 3 * 1232, 0, 32),
        F(T, streams[0].max_width, 8 + 3 * 1232 + 12 * 56 + 8, 0, 32),
        F(T, resource_mem_layout.max_chan_num, 8 + 3 * 1232 + 12 * 56 + 13 * 28, 0, 5),
        F(M, max_chan_num, 0, 0, 5),
        F(M, max_stream_num, 0, 5, 5),
        F(M, channels_mem[1].mask_possible, 4 + 12, 0, 1),
        F(M, streams_mem[0].qpm_possible, 4 + 12 * 12, 0, 1),
        F(C, mask_possible, 0, 0, 1),
        F(C, mc_mask_possible, 0, 1, 1),
        F(C, warp_possible, 0, 2, 1),
        F(C, mask_buf_max_num, 0, 3, 6),
        F(C, mc_mask_buf_max_num, 0, 9, 6),
        F(C, warp_buf_max_num, 0, 15, 6),
        F(C, warp_area_max_num, 0, 21, 6),
        F(C, mc_mask_buf_ds, 0, 27, 3),
        F(C, max_vin[0], 4, 0, 32),
        F(C, max_vin[1], 8, 0, 32),
        F(S, qpm_possible, 0, 0, 1),
        F(S, qpm_max_matrix_num, 0, 1, 3),
        F(S, qpm_buf_max_num, 0, 4, 4),
        F(S, max_stream[0], 4, 0, 32),
        F(S, max_stream[1], 8, 0, 32),
    };
    check(rows, std::size(rows));
}

TEST(Layout, VideoSourceAndVirtualMode)
{
    using V = kiv_vsrc_cfg;
    using M = kiv_virt_mode_cfg;
    const row rows[] = {
        F(V, vsrc_id, 0, 0, 32),
        F(V, mode, 4, 0, 32),
        F(V, fps, 8, 0, 32),
        F(V, hdr_mode, 12, 0, 32),
        F(V, bits, 16, 0, 5),
        F(V, vsrc_status, 16, 5, 3),
        F(V, vsrc_ctx_switch, 16, 8, 1),
        F(V, dg_mode, 16, 9, 4),
        F(V, virt_mode_cfg_enable, 16, 13, 1),
        F(V, mirror, 16, 16, 8),
        F(V, bayer, 16, 24, 8),
        F(V, calib_data[0], 20, 0, 8),
        F(V, calib_data[255], 275, 0, 8),
        F(V, fps_hp, 276, 0, 32),
        F(V, max_fps, 280, 0, 32),
        F(V, virt_mode_cfg.width, 284, 0, 32),
        F(M, width, 0, 0, 32),
        F(M, height, 4, 0, 32),
        F(M, hdr_mode, 8, 0, 32),
        F(M, hdr_offset_long, 12, 0, 32),
        F(M, hdr_offset_short1, 16, 0, 32),
        F(M, hdr_offset_short2, 20, 0, 32),
        F(M, hdr_offset_short3, 24, 0, 32),
        F(M, default_fps, 28, 0, 32),
        F(M, max_fps, 32, 0, 32),
        F(M, sensor_id, 36, 0, 32),
        F(M, agc_db_step, 40, 0, 32),
        F(M, bits, 44, 0, 5),
        F(M, dual_gain_mode, 44, 5, 2),
        F(M, video_type, 44, 7, 5),
    };
    check(rows, std::size(rows));
}

TEST(Layout, Channel)
{
    using T = kiv_channel_cfg;
    const row rows[] = {
        F(T, id, 0, 0, 8),
        F(T, img_stats_src_chan, 0, 8, 8),
        F(T, configured, 0, 16, 1),
        F(T, sensor_ctrl, 0, 17, 1),
        F(T, lens_warp, 0, 18, 1),
        F(T, expo_num, 0, 19, 3),
        F(T, blend_left_or_top, 0, 22, 1),
        F(T, blend_right_or_bot, 0, 23, 1),
        F(T, lens_warp_hi_ef_factor, 0, 24, 3),
        F(T, extra_iso_cfg, 0, 27, 5),
        F(T, max_padding_width, 4, 0, 32),
        F(T, max_main_input_width, 8, 0, 32),
        F(T, vsrc_ctx, 12, 0, 8),
        F(T, extra_downscale, 12, 8, 1),
        F(T, mctf_cmpr, 12, 9, 1),
        F(T, mctf_10bit_ref, 12, 10, 1),
        F(T, main_burst_tile, 12, 11, 1),
        F(T, low_delay_vin_vout, 12, 12, 1),
        F(T, invert_mode, 12, 13, 1),
        F(T, packing_mode_enable, 12, 14, 1),
        F(T, use_vsrc_ctx_pattern, 12, 15, 1),
        F(T, luma_alpha_blend, 12, 16, 1),
        F(T, extract_mono, 12, 17, 1),
        F(T, pass_num, 12, 24, 3),
        F(T, rotate_cw, 12, 27, 1),
        F(T, hflip, 12, 28, 1),
        F(T, vflip, 12, 29, 1),
        F(T, idsp_fps_locked_enable, 12, 30, 1),
        F(T, raw_vflip, 12, 31, 1),
        F(T, vcap_mode_flags, 16, 0, 8),
        F(T, max_vwarp_blk_height, 16, 8, 7),
        F(T, raw_capture, 16, 15, 1),
        F(T, app_img_profile, 16, 16, 5),
        F(T, vsrc_region_num, 16, 21, 4),
        F(T, vsrc_region_map, 16, 25, 4),
        F(T, is_still_fusion, 16, 29, 1),
        F(T, enable_tml_raw_packing, 16, 30, 1),
        F(T, enable_tml_proc, 16, 31, 1),
        F(T, vsrc_ctx_pattern, 20, 0, 32),
        F(T, vsrc_ctx_pattern_mask, 24, 0, 32),
        F(T, vsrc.vsrc_id, 28, 0, 32),
        F(T, pass_cfg[0].input_pass_id, 360, 0, 8),
        F(T, pass_cfg[1].input_buf_id, 364, 8, 8),
        F(T, src_buf[0][0].max_output[0], 368, 0, 32),
        F(T, src_buf[1][6].reserved, 368 + 13 * 48 + 44, 0, 32),
        F(T, pyramid.input_buf_id, 1040, 0, 32),
        F(T, max_warp_input_width, 1200, 0, 32),
        F(T, max_warp_output_width, 1204, 0, 32),
        F(T, mc_mask_buf_ds, 1208, 0, 3),
        F(T, enable_group, 1208, 3, 1),
        F(T, group_idx, 1208, 4, 2),
        F(T, raw_dsp_priv_dram, 1208, 6, 1),
        F(T, group_sync, 1208, 7, 1),
        F(T, eis_delay_count, 1208, 8, 3),
        F(T, raw_manual_feed, 1208, 11, 1),
        F(T, raw_feed_frame_num, 1208, 12, 7),
        F(T, raw_cached_items, 1208, 19, 5),
        F(T, srcbuf_to_skip_blend, 1208, 24, 8),
        F(T, srcbuf_to_fusion, 1212, 0, 3),
        F(T, group_order_idx, 1212, 3, 3),
        F(T, hdec_raw_format, 1212, 6, 2),
        F(T, debug_stitch_slice_num, 1212, 8, 4),
        F(T, dis_enable, 1212, 12, 1),
        F(T, mcts_crop_out_enable, 1212, 13, 1),
        F(T, debug_default_hds_coeff, 1212, 14, 1),
        F(T, debug_disable_vin_12x_ds, 1212, 15, 1),
        F(T, max_raw_height, 1212, 16, 16),
        F(T, max_vwarp_wait_lines, 1216, 0, 10),
        F(T, max_cawarp_h_spacing, 1216, 10, 3),
        F(T, reuse_src_chan_iso_cfg, 1216, 13, 1),
        F(T, trigger_led, 1216, 14, 1),
        F(T, vsrc_ctx_pattern_addr_offset, 1216, 16, 16),
        F(T, idsp_fps_hp, 1220, 0, 32),
        F(T, idsp_fps, 1224, 0, 32),
    };
    check(rows, std::size(rows));
}

TEST(Layout, SourceBufferPassAndPyramid)
{
    using B = kiv_src_buf_cfg;
    using P = kiv_pass_cfg;
    using Y = kiv_pyramid_cfg;
    const row rows[] = {
        F(B, max_output[1], 4, 0, 32),
        F(B, input[0], 8, 0, 32),
        F(B, output[0], 24, 0, 32),
        F(B, output[3], 36, 0, 32),
        F(B, canvas_id, 40, 0, 32),
        F(B, reserved, 44, 0, 32),
        F(P, input_pass_id, 0, 0, 8),
        F(P, input_buf_id, 0, 8, 8),
        F(P, reserved[1], 0, 24, 8),
        F(Y, input_buf_id, 0, 0, 32),
        F(Y, layer_map, 4, 0, 6),
        F(Y, max_layer_map, 4, 6, 6),
        F(Y, cached_items, 4, 12, 6),
        F(Y, scale_type, 8, 0, 32),
        F(Y, buf_addr, 16, 0, 64),
        F(Y, buf_size, 24, 0, 32),
        F(Y, layers[0].crop_win[0], 28, 0, 32),
        F(Y, layers[5].crop_win[3], 28 + 5 * 16 + 12, 0, 32),
        F(Y, rescale_size[0], 124, 0, 32),
        F(Y, max_rescale_size[1], 136, 0, 32),
        F(Y, item_num, 140, 0, 8),
        F(Y, frame_rate, 140, 8, 8),
        F(Y, manual_feed, 140, 16, 1),
        F(Y, set_min_unlocked_buf_num, 140, 17, 1),
        F(Y, enable_frame_tag, 140, 18, 1),
        F(Y, min_unlocked_buf_num, 140, 24, 8),
        F(Y, frame_tag_value, 144, 0, 32),
        F(Y, frame_tag_mask, 148, 0, 32),
        F(Y, frame_rate_hp, 152, 0, 32),
    };
    check(rows, std::size(rows));
}

TEST(Layout, CanvasAndStream)
{
    using C = kiv_canvas_cfg;
    using S = kiv_stream_cfg;
    const row rows[] = {
        F(C, id, 0, 0, 32),
        F(C, width, 4, 0, 32),
        F(C, height, 8, 0, 32),
        F(C, type, 12, 0, 32),
        F(C, extra_dram_buf, 16, 0, 32),
        F(C, frame_rate, 20, 0, 8),
        F(C, manual_feed, 20, 8, 1),
        F(C, feed_frame_num, 20, 9, 7),
        F(C, clear_background, 20, 16, 1),
        F(C, enc_dummy_latency, 20, 17, 4),
        F(C, dsp_priv_dram, 20, 21, 1),
        F(C, disable_yuv_dram, 20, 22, 1),
        F(C, set_min_unlocked_buf_num, 20, 23, 1),
        F(C, cached_items, 20, 24, 8),
        F(C, canvas_id, 24, 0, 5),
        F(C, enable_order, 24, 5, 1),
        F(C, source_chan_num, 24, 6, 4),
        F(C, source_chan_ids[0], 28, 0, 8),
        F(C, source_chan_ids[11], 36, 24, 8),
        F(C, min_unlocked_buf_num, 40, 0, 8),
        F(C, enable_frame_tag, 40, 8, 1),
        F(C, zero_fps, 40, 9, 1),
        F(C, fps_locked_enable, 40, 10, 1),
        F(C, vout_id, 40, 11, 1),
        F(C, vout_YUV422, 40, 12, 1),
        F(C, me_for_mf, 40, 13, 1),
        F(C, disable_me_dram, 40, 14, 1),
        F(C, frame_tag_value, 44, 0, 32),
        F(C, frame_tag_mask, 48, 0, 32),
        F(C, frame_rate_hp, 52, 0, 32),
        F(S, id, 0, 0, 8),
        F(S, max_M, 0, 8, 8),
        F(S, js_enable, 0, 16, 1),
        F(S, used_for_vout_enable, 0, 17, 1),
        F(S, used_for_vout_id, 0, 18, 1),
        F(S, fast_seek_enable, 4, 0, 1),
        F(S, two_ref_enable, 4, 1, 1),
        F(S, max_svct_layers_minus_1, 4, 2, 2),
        F(S, max_num_minus_1_ltrs, 4, 4, 1),
        F(S, codec_enable, 4, 5, 3),
        F(S, efm_enable, 4, 8, 1),
        F(S, efm_buf_num, 4, 9, 4),
        F(S, efm_skip_waiting, 4, 13, 1),
        F(S, efm_extern_src_enable, 4, 14, 1),
        F(S, efm_extern_src_stream, 4, 15, 7),
        F(S, stream_mv_statis_enable, 4, 22, 1),
        F(S, stream_pic_statis_enable, 4, 23, 1),
        F(S, dis_enable, 4, 24, 1),
        F(S, dis_cached_items, 4, 25, 7),
        F(S, max_width, 8, 0, 32),
        F(S, max_height, 12, 0, 32),
        F(S, efm_width, 16, 0, 32),
        F(S, efm_height, 20, 0, 32),
        F(S, possible_enc_src_map, 24, 0, 16),
    };
    check(rows, std::size(rows));
}

TEST(Layout, StandaloneRecords)
{
    using I = kiv_calib_data_item;
    using H = kiv_hevc_scaling_cfg;
    using A = kiv_aisp_cfg;
    using N = kiv_nn_map;
    const row rows[] = {
        F(I, reserved, 0, 0, 32),
        F(I, addr, 4, 0, 32),
        F(I, data, 8, 0, 32),
        F(H, scaling_list[0][0][0], 0, 0, 32),
        F(H, scaling_list[2][3][5], ((2 * 6 + 3) * 64 + 5) * 4, 0, 32),
        F(H, scaling_list_dc[0][0], 4 * 6 * 64 * 4, 0, 32),
        F(H, scaling_list_dc[3][1], (4 * 6 * 64 + 3 * 6 + 1) * 4, 0, 32),
        F(A, fifo_addr, 0, 0, 32),
        F(A, fifo_len, 4, 0, 32),
        F(A, dag_addr, 8, 0, 32),
        F(A, if_cnt, 12, 0, 4),
        F(A, interfaces[0].port.dvi_id, 16, 0, 8),
        F(A, interfaces[0].poke.dvi_id, 24, 0, 8),
        F(A, interfaces[31].poke.id[3], 16 + 31 * 16 + 8 + 7, 0, 8),
        F(N, dvi_id, 0, 0, 8),
        F(N, start, 0, 8, 8),
        F(N, cnt, 0, 16, 8),
        F(N, reserved, 0, 24, 8),
        F(N, id[0], 4, 0, 8),
        F(N, id[3], 4, 24, 8),
    };
    check(rows, std::size(rows));
}
