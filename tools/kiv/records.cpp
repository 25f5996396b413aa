// The member tables of every record in kiv.h, in declaration order.
//
// Members named `reserved` and unnamed bit-fields are left out: the library
// never reads or writes them, so they carry nothing to show or compare.  The
// records test checks that these tables and the reserved bits together cover
// every bit of every record.
#include "records.h"

#include <type_traits>

#include "kiv.h"

namespace kivtool
{

namespace
{

field integer(const char *name, int64_t (*get)(const void *), void (*set)(void *, int64_t),
              bool hex)
{
    field f;
    f.name = name;
    f.get = get;
    f.set = set;
    f.hex = hex;
    return f;
}

field record(const char *name, size_t offset, const record_desc &rec)
{
    field f;
    f.name = name;
    f.k = kind::record;
    f.offset = offset;
    f.rec = &rec;
    return f;
}

field text(const char *name, size_t offset, size_t size)
{
    field f;
    f.name = name;
    f.k = kind::text;
    f.offset = offset;
    f.size = size;
    return f;
}

// A plain integer of type E read at its own address: the element of an
// integer array.
template <class E>
field leaf(bool hex = false)
{
    return integer(
        "", [](const void *p) -> int64_t { return *static_cast<const E *>(p); },
        [](void *p, int64_t v) { *static_cast<E *>(p) = static_cast<E>(v); }, hex);
}

field leaf(const record_desc &rec)
{
    return record("", 0, rec);
}

// The element of an array of type A (itself an array for the inner
// dimensions), ending in `last`.
template <class A>
std::shared_ptr<const field> element(const field &last)
{
    if constexpr (std::is_array_v<A>) {
        using E = std::remove_extent_t<A>;
        field f;
        f.k = kind::array;
        f.count = std::extent_v<A>;
        f.size = sizeof(E);
        f.elem = element<E>(last);
        return std::make_shared<const field>(f);
    } else {
        return std::make_shared<const field>(last);
    }
}

template <class A>
field array(const char *name, size_t offset, const field &last)
{
    field f = *element<A>(last);
    f.name = name;
    f.offset = offset;
    return f;
}

} // namespace

// A scalar member or bit-field of T, read and written through small lambdas.
#define INT_(T, m, hex)                                                                            \
    integer(                                                                                       \
        #m, [](const void *r) -> int64_t { return static_cast<const T *>(r)->m; },                 \
        [](void *r, int64_t v) { static_cast<T *>(r)->m = static_cast<decltype(T::m)>(v); }, hex)
#define INT(T, m) INT_(T, m, false)
#define HEX(T, m) INT_(T, m, true)
#define SUB(T, m, desc) record(#m, offsetof(T, m), desc)
#define ARR(T, m, last) array<decltype(T::m)>(#m, offsetof(T, m), last)
#define TEXT(T, m) text(#m, offsetof(T, m), sizeof(T::m))

static const record_desc &virt_mode_desc()
{
    using T = kiv_virt_mode_cfg;
    static const record_desc d{
        "kiv_virt_mode_cfg",
        sizeof(T),
        {INT(T, width), INT(T, height), INT(T, hdr_mode), INT(T, hdr_offset_long),
         INT(T, hdr_offset_short1), INT(T, hdr_offset_short2), INT(T, hdr_offset_short3),
         INT(T, default_fps), INT(T, max_fps), INT(T, sensor_id), INT(T, agc_db_step), INT(T, bits),
         INT(T, dual_gain_mode), INT(T, video_type)}};
    return d;
}

static const record_desc &vsrc_desc()
{
    using T = kiv_vsrc_cfg;
    static const record_desc d{"kiv_vsrc_cfg",
                               sizeof(T),
                               {INT(T, vsrc_id), HEX(T, mode), INT(T, fps), INT(T, hdr_mode),
                                INT(T, bits), INT(T, vsrc_status), INT(T, vsrc_ctx_switch),
                                INT(T, dg_mode), INT(T, virt_mode_cfg_enable), INT(T, mirror),
                                INT(T, bayer), TEXT(T, calib_data), INT(T, fps_hp), INT(T, max_fps),
                                SUB(T, virt_mode_cfg, virt_mode_desc())}};
    return d;
}

static const record_desc &pass_desc()
{
    using T = kiv_pass_cfg;
    static const record_desc d{
        "kiv_pass_cfg", sizeof(T), {INT(T, input_pass_id), INT(T, input_buf_id)}};
    return d;
}

static const record_desc &src_buf_desc()
{
    using T = kiv_src_buf_cfg;
    static const record_desc d{"kiv_src_buf_cfg",
                               sizeof(T),
                               {ARR(T, max_output, leaf<uint32_t>()),
                                ARR(T, input, leaf<uint32_t>()), ARR(T, output, leaf<uint32_t>()),
                                INT(T, canvas_id)}};
    return d;
}

static const record_desc &pyramid_layer_desc()
{
    using T = kiv_pyramid_layer;
    static const record_desc d{
        "kiv_pyramid_layer", sizeof(T), {ARR(T, crop_win, leaf<uint32_t>())}};
    return d;
}

static const record_desc &pyramid_desc()
{
    using T = kiv_pyramid_cfg;
    static const record_desc d{
        "kiv_pyramid_cfg",
        sizeof(T),
        {INT(T, input_buf_id), HEX(T, layer_map), HEX(T, max_layer_map), INT(T, cached_items),
         INT(T, scale_type), HEX(T, buf_addr), INT(T, buf_size),
         ARR(T, layers, leaf(pyramid_layer_desc())), ARR(T, rescale_size, leaf<uint32_t>()),
         ARR(T, max_rescale_size, leaf<uint32_t>()), INT(T, item_num), INT(T, frame_rate),
         INT(T, manual_feed), INT(T, set_min_unlocked_buf_num), INT(T, enable_frame_tag),
         INT(T, min_unlocked_buf_num), HEX(T, frame_tag_value), HEX(T, frame_tag_mask),
         INT(T, frame_rate_hp)}};
    return d;
}

static const record_desc &channel_desc()
{
    using T = kiv_channel_cfg;
    static const record_desc d{"kiv_channel_cfg",
                               sizeof(T),
                               {
                                   // unit A
                                   INT(T, id),
                                   INT(T, img_stats_src_chan),
                                   INT(T, configured),
                                   INT(T, sensor_ctrl),
                                   INT(T, lens_warp),
                                   INT(T, expo_num),
                                   INT(T, blend_left_or_top),
                                   INT(T, blend_right_or_bot),
                                   INT(T, lens_warp_hi_ef_factor),
                                   INT(T, extra_iso_cfg),
                                   INT(T, max_padding_width),
                                   INT(T, max_main_input_width),
                                   // unit B
                                   INT(T, vsrc_ctx),
                                   INT(T, extra_downscale),
                                   INT(T, mctf_cmpr),
                                   INT(T, mctf_10bit_ref),
                                   INT(T, main_burst_tile),
                                   INT(T, low_delay_vin_vout),
                                   INT(T, invert_mode),
                                   INT(T, packing_mode_enable),
                                   INT(T, use_vsrc_ctx_pattern),
                                   INT(T, luma_alpha_blend),
                                   INT(T, extract_mono),
                                   INT(T, pass_num),
                                   INT(T, rotate_cw),
                                   INT(T, hflip),
                                   INT(T, vflip),
                                   INT(T, idsp_fps_locked_enable),
                                   INT(T, raw_vflip),
                                   // unit C
                                   HEX(T, vcap_mode_flags),
                                   INT(T, max_vwarp_blk_height),
                                   INT(T, raw_capture),
                                   INT(T, app_img_profile),
                                   INT(T, vsrc_region_num),
                                   HEX(T, vsrc_region_map),
                                   INT(T, is_still_fusion),
                                   INT(T, enable_tml_raw_packing),
                                   INT(T, enable_tml_proc),
                                   HEX(T, vsrc_ctx_pattern),
                                   HEX(T, vsrc_ctx_pattern_mask),
                                   SUB(T, vsrc, vsrc_desc()),
                                   ARR(T, pass_cfg, leaf(pass_desc())),
                                   ARR(T, src_buf, leaf(src_buf_desc())),
                                   SUB(T, pyramid, pyramid_desc()),
                                   INT(T, max_warp_input_width),
                                   INT(T, max_warp_output_width),
                                   // unit D
                                   INT(T, mc_mask_buf_ds),
                                   INT(T, enable_group),
                                   INT(T, group_idx),
                                   INT(T, raw_dsp_priv_dram),
                                   INT(T, group_sync),
                                   INT(T, eis_delay_count),
                                   INT(T, raw_manual_feed),
                                   INT(T, raw_feed_frame_num),
                                   INT(T, raw_cached_items),
                                   HEX(T, srcbuf_to_skip_blend),
                                   // unit E
                                   INT(T, srcbuf_to_fusion),
                                   INT(T, group_order_idx),
                                   INT(T, hdec_raw_format),
                                   INT(T, debug_stitch_slice_num),
                                   INT(T, dis_enable),
                                   INT(T, mcts_crop_out_enable),
                                   INT(T, debug_default_hds_coeff),
                                   INT(T, debug_disable_vin_12x_ds),
                                   INT(T, max_raw_height),
                                   // unit F
                                   INT(T, max_vwarp_wait_lines),
                                   INT(T, max_cawarp_h_spacing),
                                   INT(T, reuse_src_chan_iso_cfg),
                                   INT(T, trigger_led),
                                   INT(T, vsrc_ctx_pattern_addr_offset),
                                   INT(T, idsp_fps_hp),
                                   INT(T, idsp_fps),
                               }};
    return d;
}

static const record_desc &canvas_desc()
{
    using T = kiv_canvas_cfg;
    static const record_desc d{"kiv_canvas_cfg",
                               sizeof(T),
                               {INT(T, id),
                                INT(T, width),
                                INT(T, height),
                                INT(T, type),
                                INT(T, extra_dram_buf),
                                INT(T, frame_rate),
                                INT(T, manual_feed),
                                INT(T, feed_frame_num),
                                INT(T, clear_background),
                                INT(T, enc_dummy_latency),
                                INT(T, dsp_priv_dram),
                                INT(T, disable_yuv_dram),
                                INT(T, set_min_unlocked_buf_num),
                                INT(T, cached_items),
                                INT(T, canvas_id),
                                INT(T, enable_order),
                                INT(T, source_chan_num),
                                ARR(T, source_chan_ids, leaf<uint8_t>()),
                                INT(T, min_unlocked_buf_num),
                                INT(T, enable_frame_tag),
                                INT(T, zero_fps),
                                INT(T, fps_locked_enable),
                                INT(T, vout_id),
                                INT(T, vout_YUV422),
                                INT(T, me_for_mf),
                                INT(T, disable_me_dram),
                                HEX(T, frame_tag_value),
                                HEX(T, frame_tag_mask),
                                INT(T, frame_rate_hp)}};
    return d;
}

static const record_desc &stream_desc()
{
    using T = kiv_stream_cfg;
    static const record_desc d{"kiv_stream_cfg",
                               sizeof(T),
                               {INT(T, id),
                                INT(T, max_M),
                                INT(T, js_enable),
                                INT(T, used_for_vout_enable),
                                INT(T, used_for_vout_id),
                                INT(T, fast_seek_enable),
                                INT(T, two_ref_enable),
                                INT(T, max_svct_layers_minus_1),
                                INT(T, max_num_minus_1_ltrs),
                                INT(T, codec_enable),
                                INT(T, efm_enable),
                                INT(T, efm_buf_num),
                                INT(T, efm_skip_waiting),
                                INT(T, efm_extern_src_enable),
                                INT(T, efm_extern_src_stream),
                                INT(T, stream_mv_statis_enable),
                                INT(T, stream_pic_statis_enable),
                                INT(T, dis_enable),
                                INT(T, dis_cached_items),
                                INT(T, max_width),
                                INT(T, max_height),
                                INT(T, efm_width),
                                INT(T, efm_height),
                                HEX(T, possible_enc_src_map)}};
    return d;
}

static const record_desc &chan_mem_desc()
{
    using T = kiv_chan_mem_cfg;
    static const record_desc d{
        "kiv_chan_mem_cfg",
        sizeof(T),
        {INT(T, mask_possible), INT(T, mc_mask_possible), INT(T, warp_possible),
         INT(T, mask_buf_max_num), INT(T, mc_mask_buf_max_num), INT(T, warp_buf_max_num),
         INT(T, warp_area_max_num), INT(T, mc_mask_buf_ds), ARR(T, max_vin, leaf<uint32_t>())}};
    return d;
}

static const record_desc &stream_mem_desc()
{
    using T = kiv_stream_mem_cfg;
    static const record_desc d{"kiv_stream_mem_cfg",
                               sizeof(T),
                               {INT(T, qpm_possible), INT(T, qpm_max_matrix_num),
                                INT(T, qpm_buf_max_num), ARR(T, max_stream, leaf<uint32_t>())}};
    return d;
}

static const record_desc &mem_desc()
{
    using T = kiv_mem_cfg_resource;
    static const record_desc d{"kiv_mem_cfg_resource",
                               sizeof(T),
                               {INT(T, max_chan_num), INT(T, max_stream_num),
                                ARR(T, channels_mem, leaf(chan_mem_desc())),
                                ARR(T, streams_mem, leaf(stream_mem_desc()))}};
    return d;
}

const record_desc &multi_chan_desc()
{
    using T = kiv_multi_chan_cfg;
    static const record_desc d{
        "kiv_multi_chan_cfg",
        sizeof(T),
        {INT(T, version), INT(T, chan_num), INT(T, canvas_num), INT(T, stream_num),
         INT(T, enable_hp_fps), INT(T, vin_short_line_detect),
         ARR(T, channels, leaf(channel_desc())), ARR(T, canvas, leaf(canvas_desc())),
         ARR(T, streams, leaf(stream_desc())), SUB(T, resource_mem_layout, mem_desc())}};
    return d;
}

const record_desc &calib_item_desc()
{
    using T = kiv_calib_data_item;
    static const record_desc d{"kiv_calib_data_item", sizeof(T), {HEX(T, addr), HEX(T, data)}};
    return d;
}

const record_desc &hevc_scaling_desc()
{
    using T = kiv_hevc_scaling_cfg;
    static const record_desc d{
        "kiv_hevc_scaling_cfg",
        sizeof(T),
        {ARR(T, scaling_list, leaf<uint32_t>()), ARR(T, scaling_list_dc, leaf<uint32_t>())}};
    return d;
}

static const record_desc &nn_map_desc()
{
    using T = kiv_nn_map;
    static const record_desc d{
        "kiv_nn_map",
        sizeof(T),
        {INT(T, dvi_id), INT(T, start), INT(T, cnt), ARR(T, id, leaf<uint8_t>())}};
    return d;
}

static const record_desc &nn_interface_desc()
{
    using T = kiv_nn_interface;
    static const record_desc d{
        "kiv_nn_interface", sizeof(T), {SUB(T, port, nn_map_desc()), SUB(T, poke, nn_map_desc())}};
    return d;
}

const record_desc &aisp_desc()
{
    using T = kiv_aisp_cfg;
    static const record_desc d{"kiv_aisp_cfg",
                               sizeof(T),
                               {HEX(T, fifo_addr), HEX(T, fifo_len), HEX(T, dag_addr),
                                INT(T, if_cnt), ARR(T, interfaces, leaf(nn_interface_desc()))}};
    return d;
}

std::vector<const record_desc *> all_record_descs()
{
    return {&virt_mode_desc(),    &vsrc_desc(),          &calib_item_desc(),   &pass_desc(),
            &src_buf_desc(),      &pyramid_layer_desc(), &pyramid_desc(),      &channel_desc(),
            &canvas_desc(),       &stream_desc(),        &chan_mem_desc(),     &stream_mem_desc(),
            &mem_desc(),          &multi_chan_desc(),    &hevc_scaling_desc(), &nn_map_desc(),
            &nn_interface_desc(), &aisp_desc()};
}

} // namespace kivtool
