// Binding of channel source buffers to canvases.  A canvas names, in its
// `source` list, the buffers it is composed of; each buffer serves at most
// one canvas, whose position it keeps in its canvas_id (-1: unbound).
#include <string.h>

#include "canvas/canvas.h"
#include "channel/srcbuf.h"
#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"

static const char FN[] = "kiv_set_source_buffer_canvas_id";

// Source names are built in buffers of this size (at most 31 characters).
static const int NAME_CAP = 32;

// The record holds three channels of two passes each; counts above that in
// a record (a caller may fill one by hand) never lead past the arrays.
static int chans_of(const kiv_multi_chan_cfg *cfg)
{
    return cfg->chan_num < 3 ? cfg->chan_num : 3;
}

static int passes_of(const kiv_channel_cfg &chan)
{
    return chan.pass_num < 2 ? chan.pass_num : 2;
}

// Appends the decimal form of v (0 or more) to buf at *n, cut at the end of
// the buffer; *n counts what did not fit too.
static void append_uint(char (&buf)[NAME_CAP], int *n, unsigned v)
{
    char digits[12];
    int k = 0;
    do {
        digits[k++] = static_cast<char>('0' + v % 10);
        v /= 10;
    } while (v != 0);
    while (k > 0) {
        char d = digits[--k];
        if (*n < NAME_CAP - 1)
            buf[*n] = d;
        ++*n;
    }
}

static void append_str(char (&buf)[NAME_CAP], int *n, const char *s)
{
    for (; *s; ++s, ++*n)
        if (*n < NAME_CAP - 1)
            buf[*n] = *s;
}

// The name of buffer b of pass p of the channel at position c:
// "chan_<c>.<name>" in pass 0, "chan_<c>.<name>_<p>" in later passes.
// Returns false when the name had to be cut to fit.  Every source string of
// every canvas is compared with these names, so they are put together by
// hand: formatting them costs more than the rest of the binding.
static bool src_buf_name(char (&buf)[NAME_CAP], int c, int p, int b)
{
    int n = 0;
    append_str(buf, &n, "chan_");
    append_uint(buf, &n, static_cast<unsigned>(c));
    append_str(buf, &n, ".");
    append_str(buf, &n, kiv_src_buf_names[b]);
    if (p != 0) {
        append_str(buf, &n, "_");
        append_uint(buf, &n, static_cast<unsigned>(p));
    }
    buf[n < NAME_CAP - 1 ? n : NAME_CAP - 1] = '\0';
    return n < NAME_CAP;
}

struct src_buf_pos {
    int chan, pass, buf;
};

// The buffer named s: its channel, pass and buffer decoded from the name,
// which must then be the buffer's name exactly (so "chan_01.main" names
// none).  Names are unique and never cut (three channels, two passes, at
// most 16 characters), so this finds what comparing s with the name of
// every configured buffer would find, with one comparison.
static bool find_src_buf(const kiv_multi_chan_cfg *cfg, const char *s, src_buf_pos *pos)
{
    if (strncmp(s, "chan_", 5) != 0 || s[5] < '0' || s[5] > '9')
        return false;
    const int c = s[5] - '0';
    const char *name = s + 6;
    if (*name++ != '.')
        return false;
    const char *under = strchr(name, '_');
    const size_t len = under ? static_cast<size_t>(under - name) : strlen(name);
    int p = 0;
    if (under) {
        if (under[1] < '0' || under[1] > '9')
            return false;
        p = under[1] - '0';
    }
    if (c >= chans_of(cfg) || p >= passes_of(cfg->channels[c]))
        return false;
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b) {
        if (strlen(kiv_src_buf_names[b]) != len || memcmp(kiv_src_buf_names[b], name, len) != 0)
            continue;
        char full[NAME_CAP];
        src_buf_name(full, c, p, b);
        if (strncmp(full, s, NAME_CAP) != 0)
            return false;
        *pos = {c, p, b};
        return true;
    }
    return false;
}

// Read only when the sources come from two or more channels.
static const kiv_key enable_order_key[] = {
    {"enable_order", KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_canvas_cfg, enable_order), nullptr, nullptr},
};

int32_t kiv_set_source_buffer_canvas_id(lua_State *L, kiv_multi_chan_cfg *cfg, int32_t canvas,
                                        kiv_canvas_cfg *canvas_cfg)
{
    KIV_STACK_GUARD(L);
    // A `source` that is not an array counts as absent (no elements).
    int32_t n = kiv_get_array_item_num_str(L, "source");
    if (n == 0) {
        KIV_ERR_AT(114, FN, "no source buffer found in canvas(%d)\n", canvas);
        return -1;
    }

    canvas_cfg->canvas_id = static_cast<uint32_t>(canvas);
    int32_t status = 0;
    uint32_t m = 0; // entries of source_chan_ids in use
    for (int32_t k = 0; k < n; ++k) {
        // One byte more than a name can hold: a string of 32 characters or
        // more keeps 32 of them and so can never equal a name (at most 31).
        // An element without a string form leaves the buffer empty, which
        // names no buffer either.
        char s[NAME_CAP + 1] = "";
        kiv_get_array_string_item_str(L, "source", k, s, sizeof s);
        src_buf_pos pos{};
        if (!find_src_buf(cfg, s, &pos)) {
            KIV_ERR_AT(130, FN, "invalid string(%s) in item(%s)\n", s, "source");
            status = -1;
            break;
        }

        // The channels are recorded in the order the list first names them.
        bool known = false;
        for (uint32_t e = 0; e < m; ++e)
            known = known || canvas_cfg->source_chan_ids[e] == pos.chan;
        if (!known)
            canvas_cfg->source_chan_ids[m++] = static_cast<uint8_t>(pos.chan);

        kiv_src_buf_cfg &buf = cfg->channels[pos.chan].src_buf[pos.pass][pos.buf];
        if (buf.canvas_id != -1) {
            KIV_ERR_AT(144, FN,
                       "%s source buffer of pass %d for channel%d cannot beassigned to multi "
                       "canvas(%d, %d)\n",
                       kiv_src_buf_names[pos.buf], pos.pass, pos.chan, buf.canvas_id, canvas);
            status = -2;
            break;
        }
        buf.canvas_id = canvas;
    }

    // The channel list and its order switch are kept also after a failure.
    canvas_cfg->source_chan_num = m;
    if (m >= 2)
        kiv_read_keys(L, FN, canvas_cfg, enable_order_key);
    else
        canvas_cfg->enable_order = 0;
    return status;
}

void kiv_get_canvas_extent(const kiv_multi_chan_cfg *cfg, int32_t canvas, uint32_t *width,
                           uint32_t *height)
{
    uint32_t w = 0, h = 0;
    for (int c = 0; c < chans_of(cfg); ++c) {
        const kiv_channel_cfg &chan = cfg->channels[c];
        for (int p = 0; p < passes_of(chan); ++p) {
            for (const kiv_src_buf_cfg &buf : chan.src_buf[p]) {
                if (buf.canvas_id != canvas)
                    continue;
                uint32_t right = buf.output[0] + buf.output[2];
                uint32_t bottom = buf.output[1] + buf.output[3];
                w = right > w ? right : w;
                h = bottom > h ? bottom : h;
            }
        }
    }
    *width = w;
    *height = h;
}

// The buffers of channel c bound to the canvas, pass by pass in table order
// (nothing for a channel without passes).
static void dump_chan_sources(const kiv_multi_chan_cfg *cfg, int32_t canvas, int c, FILE *out)
{
    const kiv_channel_cfg &chan = cfg->channels[c];
    for (int p = 0; p < passes_of(chan); ++p) {
        for (int b = 0; b < KIV_SRC_BUF_NUM; ++b) {
            if (chan.src_buf[p][b].canvas_id != canvas)
                continue;
            if (p == 0)
                kiv_out(out, "\"chan_%d.%s\",", c, kiv_src_buf_names[b]);
            else
                kiv_out(out, "\"chan_%d.%s_%d\",", c, kiv_src_buf_names[b], p);
        }
    }
}

void kiv_dump_canvas_source(const kiv_multi_chan_cfg *cfg, int32_t canvas, FILE *out)
{
    const kiv_canvas_cfg &cc = cfg->canvas[canvas];
    kiv_out_str(out, "\t\t\tsource = {");
    if (cc.source_chan_num != 0 && cc.enable_order) {
        // The channels in the order the canvas lists them; the list has 12
        // entries, a hand-filled count above that is cut to them.
        uint32_t num = cc.source_chan_num < 12 ? cc.source_chan_num : 12;
        for (uint32_t e = 0; e < num; ++e) {
            int c = cc.source_chan_ids[e];
            if (c < chans_of(cfg))
                dump_chan_sources(cfg, canvas, c, out);
        }
    } else {
        for (int c = 0; c < chans_of(cfg); ++c)
            dump_chan_sources(cfg, canvas, c, out);
    }
    kiv_out_str(out, "},\n");
}
