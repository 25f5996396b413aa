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

// The watcher of this thread (initial-exec: one instruction to reach when
// none is set, which is always, outside tools), and the same when it
// watches the reading itself (it has a lookup callback): only such a
// watcher is called by the reading, and only such a one turns the views
// off, which would hide lookups from it.
static __attribute__((tls_model("initial-exec"))) thread_local const kiv_watcher *t_any = nullptr;
static __attribute__((tls_model("initial-exec"))) thread_local const kiv_watcher *t_watcher =
    nullptr;

void kiv_set_watcher(const kiv_watcher *w)
{
    t_any = w;
    t_watcher = w && w->lookup ? w : nullptr;
}

const kiv_watcher *kiv_get_watcher(void)
{
    return t_any;
}

const kiv_watcher *kiv_get_reading_watcher(void)
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

// Views.  Looking a field up by name makes Lua intern the name: it hashes
// it and, for a key the table does not have (most optional keys of most
// scripts), creates a string it then collects.  Instead, the first lookup
// by name in a table walks the table once (lua_next) and keeps its string
// keys, hashed here, with the type and integer conversion of each value;
// later lookups by name in the same table are answered from that.  A value
// that must be pushed (a table, a string) is looked up in the table itself.
// The tables do not change while they are read (no Lua code runs, every
// access is raw), so a view stays true.  One view per depth of entered
// tables; a table with more string keys than a view holds is looked up
// directly.
static __attribute__((tls_model("initial-exec"))) thread_local kiv_views *t_views = nullptr;
static __attribute__((tls_model("initial-exec"))) thread_local int t_depth = 0;

void kiv_use_views(kiv_views *views)
{
    t_views = views;
    t_depth = 0;
    if (views) {
        for (kiv_table_view &v : views->at)
            v.table = nullptr;
        for (auto &p : views->prefixes)
            p.fn = nullptr;
        views->next_prefix = 0;
    }
}

kiv_views *kiv_views_in_use(void)
{
    return t_views;
}

static uint32_t hash_of(const char *s, size_t n)
{
    return kiv_name_hash_now(s, n);
}

static constexpr uint32_t VIEW_MASK = KIV_VIEW_SLOTS - 1;

// Walks the table on top (whose address is t) into the view of depth d;
// false when it has more string keys than a view holds.  A value that is a
// table goes to the keeping table, after those of the views above it; the
// views below are made again when next asked, since their kept values may
// have been overwritten; so do its entries, among the views' shared ones.
// (A view above may be left from a table read earlier at that depth: its
// values and entries stay, so nothing in use is lost.)
static bool build(lua_State *L, kiv_views *vs, int d, const void *t)
{
    kiv_table_view &v = vs->at[d];
    v.table = t;
    v.overflow = false;
    memset(v.slot, 0, sizeof v.slot);
    for (int below = d + 1; below < KIV_VIEW_DEPTH; ++below)
        vs->at[below].table = nullptr;
    // The views above that are made keep their values below these: the
    // nearest made one ends where this one starts.
    int32_t kept = 0;
    uint32_t first = 0;
    for (int above = d - 1; above >= 0; --above) {
        if (vs->at[above].table) {
            kept = vs->at[above].kept_end;
            first = vs->at[above].entries_end;
            break;
        }
    }
    v.at = vs->entries + first;
    const uint32_t most =
        KIV_VIEW_ENTRIES - first < KIV_VIEW_KEYS ? KIV_VIEW_ENTRIES - first : KIV_VIEW_KEYS;
    v.entries_end = static_cast<uint16_t>(first);
    uint32_t n = 0;
    lua_pushnil(L);
    while (lua_next(L, -2) != 0) {
        size_t len = 0;
        const char *k = lua_type(L, -2) == LUA_TSTRING ? lua_tolstring(L, -2, &len) : nullptr;
        const int type = lua_type(L, -1);
        size_t str_len = 0;
        const char *str = type == LUA_TSTRING ? lua_tolstring(L, -1, &str_len) : nullptr;
        // The key is hashed and the value converted: both scan their text.
        kiv_run_spend(L, KIV_READ_COST +
                             static_cast<int64_t>((len + str_len) / KIV_CONVERT_BYTES_PER_UNIT));
        if (!k || len > UINT16_MAX) {
            lua_settop(L, -2);
            continue;
        }
        if (n == most) {
            lua_settop(L, -3);
            v.overflow = true;
            v.kept_end = kept;
            return false;
        }
        kiv_view_entry &e = v.at[n++];
        uint32_t h = hash_of(k, len), i = h & VIEW_MASK;
        while (v.slot[i])
            i = (i + 1) & VIEW_MASK;
        v.slot[i] = static_cast<uint8_t>(n);
        e.key = k;
        e.hash = h;
        e.len = static_cast<uint16_t>(len);
        e.type = static_cast<uint8_t>(type);
        e.ival = 0;
        // A string is converted only when asked for as an integer (rarely).
        if (type == LUA_TNUMBER) {
            int isnum = 0;
            lua_Integer iv = lua_tointegerx(L, -1, &isnum);
            if (isnum)
                e.ival = static_cast<int32_t>(static_cast<uint32_t>(iv));
        }
        if (str) {
            e.str = str;
            e.str_len = static_cast<uint32_t>(str_len);
        } else if (type == LUA_TTABLE && vs->keep) {
            e.kept = ++kept;
            lua_rawseti(L, vs->keep, kept); // pops the value
            continue;
        } else {
            e.kept = 0;
        }
        lua_settop(L, -2);
    }
    v.kept_end = kept;
    v.entries_end = static_cast<uint16_t>(first + n);
    return true;
}

const kiv_table_view *kiv_view_top(lua_State *L)
{
    kiv_views *vs = t_views;
    if (!vs || t_watcher || static_cast<unsigned>(t_depth) >= KIV_VIEW_DEPTH)
        return nullptr;
    if (lua_type(L, -1) != LUA_TTABLE)
        return nullptr;
    kiv_table_view &v = vs->at[t_depth];
    const void *t = lua_topointer(L, -1);
    if ((v.table != t && !build(L, vs, t_depth, t)) || v.overflow)
        return nullptr;
    return &v;
}

const kiv_view_entry *kiv_view_search(const kiv_table_view *v, const char *name, size_t n,
                                      uint32_t h)
{
    for (uint32_t i = h & VIEW_MASK;; i = (i + 1) & VIEW_MASK) {
        const uint8_t s = v->slot[i];
        if (!s)
            return nullptr;
        const kiv_view_entry &e = v->at[s - 1];
        if (e.hash == h && e.len == n && memcmp(e.key, name, n) == 0)
            return &e;
    }
}

int32_t kiv_view_integer(lua_State *L, const kiv_view_entry *e)
{
    if (e->type != LUA_TSTRING)
        return e->ival;
    // What lua_tointegerx makes of the string: its text (all of it, so no
    // embedded NUL) as a number, then that number as an integer.
    int32_t v = 0;
    if (!lua_checkstack(L, 1))
        return v;
    const size_t sz = lua_stringtonumber(L, e->str);
    if (sz != 0) {
        int isnum = 0;
        lua_Integer iv = lua_tointegerx(L, -1, &isnum);
        if (isnum && sz == static_cast<size_t>(e->str_len) + 1)
            v = static_cast<int32_t>(static_cast<uint32_t>(iv));
        lua_settop(L, -2);
    }
    return v;
}

// The view of the table on top, when there is one to ask: *e is then the
// entry of field `name` (null: absent), counted as one table access.
static bool view_probe(lua_State *L, const char *name, const kiv_view_entry **e)
{
    const kiv_table_view *v = kiv_view_top(L);
    if (!v)
        return false;
    const size_t n = strlen(name);
    *e = kiv_view_find(L, v, name, n, hash_of(name, n));
    return true;
}

// Pushes the table of entry e (kept when its view was made), counted as the
// lookup by name it replaces.
static void push_kept(lua_State *L, const kiv_view_entry *e)
{
    kiv_run_spend(L, KIV_READ_COST);
    lua_rawgeti(L, t_views->keep, e->kept);
}

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
    KIV_DBG_AT(80, "kiv_is_item_exist_str", "item(%s) doesn't exist\n", name);
}

void kiv_log_missing(const char *name)
{
    log_missing_str(name);
}

static void log_missing_int(int32_t index)
{
    KIV_DBG_AT(85, "kiv_is_item_exist_int", "item of index(%d) doesn't exist\n", index);
}

// Counts the conversion of the string on top: it scans the whole text.
static __attribute__((noinline)) void spend_conversion(lua_State *L)
{
    kiv_run_spend(L, static_cast<int64_t>(lua_rawlen(L, -1) / KIV_CONVERT_BYTES_PER_UNIT));
}

// Converts the value on top, of type t (not nil), and pops it.
static inline __attribute__((always_inline)) void pop_integer(lua_State *L, int t, int32_t *value)
{
    if (t == LUA_TSTRING)
        spend_conversion(L);
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
    const kiv_view_entry *e;
    if (view_probe(L, name, &e)) {
        if (!e)
            log_missing_str(name);
        return e != nullptr;
    }
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
    const kiv_view_entry *e;
    if (view_probe(L, name, &e)) {
        if (e) {
            *value = kiv_view_integer(L, e);
            return 0;
        }
        log_missing_str(name);
        return -2;
    }
    int t = push_field(L, name);
    watch(L, name, -1, KIV_WANT_INTEGER);
    if (t == LUA_TNIL) {
        lua_settop(L, -2);
        log_missing_str(name);
        return -2;
    }
    pop_integer(L, t, value);
    return 0;
}

int32_t kiv_get_string_item_str(lua_State *L, const char *name, char *buf, size_t cap)
{
    // A string is copied from the view, a number converted from the table
    // itself; both count as the lookup by name after the view's.
    const kiv_view_entry *e;
    if (view_probe(L, name, &e)) {
        if (!e || (e->type != LUA_TSTRING && e->type != LUA_TNUMBER) || cap == 0) {
            log_missing_str(name);
            return -2;
        }
        if (e->type == LUA_TSTRING) {
            kiv_run_spend(L, KIV_READ_COST);
            size_t n = strnlen(e->str, e->str_len < cap - 1 ? e->str_len : cap - 1);
            memcpy(buf, e->str, n);
            buf[n] = '\0';
            return 0;
        }
    }
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
    pop_integer(L, t, value);
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

// Pushes field `name` when it is a table and returns true; otherwise logs
// the existence check's line and pushes nothing.
static bool push_table(lua_State *L, const char *name, kiv_want want)
{
    const kiv_view_entry *e;
    if (view_probe(L, name, &e)) {
        if (!e || e->type != LUA_TTABLE) {
            log_missing_str(name);
            return false;
        }
        if (e->kept) {
            push_kept(L, e);
            return true;
        }
    }
    int t = push_field(L, name);
    watch(L, name, -1, want);
    if (t == LUA_TTABLE)
        return true;
    lua_settop(L, -2);
    log_missing_str(name);
    return false;
}

static bool enter_array(lua_State *L, const char *name)
{
    return push_table(L, name, KIV_WANT_ARRAY);
}

int32_t kiv_get_array_item_num_str(lua_State *L, const char *name)
{
    if (!enter_array(L, name)) {
        KIV_WARN_AT(218, "kiv_get_array_item_num_str", "array item(%s) doesn't exist\n", name);
        return 0;
    }
    int32_t n = kiv_get_array_item_num(L);
    lua_settop(L, -2);
    return n;
}

int32_t kiv_get_array_integers_str(lua_State *L, const char *name, int32_t *values, int32_t max)
{
    if (!enter_array(L, name)) {
        KIV_WARN_AT(229, "kiv_get_array_item_num_str", "array item(%s) doesn't exist\n", name);
        return 0;
    }
    // Only the DEBUG line tells the count beyond max + 1 (callers ask
    // whether there are fewer than max, or more): below that log level the
    // count stops there.
    const int32_t stop =
        kiv_get_log_level() >= KIV_LEVEL_DEBUG || max >= INT32_MAX - 1 ? INT32_MAX : max + 1;
    int32_t n = 0;
    for (int t; n < stop && (t = push_counted(L, n)) != LUA_TNIL;) {
        if (n < max) {
            watch(L, name, n, KIV_WANT_INTEGER);
            pop_integer(L, t, &values[n]);
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
        KIV_ERR_AT(256, "kiv_get_array_integer_item_str", "array item(%s) doesn't exist\n", name);
        return -1;
    }
    int t = push_elem(L, index);
    watch(L, name, index, KIV_WANT_INTEGER);
    if (t == LUA_TNIL) {
        lua_settop(L, -3);
        log_missing_int(index);
        KIV_ERR_AT(264, "kiv_get_array_integer_item_str",
                   "array item(%s) doesn't have item of index(%d)\n", name, index);
        return -2;
    }
    pop_integer(L, t, value);
    lua_settop(L, -2);
    return 0;
}

int32_t kiv_get_array_string_item_str(lua_State *L, const char *name, int32_t index, char *buf,
                                      size_t cap)
{
    if (!enter_array(L, name)) {
        KIV_ERR_AT(277, "kiv_get_array_string_item_str", "array item(%s) doesn't exist\n", name);
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
    KIV_ERR_AT(290, "kiv_get_array_string_item_str",
               "array item(%s) doesn't have item of index(%d)\n", name, index);
    return -2;
}

// The watcher sees the entered table on top.
static int32_t entered(lua_State *L)
{
    if (const kiv_watcher *w = t_watcher)
        w->enter(w->ctx, L);
    ++t_depth;
    return 1;
}

int32_t kiv_enter_str(lua_State *L, const char *name)
{
    return push_table(L, name, KIV_WANT_TABLE) ? entered(L) : 0;
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
    --t_depth;
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
