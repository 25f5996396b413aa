// Lua table access: the one door through which every parser reads a script.
//
// Each operation reads the table on top of the Lua stack and leaves the stack
// as it found it.  A missing item is reported through the log and a result
// code; whether it is an error is the caller's decision.
//
// Scripts are untrusted.  The operations look into a value only when it is a
// table (a value of any other type is handled like a missing item, with the
// same messages), read with raw access (the library's states have no
// metatables, so this is what an ordinary lookup would do, minus any chance
// of a Lua error), and never copy a string past the caller's buffer.
#ifndef KIV_CORE_ACCESS_H
#define KIV_CORE_ACCESS_H

#include <stddef.h>
#include <stdint.h>

#include <lua.h>

#include "core/run.h"

// 1 if field `name` of the table on top exists (is not nil), else 0.
int32_t kiv_is_item_exist_str(lua_State *L, const char *name);
// 1 if element `index` (0-based; Lua key index + 1) exists, else 0.
int32_t kiv_is_item_exist_int(lua_State *L, int32_t index);

// Single gets: 0, or -2 when the item is missing (the target is not written).
// Integers keep the low 32 bits of the Lua integer conversion (0 for a value
// that does not convert).  Strings are copied up to their first NUL and cut
// to cap - 1 characters; a value without a string form (table, boolean, ...)
// is handled like a missing item.
int32_t kiv_get_integer_item_str(lua_State *L, const char *name, int32_t *value);
int32_t kiv_get_string_item_str(lua_State *L, const char *name, char *buf, size_t cap);
int32_t kiv_get_integer_item_int(lua_State *L, int32_t index, int32_t *value);
int32_t kiv_get_string_item_int(lua_State *L, int32_t index, char *buf, size_t cap);

// Number of consecutive non-nil elements from index 0 of the table on top.
int32_t kiv_get_array_item_num(lua_State *L);
// The same for the array field `name`; 0 (with a WARN) when it is missing.
int32_t kiv_get_array_item_num_str(lua_State *L, const char *name);

// The count of kiv_get_array_item_num_str (with the same lines) and, in
// the same pass over the array, its first min(count, max) elements
// converted as the integer gets do, stored into values[0 ..].  One lookup
// of `name` for the whole array instead of one per element.  Below the
// DEBUG log level (where no line shows the count) a count above max + 1 is
// reported as max + 1: counting stops there.
int32_t kiv_get_array_integers_str(lua_State *L, const char *name, int32_t *values, int32_t max);

// Element `index` of the array field `name`: 0; -1 (integer) or -2 (string)
// when the array is missing; -2 when the element is missing.
int32_t kiv_get_array_integer_item_str(lua_State *L, const char *name, int32_t index,
                                       int32_t *value);
int32_t kiv_get_array_string_item_str(lua_State *L, const char *name, int32_t index, char *buf,
                                      size_t cap);

// Walking into nested tables.  kiv_enter_str / kiv_enter_int push field
// `name` / element `index` and return 1 when it is a table; otherwise they
// log the existence check's DEBUG line, push nothing and return 0.
// kiv_leave pops the table entered last.
int32_t kiv_enter_str(lua_State *L, const char *name);
int32_t kiv_enter_int(lua_State *L, int32_t index);
void kiv_leave(lua_State *L);

// Watching the reading, for tools that check scripts (kiv lint): a watcher
// set on a thread sees every table the parsers enter and every item they
// look up, store or skip there, the log and the tables the script makes.
// The library itself never sets one.  The calls must leave the Lua stack as
// they found it and raise no Lua error.  A watcher of the reading sets
// lookup, enter, leave, stored and unread; log and made_table may be set
// alone.
enum kiv_want : uint8_t {
    KIV_WANT_ANY,     // an existence check
    KIV_WANT_INTEGER, // taken as an integer (lua_tointegerx; 0 when it does not convert)
    KIV_WANT_STRING,  // taken as a string (a number gives its text; other types count as absent)
    KIV_WANT_TABLE,   // entered as a table (other types count as absent)
    KIV_WANT_ARRAY,   // counted or read as an array (other types count as absent)
};

struct kiv_watcher {
    void *ctx;
    // Field `name` (or, when name is null, element `index`, 0-based) of the
    // table at -2 was looked up; its value (nil when absent) is at -1.
    void (*lookup)(void *ctx, lua_State *L, const char *name, int32_t index, kiv_want want);
    // The parser entered the value of the last lookup (now on top) / left it.
    void (*enter)(void *ctx, lua_State *L);
    void (*leave)(void *ctx);
    // A key of a key table was stored (element `elem` of an array key, -1
    // for a single value); `held` is what its field holds now.  Not called
    // where a check of the key's own changed the value.
    void (*stored)(void *ctx, const char *key, int32_t elem, int64_t held);
    // A key the parser knows but did not read here (a switch is off, or the
    // key belongs to another kind of table).
    void (*unread)(void *ctx, const char *key);
    // A log text (one or more whole lines) the library would print: with
    // this set, it goes here instead of standard output, in order with the
    // lookups.  Null: printed as usual.
    void (*log)(void *ctx, const char *text, size_t n);
    // The running script has just made `table` (lua_topointer of it once it
    // is on the stack); called from the state's allocator, so it may only
    // look at the call stack (lua_getstack, lua_getinfo "Sl"), nothing that
    // allocates or raises.
    void (*made_table)(void *ctx, lua_State *L, const void *table);
};

// The watcher of the calling thread; null for none.  One without a lookup
// callback only takes the log and the tables made (a tool that wants the
// log and not the reading): the reading then runs as it does unwatched.
void kiv_set_watcher(const kiv_watcher *w);
const kiv_watcher *kiv_get_watcher(void);
// The watcher when it watches the reading (it has every reading callback).
const kiv_watcher *kiv_get_reading_watcher(void);
// Tells the watcher, if any, that these keys were not read.
void kiv_note_unread(const char *const *keys, size_t n);

// Views of the tables being read (see access.cpp): the run frame gives one
// set to the reading step and takes it back after.  A view holds a table of
// up to KIV_VIEW_KEYS string keys, and the views of the tables entered one
// in another hold KIV_VIEW_ENTRIES together; a table beyond either, or
// entered deeper than KIV_VIEW_DEPTH, is looked up directly.
#define KIV_VIEW_SLOTS 128
#define KIV_VIEW_KEYS 96
#define KIV_VIEW_ENTRIES 192
#define KIV_VIEW_DEPTH 6
// One string key of a viewed table and what its value is.
struct kiv_view_entry {
    const char *key; // the key's bytes (held by the table)
    union {
        const char *str; // LUA_TSTRING: the value's bytes (held by the table)
        int32_t kept;    // LUA_TTABLE: its index in the views' keeping table
    };
    uint32_t hash;
    int32_t ival;     // a number's integer conversion (kiv_view_integer)
    uint32_t str_len; // LUA_TSTRING: the value's length
    uint16_t len;     // the key's length
    uint8_t type;     // the value's type
};
struct kiv_table_view {
    const void *table;            // lua_topointer of the table viewed
    bool overflow;                // more string keys than a view holds
    uint8_t slot[KIV_VIEW_SLOTS]; // open addressing: entry index + 1, 0 empty
    int32_t kept_end;             // the keeping table's indexes this view uses end here
    uint16_t entries_end;         // the shared entries this view uses end here
    kiv_view_entry *at;           // its entries, among the shared ones
};
struct kiv_views {
    kiv_table_view at[KIV_VIEW_DEPTH];
    kiv_view_entry entries[KIV_VIEW_ENTRIES];
    // Stack index of the keeping table: the table values of the viewed
    // tables, stored there as each view is made so that entering one costs
    // an integer lookup instead of a lookup by name.  0: none is kept.
    int keep;
    // The absent-key WARN lines' prefixes (keys.cpp) of the functions and
    // lines they were made for last: made once per run, not per table.
    struct {
        const char *fn;
        int line;
        size_t len;
        char text[96];
    } prefixes[4];
    uint8_t next_prefix;
};
// Null: every lookup goes to the table.  The views start empty.
void kiv_use_views(kiv_views *views);
// The views in use on this thread, or null.
kiv_views *kiv_views_in_use(void);

// The hash a view keeps of a key name of n bytes, its whole 8-byte words
// taken by `word` (a little-endian value of 8 bytes).
template <class Word>
constexpr uint32_t kiv_name_hash_by(const char *s, size_t n, Word word)
{
    uint64_t h = (n + 1) * 0x9E3779B97F4A7C15ull;
    for (; n >= 8; s += 8, n -= 8) {
        h = (h ^ word(s)) * 0xFF51AFD7ED558CCDull;
        h ^= h >> 32;
    }
    uint64_t w = 0;
    for (size_t i = 0; i < n; ++i)
        w |= static_cast<uint64_t>(static_cast<unsigned char>(s[i])) << (8 * i);
    h = (h ^ w) * 0xC4CEB9FE1A85EC53ull;
    return static_cast<uint32_t>(h ^ (h >> 29));
}

// Constexpr, so that a key table has its names' hashes from the compiler
// (the table stays constant data, with no initialisation at load time).
constexpr uint32_t kiv_name_hash(const char *s, size_t n)
{
    return kiv_name_hash_by(s, n, [](const char *p) {
        uint64_t w = 0;
        for (size_t i = 0; i < 8; ++i)
            w |= static_cast<uint64_t>(static_cast<unsigned char>(p[i])) << (8 * i);
        return w;
    });
}

// The same hash at run time, each word loaded whole.
inline uint32_t kiv_name_hash_now(const char *s, size_t n)
{
    return kiv_name_hash_by(s, n, [](const char *p) {
        uint64_t w;
        __builtin_memcpy(&w, p, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        w = __builtin_bswap64(w);
#endif
        return w;
    });
}

constexpr size_t kiv_name_len(const char *s)
{
    size_t n = 0;
    while (s[n])
        ++n;
    return n;
}

// The view of the table on top, for several lookups in a row: null when
// there is none to ask (no views in use, a watcher, the top is no table,
// too deep, too many keys).  It stays valid while the table is on top.
const kiv_table_view *kiv_view_top(lua_State *L);
// Field `name` (n bytes, hash h) in view v, counted as one table access:
// its entry, or null when absent.  Inline up to the first slot looked at,
// where most keys a script leaves out are found absent.
const kiv_view_entry *kiv_view_search(const kiv_table_view *v, const char *name, size_t n,
                                      uint32_t h);
inline const kiv_view_entry *kiv_view_find(lua_State *L, const kiv_table_view *v, const char *name,
                                           size_t n, uint32_t h)
{
    kiv_run_spend(L, KIV_READ_COST);
    if (!v->slot[h & (KIV_VIEW_SLOTS - 1)])
        return nullptr;
    return kiv_view_search(v, name, n, h);
}
// The integer conversion of entry e's value, as kiv_get_integer_item_str
// makes it.
int32_t kiv_view_integer(lua_State *L, const kiv_view_entry *e);
// The access layer's DEBUG line for an absent field `name`.
void kiv_log_missing(const char *name);

// Debug builds check that an operation leaves the Lua stack as it found it:
// KIV_STACK_GUARD(L) at the start of a function asserts, when the function
// returns, that the stack has its original height again.
#ifndef KIV_STACK_CHECK
#ifdef NDEBUG
#define KIV_STACK_CHECK 0
#else
#define KIV_STACK_CHECK 1
#endif
#endif

#if KIV_STACK_CHECK
struct kiv_stack_guard {
    lua_State *L;
    int top;
    const char *where;
    kiv_stack_guard(lua_State *l, const char *w) : L(l), top(lua_gettop(l)), where(w) {}
    ~kiv_stack_guard();
    kiv_stack_guard(const kiv_stack_guard &) = delete;
    kiv_stack_guard &operator=(const kiv_stack_guard &) = delete;
};
#define KIV_STACK_GUARD(L) kiv_stack_guard kiv_stack_guard_(L, __func__)
#else
#define KIV_STACK_GUARD(L) ((void)0)
#endif

#endif
