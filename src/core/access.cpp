#include "core/access.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "core/log.h"
#include "core/run.h"

// The element with 0-based index i has the Lua key i + 1, the sum formed in
// 32 bits (so it wraps rather than overflows).
static lua_Integer lua_key(int32_t index)
{
    return static_cast<int32_t>(static_cast<uint32_t>(index) + 1u);
}

// The watcher of this thread's reading (initial-exec: one instruction to
// reach when none is set, which is always, outside tools).
static __attribute__((tls_model("initial-exec"))) thread_local const kiv_watcher *t_watcher =
    nullptr;

void kiv_set_watcher(const kiv_watcher *w)
{
    t_watcher = w;
}

const kiv_watcher *kiv_get_watcher(void)
{
    return t_watcher;
}

void kiv_note_unread(const char *const *keys, size_t n)
{
    if (const kiv_watcher *w = t_watcher)
        for (size_t i = 0; i < n; ++i)
            w->unread(w->ctx, keys[i]);
}

// Tells the watcher about the lookup whose value was just pushed.
static inline void watch(lua_State *L, const char *name, int32_t index, kiv_want want)
{
    if (const kiv_watcher *w = t_watcher)
        w->lookup(w->ctx, L, name, index, want);
}

// Every table access counts against the run's bounds (kiv_run_spend):
// reading a script's tables can cost more than running it.

// Pushes field `name` of the table on top, or nil when the top is no table.
static int push_field(lua_State *L, const char *name)
{
    if (lua_type(L, -1) != LUA_TTABLE) {
        lua_pushnil(L);
        return LUA_TNIL;
    }
    kiv_run_spend(L, KIV_READ_COST);
    lua_pushstring(L, name);
    return lua_rawget(L, -2);
}

static int push_elem(lua_State *L, int32_t index)
{
    if (lua_type(L, -1) != LUA_TTABLE) {
        lua_pushnil(L);
        return LUA_TNIL;
    }
    kiv_run_spend(L, KIV_READ_COST);
    return lua_rawgeti(L, -1, lua_key(index));
}

// Pushes element n (0-based) of the array on top while counting it.
static int push_counted(lua_State *L, int32_t n)
{
    kiv_run_spend(L, KIV_READ_COST);
    return lua_rawgeti(L, -1, static_cast<lua_Integer>(n) + 1);
}

static void log_missing_str(const char *name)
{
    KIV_DBG("kiv_is_item_exist_str", "item(%s) doesn't exist\n", name);
}

static void log_missing_int(int32_t index)
{
    KIV_DBG("kiv_is_item_exist_int", "item of index(%d) doesn't exist\n", index);
}

// Converts the value on top (which is not nil) and pops it.
static void pop_integer(lua_State *L, int32_t *value)
{
    *value = static_cast<int32_t>(static_cast<uint32_t>(lua_tointegerx(L, -1, nullptr)));
    lua_settop(L, -2);
}

// Copies the string form of the value on top and pops it; 0 when it has one.
static int32_t pop_string(lua_State *L, char *buf, size_t cap)
{
    int t = lua_type(L, -1);
    if ((t != LUA_TSTRING && t != LUA_TNUMBER) || cap == 0) {
        lua_settop(L, -2);
        return -1;
    }
    size_t len = 0;
    const char *s = lua_tolstring(L, -1, &len);
    size_t n = strnlen(s, len < cap - 1 ? len : cap - 1);
    memcpy(buf, s, n);
    buf[n] = '\0';
    lua_settop(L, -2);
    return 0;
}

int32_t kiv_is_item_exist_str(lua_State *L, const char *name)
{
    int t = push_field(L, name);
    watch(L, name, -1, KIV_WANT_ANY);
    lua_settop(L, -2);
    if (t == LUA_TNIL) {
        log_missing_str(name);
        return 0;
    }
    return 1;
}

int32_t kiv_is_item_exist_int(lua_State *L, int32_t index)
{
    int t = push_elem(L, index);
    watch(L, nullptr, index, KIV_WANT_ANY);
    lua_settop(L, -2);
    if (t == LUA_TNIL) {
        log_missing_int(index);
        return 0;
    }
    return 1;
}

// The single gets look the key up once: an existence check followed by a
// second lookup of the same key would find the same value.
int32_t kiv_get_integer_item_str(lua_State *L, const char *name, int32_t *value)
{
    int t = push_field(L, name);
    watch(L, name, -1, KIV_WANT_INTEGER);
    if (t == LUA_TNIL) {
        lua_settop(L, -2);
        log_missing_str(name);
        return -2;
    }
    pop_integer(L, value);
    return 0;
}

int32_t kiv_get_string_item_str(lua_State *L, const char *name, char *buf, size_t cap)
{
    int t = push_field(L, name);
    watch(L, name, -1, KIV_WANT_STRING);
    if (t == LUA_TNIL)
        lua_settop(L, -2);
    else if (pop_string(L, buf, cap) == 0)
        return 0;
    log_missing_str(name);
    return -2;
}

int32_t kiv_get_integer_item_int(lua_State *L, int32_t index, int32_t *value)
{
    int t = push_elem(L, index);
    watch(L, nullptr, index, KIV_WANT_INTEGER);
    if (t == LUA_TNIL) {
        lua_settop(L, -2);
        log_missing_int(index);
        return -2;
    }
    pop_integer(L, value);
    return 0;
}

int32_t kiv_get_string_item_int(lua_State *L, int32_t index, char *buf, size_t cap)
{
    int t = push_elem(L, index);
    watch(L, nullptr, index, KIV_WANT_STRING);
    if (t == LUA_TNIL)
        lua_settop(L, -2);
    else if (pop_string(L, buf, cap) == 0)
        return 0;
    log_missing_int(index);
    return -2;
}

int32_t kiv_get_array_item_num(lua_State *L)
{
    int32_t n = 0;
    if (lua_type(L, -1) == LUA_TTABLE) {
        while (n < INT32_MAX && push_counted(L, n) != LUA_TNIL) {
            lua_settop(L, -2);
            ++n;
        }
        lua_settop(L, -2);
    }
    log_missing_int(n);
    return n;
}

// Pushes the array field `name` when it is a table; otherwise logs the
// existence check's line and pushes nothing.
static bool enter_array(lua_State *L, const char *name)
{
    int t = push_field(L, name);
    watch(L, name, -1, KIV_WANT_ARRAY);
    if (t == LUA_TTABLE)
        return true;
    lua_settop(L, -2);
    log_missing_str(name);
    return false;
}

int32_t kiv_get_array_item_num_str(lua_State *L, const char *name)
{
    if (!enter_array(L, name)) {
        KIV_WARN("kiv_get_array_item_num_str", "array item(%s) doesn't exist\n", name);
        return 0;
    }
    int32_t n = kiv_get_array_item_num(L);
    lua_settop(L, -2);
    return n;
}

int32_t kiv_get_array_integers_str(lua_State *L, const char *name, int32_t *values, int32_t max)
{
    if (!enter_array(L, name)) {
        KIV_WARN("kiv_get_array_item_num_str", "array item(%s) doesn't exist\n", name);
        return 0;
    }
    // Only the DEBUG line tells the count beyond max + 1 (callers ask
    // whether there are fewer than max, or more): below that log level the
    // count stops there.
    const int32_t stop =
        kiv_get_log_level() >= KIV_LEVEL_DEBUG || max >= INT32_MAX - 1 ? INT32_MAX : max + 1;
    int32_t n = 0;
    while (n < stop && push_counted(L, n) != LUA_TNIL) {
        if (n < max) {
            watch(L, name, n, KIV_WANT_INTEGER);
            pop_integer(L, &values[n]);
        } else {
            lua_settop(L, -2);
        }
        ++n;
    }
    lua_settop(L, n < stop ? -3 : -2); // the nil (when the count reached it) and the array
    log_missing_int(n);
    return n;
}

int32_t kiv_get_array_integer_item_str(lua_State *L, const char *name, int32_t index,
                                       int32_t *value)
{
    if (!enter_array(L, name)) {
        KIV_ERR("kiv_get_array_integer_item_str", "array item(%s) doesn't exist\n", name);
        return -1;
    }
    int t = push_elem(L, index);
    watch(L, name, index, KIV_WANT_INTEGER);
    if (t == LUA_TNIL) {
        lua_settop(L, -3);
        log_missing_int(index);
        KIV_ERR("kiv_get_array_integer_item_str", "array item(%s) doesn't have item of index(%d)\n",
                name, index);
        return -2;
    }
    pop_integer(L, value);
    lua_settop(L, -2);
    return 0;
}

int32_t kiv_get_array_string_item_str(lua_State *L, const char *name, int32_t index, char *buf,
                                      size_t cap)
{
    if (!enter_array(L, name)) {
        KIV_ERR("kiv_get_array_string_item_str", "array item(%s) doesn't exist\n", name);
        return -2;
    }
    int t = push_elem(L, index);
    watch(L, name, index, KIV_WANT_STRING);
    if (t == LUA_TNIL)
        lua_settop(L, -2); // the nil
    else if (pop_string(L, buf, cap) == 0) {
        lua_settop(L, -2);
        return 0;
    }
    lua_settop(L, -2); // the array
    log_missing_int(index);
    KIV_ERR("kiv_get_array_string_item_str", "array item(%s) doesn't have item of index(%d)\n",
            name, index);
    return -2;
}

// The watcher sees the entered table on top.
static int32_t entered(lua_State *L)
{
    if (const kiv_watcher *w = t_watcher)
        w->enter(w->ctx, L);
    return 1;
}

int32_t kiv_enter_str(lua_State *L, const char *name)
{
    int t = push_field(L, name);
    watch(L, name, -1, KIV_WANT_TABLE);
    if (t == LUA_TTABLE)
        return entered(L);
    lua_settop(L, -2);
    log_missing_str(name);
    return 0;
}

int32_t kiv_enter_int(lua_State *L, int32_t index)
{
    int t = push_elem(L, index);
    watch(L, nullptr, index, KIV_WANT_TABLE);
    if (t == LUA_TTABLE)
        return entered(L);
    lua_settop(L, -2);
    log_missing_int(index);
    return 0;
}

void kiv_leave(lua_State *L)
{
    if (const kiv_watcher *w = t_watcher)
        w->leave(w->ctx);
    lua_settop(L, -2);
}

#if KIV_STACK_CHECK
kiv_stack_guard::~kiv_stack_guard()
{
    if (lua_gettop(L) != top) {
        fprintf(stderr, "kiv: %s left the Lua stack at %d, found it at %d\n", where, lua_gettop(L),
                top);
        abort();
    }
}
#endif
