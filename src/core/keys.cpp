#include "core/keys.h"

#include <string.h>

#include "core/access.h"
#include "core/log.h"

// What follows the key in the common WARN line of an absent key.
static constexpr char ABSENT_REST[] = ") doesn't exist, set 0 by default.\n";

// The WARN line's prefix for the function a table is read under, made at
// its first absent key.
struct absent_prefix {
    const char *text = nullptr;
    size_t len = 0;
    char own[96];
};

// Points p at the prefix for fn and line: one of those the views keep
// (made again only for a function or line not among them), or one made
// into p.
static void made_prefix(absent_prefix *p, const char *fn, int line = 23)
{
    if (kiv_views *vs = kiv_views_in_use()) {
        for (auto &c : vs->prefixes) {
            // Two sections may name one function from strings of their own.
            if (c.fn && c.line == line && (c.fn == fn || strcmp(c.fn, fn) == 0)) {
                p->text = c.text;
                p->len = c.len;
                return;
            }
        }
        auto &c = vs->prefixes[vs->next_prefix++ % 4];
        c.len = kiv_absent_prefix(c.text, sizeof c.text, fn, line);
        c.fn = fn;
        c.line = line;
        p->text = c.text;
        p->len = c.len;
        return;
    }
    p->len = kiv_absent_prefix(p->own, sizeof p->own, fn, line);
    p->text = p->own;
}

// What an absent key does: 0 to store its default, or the result that ends
// the table's read.
static int32_t absent(const char *fn, const kiv_key &k, absent_prefix *prefix = nullptr,
                      uint8_t level = kiv_get_log_level())
{
    switch (k.absent) {
    case KIV_REQUIRED:
        if (k.absent_text)
            kiv_log(KIV_LEVEL_ERROR, k.absent_text, fn, 13, k.key);
        else
            KIV_ERR_AT(15, fn, "item(%s) doesn't exist.\n", k.key);
        return -2;
    case KIV_REQUIRED_QUIET:
        return -2;
    case KIV_OPTIONAL:
        if (k.absent_text) {
            kiv_log(KIV_LEVEL_WARN, k.absent_text, fn, 21, k.key);
        } else if (level >= KIV_LEVEL_WARN) {
            absent_prefix local;
            absent_prefix &p = prefix ? *prefix : local;
            if (p.len == 0)
                made_prefix(&p, fn);
            kiv_log_absent(p.text, p.len, k.key, k.name_len, ABSENT_REST, sizeof ABSENT_REST - 1);
        }
        return 0;
    case KIV_OPTIONAL_QUIET:
        return 0;
    }
    return 0;
}

// The WARN line of an absent optional key, at a level that prints it and
// with no watcher taking the log, copied straight into the run's log: the
// prefix for fn and line (made into p at the table's first such line), the
// key and the rest of the line (inline, so that a constant rest is copied
// without a call).
static inline __attribute__((always_inline)) void absent_line(absent_prefix *p, const char *fn,
                                                              int line, const kiv_key &k,
                                                              const char *rest, size_t rest_len)
{
    if (p->len == 0)
        made_prefix(p, fn, line);
    const size_t n = p->len + k.name_len + rest_len;
    char *at = n < 256 ? kiv_run_log_room(n) : nullptr;
    if (!at) { // too long (cut like any line) or outside a run
        kiv_log_absent(p->text, p->len, k.key, k.name_len, rest, rest_len);
        return;
    }
    memcpy(at, p->text, p->len);
    memcpy(at + p->len, k.key, k.name_len);
    memcpy(at + p->len + k.name_len, rest, rest_len);
    kiv_run_spend_log();
}

// The part after the key of a key's own WARN text when it has the common
// shape (a prefix, "item(" and the key, then text without conversions), or
// null: such a line is copied like the common one.
static const char *plain_rest(const char *absent_text)
{
    static constexpr char HEAD[] = "KIV_WARN:: %s(%d): item(%s";
    if (strncmp(absent_text, HEAD, sizeof HEAD - 1) != 0)
        return nullptr;
    const char *rest = absent_text + sizeof HEAD - 1;
    return strchr(rest, '%') ? nullptr : rest;
}

// An array key: all `elems` elements are stored, or none (the default).
static int32_t read_array(lua_State *L, const char *fn, void *rec, const kiv_key &k)
{
    int32_t v[UINT8_MAX];
    if (kiv_get_array_integers_str(L, k.key, v, k.elems) < k.elems) {
        int32_t ret = absent(fn, k);
        if (ret != 0)
            return ret;
        for (uint32_t i = 0; i < k.elems; ++i)
            k.store_elem(rec, i, k.dflt);
        return 0;
    }
    const kiv_watcher *w = kiv_get_reading_watcher();
    for (uint32_t i = 0; i < k.elems; ++i) {
        k.store_elem(rec, i, static_cast<uint32_t>(v[i]));
        if (w && k.load_elem)
            w->stored(w->ctx, k.key, static_cast<int32_t>(i), k.load_elem(rec, i));
    }
    return 0;
}

static int32_t read_string_key(lua_State *L, const char *fn, void *rec, const kiv_key &k)
{
    char buf[KIV_KEY_STR_MAX + 1];
    const char *s = buf;
    if (kiv_get_string_item_str(L, k.key, buf, sizeof buf) != 0) {
        int32_t ret = absent(fn, k);
        if (ret != 0)
            return ret;
        s = k.dflt_str ? k.dflt_str : "";
    }
    return k.str(fn, k.key, rec, s);
}

int32_t kiv_read_keys(lua_State *L, const char *fn, void *rec, const kiv_key *keys, size_t n)
{
    KIV_STACK_GUARD(L);
    // The view of the table, asked with the names' hashes: the integer keys
    // cost no lookup of their own in the table (the view stays valid while
    // the table is on top; array and string keys look it up as they do).
    const kiv_table_view *view = kiv_view_top(L);
    absent_prefix prefix, own_prefix; // for the common line, and for keys' own texts
    // The level is tested once for the table: nothing the table's read
    // does changes it.
    const uint8_t level = kiv_get_log_level();
    const kiv_watcher *logger = kiv_get_watcher();
    const bool plain_lines = level >= KIV_LEVEL_WARN && !(logger && logger->log);
    for (size_t i = 0; i < n; ++i) {
        const kiv_key &k = keys[i];
        if (k.elems || k.str) {
            int32_t ret = k.elems ? read_array(L, fn, rec, k) : read_string_key(L, fn, rec, k);
            if (ret != 0)
                return ret;
            continue;
        }
        int32_t raw = 0;
        uint32_t v;
        bool given;
        if (view) {
            const kiv_view_entry *e = kiv_view_find(L, view, k.key, k.name_len, k.name_hash);
            given = e != nullptr;
            if (given)
                raw = kiv_view_integer(L, e);
            else if (level >= KIV_LEVEL_DEBUG)
                kiv_log_missing(k.key);
        } else {
            given = kiv_get_integer_item_str(L, k.key, &raw) == 0;
        }
        if (given) {
            v = static_cast<uint32_t>(raw);
        } else {
            // An optional key below the level of its line takes its default
            // without a call.
            const bool quiet = k.absent == KIV_OPTIONAL_QUIET ||
                               (k.absent == KIV_OPTIONAL && level < KIV_LEVEL_WARN);
            const char *rest = nullptr;
            if (k.absent == KIV_OPTIONAL && plain_lines && !k.absent_text) {
                absent_line(&prefix, fn, 23, k, ABSENT_REST, sizeof ABSENT_REST - 1);
            } else if (k.absent == KIV_OPTIONAL && plain_lines &&
                       (rest = plain_rest(k.absent_text)) != nullptr) {
                absent_line(&own_prefix, fn, 21, k, rest, strlen(rest));
            } else if (!quiet) {
                int32_t ret = absent(fn, k, &prefix, level);
                if (ret != 0)
                    return ret;
            }
            v = k.dflt;
        }
        if (k.check) {
            int32_t ret = k.check(fn, k.key, &v);
            if (ret != 0)
                return ret;
        }
        k.store(rec, v);
        const kiv_watcher *w = kiv_get_reading_watcher();
        if (w && given && k.load && v == static_cast<uint32_t>(raw))
            w->stored(w->ctx, k.key, -1, k.load(rec));
        if (k.gate && !(v & 1)) {
            for (size_t g = 1; w && g <= k.gate && i + g < n; ++g)
                w->unread(w->ctx, keys[i + g].key);
            i += k.gate;
        }
    }
    return 0;
}

void kiv_note_unread_keys(const kiv_key *keys, size_t n)
{
    if (const kiv_watcher *w = kiv_get_reading_watcher())
        for (size_t i = 0; i < n; ++i)
            w->unread(w->ctx, keys[i].key);
}

kiv_fps_pair kiv_fps_from_script(uint32_t value)
{
    if (kiv_rate_hp_fps())
        return {static_cast<uint32_t>((static_cast<int32_t>(value + 999u)) / 1000), value};
    return {value, value * 1000u};
}

uint32_t kiv_fps_ceiling_from_script(uint32_t value)
{
    return kiv_rate_hp_fps() ? value : value * 1000u;
}

uint32_t kiv_fps_to_script(uint32_t hp_flag, uint32_t whole, uint32_t thousandths)
{
    return hp_flag ? thousandths : whole;
}

uint32_t kiv_fps_ceiling_to_script(uint32_t hp_flag, uint32_t thousandths)
{
    return hp_flag ? thousandths : thousandths / 1000u;
}
