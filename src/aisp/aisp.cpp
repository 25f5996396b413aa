// Custom AISP networks: the boot parameters of the networks and the port and
// poke maps of their interfaces, from a script whose global table is
// _custom_aisp_config_.
#include "aisp/aisp.h"

#include <string.h>

#include "core/access.h"
#include "core/export.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/readers.h"

static const char FN[] = "kiv_get_aisp_cfg";
static const char FN_DO[] = "do_kiv_get_custom_aisp_cfg";
static const char FN_BOOT[] = "kiv_get_custom_nn_bootup_param";
static const char FN_INFO[] = "kiv_get_custom_nn_info";
static const char FN_MAP[] = "kiv_get_nn_map";

// The one configuration type this library handles.
static const uint8_t AISP_TYPE_CUSTOM = 1;
// Ids a port or poke map holds.
static const int32_t MAP_MAX_IDS = 4;

// boot_param, in reading order.
static const kiv_key BOOT_KEYS[] = {
    {"fifo_addr", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_aisp_cfg, fifo_addr), nullptr, nullptr},
    {"fifo_len", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_aisp_cfg, fifo_len), nullptr, nullptr},
    {"dag_addr", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_aisp_cfg, dag_addr), nullptr, nullptr},
};

// The one integer of a network; its low 4 bits are kept.
static const kiv_key NN_KEYS[] = {
    {"if_cnt", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_aisp_cfg, if_cnt), nullptr, nullptr},
};

// A port or poke map, before its id list; each value keeps its low 8 bits.
static const kiv_key MAP_KEYS[] = {
    {"dvi_id", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_nn_map, dvi_id), nullptr, nullptr},
    {"start", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_nn_map, start), nullptr, nullptr},
    {"cnt", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_nn_map, cnt), nullptr, nullptr},
};

uint32_t kiv_aisp_entries_of(const kiv_aisp_fill *fill, uint32_t nn)
{
    uint32_t n = 0;
    for (uint32_t e = 0; e < fill->filled && e < KIV_AISP_MAX_INTERFACES; ++e)
        n += fill->nn_of[e] == nn;
    return n;
}

// The 1 to 4 ids of the map on top; elements of `id` beyond the number given
// keep what the record held.
static int32_t read_map_ids(lua_State *L, kiv_nn_map *map)
{
    KIV_STACK_GUARD(L);
    int32_t ids[MAP_MAX_IDS];
    int32_t n = kiv_get_array_integers_str(L, "id", ids, MAP_MAX_IDS);
    if (n < 1 || n > MAP_MAX_IDS) {
        // The same words for a poke map.
        KIV_ERR_AT(61, FN_MAP, "invalid port id num!\n");
        return -2;
    }
    for (int32_t i = 0; i < n; ++i)
        map->id[i] = static_cast<uint8_t>(ids[i]);
    return 0;
}

// The port (is_poke 0) or poke (is_poke 1) map of the interface on top.  A
// map that is not a table is refused like a missing one.
static int32_t kiv_get_nn_map(lua_State *L, kiv_nn_map *map, int is_poke)
{
    KIV_STACK_GUARD(L);
    const char *key = is_poke ? "poke" : "port";
    if (!kiv_enter_str(L, key)) {
        KIV_ERR_AT(76, FN_MAP, "item(%s) doesn't exist\n", key);
        return -2;
    }
    int32_t ret = kiv_read_keys(L, FN_MAP, map, MAP_KEYS);
    if (ret == 0)
        ret = read_map_ids(L, map);
    kiv_leave(L);
    return ret;
}

// Enters element `index` of the array `name` on top.  The count of the array
// does not guarantee the element: an `interfaces` array shorter than if_cnt,
// or an element that is not a table, is outside the format and refused as a
// missing item.
static int32_t enter_element(lua_State *L, const char *name, int32_t index)
{
    if (kiv_enter_int(L, index))
        return 1;
    KIV_ERR_AT(94, FN_INFO, "item(%s) doesn't have item of index(%d)\n", name, index);
    return 0;
}

// The interfaces of the network on top (network nn of custom_nn), into the
// entries after those already filled.
static int32_t read_network(lua_State *L, uint32_t nn, kiv_aisp_cfg *cfg, kiv_aisp_fill *fill)
{
    KIV_STACK_GUARD(L);
    int32_t ret = kiv_read_keys(L, FN_INFO, cfg, NN_KEYS);
    if (ret != 0)
        return ret;
    uint32_t if_cnt = cfg->if_cnt;
    // The record holds KIV_AISP_MAX_INTERFACES entries for all networks
    // together; a script that needs more is refused before anything is
    // written past them.
    if (if_cnt > KIV_AISP_MAX_INTERFACES - fill->filled) {
        KIV_ERR_AT(111, FN_INFO,
                   "nn(%u) has %u interfaces, only %u of %d interface entries are left\n", nn,
                   if_cnt, KIV_AISP_MAX_INTERFACES - fill->filled, KIV_AISP_MAX_INTERFACES);
        return -2;
    }
    if (!kiv_enter_str(L, "interfaces")) {
        KIV_ERR_AT(116, FN_INFO, "item(%s) doesn't exist\n", "interfaces");
        return -2;
    }
    for (uint32_t k = 0; k < if_cnt; ++k) {
        if (!enter_element(L, "interfaces", static_cast<int32_t>(k))) {
            ret = -2;
            break;
        }
        kiv_nn_interface *entry = &cfg->interfaces[fill->filled];
        ret = kiv_get_nn_map(L, &entry->port, 0);
        if (ret == 0)
            ret = kiv_get_nn_map(L, &entry->poke, 1);
        kiv_leave(L);
        if (ret != 0)
            break;
        fill->nn_of[fill->filled++] = nn;
    }
    kiv_leave(L);
    return ret;
}

// Besides the record, the step keeps the fill report (aisp.h): the entries
// filled so far are where the next network starts and what the capacity
// check counts.
static int32_t kiv_get_custom_nn_info(lua_State *L, kiv_aisp_cfg *cfg, kiv_aisp_fill *fill)
{
    KIV_STACK_GUARD(L);
    // A custom_nn that is not a table counts 0 like a missing one.
    int32_t nn_cnt = kiv_get_array_item_num_str(L, "custom_nn");
    if (nn_cnt == 0) {
        KIV_ERR_AT(146, FN_INFO, "Invalid nn cnt!\n");
        return -2;
    }
    fill->nn_cnt = static_cast<uint32_t>(nn_cnt);
    if (!kiv_enter_str(L, "custom_nn"))
        return -2; // not reached: a counted array is a table
    int32_t ret = 0;
    for (int32_t n = 0; n < nn_cnt; ++n) {
        if (!enter_element(L, "custom_nn", n)) {
            ret = -2;
            break;
        }
        ret = read_network(L, static_cast<uint32_t>(n), cfg, fill);
        kiv_leave(L);
        if (ret != 0)
            break;
    }
    kiv_leave(L);
    return ret;
}

// A boot_param that is not a table is reported like a missing one.
static int32_t kiv_get_custom_nn_bootup_param(lua_State *L, kiv_aisp_cfg *cfg)
{
    KIV_STACK_GUARD(L);
    if (!kiv_enter_str(L, "boot_param")) {
        KIV_WARN_AT(172, FN_BOOT, "item(%s) doesn't exist\n", "boot_param");
        return -2;
    }
    int32_t ret = kiv_read_keys(L, FN_BOOT, cfg, BOOT_KEYS);
    kiv_leave(L);
    return ret;
}

// Everything after the script has run.  A _custom_aisp_config_ that is not a
// table is refused like a missing one.
static int32_t do_kiv_get_custom_aisp_cfg(lua_State *L, kiv_aisp_cfg *cfg, kiv_aisp_fill *fill)
{
    KIV_STACK_GUARD(L);
    if (lua_getglobal(L, "_custom_aisp_config_") != LUA_TTABLE) {
        lua_settop(L, -2);
        KIV_ERR_AT(187, FN_DO, "invalid custom aisp config file\n");
        return -1;
    }
    int32_t ret = 0;
    if (kiv_get_custom_nn_bootup_param(L, cfg) != 0) {
        KIV_ERR_AT(192, FN_DO, "get network bootup param error\n");
        ret = -1;
    } else if (kiv_get_custom_nn_info(L, cfg, fill) < 0) {
        KIV_ERR_AT(195, FN_DO, "get custom nn info error\n");
        ret = -1;
    }
    lua_settop(L, -2);
    return ret;
}

// The reading step of kiv_get_aisp_cfg (readers.h): ctx is a kiv_aisp_read.
// Its fill reports the interface entries stored; it lives in the context,
// not on this function's stack, because a Lua error can end the reading
// before it returns and the caller reports a failed load's fill too.  Tools
// that tell a script's kind by running it once call it via kiv_load_any.

int32_t kiv_read_aisp(lua_State *L, void *ctx)
{
    kiv_aisp_read *c = static_cast<kiv_aisp_read *>(ctx);
    // Other types have no meaning yet; they are refused silently once the
    // script has run.
    if (c->type != AISP_TYPE_CUSTOM)
        return -1;
    return do_kiv_get_custom_aisp_cfg(L, c->cfg, &c->fill);
}

int32_t kiv_get_aisp_cfg_fill(const char *path, kiv_aisp_cfg *cfg, uint8_t type,
                              kiv_aisp_fill *fill)
{
    if (fill)
        memset(fill, 0, sizeof *fill);
    if (!path || !cfg) {
        KIV_ERR_AT(224, FN, "the 1st or 2nd param is NULL\n");
        return -1;
    }
    kiv_aisp_read ctx{};
    ctx.cfg = cfg;
    ctx.type = type;
    int32_t ret = kiv_run_script(FN, path, kiv_read_aisp, &ctx, -2, -2);
    if (fill)
        *fill = ctx.fill;
    return ret;
}

KIV_API int32_t kiv_get_aisp_cfg(const char *path, kiv_aisp_cfg *cfg, uint8_t type)
{
    return kiv_get_aisp_cfg_fill(path, cfg, type, nullptr);
}
