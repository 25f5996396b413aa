// Video sources: the vsrc table of a channel, the input mode names and the
// vsrc_<id> tables of the dump.
#include "vsrc/vsrc.h"

#include <string.h>

#include "core/access.h"
#include "core/keys.h"
#include "core/log.h"
#include "core/out.h"
#include "core/sections.h"

static const char FN[] = "kiv_get_vsrc_cfg";

// Input modes by name.  Several names share an id; the dump writes the
// first of them in this order, so the order is part of the format.
const kiv_name_id vin_mode_table[KIV_VIN_MODE_NUM] = {
    {"0", 0},           {"auto", 0},        {"640x480", 10},      {"480p", 13},
    {"576p", 14},       {"720p", 27},       {"1080p", 40},        {"d1", 13},
    {"d1_pal", 14},     {"qvga", 2},        {"vga", 10},          {"wvga", 16},
    {"wsvga", 22},      {"qxga", 46},       {"xga", 23},          {"wxga", 28},
    {"uxga", 34},       {"qsxga", 57},      {"qhd", 55},          {"3m", 46},
    {"5m", 57},         {"1024x768", 23},   {"1152x648", 25},     {"1280x720", 27},
    {"1280x800", 28},   {"1280x960", 29},   {"1280x1024", 30},    {"1600x1200", 34},
    {"1920x1200", 41},  {"1920x1440", 42},  {"1920x1080", 40},    {"2048x1080", 44},
    {"2048x1152", 45},  {"2048x1536", 46},  {"2560x1440", 55},    {"2592x1944", 57},
    {"2208x1242", 48},  {"2304x1296", 49},  {"2304x1536", 50},    {"2304x1728", 51},
    {"3280x2464", 64},  {"3280x1852", 63},  {"2520x1424", 53},    {"1640x1232", 37},
    {"4096x2160", 68},  {"4016x3016", 67},  {"4000x3000", 66},    {"3840x2160", 65},
    {"3072x2048", 62},  {"2688x1512", 58},  {"2688x1520", 59},    {"1296x1032", 31},
    {"2560x2048", 56},  {"848x480", 18},    {"3072x1728", 61},    {"2432x2048", 52},
    {"2048x2048", 47},  {"7680x4320", 70},  {"5472x3648", 69},    {"2688x1944", 60},
    {"640x512", 11},    {"1920x1920", 43},  {"1920x640", 77},     {"1920x720", 78},
    {"1600x1600", 35},  {"1632x1632", 36},  {"3008x3000", 72},    {"1792x1792", 73},
    {"2000x1118", 74},  {"3264x2448", 79},  {"3264x1832", 114},   {"1856x1856", 80},
    {"3008x3008", 81},  {"2176x2160", 83},  {"2880x1856", 84},    {"2432x2064", 85},
    {"1952x1112", 86},  {"1824x944", 88},   {"1280x1080", 89},    {"6016x4008", 90},
    {"4768x3184", 91},  {"1280x1000", 92},  {"2592x1440", 93},    {"2880x1080", 94},
    {"9568x6380", 101}, {"9568x5382", 102}, {"3072x3064", 103},   {"2048x1552", 104},
    {"2592x1456", 95},  {"3072x3040", 107}, {"1920x1088", 110},   {"1728x2336", 113},
    {"1920x1536", 117}, {"2560x2560", 125}, {"poweroff", 0xF000}, {"", 0},
};

const kiv_name_id hdr_mode_table[KIV_HDR_MODE_NUM] = {
    {"linear", 0},
    {"2x", 1},
    {"3x", 2},
    {"wdr", 15},
};

const kiv_name_id *kiv_find_name(const kiv_name_id *table, int n, const char *name)
{
    for (int i = 0; i < n; ++i)
        if (table[i].name[0] == name[0] && strcmp(table[i].name, name) == 0)
            return &table[i];
    return nullptr;
}

const kiv_name_id *kiv_find_id(const kiv_name_id *table, int n, int32_t id)
{
    for (int i = 0; i < n; ++i)
        if (table[i].id == id)
            return &table[i];
    return nullptr;
}

int32_t kiv_get_vin_mode(const char *name)
{
    const kiv_name_id *row = kiv_find_name(vin_mode_table, KIV_VIN_MODE_NUM, name);
    if (!row) {
        KIV_ERR_AT(71, "kiv_get_vin_mode", "vin mode '%s' not found\n", name);
        return -2;
    }
    return row->id;
}

int32_t kiv_take_hdr_mode(const char *fn, const kiv_vsrc_cfg *vsrc, const char *s, uint32_t *field)
{
    const kiv_name_id *row = kiv_find_name(hdr_mode_table, KIV_HDR_MODE_NUM, s);
    if (!row) {
        KIV_ERR_AT(81, fn, "invalid hdr_mode(%s) for vsrc(%d)\n", s, vsrc->vsrc_id);
        return -1;
    }
    *field = static_cast<uint32_t>(row->id);
    return 0;
}

// The dump keeps one vsrc_<id> table per source id and a record holds at
// most one source per channel, so an id of 3 or more is refused here rather
// than handled by the dump.
static int32_t check_vsrc_id(const char *fn, const char *key, uint32_t *value)
{
    if (*value >= KIV_VSRC_ID_NUM) {
        KIV_ERR_AT(94, fn, "invalid %s(%u), it must be less than %d.\n", key, *value,
                   KIV_VSRC_ID_NUM);
        return -2;
    }
    return 0;
}

// A failed lookup leaves -2 in mode.
static int32_t take_mode(const char *, const char *, void *rec, const char *s)
{
    kiv_vsrc_cfg *vsrc = static_cast<kiv_vsrc_cfg *>(rec);
    vsrc->mode = kiv_get_vin_mode(s);
    return vsrc->mode < 0 ? -2 : 0;
}

static int32_t take_hdr(const char *fn, const char *, void *rec, const char *s)
{
    kiv_vsrc_cfg *vsrc = static_cast<kiv_vsrc_cfg *>(rec);
    return kiv_take_hdr_mode(fn, vsrc, s, &vsrc->hdr_mode);
}

// calib_data holds 255 characters and its terminator.  A longer path is
// refused rather than cut: a shortened path would name another file.
static int32_t take_calib(const char *fn, const char *key, void *rec, const char *s)
{
    kiv_vsrc_cfg *vsrc = static_cast<kiv_vsrc_cfg *>(rec);
    size_t len = strlen(s);
    if (len >= sizeof vsrc->calib_data) {
        KIV_ERR_AT(121, fn, "item(%s) is longer than %d characters.\n", key,
                   static_cast<int>(sizeof vsrc->calib_data - 1));
        return -2;
    }
    memset(vsrc->calib_data, 0, sizeof vsrc->calib_data);
    memcpy(vsrc->calib_data, s, len);
    return 0;
}

static const char NOT_EXIT[] = "KIV_WARN:: %s(%d): item(%s) doesn't exit, set to 0.\n";

#define VSRC_INT(k, a, dflt)                                                                       \
    {                                                                                              \
#k, a, 0, dflt, KIV_FIELD(kiv_vsrc_cfg, k)                                                 \
    }
#define VSRC_STR(k, a, fn)                                                                         \
    {                                                                                              \
        .key = #k, .absent = a, .str = fn                                                          \
    }

// The keys of a vsrc table in reading order.
static const kiv_key vsrc_keys[] = {
    {"vsrc_id", KIV_REQUIRED, 0, 0, KIV_FIELD(kiv_vsrc_cfg, vsrc_id), check_vsrc_id},
    VSRC_INT(vsrc_status, KIV_OPTIONAL, 0),
    VSRC_STR(mode, KIV_REQUIRED_QUIET, take_mode),
    {"fps", KIV_REQUIRED_QUIET, 0, 0,
     [](void *r, uint32_t v) {
         kiv_fps_pair fps = kiv_fps_from_script(v);
         static_cast<kiv_vsrc_cfg *>(r)->fps = fps.whole;
         static_cast<kiv_vsrc_cfg *>(r)->fps_hp = fps.thousandths;
     }},
    {"max_fps", KIV_OPTIONAL, 0, 0,
     [](void *r, uint32_t v) {
         static_cast<kiv_vsrc_cfg *>(r)->max_fps = kiv_fps_ceiling_from_script(v);
     }},
    VSRC_STR(hdr_mode, KIV_REQUIRED_QUIET, take_hdr),
    VSRC_INT(dg_mode, KIV_OPTIONAL, 0),
    VSRC_INT(bits, KIV_OPTIONAL, 0),
    VSRC_INT(vsrc_ctx_switch, KIV_OPTIONAL, 0),
    VSRC_INT(mirror, KIV_OPTIONAL, 255),
    VSRC_INT(bayer, KIV_OPTIONAL, 255),
    {.key = "calib_data", .absent = KIV_OPTIONAL, .absent_text = NOT_EXIT, .str = take_calib},
    {"virt_mode_cfg_enable", KIV_OPTIONAL, 0, 0, KIV_FIELD(kiv_vsrc_cfg, virt_mode_cfg_enable),
     nullptr, NOT_EXIT},
};

int32_t kiv_get_vsrc_cfg(lua_State *L, kiv_vsrc_cfg *vsrc)
{
    KIV_STACK_GUARD(L);
    // A vsrc that is not a table is handled like a missing one.
    if (!kiv_enter_str(L, "vsrc"))
        return -2;
    int32_t ret = kiv_read_keys(L, FN, vsrc, vsrc_keys);
    if (ret == 0 && vsrc->virt_mode_cfg_enable) {
        // The mode of a source with a virtual mode is VIN_MODE_VIRTUAL,
        // whether its virtual mode could be read or not.
        if (!kiv_is_item_exist_str(L, "virt_mode_cfg") || kiv_get_virt_mode_cfg(L, vsrc) != 0) {
            KIV_ERR_AT(178, FN, "The virtual mode config is incorrect for vsrc_id[%d]!",
                       vsrc->vsrc_id);
            ret = -2;
        }
        vsrc->mode = VIN_MODE_VIRTUAL;
    } else {
        static const char *const VIRT[] = {"virt_mode_cfg"};
        kiv_note_unread(VIRT, 1);
    }
    kiv_leave(L);
    return ret;
}

bool kiv_vsrc_first_of(const kiv_multi_chan_cfg *cfg, int i)
{
    for (int j = 0; j < i; ++j)
        if (cfg->channels[j].vsrc.vsrc_id == cfg->channels[i].vsrc.vsrc_id)
            return false;
    return true;
}

void kiv_dump_name_options(FILE *out, const char *key, const kiv_name_id *table, int n, int32_t id)
{
    const kiv_name_id *row = kiv_find_id(table, n, id);
    if (row)
        kiv_out(out, "\t%s = \"%s\", -- options: ", key, row->name);
    for (int i = 0; i < n; ++i)
        kiv_out(out, "\"%s\", ", table[i].name);
    kiv_out_str(out, "\n");
}

// The name written for the mode of a source with a virtual mode.  No row
// carries VIN_MODE_VIRTUAL, yet mode is a required item: "auto" loads, and
// reading the virtual mode then sets VIN_MODE_VIRTUAL again, so the dump of
// such a source loads back into the same record.
static const char VIRTUAL_MODE_NAME[] = "auto";

static void dump_vsrc(FILE *out, const kiv_vsrc_cfg &v, uint32_t hp)
{
    kiv_out(out, "vsrc_%d = {\n", v.vsrc_id);
    kiv_out(out, "\tvsrc_id = %d,\n", v.vsrc_id);
    kiv_out(out, "\tvsrc_status = %d,\n", v.vsrc_status);
    const kiv_name_id *mode = kiv_find_id(vin_mode_table, KIV_VIN_MODE_NUM, v.mode);
    if (mode)
        kiv_out(out, "\tmode = \"%s\",\n", mode->name);
    else if (v.mode == VIN_MODE_VIRTUAL)
        kiv_out(out, "\tmode = \"%s\",\n", VIRTUAL_MODE_NAME);
    kiv_dump_name_options(out, "hdr_mode", hdr_mode_table, KIV_HDR_MODE_NUM,
                          static_cast<int32_t>(v.hdr_mode));
    kiv_out(out, "\tdg_mode = %d,\n", v.dg_mode);
    kiv_out(out, "\tfps = %d,\n", kiv_fps_to_script(hp, v.fps, v.fps_hp));
    kiv_out(out, "\tmax_fps = %d,\n", kiv_fps_ceiling_to_script(hp, v.max_fps));
    kiv_out(out, "\tvsrc_ctx_switch = %d,\n", v.vsrc_ctx_switch);
    kiv_out(out, "\tbits = %d,\n", v.bits);
    kiv_out(out, "\tmirror = %d,\n", v.mirror);
    kiv_out(out, "\tbayer = %d,\n", v.bayer);
    kiv_out(out, "\tvirt_mode_cfg_enable = %d,\n", v.virt_mode_cfg_enable);
    if (v.virt_mode_cfg_enable)
        kiv_out(out, "\tvirt_mode_cfg = virt_mode_cfg_%d,\n", v.vsrc_id);
    kiv_out_str(out, "}\n\n");
}

int32_t kiv_dump_vsrc_cfg(const kiv_multi_chan_cfg *cfg, FILE *out)
{
    const int chans = cfg->chan_num < 3 ? cfg->chan_num : 3;
    for (int i = 0; i < chans; ++i)
        if (kiv_vsrc_first_of(cfg, i))
            dump_vsrc(out, cfg->channels[i].vsrc, cfg->enable_hp_fps);
    return 0;
}
