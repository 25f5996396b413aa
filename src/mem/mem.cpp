// Resource memory layout: the optional `resource_mem_layout` of
// _resource_config_, the largest resources the pipeline reserves memory for,
// per channel and per stream.
#include <stddef.h>

#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"

static const char FN[] = "kiv_get_mem_cfg_resource";

// The channel limit of the library and the stream limit of the record.
static const int32_t MAX_CHANNELS = 3;
static const int32_t MAX_STREAMS = 13;

static int32_t check_chan_num(const char *fn, const char *, uint32_t *value)
{
    const int32_t v = static_cast<int32_t>(*value);
    if (v < 1 || v > MAX_CHANNELS) {
        KIV_ERR_AT(22, fn, "Invalid max_chan_num %d, should be in the range of (0,%d]!\n", v,
                   MAX_CHANNELS);
        return -1;
    }
    return 0;
}

// Compared as an unsigned value: a negative count is refused like one above
// the limit (its low 5 bits would otherwise claim up to 31 entries).
static int32_t check_stream_num(const char *fn, const char *, uint32_t *value)
{
    if (*value > static_cast<uint32_t>(MAX_STREAMS)) {
        KIV_ERR_AT(34, fn, "Invalid max_stream_num %d, should be in the range of [0,%d]!\n",
                   static_cast<int32_t>(*value), MAX_STREAMS);
        return -1;
    }
    return 0;
}

#define COUNT(T, key, check)                                                                       \
    {                                                                                              \
#key, KIV_REQUIRED, 0, 0, KIV_FIELD(T, key), check, nullptr                                \
    }
#define OPT(T, key)                                                                                \
    {                                                                                              \
#key, KIV_OPTIONAL, 0, 0, KIV_FIELD(T, key), nullptr, nullptr                              \
    }
// A short size array ends the parse with the access layer's lines only.
#define SIZE(T, key)                                                                               \
    {                                                                                              \
#key, KIV_REQUIRED_QUIET, 0, 0, nullptr, nullptr, nullptr, nullptr, 2,                     \
            KIV_PAIR(T, key[0], key[1])                                                            \
    }

static const kiv_key COUNT_KEYS[] = {
    COUNT(kiv_mem_cfg_resource, max_chan_num, check_chan_num),
    COUNT(kiv_mem_cfg_resource, max_stream_num, check_stream_num),
};

// The keys of one entry, in reading order, which is also the order in which
// the dump writes them.
static const kiv_key CHAN_KEYS[] = {
    OPT(kiv_chan_mem_cfg, mask_possible),
    OPT(kiv_chan_mem_cfg, mc_mask_possible),
    OPT(kiv_chan_mem_cfg, warp_possible),
    OPT(kiv_chan_mem_cfg, mask_buf_max_num),
    OPT(kiv_chan_mem_cfg, mc_mask_buf_max_num),
    OPT(kiv_chan_mem_cfg, mc_mask_buf_ds),
    OPT(kiv_chan_mem_cfg, warp_buf_max_num),
    OPT(kiv_chan_mem_cfg, warp_area_max_num),
    SIZE(kiv_chan_mem_cfg, max_vin),
};

static const kiv_key STREAM_KEYS[] = {
    OPT(kiv_stream_mem_cfg, qpm_possible),
    OPT(kiv_stream_mem_cfg, qpm_max_matrix_num),
    OPT(kiv_stream_mem_cfg, qpm_buf_max_num),
    SIZE(kiv_stream_mem_cfg, max_stream),
};

// The two entry arrays, read and written the same way.
struct entry_array {
    const char *key;
    // ERROR format when the number of elements differs from the count.
    const char *mismatch;
    // The line that opens the array in the dump.
    const char *dump_open;
    const kiv_key *keys;
    size_t nkeys;
    size_t stride;
    size_t offset;
};

template <size_t N>
static constexpr size_t count_of(const kiv_key (&)[N])
{
    return N;
}

static const entry_array CHANNELS_MEM = {
    "channels_mem",
    "KIV_ERROR:: %s(%d): channel mem cfg num(%d) must be the same as max(%d)\n",
    "\t\tchannels_mem = {\n",
    CHAN_KEYS,
    count_of(CHAN_KEYS),
    sizeof(kiv_chan_mem_cfg),
    offsetof(kiv_mem_cfg_resource, channels_mem),
};

static const entry_array STREAMS_MEM = {
    "streams_mem",
    "KIV_ERROR:: %s(%d): stream mem cfg num(%d) must be the same as max(%d)\n",
    "\t\tstreams_mem= {\n",
    STREAM_KEYS,
    count_of(STREAM_KEYS),
    sizeof(kiv_stream_mem_cfg),
    offsetof(kiv_mem_cfg_resource, streams_mem),
};

static void *entry(kiv_mem_cfg_resource *mem, const entry_array &a, int32_t i)
{
    return reinterpret_cast<char *>(mem) + a.offset + static_cast<size_t>(i) * a.stride;
}

static const void *entry(const kiv_mem_cfg_resource *mem, const entry_array &a, int32_t i)
{
    return reinterpret_cast<const char *>(mem) + a.offset + static_cast<size_t>(i) * a.stride;
}

// Reads the entries of one array, which must have exactly `count` elements
// (count is at most the array's limit, checked before).
static int32_t read_entries(lua_State *L, kiv_mem_cfg_resource *mem, const entry_array &a,
                            int32_t count)
{
    const int32_t n = kiv_get_array_item_num_str(L, a.key);
    if (n != count) {
        kiv_log(KIV_LEVEL_ERROR, a.mismatch, FN, 138, n, count);
        return -2;
    }
    if (n == 0 || !kiv_enter_str(L, a.key))
        return 0;
    int32_t ret = 0;
    for (int32_t i = 0; i < n && ret == 0; ++i) {
        // An element that is not a table is a missing entry: its size is
        // missing, which ends the parse without a line of its own.
        if (!kiv_enter_int(L, i)) {
            ret = -2;
            break;
        }
        ret = kiv_read_keys(L, FN, entry(mem, a, i), a.keys, a.nkeys);
        kiv_leave(L);
    }
    kiv_leave(L);
    return ret;
}

static int32_t read_layout(lua_State *L, kiv_mem_cfg_resource *mem)
{
    int32_t ret = kiv_read_keys(L, FN, mem, COUNT_KEYS);
    if (ret == 0)
        ret = read_entries(L, mem, CHANNELS_MEM, mem->max_chan_num);
    if (ret == 0)
        ret = read_entries(L, mem, STREAMS_MEM, mem->max_stream_num);
    return ret;
}

// The last reader of the loader: after it returns the loader no longer uses
// the Lua state.  The state itself is closed by the run frame
// (kiv_run_script), exactly once, right after the loader's reading step
// returns, on this path and on every earlier exit alike, so this function
// does not call lua_close: closing here would close it twice.
int32_t kiv_get_mem_cfg_resource(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    KIV_STACK_GUARD(L);
    kiv_mem_cfg_resource *mem = &cfg->resource_mem_layout;
    // A value that is not a table has nothing to read: it is handled like a
    // missing layout.
    if (!kiv_enter_str(L, "resource_mem_layout")) {
        KIV_DBG_AT(180, FN, "item(%s) doesn't exist\n", "resource_mem_layout");
        mem->max_chan_num = 0;
        mem->max_stream_num = 0;
        return 0;
    }
    const int32_t ret = read_layout(L, mem);
    kiv_leave(L);
    return ret;
}

// The counts are clipped to the limits, so that a record filled by hand is
// never read past its entry arrays; the clipped counts are written, so that
// the text describes exactly the entries it holds.
int32_t kiv_dump_mem_cfg_resource(const kiv_multi_chan_cfg *cfg, FILE *out)
{
    const kiv_mem_cfg_resource *mem = &cfg->resource_mem_layout;
    const int32_t chans = mem->max_chan_num < MAX_CHANNELS ? mem->max_chan_num : MAX_CHANNELS;
    const int32_t streams = mem->max_stream_num < MAX_STREAMS ? mem->max_stream_num : MAX_STREAMS;
    if (chans == 0 || streams == 0)
        return 0;

    kiv_out_str(out, "\tresource_mem_layout = {\n");
    kiv_out(out, "\t\tmax_chan_num = %d,\n", chans);
    kiv_out(out, "\t\tmax_stream_num = %d,\n", streams);
    const struct {
        const entry_array &a;
        int32_t n;
    } arrays[] = {{CHANNELS_MEM, chans}, {STREAMS_MEM, streams}};
    for (const auto &arr : arrays) {
        kiv_out_str(out, arr.a.dump_open);
        for (int32_t i = 0; i < arr.n; ++i) {
            const void *e = entry(mem, arr.a, i);
            kiv_out_str(out, "\t\t\t{\n");
            for (size_t k = 0; k < arr.a.nkeys; ++k) {
                const kiv_key &key = arr.a.keys[k];
                if (key.elems)
                    kiv_out(out, "\t\t\t\t%s = {%d, %d},\n", key.key,
                            static_cast<int32_t>(key.load_elem(e, 0)),
                            static_cast<int32_t>(key.load_elem(e, 1)));
                else
                    kiv_out(out, "\t\t\t\t%s = %d,\n", key.key, static_cast<int32_t>(key.load(e)));
            }
            kiv_out_str(out, "\t\t\t},\n");
        }
        kiv_out_str(out, "\t\t},\n");
    }
    kiv_out_str(out, "\t},\n");
    return 0;
}
