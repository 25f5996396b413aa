// Key tables: the integer keys of a script table described as data, one
// descriptor per key in reading order, read by one generic reader.
#ifndef KIV_CORE_KEYS_H
#define KIV_CORE_KEYS_H

#include <stddef.h>
#include <stdint.h>

#include <lua.h>

#include "core/access.h"

// What an absent key does.
enum kiv_absent : uint8_t {
    // ERROR "item(%s) doesn't exist.\n"; the table's read fails with -2.
    KIV_REQUIRED,
    // The read fails with -2 without a line of its own.
    KIV_REQUIRED_QUIET,
    // WARN "item(%s) doesn't exist, set 0 by default.\n" (or the key's own
    // absent_text), whatever the default; the default is stored.
    KIV_OPTIONAL,
    // The default is stored without a line.
    KIV_OPTIONAL_QUIET,
};

typedef void (*kiv_store_fn)(void *rec, uint32_t value);
// The value a field holds, as its own type converts it (signed fields
// negative where they are): what a stored value became.
typedef int64_t (*kiv_load_fn)(const void *rec);
// Runs before the value is stored; may change it.  Returns 0 to go on, or
// the (negative) result that ends the table's read.
typedef int32_t (*kiv_check_fn)(const char *fn, const char *key, uint32_t *value);
// Element access of an array key: element `index` of the value.
typedef void (*kiv_store_elem_fn)(void *rec, uint32_t index, uint32_t value);
typedef int64_t (*kiv_load_elem_fn)(const void *rec, uint32_t index);
// Takes the string of a string key and stores it into rec (a name looked up
// in a table, a path copied, ...).  Returns 0 to go on, or the (negative)
// result that ends the table's read.
typedef int32_t (*kiv_str_fn)(const char *fn, const char *key, void *rec, const char *s);

// Longest string a string key hands over: a longer one arrives cut to this
// many characters, so a key that must fit a shorter buffer can tell it from
// one that fits.
#define KIV_KEY_STR_MAX 256

struct kiv_key {
    const char *key;
    kiv_absent absent;
    // When non-zero, the next `gate` keys are read only when bit 0 of this
    // key's value is 1; otherwise they are skipped and keep their fields.
    uint8_t gate = 0;
    uint32_t dflt = 0;
    // Stores the value with its low bits kept, as many as the field is wide
    // (a bit-field assignment does exactly that).
    kiv_store_fn store = nullptr;
    kiv_load_fn load = nullptr;
    kiv_check_fn check = nullptr;
    // For KIV_OPTIONAL: a WARN format other than the common one; for
    // KIV_REQUIRED: an ERROR format other than the common one.  Its
    // arguments are the function name, the line and the key.
    const char *absent_text = nullptr;
    // An array key ({width, height} and the like): when non-zero, the value
    // is an array whose first `elems` integers are read (further elements
    // are ignored), counted first with kiv_get_array_item_num_str; fewer
    // elements count as an absent key.  store_elem / load_elem then take the
    // place of store / load, and gate and check are not used.
    uint8_t elems = 0;
    kiv_store_elem_fn store_elem = nullptr;
    kiv_load_elem_fn load_elem = nullptr;
    // When set, the key is a string key: its string (at most
    // KIV_KEY_STR_MAX characters) goes to `str` instead of store and check;
    // an absent optional one hands over `dflt_str` (null: the empty string).
    kiv_str_fn str = nullptr;
    const char *dflt_str = nullptr;
    // The name's length and hash in a view (kiv_name_hash), from the
    // compiler: looking a key up computes neither.
    uint16_t name_len = static_cast<uint16_t>(kiv_name_len(key));
    uint32_t name_hash = kiv_name_hash(key, kiv_name_len(key));
};

// Store and load functions of field `field` of record type T.
#define KIV_FIELD(T, field)                                                                        \
    [](void *r, uint32_t v) { static_cast<T *>(r)->field = v; },                                   \
        [](const void *r) -> int64_t { return static_cast<const T *>(r)->field; }

// Element access of an array key whose two elements are the fields f0 and f1.
#define KIV_PAIR(T, f0, f1)                                                                        \
    [](void *r, uint32_t i, uint32_t v) {                                                          \
        T *t = static_cast<T *>(r);                                                                \
        if (i == 0)                                                                                \
            t->f0 = v;                                                                             \
        else                                                                                       \
            t->f1 = v;                                                                             \
    },                                                                                             \
        [](const void *r, uint32_t i) -> int64_t {                                                 \
            const T *t = static_cast<const T *>(r);                                                \
            return i == 0 ? t->f0 : t->f1;                                                         \
        }

// Reads keys[0 .. n-1] from the table on top of the stack into rec, in
// order; messages carry the function name fn.  Returns 0, or the result of
// the first key that fails (the fields stored before it stay stored).
int32_t kiv_read_keys(lua_State *L, const char *fn, void *rec, const kiv_key *keys, size_t n);

template <size_t N>
int32_t kiv_read_keys(lua_State *L, const char *fn, void *rec, const kiv_key (&keys)[N])
{
    return kiv_read_keys(L, fn, rec, keys, N);
}

// Tells a watcher of the reading (kiv_set_watcher) that keys[0 .. n-1] were
// not read where they could have been.
void kiv_note_unread_keys(const kiv_key *keys, size_t n);

template <size_t N>
void kiv_note_unread_keys(const kiv_key (&keys)[N])
{
    kiv_note_unread_keys(keys, N);
}

// Frame rates.  A rate read from a script is kept in whole frames per second
// and in thousandths.  With the high-precision flag set (the loading record's
// own, see kiv_rate_hp_fps) the script gives thousandths and the whole rate
// is rounded up; with it clear the script gives whole frames.
struct kiv_fps_pair {
    uint32_t whole;
    uint32_t thousandths;
};
kiv_fps_pair kiv_fps_from_script(uint32_t value);
// A ceiling rate (max_fps, default_fps) is kept in thousandths only.
uint32_t kiv_fps_ceiling_from_script(uint32_t value);
// What the dump writes for a rate: the form the record's own flag selects.
uint32_t kiv_fps_to_script(uint32_t hp_flag, uint32_t whole, uint32_t thousandths);
uint32_t kiv_fps_ceiling_to_script(uint32_t hp_flag, uint32_t thousandths);

#endif
