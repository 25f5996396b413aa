// One run of a configuration script of any kind, for tools that check
// scripts (the kiv tool): the script runs once and is read by the loader of
// the kind that the global table it defines names.  Not part of the
// library's interface.
#ifndef KIV_CORE_ANY_H
#define KIV_CORE_ANY_H

#include <stddef.h>
#include <stdint.h>

#include "aisp/aisp.h"
#include "kiv.h"

enum class kiv_kind : uint8_t { multi_chan, calib, hevc, aisp };

struct kiv_any_load {
    // Where the kinds' records go; the caller owns them.
    kiv_multi_chan_cfg *cfg;
    kiv_hevc_scaling_cfg *hevc;
    kiv_aisp_cfg *aisp;
    kiv_aisp_fill *fill;
    // Room for n calibration items, or null (then nothing is loaded).
    kiv_calib_data_item *(*calib_room)(void *ctx, uint32_t n);
    void *room_ctx;
    // Filled by the run: the kind, and for calibration data what
    // kiv_get_calib_data_size returned.
    kiv_kind kind;
    int32_t calib_size;
};

// Runs the script (`text` when not null, else the file at `path`; `path`
// names it in the messages either way) and reads it as the exported
// loaders of its kind would, with their messages and results:
//  - _resource_config_ defined, or none of the four below, or a script
//    that fails to run: kiv_get_multi_chan_cfg into load->cfg;
//  - calib_data: kiv_get_calib_data_size, then kiv_load_calib_data of that
//    many items into calib_room's room; the result is -1 when the size is
//    0 (nothing to load, the size call said why);
//  - __hevc_scalelist__: kiv_get_hevc_scaling_cfg into load->hevc;
//  - _custom_aisp_config_: kiv_get_aisp_cfg of type 1 into load->aisp,
//    with load->fill.
// The first of these globals that is defined decides.  Each reading starts
// with the budget a run of its own would have left it.
int32_t kiv_load_any(const char *path, const char *text, size_t len, kiv_any_load *load);

#endif
