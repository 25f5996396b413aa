// Source buffers: the named buffers of pass 0 in the channel table, the
// further pass in pass_1, and the source buffer section of the dump.
#include <stdio.h>

#include "channel/channel.h"
#include "channel/srcbuf.h"
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"

const char kiv_src_buf_names[KIV_SRC_BUF_NUM][16] = {"main",  "second", "third",  "fourth",
                                                     "fifth", "sixth",  "premain"};

// Passes a channel record holds: pass 0 and pass 1.
static const int32_t PASS_NUM = 2;
static const int PREMAIN = 6;

int32_t kiv_read_uint_array(lua_State *L, const char *key, uint32_t *dst, int32_t n)
{
    int32_t v[KIV_UINT_ARRAY_MAX];
    int32_t m = kiv_get_array_integers_str(L, key, v, n <= KIV_UINT_ARRAY_MAX ? n : 0);
    if (m < n || n > KIV_UINT_ARRAY_MAX)
        return m;
    for (int32_t i = 0; i < n; ++i)
        dst[i] = static_cast<uint32_t>(v[i]);
    return m;
}

// The three arrays of a buffer table, in order; a short one ends the buffer
// there, keeping the arrays stored before it.
static bool read_buffer(lua_State *L, kiv_src_buf_cfg *buf)
{
    return kiv_read_uint_array(L, "max_output", buf->max_output, 2) >= 2 &&
           kiv_read_uint_array(L, "input", buf->input, 4) >= 4 &&
           kiv_read_uint_array(L, "output", buf->output, 4) >= 4;
}

int32_t parse_src_buffer_cfg(lua_State *L, int32_t chan_id, int32_t pass_id, kiv_src_buf_cfg *bufs)
{
    KIV_STACK_GUARD(L);
    if (pass_id >= PASS_NUM) {
        KIV_ERR_AT(43, "parse_src_buffer_cfg", "invalid pass ID %d\n", pass_id);
        return -1;
    }
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b) {
        // A buffer item that is not a table is handled like a missing one.
        bool read = kiv_enter_str(L, kiv_src_buf_names[b]);
        if (read) {
            read = read_buffer(L, &bufs[b]);
            kiv_leave(L);
        }
        if (!read && pass_id == 0 && b == 0) {
            KIV_ERR_AT(54, "parse_src_buffer_cfg",
                       "can't get source buffer(%d) of pass %d for channel(%d).\n", 0, 0, chan_id);
            return -2;
        }
    }
    return 0;
}

static const kiv_key pass_keys[] = {
    {"input_pass_id", KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_pass_cfg, input_pass_id)},
    {"input_buf_id", KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_pass_cfg, input_buf_id)},
};

int32_t kiv_get_src_buf_passes(lua_State *L, kiv_channel_cfg *chan)
{
    KIV_STACK_GUARD(L);
    static const char FN[] = "kiv_get_channel_cfg";
    // A pass_num above 2 asks for pass_2, which the record cannot hold:
    // parse_src_buffer_cfg refuses it before touching any buffer.
    for (int32_t p = 1;; ++p) {
        char name[32];
        kiv_format_name(name, sizeof name, "pass_", p);
        if (!kiv_enter_str(L, name)) {
            KIV_ERR_AT(77, FN, "item(%s) doesn't exist!\n", name);
            return -2;
        }
        int32_t ret =
            parse_src_buffer_cfg(L, chan->id, p, p < PASS_NUM ? chan->src_buf[p] : nullptr);
        if (ret == 0)
            kiv_read_keys(L, FN, &chan->pass_cfg[p], pass_keys);
        kiv_leave(L);
        if (ret != 0)
            return ret;
        if (chan->pass_num <= p + 1)
            return 0;
    }
}

static void dump_buffer(FILE *out, const char *indent, const char *name, const char *input,
                        const kiv_src_buf_cfg &buf)
{
    // A buffer bound to no canvas is written with zeros.
    static const kiv_src_buf_cfg unbound{};
    const kiv_src_buf_cfg &b = buf.canvas_id == -1 ? unbound : buf;
    kiv_out(out, "%s%s = {\n", indent, name);
    kiv_out(out, "%s\tmax_output = {%d, %d},\n", indent, b.max_output[0], b.max_output[1]);
    kiv_out(out, "%s\t%s = {%d, %d, %d, %d},\n", indent, input, b.input[0], b.input[1], b.input[2],
            b.input[3]);
    kiv_out(out, "%s\toutput\t = {%d, %d, %d, %d},\n", indent, b.output[0], b.output[1],
            b.output[2], b.output[3]);
    kiv_out(out, "%s},\n", indent);
}

// "premain" first, and only for a channel with a multi-region warp; then
// "main" to "sixth".  Pass 0's "premain" line reads "input\t" where all
// the others read "input \t".
static void dump_pass(FILE *out, const kiv_channel_cfg &chan, int p, const char *indent)
{
    if (chan.max_warp_input_width != 0)
        dump_buffer(out, indent, kiv_src_buf_names[PREMAIN], p == 0 ? "input\t" : "input \t",
                    chan.src_buf[p][PREMAIN]);
    for (int b = 0; b < PREMAIN; ++b)
        dump_buffer(out, indent, kiv_src_buf_names[b], "input \t", chan.src_buf[p][b]);
}

void kiv_dump_src_buf_cfg(FILE *out, const kiv_channel_cfg &chan)
{
    kiv_out_str(out, "-- ================ src buf cfg  ================\n");
    kiv_out(out, "\tpass_num = %u,\n", chan.pass_num);
    dump_pass(out, chan, 0, "\t");
    for (int p = 1; p < static_cast<int>(chan.pass_num) && p < PASS_NUM; ++p) {
        kiv_out(out, "\tpass_%d = {\n", p);
        kiv_out(out, "\t\tinput_pass_id = %u,\n", chan.pass_cfg[p].input_pass_id);
        kiv_out(out, "\t\tinput_buf_id = %u,\n", chan.pass_cfg[p].input_buf_id);
        dump_pass(out, chan, p, "\t\t");
        kiv_out_str(out, "\t},\n");
    }
}
