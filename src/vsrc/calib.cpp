// Calibration data: the (address, data) pairs of a video source, kept in a
// script of their own under the global table calib_data.
//
// Items, and the two numbers inside an item, are taken in the traversal
// order of lua_next: an item is used by position, its keys are never looked
// at.  The script is therefore walked with the Lua API directly rather than
// through the named-item access operations; every value is type-checked
// before it is traversed, so no input raises a Lua error.
#include <math.h>
#include <stdint.h>

#include "core/access.h"
#include "core/export.h"
#include "core/log.h"
#include "core/readers.h"
#include "kiv.h"

static const char FN_SIZE[] = "kiv_get_calib_data_size";
static const char FN_LOAD[] = "kiv_load_calib_data";

// Pushes calib_data.  A value that is not a table cannot be traversed and is
// refused like a missing one.  Returns 1 when the table is on top; otherwise
// the stack is as before and the error is logged.
static int push_calib_table(lua_State *L, const char *fn)
{
    if (lua_getglobal(L, "calib_data") == LUA_TTABLE)
        return 1;
    lua_settop(L, -2);
    KIV_ERR_AT(29, fn, "Invalid calibrate data config file\n");
    return 0;
}

// A Lua number as a 32-bit unsigned: truncated toward zero, NaN and
// negatives give 0, 2^32 and above give the largest value.
static uint32_t to_u32(lua_Number v)
{
    if (isnan(v) || v <= 0)
        return 0;
    if (v >= 4294967296.0)
        return UINT32_MAX;
    return static_cast<uint32_t>(v);
}

// Converts the value on top (a numeric string converts too, anything else
// reads as 0) and pops it, leaving the key for the next lua_next.
static uint32_t pop_number(lua_State *L)
{
    uint32_t v = to_u32(kiv_run_tonumber(L, -1));
    lua_settop(L, -2);
    return v;
}

int32_t kiv_read_calib_count(lua_State *L, void *ctx)
{
    KIV_STACK_GUARD(L);
    int32_t *count = static_cast<int32_t *>(ctx);
    if (!push_calib_table(L, FN_SIZE))
        return 0;
    // A table that fits the state's memory bound has far fewer than 2^31
    // entries, so the count cannot overflow.
    int32_t n = 0;
    lua_pushnil(L);
    while (lua_next(L, -2) != 0) {
        lua_settop(L, -2);
        kiv_run_spend(L, KIV_READ_COST);
        ++n;
    }
    lua_settop(L, -2);
    *count = n;
    return 0;
}

KIV_API int32_t kiv_get_calib_data_size(const char *path)
{
    if (!path) {
        KIV_ERR_AT(76, FN_SIZE, "the lua file is NULL\n");
        return 0;
    }
    int32_t count = 0;
    // Every failure reports the size 0: a caller treats it as nothing to load.
    if (kiv_run_script(FN_SIZE, path, kiv_read_calib_count, &count, 0, 0) != 0)
        return 0;
    return count;
}

// The reading step of kiv_load_calib_data (readers.h): ctx is a
// kiv_calib_load, the caller's items and how many of them to fill.  Tools
// that tell a script's kind by running it once call it (after the count
// above) through kiv_load_any.

// Reads the first two entries of the item on top into `item`.  The item is
// left on top.
//
// An item that is not a table is outside the format and refused with -2
// (lua_next cannot walk it).  An item of more than two entries is accepted:
// the entries after the second are skipped, as a caller that lists extra
// per-item notes would expect; its first two are the address and the data.
static int32_t read_item(lua_State *L, uint32_t index, kiv_calib_data_item *item)
{
    KIV_STACK_GUARD(L);
    if (lua_type(L, -1) != LUA_TTABLE) {
        KIV_ERR_AT(102, FN_LOAD, "calib_data item(%u) is not a table.\n", index);
        return -2;
    }
    lua_pushnil(L);
    if (lua_next(L, -2) == 0) {
        KIV_ERR_AT(107, FN_LOAD, "Could not find addr.\n");
        return -2;
    }
    item->addr = pop_number(L);
    if (lua_next(L, -2) == 0) {
        KIV_ERR_AT(112, FN_LOAD, "Could not find data.\n");
        return -2;
    }
    item->data = pop_number(L);
    lua_settop(L, -2); // the key: the rest of the item is not read
    return 0;
}

int32_t kiv_read_calib_items(lua_State *L, void *ctx)
{
    KIV_STACK_GUARD(L);
    const kiv_calib_load *c = static_cast<const kiv_calib_load *>(ctx);
    if (!push_calib_table(L, FN_LOAD))
        return -1;
    int base = lua_gettop(L);
    int32_t ret = 0;
    lua_pushnil(L);
    for (uint32_t i = 0; i < c->data_size; ++i) {
        kiv_run_spend(L, 3 * KIV_READ_COST); // the item and its two numbers
        if (lua_next(L, base) == 0) {
            KIV_ERR_AT(132, FN_LOAD, "Could not find item.\n");
            ret = -2;
            break;
        }
        ret = read_item(L, i, &c->items[i]);
        if (ret != 0)
            break;
        lua_settop(L, -2); // the item; its key stays for the next step
    }
    // Items beyond data_size are not read.
    lua_settop(L, base - 1);
    return ret;
}

KIV_API int32_t kiv_load_calib_data(const char *path, kiv_calib_data_item *items,
                                    uint32_t data_size)
{
    if (!path || !items) {
        KIV_ERR_AT(150, FN_LOAD, "the 1st or 2nd param is NULL\n");
        return -1;
    }
    if (data_size == 0) {
        KIV_ERR_AT(154, FN_LOAD, "data_size is 0\n");
        return -1;
    }
    kiv_calib_load ctx{items, data_size};
    return kiv_run_script(FN_LOAD, path, kiv_read_calib_items, &ctx, -2, -2);
}
