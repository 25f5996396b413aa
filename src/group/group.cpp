// Channel groups: `chan_groups` of _resource_config_, a list of groups, each
// a list of channel names.  A group has no record of its own: each listed
// channel carries its group's index and its position inside the group.
#include <stdio.h>
#include <string.h>

#include "core/access.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"

static const char FN[] = "kiv_get_chan_grp_cfg";

// The channel limit of the library; there are never more groups than
// channels.
static const int32_t MAX_CHANNELS = 3;
// group_order_idx is 3 bits wide.
static const uint32_t ORDER_VALUES = 8;

// Channels the record holds: chan_num, which the channel parser never lets
// exceed the limit, clipped so that a record filled by hand is never read
// past its channels.
static int32_t channel_count(const kiv_multi_chan_cfg *cfg)
{
    return cfg->chan_num < MAX_CHANNELS ? cfg->chan_num : MAX_CHANNELS;
}

// The index of the channel named `name` ("chan_%d", compared exactly), or -1.
static int32_t channel_of(const char *name, int32_t chans)
{
    for (int32_t c = 0; c < chans; ++c) {
        char own[32];
        kiv_format_name(own, sizeof own, "chan_", c);
        if (strcmp(own, name) == 0)
            return c;
    }
    return -1;
}

// Reads the names of group g (its table on top of the stack) into the
// channels it lists and their bits into mask.
static int32_t read_group(lua_State *L, kiv_multi_chan_cfg *cfg, int32_t g, uint8_t *mask)
{
    const int32_t chans = channel_count(cfg);
    const int32_t m = kiv_get_array_item_num(L) & 0xFF;
    for (int32_t k = 0; k < m; ++k) {
        char name[32];
        if (kiv_get_string_item_int(L, k, name, sizeof name) != 0) {
            KIV_ERR_AT(49, FN, "item of index(%d) does not exist.\n", k);
            return -2;
        }
        const int32_t c = channel_of(name, chans);
        if (c < 0) {
            KIV_ERR_AT(54, FN, "item %s does not exist.\n", name);
            return -1;
        }
        *mask = static_cast<uint8_t>(*mask | 1u << c);
        kiv_channel_cfg *chan = &cfg->channels[c];
        chan->enable_group = 1;
        chan->group_idx = static_cast<uint32_t>(g);
        chan->group_order_idx = static_cast<uint32_t>(k);
    }
    return 0;
}

// Reads the groups (the `chan_groups` table on top of the stack); no channel
// may be listed in two of them.
static int32_t read_groups(lua_State *L, kiv_multi_chan_cfg *cfg, int32_t n)
{
    uint8_t masks[MAX_CHANNELS] = {0, 0, 0};
    for (int32_t g = 0; g < n; ++g) {
        // A group that is not a table lists no channel: it is skipped like
        // an empty one.
        if (!kiv_enter_int(L, g))
            continue;
        const int32_t ret = read_group(L, cfg, g, &masks[g]);
        kiv_leave(L);
        if (ret != 0)
            return ret;
    }
    static const int32_t PAIRS[][2] = {{0, 1}, {0, 2}, {1, 2}};
    for (const auto &p : PAIRS) {
        if (p[1] < n && (masks[p[0]] & masks[p[1]])) {
            KIV_ERR_AT(84, FN,
                       "Can not specify the same channel to group %d[0x%x] and group %d[0x%x].\n",
                       p[0], masks[p[0]], p[1], masks[p[1]]);
            return -1;
        }
    }
    return 0;
}

int32_t kiv_get_chan_grp_cfg(lua_State *L, kiv_multi_chan_cfg *cfg)
{
    KIV_STACK_GUARD(L);
    const int32_t n = kiv_get_array_item_num_str(L, "chan_groups");
    if (n == 0)
        return 0;
    // Compared with the channels the record can hold (chan_num itself after
    // the channel parser), so that there is a mask for every group.
    const int32_t chans = channel_count(cfg);
    if (n > chans) {
        KIV_ERR_AT(102, FN, "chan group num(%d) cannot exceed chan num(%d).\n", n, chans);
        return -2;
    }
    if (!kiv_enter_str(L, "chan_groups"))
        return 0;
    const int32_t ret = read_groups(L, cfg, n);
    kiv_leave(L);
    return ret;
}

// The members of a group are written in ascending order of group_order_idx,
// ties by channel index, each exactly once.  When the order indices of a
// group are exactly 0 .. m-1 (what the parser stores) this is the order of
// the script they came from; otherwise (a name listed twice, or order indices
// given through the channels' own keys) it is the closest order the group
// can be written in, and nothing is ever written outside the channels.
int32_t kiv_dump_chan_grp_cfg(const kiv_multi_chan_cfg *cfg, FILE *out)
{
    const int32_t chans = channel_count(cfg);
    int32_t last = -1;
    for (int32_t c = 0; c < chans; ++c) {
        const kiv_channel_cfg &chan = cfg->channels[c];
        if (chan.enable_group && static_cast<int32_t>(chan.group_idx) > last)
            last = static_cast<int32_t>(chan.group_idx);
    }
    if (last < 0)
        return 0;

    kiv_out_str(out, "\tchan_groups = {\n");
    for (int32_t g = 0; g <= last; ++g) {
        kiv_out_str(out, "\t\t{");
        for (uint32_t order = 0; order < ORDER_VALUES; ++order) {
            for (int32_t c = 0; c < chans; ++c) {
                const kiv_channel_cfg &chan = cfg->channels[c];
                if (chan.enable_group && static_cast<int32_t>(chan.group_idx) == g &&
                    chan.group_order_idx == order) {
                    char name[32];
                    snprintf(name, sizeof name, "\"chan_%d\"", c);
                    kiv_out(out, "%s,", name);
                }
            }
        }
        kiv_out_str(out, "},\n");
    }
    kiv_out_str(out, "\t},\n");
    return 0;
}
