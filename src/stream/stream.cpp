// Streams: the `streams` array of _resource_config_, read into the stream
// records, and the stream tables stream_0, stream_1, ... written back.
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"

static const char FN[] = "kiv_get_stream_cfg";

// The record holds 13 streams, indexed by stream id.
static const int32_t MAX_STREAMS = 13;

// The id is compared as an unsigned value: a negative id has no record
// either and is refused with the same error, before any field is written.
static int32_t check_id(const char *fn, const char *, uint32_t *value)
{
    if (*value >= static_cast<uint32_t>(MAX_STREAMS)) {
        KIV_ERR_AT(19, fn, "invalid stream id(%d)\n", static_cast<int32_t>(*value));
        return -1;
    }
    return 0;
}

#define KEY(field, absent, gate, dflt, check)                                                      \
    {                                                                                              \
#field, absent, gate, dflt, KIV_FIELD(kiv_stream_cfg, field), check, nullptr               \
    }
// An optional key; a switch is optional too and gates the `gate` keys after it.
#define OPT(field) KEY(field, KIV_OPTIONAL, 0, 0, nullptr)
#define SWITCH(field, gate) KEY(field, KIV_OPTIONAL, gate, 0, nullptr)
// A {width, height} array stored into two fields.
#define PAIR(key, text, f0, f1)                                                                    \
    {                                                                                              \
        key, KIV_REQUIRED, 0, 0, nullptr, nullptr, nullptr, text, 2,                               \
            KIV_PAIR(kiv_stream_cfg, f0, f1)                                                       \
    }

// The id comes first: it selects the record the other keys go to.
static constexpr kiv_key ID_KEY[] = {KEY(id, KIV_REQUIRED, 0, 0, check_id)};

// The keys of a stream table in reading order.  A switch's gated keys are
// read only when it is 1; otherwise their fields keep what the record held.
static constexpr kiv_key STREAM_KEYS[] = {
    // A short max_size is reported without the full stop of the other
    // required keys.
    PAIR("max_size", "KIV_ERROR:: %s(%d): item(%s) doesn't exist\n", max_width, max_height),
    OPT(max_M),
    OPT(fast_seek_enable),
    OPT(possible_enc_src_map),
    OPT(two_ref_enable),
    OPT(max_svct_layers_minus_1),
    OPT(max_num_minus_1_ltrs),
    OPT(codec_enable),
    OPT(stream_mv_statis_enable),
    OPT(stream_pic_statis_enable),
    OPT(js_enable),
    SWITCH(used_for_vout_enable, 1),
    // Defaults to 1; its WARN line says 0, as every defaulted key's does.
    KEY(used_for_vout_id, KIV_OPTIONAL, 0, 1, nullptr),
    SWITCH(efm_enable, 5),
    KEY(efm_buf_num, KIV_REQUIRED, 0, 0, nullptr),
    PAIR("efm_size", nullptr, efm_width, efm_height),
    OPT(efm_skip_waiting),
    OPT(efm_extern_src_enable),
    OPT(efm_extern_src_stream),
    SWITCH(dis_enable, 1),
    OPT(dis_cached_items),
};

static consteval bool same(const char *a, const char *b)
{
    while (*a && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

// Finds a key of the stream table by name while compiling: an unknown name
// reaches the call of a function that is not constexpr and fails the build.
void kiv_stream_key_unknown(void);
static consteval const kiv_key *key(const char *name)
{
    if (same(ID_KEY[0].key, name))
        return &ID_KEY[0];
    for (const kiv_key &k : STREAM_KEYS)
        if (same(k.key, name))
            return &k;
    kiv_stream_key_unknown();
    return nullptr;
}

// The lines of a stream table in the order the dump writes them.
static constexpr const kiv_key *DUMP_LINES[] = {
    key("id"),
    key("max_size"),
    key("max_M"),
    key("fast_seek_enable"),
    key("two_ref_enable"),
    key("max_svct_layers_minus_1"),
    key("max_num_minus_1_ltrs"),
    key("possible_enc_src_map"),
    key("codec_enable"),
    key("js_enable"),
    key("used_for_vout_enable"),
    key("used_for_vout_id"),
    key("efm_enable"),
    key("efm_buf_num"),
    key("efm_size"),
    key("efm_skip_waiting"),
    key("efm_extern_src_enable"),
    key("efm_extern_src_stream"),
    key("stream_mv_statis_enable"),
    key("stream_pic_statis_enable"),
    key("dis_enable"),
    key("dis_cached_items"),
};

// One stream table (on top of the stack), stored at the element its id names.
static int32_t read_stream(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    kiv_stream_cfg scratch{};
    int32_t ret = kiv_read_keys(L, FN, &scratch, ID_KEY);
    if (ret != 0)
        return ret;
    kiv_stream_cfg *s = &cfg->streams[scratch.id];
    s->id = scratch.id;
    return kiv_read_keys(L, FN, s, STREAM_KEYS);
}

int32_t kiv_get_stream_cfg(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    KIV_STACK_GUARD(L);
    const int32_t n = kiv_get_array_item_num_str(L, "streams");
    if (n == 0) {
        KIV_ERR_AT(137, FN, "no channel config found\n");
        return -2;
    }
    // More entries than the record holds streams are refused before anything
    // is written: stream_num could not describe them (it would exceed the
    // array, or wrap in its 8 bits past 255), and since ids only go up to 12
    // such a list repeats ids anyway.
    if (n > MAX_STREAMS) {
        KIV_ERR_AT(145, FN, "stream_num(%d) is larger than the max supported stream num(%d)\n", n,
                   MAX_STREAMS);
        return -2;
    }
    if (!kiv_enter_str(L, "streams"))
        return -2;
    cfg->stream_num = static_cast<uint8_t>(n);

    int32_t ret = 0;
    for (int32_t k = 0; k < n && ret == 0; ++k) {
        // An element that is not a table has no keys: it is reported like a
        // table without its id.
        if (!kiv_enter_int(L, k)) {
            KIV_ERR_AT(158, FN, "item(%s) doesn't exist.\n", "id");
            ret = -2;
            break;
        }
        ret = read_stream(L, cfg);
        kiv_leave(L);
    }
    kiv_leave(L);
    return ret;
}

int32_t kiv_dump_stream_cfg(const kiv_multi_chan_cfg *cfg, FILE *out)
{
    const int n = cfg->stream_num < MAX_STREAMS ? cfg->stream_num : MAX_STREAMS;
    for (int i = 0; i < n; ++i) {
        const kiv_stream_cfg *s = &cfg->streams[i];
        kiv_out(out, "stream_%d = {\n", i);
        for (const kiv_key *k : DUMP_LINES) {
            if (k->elems)
                kiv_out(out, "\t%s = {%d, %d},\n", k->key, static_cast<int32_t>(k->load_elem(s, 0)),
                        static_cast<int32_t>(k->load_elem(s, 1)));
            else
                kiv_out(out, "\t%s = %d,\n", k->key, static_cast<int32_t>(k->load(s)));
        }
        kiv_out_str(out, "}\n\n");
    }
    return 0;
}
