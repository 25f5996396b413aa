#include "core/any.h"

#include <string.h>

#include "core/log.h"
#include "core/readers.h"
#include "core/run.h"

namespace
{

const char FN_MULTI[] = "kiv_get_multi_chan_cfg";
const char FN_SIZE[] = "kiv_get_calib_data_size";
const char FN_LOAD[] = "kiv_load_calib_data";
const char FN_HEVC[] = "kiv_get_hevc_scaling_cfg";
const char FN_AISP[] = "kiv_get_aisp_cfg";

// The global each kind defines, in the order they are looked for.
struct kind_global {
    const char *name;
    kiv_kind kind;
};
const kind_global KINDS[] = {{"_resource_config_", kiv_kind::multi_chan},
                             {"calib_data", kiv_kind::calib},
                             {"__hevc_scalelist__", kiv_kind::hevc},
                             {"_custom_aisp_config_", kiv_kind::aisp}};

kiv_kind kind_of(lua_State *L)
{
    for (const kind_global &g : KINDS) {
        const bool defined = lua_getglobal(L, g.name) != LUA_TNIL;
        lua_settop(L, -2);
        if (defined)
            return g.kind;
    }
    return kiv_kind::multi_chan;
}

struct any_run {
    kiv_any_load *load;
    bool counted;       // the calibration size was read to the end
    kiv_aisp_read aisp; // kept here: a Lua error may end its reading midway
};

int32_t read_calib(lua_State *L, any_run *r)
{
    kiv_any_load *load = r->load;
    const int64_t budget = kiv_run_budget();
    kiv_run_set_fn(FN_SIZE);
    int32_t count = 0;
    kiv_read_calib_count(L, &count);
    r->counted = true;
    load->calib_size = count;
    if (count <= 0)
        return -1;
    kiv_calib_data_item *items =
        load->calib_room ? load->calib_room(load->room_ctx, static_cast<uint32_t>(count)) : nullptr;
    if (!items)
        return -1;
    kiv_run_set_budget(budget);
    kiv_run_set_fn(FN_LOAD);
    kiv_calib_load items_load{items, static_cast<uint32_t>(count)};
    return kiv_read_calib_items(L, &items_load);
}

int32_t read_any(lua_State *L, void *ctx)
{
    any_run *r = static_cast<any_run *>(ctx);
    kiv_any_load *load = r->load;
    load->kind = kind_of(L);
    switch (load->kind) {
    case kiv_kind::multi_chan:
        return kiv_read_multi_chan(L, load->cfg);
    case kiv_kind::calib:
        return read_calib(L, r);
    case kiv_kind::hevc:
        kiv_run_set_fn(FN_HEVC);
        return kiv_read_hevc(L, load->hevc);
    case kiv_kind::aisp:
        kiv_run_set_fn(FN_AISP);
        return kiv_read_aisp(L, &r->aisp);
    }
    return -1;
}

} // namespace

int32_t kiv_load_any(const char *path, const char *text, size_t len, kiv_any_load *load)
{
    load->kind = kiv_kind::multi_chan;
    load->calib_size = 0;
    if (load->hevc)
        memset(load->hevc, 0, sizeof *load->hevc);
    if (load->fill)
        memset(load->fill, 0, sizeof *load->fill);
    any_run r{load, false, {load->aisp, 1, {}}};
    kiv_set_loading(load->cfg);
    int32_t ret = text ? kiv_run_text(FN_MULTI, path, text, len, read_any, &r, -2, -2)
                       : kiv_run_script(FN_MULTI, path, read_any, &r, -2, -2);
    kiv_set_loading(nullptr);
    // A calibration script whose count failed has size 0: nothing to load.
    if (load->kind == kiv_kind::calib && !r.counted)
        ret = -1;
    if (load->kind == kiv_kind::aisp && load->fill)
        *load->fill = r.aisp.fill;
    if (load->kind == kiv_kind::hevc && ret != 0 && load->hevc)
        memset(load->hevc, 0, sizeof *load->hevc);
    return ret;
}
