// HEVC scaling lists: the coefficient lists and DC values of a scaling-list
// script (global table __hevc_scalelist__) stored [size][list] like the
// encoder's sizeId and matrixId.
#include <string.h>

#include "core/access.h"
#include "core/export.h"
#include "core/log.h"
#include "core/readers.h"
#include "kiv.h"

static const char FN[] = "kiv_get_hevc_scaling_cfg";

enum { SIZES = 4, LISTS = 6, NAME_LEN = 32, MAX_COEFS = 64 };

// Names of the lists, laid out [size][list] like the record.  32x32 has only
// an intra and an inter luma list, kept at list 0 and 1; its empty rows have
// no key and their places in the record stay 0.
static const char LIST_KEYS[SIZES][LISTS][NAME_LEN] = {
    {"INTRA4X4_LUMA", "INTRA4X4_CHROMAU", "INTRA4X4_CHROMAV", "INTER4X4_LUMA", "INTER4X4_CHROMAU",
     "INTER4X4_CHROMAV"},
    {"INTRA8X8_LUMA", "INTRA8X8_CHROMAU", "INTRA8X8_CHROMAV", "INTER8X8_LUMA", "INTER8X8_CHROMAU",
     "INTER8X8_CHROMAV"},
    {"INTRA16X16_LUMA", "INTRA16X16_CHROMAU", "INTRA16X16_CHROMAV", "INTER16X16_LUMA",
     "INTER16X16_CHROMAU", "INTER16X16_CHROMAV"},
    {"INTRA32X32_LUMA", "INTER32X32_LUMA", "", "", "", ""},
};

// Names of the DC values, in the same layout.  4x4 and 8x8 have DC keys too
// and they are read like the others.
static const char DC_KEYS[SIZES][LISTS][NAME_LEN] = {
    {"INTRA4X4_LUMA_DC", "INTRA4X4_CHROMAU_DC", "INTRA4X4_CHROMAV_DC", "INTER4X4_LUMA_DC",
     "INTER4X4_CHROMAU_DC", "INTER4X4_CHROMAV_DC"},
    {"INTRA8X8_LUMA_DC", "INTRA8X8_CHROMAU_DC", "INTRA8X8_CHROMAV_DC", "INTER8X8_LUMA_DC",
     "INTER8X8_CHROMAU_DC", "INTER8X8_CHROMAV_DC"},
    {"INTRA16X16_LUMA_DC", "INTRA16X16_CHROMAU_DC", "INTRA16X16_CHROMAV_DC", "INTER16X16_LUMA_DC",
     "INTER16X16_CHROMAU_DC", "INTER16X16_CHROMAV_DC"},
    {"INTRA32X32_LUMA_DC", "INTER32X32_LUMA_DC", "", "", "", ""},
};

// One list and its DC value.  A list without its DC item takes its first
// coefficient as DC; a DC item, when present, always wins.
static void read_list(lua_State *L, const char *key, const char *dc_key, uint32_t *coefs,
                      uint32_t *dc)
{
    KIV_STACK_GUARD(L);
    if (key[0] != '\0') {
        // Coefficients after the 64th are ignored.
        int32_t v[MAX_COEFS];
        int32_t c = kiv_get_array_integers_str(L, key, v, MAX_COEFS);
        if (c == 0)
            KIV_WARN_AT(52, FN, "item(%s) doesn't exist\n", key);
        for (int32_t i = 0; i < c && i < MAX_COEFS; ++i)
            coefs[i] = static_cast<uint32_t>(v[i]);
        if (c > 0)
            *dc = static_cast<uint32_t>(v[0]);
    }
    if (dc_key[0] != '\0') {
        int32_t v = 0;
        if (kiv_get_integer_item_str(L, dc_key, &v) == 0)
            *dc = static_cast<uint32_t>(v);
        else
            KIV_WARN_AT(63, FN, "item(%s) doesn't exist\n", dc_key);
    }
}

int32_t kiv_read_hevc(lua_State *L, void *ctx)
{
    KIV_STACK_GUARD(L);
    kiv_hevc_scaling_cfg *cfg = static_cast<kiv_hevc_scaling_cfg *>(ctx);
    // A __hevc_scalelist__ that is not a table cannot be read and is refused
    // like a missing one.
    if (lua_getglobal(L, "__hevc_scalelist__") != LUA_TTABLE) {
        lua_settop(L, -2);
        KIV_ERR_AT(75, FN, "Invalid hevc_scalelist file\n");
        return -1;
    }
    for (int s = 0; s < SIZES; ++s)
        for (int m = 0; m < LISTS; ++m)
            read_list(L, LIST_KEYS[s][m], DC_KEYS[s][m], cfg->scaling_list[s][m],
                      &cfg->scaling_list_dc[s][m]);
    lua_settop(L, -2);
    return 0;
}

KIV_API int32_t kiv_get_hevc_scaling_cfg(const char *path, kiv_hevc_scaling_cfg *cfg)
{
    if (!path || !cfg) {
        KIV_ERR_AT(89, FN, "the 1st or 2nd param is NULL\n");
        return -1;
    }
    // Cleared before the script runs, and again when the run fails: every
    // failure leaves the record zero (a Lua error raised while reading, such
    // as running out of memory, may come after some lists were stored).
    memset(cfg, 0, sizeof *cfg);
    int32_t ret = kiv_run_script(FN, path, kiv_read_hevc, cfg, -2, -2);
    if (ret != 0)
        memset(cfg, 0, sizeof *cfg);
    return ret;
}
