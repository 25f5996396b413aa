/*
 * kiv.h - configuration loader of the multi-channel video pipeline.
 *
 * The library runs a Lua configuration script in a fresh interpreter, checks
 * every item and fills a record that the caller owns.  It reports what it
 * finds through a leveled log on standard output and tells the outcome by a
 * signed result: 0 for success, -1 or -2 for failure.
 *
 * Every record below is a plain fixed-size structure without pointers
 * (little-endian, natural alignment).  Bit-fields are allocated from the
 * lowest bit of their 32-bit storage unit, and an 8-bit or 16-bit plain
 * member may share a storage unit with the bit-fields before it.
 *
 * This header is plain C (C99 and later) and compiles as C++ too.
 */
#ifndef KIV_H
#define KIV_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Capacity of kiv_aisp_cfg.interfaces: the interface entries of all the
 * networks of one custom AISP script together. */
#define KIV_AISP_MAX_INTERFACES 32

/* ------------------------------------------------------------------------
 * Video source
 * ---------------------------------------------------------------------- */

/* Virtual mode: an explicit description of a video input. */
typedef struct kiv_virt_mode_cfg {
    uint32_t width;
    uint32_t height;
    uint32_t hdr_mode; /* 0 linear, 1 2x, 2 3x, 15 wdr */
    int32_t hdr_offset_long;
    int32_t hdr_offset_short1;
    int32_t hdr_offset_short2;
    int32_t hdr_offset_short3;
    uint32_t default_fps; /* thousandths of a frame per second */
    uint32_t max_fps;     /* thousandths of a frame per second */
    uint32_t sensor_id;
    uint32_t agc_db_step;
    uint32_t bits : 5;
    uint32_t dual_gain_mode : 2;
    uint32_t video_type : 5;
} kiv_virt_mode_cfg;

/* One video input that feeds one or more channels. */
typedef struct kiv_vsrc_cfg {
    uint32_t vsrc_id;
    int32_t mode; /* vin mode id; 0xF001 for a virtual mode */
    uint32_t fps; /* whole frames per second */
    uint32_t hdr_mode;
    uint32_t bits : 5;
    uint32_t vsrc_status : 3;
    uint32_t vsrc_ctx_switch : 1;
    uint32_t dg_mode : 4;
    uint32_t virt_mode_cfg_enable : 1;
    uint8_t mirror; /* bits 16-23 of the unit above; 255 = not configured */
    uint8_t bayer;  /* bits 24-31 of the unit above; 255 = not configured */
    char calib_data[256];
    uint32_t fps_hp;  /* thousandths of a frame per second */
    uint32_t max_fps; /* thousandths of a frame per second */
    kiv_virt_mode_cfg virt_mode_cfg;
} kiv_vsrc_cfg;

/* Calibration data: one (address, data) pair. */
typedef struct kiv_calib_data_item {
    uint32_t reserved; /* never touched by the library */
    uint32_t addr;
    uint32_t data;
} kiv_calib_data_item;

/* ------------------------------------------------------------------------
 * Channel
 * ---------------------------------------------------------------------- */

/* One pass of source buffers. */
typedef struct kiv_pass_cfg {
    uint8_t input_pass_id;
    uint8_t input_buf_id;
    uint8_t reserved[2];
} kiv_pass_cfg;

/* One source buffer. */
typedef struct kiv_src_buf_cfg {
    uint32_t max_output[2];
    uint32_t input[4];
    uint32_t output[4];
    int32_t canvas_id; /* -1 = bound to no canvas */
    uint32_t reserved;
} kiv_src_buf_cfg;

/* Crop window of one pyramid layer. */
typedef struct kiv_pyramid_layer {
    uint32_t crop_win[4];
} kiv_pyramid_layer;

/* Image pyramid of a channel. */
typedef struct kiv_pyramid_cfg {
    uint32_t input_buf_id;
    uint32_t layer_map : 6;
    uint32_t max_layer_map : 6;
    uint32_t cached_items : 6;
    uint32_t : 14;
    uint32_t scale_type;
    int64_t buf_addr;
    uint32_t buf_size;
    kiv_pyramid_layer layers[6];
    uint32_t rescale_size[2];
    uint32_t max_rescale_size[2];
    uint8_t item_num;
    uint8_t frame_rate; /* whole frames per second */
    uint32_t manual_feed : 1;
    uint32_t set_min_unlocked_buf_num : 1;
    uint32_t enable_frame_tag : 1;
    uint32_t : 5;
    uint8_t min_unlocked_buf_num;
    uint32_t frame_tag_value;
    uint32_t frame_tag_mask;
    uint32_t frame_rate_hp; /* thousandths of a frame per second */
} kiv_pyramid_cfg;

/* One processing channel. */
typedef struct kiv_channel_cfg {
    /* unit A */
    uint8_t id; /* 0xFF = element not configured */
    uint8_t img_stats_src_chan;
    uint32_t configured : 1;
    uint32_t sensor_ctrl : 1;
    uint32_t lens_warp : 1;
    uint32_t expo_num : 3;
    uint32_t blend_left_or_top : 1;
    uint32_t blend_right_or_bot : 1;
    uint32_t lens_warp_hi_ef_factor : 3;
    uint32_t extra_iso_cfg : 5;
    uint32_t max_padding_width;
    uint32_t max_main_input_width;
    /* unit B */
    uint8_t vsrc_ctx;
    uint32_t extra_downscale : 1;
    uint32_t mctf_cmpr : 1;
    uint32_t mctf_10bit_ref : 1;
    uint32_t main_burst_tile : 1;
    uint32_t low_delay_vin_vout : 1;
    uint32_t invert_mode : 1;
    uint32_t packing_mode_enable : 1;
    uint32_t use_vsrc_ctx_pattern : 1;
    uint32_t luma_alpha_blend : 1;
    uint32_t extract_mono : 1;
    uint32_t : 6;
    uint32_t pass_num : 3;
    uint32_t rotate_cw : 1;
    uint32_t hflip : 1;
    uint32_t vflip : 1;
    uint32_t idsp_fps_locked_enable : 1;
    uint32_t raw_vflip : 1;
    /* unit C */
    uint8_t vcap_mode_flags;
    uint32_t max_vwarp_blk_height : 7;
    uint32_t raw_capture : 1;
    uint32_t app_img_profile : 5;
    uint32_t vsrc_region_num : 4;
    uint32_t vsrc_region_map : 4;
    uint32_t is_still_fusion : 1;
    uint32_t enable_tml_raw_packing : 1;
    uint32_t enable_tml_proc : 1;
    uint32_t vsrc_ctx_pattern;
    uint32_t vsrc_ctx_pattern_mask;
    kiv_vsrc_cfg vsrc;
    kiv_pass_cfg pass_cfg[2];
    kiv_src_buf_cfg src_buf[2][7];
    kiv_pyramid_cfg pyramid;
    uint32_t max_warp_input_width;
    uint32_t max_warp_output_width;
    /* unit D */
    uint32_t mc_mask_buf_ds : 3;
    uint32_t enable_group : 1;
    uint32_t group_idx : 2;
    uint32_t raw_dsp_priv_dram : 1;
    uint32_t group_sync : 1;
    uint32_t eis_delay_count : 3;
    uint32_t raw_manual_feed : 1;
    uint32_t raw_feed_frame_num : 7;
    uint32_t raw_cached_items : 5;
    uint8_t srcbuf_to_skip_blend;
    /* unit E */
    uint32_t srcbuf_to_fusion : 3;
    uint32_t group_order_idx : 3;
    uint32_t hdec_raw_format : 2;
    uint32_t debug_stitch_slice_num : 4;
    uint32_t dis_enable : 1;
    uint32_t mcts_crop_out_enable : 1;
    uint32_t debug_default_hds_coeff : 1;
    uint32_t debug_disable_vin_12x_ds : 1;
    uint16_t max_raw_height;
    /* unit F */
    uint32_t max_vwarp_wait_lines : 10;
    uint32_t max_cawarp_h_spacing : 3;
    uint32_t reuse_src_chan_iso_cfg : 1;
    uint32_t trigger_led : 1;
    uint32_t : 1;
    uint16_t vsrc_ctx_pattern_addr_offset;
    uint32_t idsp_fps_hp; /* thousandths of a frame per second */
    uint32_t idsp_fps;    /* whole frames per second */
} kiv_channel_cfg;

/* ------------------------------------------------------------------------
 * Canvas and stream
 * ---------------------------------------------------------------------- */

/* One picture surface composed from channel source buffers. */
typedef struct kiv_canvas_cfg {
    int32_t id; /* -1 = not configured */
    uint32_t width;
    uint32_t height;
    uint32_t type; /* 0 off, 1 encode, 2 prev */
    uint32_t extra_dram_buf;
    /* first bit-field word */
    uint32_t frame_rate : 8;
    uint32_t manual_feed : 1;
    uint32_t feed_frame_num : 7;
    uint32_t clear_background : 1;
    uint32_t enc_dummy_latency : 4;
    uint32_t dsp_priv_dram : 1;
    uint32_t disable_yuv_dram : 1;
    uint32_t set_min_unlocked_buf_num : 1;
    uint32_t cached_items : 8;
    /* second bit-field word */
    uint32_t canvas_id : 5;
    uint32_t enable_order : 1;
    uint32_t source_chan_num : 4;
    uint32_t : 22;
    uint8_t source_chan_ids[12];
    /* third bit-field word */
    uint32_t min_unlocked_buf_num : 8;
    uint32_t enable_frame_tag : 1;
    uint32_t zero_fps : 1;
    uint32_t fps_locked_enable : 1;
    uint32_t vout_id : 1;
    uint32_t vout_YUV422 : 1;
    uint32_t me_for_mf : 1;
    uint32_t disable_me_dram : 1;
    uint32_t frame_tag_value;
    uint32_t frame_tag_mask;
    uint32_t frame_rate_hp; /* thousandths of a frame per second */
} kiv_canvas_cfg;

/* One encoded stream. */
typedef struct kiv_stream_cfg {
    /* first bit-field word */
    uint32_t id : 8;
    uint32_t max_M : 8;
    uint32_t js_enable : 1;
    uint32_t used_for_vout_enable : 1;
    uint32_t used_for_vout_id : 1;
    uint32_t : 13;
    /* second bit-field word */
    uint32_t fast_seek_enable : 1;
    uint32_t two_ref_enable : 1;
    uint32_t max_svct_layers_minus_1 : 2;
    uint32_t max_num_minus_1_ltrs : 1;
    uint32_t codec_enable : 3;
    uint32_t efm_enable : 1;
    uint32_t efm_buf_num : 4;
    uint32_t efm_skip_waiting : 1;
    uint32_t efm_extern_src_enable : 1;
    uint32_t efm_extern_src_stream : 7;
    uint32_t stream_mv_statis_enable : 1;
    uint32_t stream_pic_statis_enable : 1;
    uint32_t dis_enable : 1;
    uint32_t dis_cached_items : 7;
    uint32_t max_width;
    uint32_t max_height;
    uint32_t efm_width;
    uint32_t efm_height;
    uint16_t possible_enc_src_map;
} kiv_stream_cfg;

/* ------------------------------------------------------------------------
 * Resource memory layout
 * ---------------------------------------------------------------------- */

typedef struct kiv_chan_mem_cfg {
    uint32_t mask_possible : 1;
    uint32_t mc_mask_possible : 1;
    uint32_t warp_possible : 1;
    uint32_t mask_buf_max_num : 6;
    uint32_t mc_mask_buf_max_num : 6;
    uint32_t warp_buf_max_num : 6;
    uint32_t warp_area_max_num : 6;
    uint32_t mc_mask_buf_ds : 3;
    uint32_t max_vin[2]; /* width, height */
} kiv_chan_mem_cfg;

typedef struct kiv_stream_mem_cfg {
    uint32_t qpm_possible : 1;
    uint32_t qpm_max_matrix_num : 3;
    uint32_t qpm_buf_max_num : 4;
    uint32_t max_stream[2]; /* width, height */
} kiv_stream_mem_cfg;

typedef struct kiv_mem_cfg_resource {
    uint32_t max_chan_num : 5;
    uint32_t max_stream_num : 5;
    kiv_chan_mem_cfg channels_mem[12];
    kiv_stream_mem_cfg streams_mem[13];
} kiv_mem_cfg_resource;

/* ------------------------------------------------------------------------
 * Multi-channel configuration
 * ---------------------------------------------------------------------- */

typedef struct kiv_multi_chan_cfg {
    uint8_t version;
    uint8_t chan_num;
    uint8_t canvas_num;
    uint8_t stream_num;
    uint32_t enable_hp_fps : 1;
    uint32_t vin_short_line_detect : 1;
    kiv_channel_cfg channels[3];
    kiv_canvas_cfg canvas[12];
    kiv_stream_cfg streams[13];
    kiv_mem_cfg_resource resource_mem_layout;
} kiv_multi_chan_cfg;

/* ------------------------------------------------------------------------
 * HEVC scaling lists
 * ---------------------------------------------------------------------- */

typedef struct kiv_hevc_scaling_cfg {
    uint32_t scaling_list[4][6][64]; /* [size][list][position] */
    uint32_t scaling_list_dc[4][6];  /* [size][list] */
} kiv_hevc_scaling_cfg;

/* ------------------------------------------------------------------------
 * Custom AISP networks
 * ---------------------------------------------------------------------- */

typedef struct kiv_nn_map {
    uint8_t dvi_id;
    uint8_t start;
    uint8_t cnt;
    uint8_t reserved; /* never touched by the library */
    uint8_t id[4];
} kiv_nn_map;

typedef struct kiv_nn_interface {
    kiv_nn_map port;
    kiv_nn_map poke;
} kiv_nn_interface;

typedef struct kiv_aisp_cfg {
    uint32_t fifo_addr;
    uint32_t fifo_len;
    uint32_t dag_addr;
    uint32_t if_cnt : 4; /* interface count of the network read last */
    uint32_t : 28;
    kiv_nn_interface interfaces[KIV_AISP_MAX_INTERFACES];
} kiv_aisp_cfg;

/* ------------------------------------------------------------------------
 * Exported functions
 * ---------------------------------------------------------------------- */

/* Resets cfg: every byte 0, then every channel id 0xFF, every source
 * buffer canvas_id -1 and every canvas id -1.
 * Returns 0, or -1 (and logs an error) when cfg is NULL. */
int32_t kiv_init(kiv_multi_chan_cfg *cfg);

/* Runs the multi-channel script at path and fills cfg (reset first, once
 * the script has run).  Also sets the process-wide log level and
 * high-precision frame-rate flag from the script.
 * Returns 0 on success; -1 or -2 on failure, after which cfg is partly
 * filled and must not be used. */
int32_t kiv_get_multi_chan_cfg(const char *path, kiv_multi_chan_cfg *cfg);

/* Writes cfg as a script that kiv_get_multi_chan_cfg loads again: to the
 * file at path, or to standard output when path is NULL or the file cannot
 * be opened (the latter after an error line).
 * Returns 0, or -1 when cfg is NULL. */
int32_t kiv_dump_multi_chan_cfg(const kiv_multi_chan_cfg *cfg, const char *path);

/* Returns the number of items of the table calib_data of the calibration
 * script at path, or 0 on any failure. */
int32_t kiv_get_calib_data_size(const char *path);

/* Copies the first data_size (address, data) items of the calibration
 * script at path into items[0 .. data_size-1] (the reserved field of each
 * entry is left as it is).
 * Returns 0; -1 for a NULL argument, a data_size of 0 or a script without
 * calib_data; -2 when the script fails or has fewer items. */
int32_t kiv_load_calib_data(const char *path, kiv_calib_data_item *items, uint32_t data_size);

/* Clears cfg and fills it from the HEVC scaling-list script at path.
 * Returns 0; -1 for a NULL argument or a script without
 * __hevc_scalelist__; -2 when the script fails to load or run. */
int32_t kiv_get_hevc_scaling_cfg(const char *path, kiv_hevc_scaling_cfg *cfg);

/* Fills cfg from the custom AISP script at path; type must be 1.
 * Returns 0; -1 for a NULL argument, another type, or a script whose
 * boot parameters or networks are faulty; -2 when the script fails to
 * load or run. */
int32_t kiv_get_aisp_cfg(const char *path, kiv_aisp_cfg *cfg, uint8_t type);

/* Returns the library's version, "MAJOR.MINOR.PATCH" (the version its
 * pkg-config file and package give), as a static string. */
const char *kiv_version(void);

#ifdef __cplusplus
}
#endif

#endif /* KIV_H */
