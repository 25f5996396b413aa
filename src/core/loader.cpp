// The multi-channel loader: runs the script, reads the four top-level items
// of _resource_config_ itself and hands the table to the section parsers in
// their fixed order.
#include "core/access.h"
#include "core/export.h"
#include "core/log.h"
#include "core/readers.h"
#include "core/sections.h"
#include "kiv.h"

static const char FN[] = "kiv_get_multi_chan_cfg";

// The format version this library reads and writes.
static const int32_t CURRENT_VERSION = 1;
// The highest log level a script may set.
static const int32_t MAX_LOG_LEVEL = 3;

// version, log_level, enable_hp_fps and vin_short_line_detect, in this order.
static int32_t read_top_level(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    int32_t v = 0;
    if (kiv_get_integer_item_str(L, "version", &v) != 0) {
        KIV_ERR_AT(23, FN, "item(%s) doesn't exist.\n", "version");
        return -2;
    }
    cfg->version = static_cast<uint8_t>(v);
    if (cfg->version > CURRENT_VERSION) {
        KIV_ERR_AT(28, FN, "invalid multi-channel lua version: %d, current version is: %d\n",
                   cfg->version, CURRENT_VERSION);
        return -1;
    }

    if (kiv_get_integer_item_str(L, "log_level", &v) == 0) {
        if (v <= MAX_LOG_LEVEL)
            kiv_set_log_level(v);
        else
            KIV_WARN_AT(37, FN,
                        "log_level(%d) should be less equal than %d, use default level(%d)\n", v,
                        MAX_LOG_LEVEL, kiv_get_log_level());
    }

    v = 0;
    if (kiv_get_integer_item_str(L, "enable_hp_fps", &v) != 0)
        KIV_WARN_AT(43, FN, "item(%s) doesn't exist, set 0 by default.\n", "enable_hp_fps");
    cfg->enable_hp_fps = v & 1;
    kiv_set_hp_fps(v & 1);

    v = 0;
    if (kiv_get_integer_item_str(L, "vin_short_line_detect", &v) != 0)
        KIV_WARN_AT(49, FN, "item(%s) doesn't exist, set 0 by default.\n", "vin_short_line_detect");
    cfg->vin_short_line_detect = v & 1;
    return 0;
}

// Every element 0 .. chan_num-1 must hold the channel with that id.
static int32_t check_channel_numbering(const kiv_multi_chan_cfg *cfg)
{
    for (int i = 0; i < cfg->chan_num && i < 3; ++i) {
        const kiv_channel_cfg &chan = cfg->channels[i];
        if (!chan.configured) {
            KIV_ERR_AT(60, FN, "channel index must be continuous and start from index 0\n");
            return -2;
        }
        if (chan.id != i) {
            KIV_ERR_AT(64, FN, "invalid channel id(%d) of channel%d\n", chan.id, i);
            return -1;
        }
    }
    return 0;
}

// Runs once the script has run, in protected mode.
int32_t kiv_read_multi_chan(lua_State *L, void *ctx)
{
    kiv_multi_chan_cfg *cfg = static_cast<kiv_multi_chan_cfg *>(ctx);
    kiv_init(cfg);

    // _resource_config_ stays on top of the stack for every later step.  A
    // value that is not a table cannot be read and counts as absent.
    if (lua_getglobal(L, "_resource_config_") != LUA_TTABLE) {
        KIV_ERR_AT(80, FN, "invalid multi_channel config file\n");
        return -1;
    }
    KIV_STACK_GUARD(L);

    int32_t ret = read_top_level(L, cfg);
    if (ret != 0)
        return ret;

    if (kiv_get_channel_cfg(L, cfg) != 0) {
        KIV_ERR_AT(90, FN, "get channel config error\n");
        return -2;
    }
    ret = check_channel_numbering(cfg);
    if (ret != 0)
        return ret;
    if (kiv_get_chan_grp_cfg(L, cfg) != 0) {
        KIV_ERR_AT(97, FN, "get chan group config error\n");
        return -2;
    }
    if (kiv_get_canvas_cfg(L, cfg) != 0) {
        KIV_ERR_AT(101, FN, "get canvas config error\n");
        return -2;
    }
    if (kiv_get_stream_cfg(L, cfg) != 0) {
        KIV_ERR_AT(105, FN, "get stream config error\n");
        return -2;
    }
    // The memory layout is optional: whatever it returns, the load succeeds.
    if (kiv_get_mem_cfg_resource(L, cfg) != 0)
        KIV_DBG_AT(110, FN, "no resource mem cfg\n");
    return 0;
}

KIV_API int32_t kiv_get_multi_chan_cfg(const char *path, kiv_multi_chan_cfg *cfg)
{
    if (!path || !cfg) {
        KIV_ERR_AT(117, FN, "the 1st or 2nd param is NULL\n");
        return -1;
    }
    // Set around the run, not inside it: a Lua error ends the reading step
    // without returning through it.
    kiv_set_loading(cfg);
    int32_t ret = kiv_run_script(FN, path, kiv_read_multi_chan, cfg, -2, -2);
    kiv_set_loading(nullptr);
    return ret;
}
