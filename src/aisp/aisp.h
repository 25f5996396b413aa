// Custom AISP networks: what a load reports beyond the record.
#ifndef KIV_AISP_AISP_H
#define KIV_AISP_AISP_H

#include <stdint.h>

#include "kiv.h"

// The record's 4-bit if_cnt holds the interface count of the network read
// last only, so a script of several networks does not tell through the
// record how many of its interface entries were filled.  This report does,
// without changing the record: entries interfaces[0 .. filled-1] hold
// complete port and poke maps, entry e came from network nn_of[e] (0-based
// position in custom_nn), and the networks fill their entries one after
// another in script order.
struct kiv_aisp_fill {
    uint32_t nn_cnt; // networks in custom_nn (0 when the list was not reached)
    uint32_t filled; // complete interface entries, at most KIV_AISP_MAX_INTERFACES
    uint32_t nn_of[KIV_AISP_MAX_INTERFACES];
};

// The number of interface entries that network nn filled.
uint32_t kiv_aisp_entries_of(const kiv_aisp_fill *fill, uint32_t nn);

// kiv_get_aisp_cfg, also filling `fill` (when not null) with what was stored,
// on success and on failure alike.  Same messages and results.
int32_t kiv_get_aisp_cfg_fill(const char *path, kiv_aisp_cfg *cfg, uint8_t type,
                              kiv_aisp_fill *fill);

#endif
