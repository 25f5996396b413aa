// The loaders that stand alone: custom AISP networks, calibration data and
// HEVC scaling lists.  Their arguments, every failure with its result and
// lines, and where each value lands.
#include "kiv_test.h"

#include <functional>
#include <string.h>

#include "aisp/aisp.h"

using namespace kivtest;

namespace
{

const std::string DO = "do_kiv_get_custom_aisp_cfg", NN = "kiv_get_custom_nn_info",
                  SIZE = "kiv_get_calib_data_size", LOAD = "kiv_load_calib_data",
                  HEVC = "kiv_get_hevc_scaling_cfg";
const std::string INFO_ERR = err(DO, "get custom nn info error\n");
const char GOOD_MAP[] = "{ dvi_id = 1, start = 2, cnt = 3, id = { 4 } }";
const uint32_t UNTOUCHED = 0xA5A5A5A5u;

// _custom_aisp_config_ with a boot_param and `body`, then `tail` (Lua code).
std::string config(const std::string &body, const std::string &tail = "")
{
    return "_custom_aisp_config_ = { boot_param = { fifo_addr = 0x1000, fifo_len = 0x200, "
           "dag_addr = 0x3000 }, " +
           body + " } " + tail;
}

// custom_nn of one network of one interface.
std::string one(const std::string &port, const std::string &poke)
{
    return config("custom_nn = { { if_cnt = 1, interfaces = { { port = " + port +
                  ", poke = " + poke + " } } } }");
}

// Networks of `counts` interfaces, added by the script; interface k (from 1)
// of network n (from 0) has dvi_id 10 n + k and id n.
std::string networks(std::initializer_list<int> counts)
{
    std::string s = "local function nn(n, c) local t = {} for k = 1, c do local m = { dvi_id = "
                    "10 * n + k, start = k, cnt = 1, id = { n } } t[k] = { port = m, poke = m } "
                    "end return { if_cnt = c, interfaces = t } end ";
    int n = 0;
    for (int c : counts) {
        s += "_custom_aisp_config_.custom_nn[" + std::to_string(n + 1) + "] = nn(" +
             std::to_string(n) + ", " + std::to_string(c) + ") ";
        ++n;
    }
    return config("custom_nn = {}", s);
}

// The loaders do not clear their records: 0xA5 bytes show what a load leaves
// alone; the guard after the networks shows a write past their end.
class Standalone : public Settings
{
  protected:
    std::string aisp(const std::string &text, uint8_t type = 1)
    {
        memset(&nn, 0xA5, sizeof nn);
        std::string path = script(text);
        return masked([&] { ret = kiv_get_aisp_cfg_fill(path.c_str(), &nn.cfg, type, &fill); });
    }
    std::string lists(const std::string &path)
    {
        memset(&hevc, 0xA5, sizeof hevc);
        return masked([&] { ret = kiv_get_hevc_scaling_cfg(path.c_str(), &hevc); });
    }
    bool hevc_zero() const
    {
        static const kiv_hevc_scaling_cfg zero{};
        return memcmp(&hevc, &zero, sizeof hevc) == 0;
    }
    int32_t ret = 1;
    struct {
        kiv_aisp_cfg cfg;
        unsigned char guard[64];
    } nn;
    kiv_aisp_fill fill;
    kiv_hevc_scaling_cfg hevc;
    kiv_calib_data_item items[8];
};

} // namespace

TEST_F(Standalone, ArgumentsAndMissingFiles)
{
    memset(items, 0xA5, sizeof items);
    const char *none = "/nonexistent/x.lua";
    const std::string no_file =
        "lua error msg is cannot open /nonexistent/x.lua: No such file or directory.\n";
    const std::string null = "the 1st or 2nd param is NULL\n";
    const std::string A = "kiv_get_aisp_cfg";
    const std::tuple<std::function<int32_t()>, int32_t, std::string> cases[] = {
        {[&] { return kiv_get_aisp_cfg(none, &nn.cfg, 1); }, -2, err(A, no_file)},
        {[&] { return kiv_get_aisp_cfg(nullptr, &nn.cfg, 1); }, -1, err(A, null)},
        {[&] { return kiv_get_aisp_cfg(none, nullptr, 1); }, -1, err(A, null)},
        {[&] { return kiv_get_hevc_scaling_cfg(nullptr, &hevc); }, -1, err(HEVC, null)},
        {[&] { return kiv_get_hevc_scaling_cfg(none, nullptr); }, -1, err(HEVC, null)},
        {[&] { return kiv_get_calib_data_size(nullptr); }, 0, err(SIZE, "the lua file is NULL\n")},
        {[&] { return kiv_get_calib_data_size(none); }, 0, err(SIZE, no_file)},
        {[&] { return kiv_load_calib_data(none, items, 1); }, -2, err(LOAD, no_file)},
        {[&] { return kiv_load_calib_data(nullptr, items, 1); }, -1, err(LOAD, null)},
        {[&] { return kiv_load_calib_data(none, nullptr, 1); }, -1, err(LOAD, null)},
        {[&] { return kiv_load_calib_data(none, items, 0); }, -1, err(LOAD, "data_size is 0\n")},
    };
    for (const auto &[call, want, log] : cases) {
        EXPECT_EQ(masked([&] { ret = call(); }), log);
        EXPECT_EQ(ret, want) << log;
    }
    EXPECT_EQ(items[0].addr, UNTOUCHED);
    // A missing file leaves the scaling lists zero.
    EXPECT_EQ(lists(none), err(HEVC, no_file));
    EXPECT_EQ(ret, -2);
    EXPECT_TRUE(hevc_zero());
}

TEST_F(Standalone, AispFailures)
{
    const std::string bad_ids = err("kiv_get_nn_map", "invalid port id num!\n") + INFO_ERR;
    const std::string no_nn = err(NN, "Invalid nn cnt!\n") + INFO_ERR;
    auto map_err = [](const std::string &text) { return err("kiv_get_nn_map", text) + INFO_ERR; };
    const std::string boot = "_custom_aisp_config_ = { boot_param = ";
    const std::string boot_err = err(DO, "get network bootup param error\n");
    const std::pair<std::string, std::string> cases[] = {
        {"x = 1", err(DO, "invalid custom aisp config file\n")},
        {"_custom_aisp_config_ = 3", err(DO, "invalid custom aisp config file\n")},
        {boot + "5 }",
         warn("kiv_get_custom_nn_bootup_param", "item(boot_param) doesn't exist\n") + boot_err},
        {boot + "{ fifo_addr = 7, dag_addr = 9 } }",
         err("kiv_get_custom_nn_bootup_param", "item(fifo_len) doesn't exist.\n") + boot_err},
        {config("x = 1"), no_array("custom_nn") + no_nn},
        {config("custom_nn = {}"), no_nn},
        {config("custom_nn = { 5 }"),
         err(NN, "item(custom_nn) doesn't have item of index(0)\n") + INFO_ERR},
        {config("custom_nn = { { interfaces = {} } }"),
         err(NN, "item(if_cnt) doesn't exist.\n") + INFO_ERR},
        {config("custom_nn = { { if_cnt = 1, interfaces = 4 } }"),
         err(NN, "item(interfaces) doesn't exist\n") + INFO_ERR},
        {config("custom_nn = { { if_cnt = 1, interfaces = {} } }"),
         err(NN, "item(interfaces) doesn't have item of index(0)\n") + INFO_ERR},
        {one("'x'", GOOD_MAP), map_err("item(port) doesn't exist\n")},
        {one(GOOD_MAP, "nil"), map_err("item(poke) doesn't exist\n")},
        {one("{ dvi_id = 1, start = 2, id = { 1 } }", GOOD_MAP),
         map_err("item(cnt) doesn't exist.\n")},
        {one("{ dvi_id = 1, start = 2, cnt = 3, id = {} }", GOOD_MAP), bad_ids},
        {one(GOOD_MAP, "{ dvi_id = 1, start = 2, cnt = 3, id = { 1, 2, 3, 4, 5 } }"), bad_ids},
        {one(GOOD_MAP, "{ dvi_id = 1, start = 2, cnt = 3, id = 7 }"), no_array("id") + bad_ids},
        // 32 entries for all networks: the third network does not fit.
        {networks({15, 15, 3}),
         err(NN, "nn(2) has 3 interfaces, only 2 of 32 interface entries are left\n") + INFO_ERR},
    };
    for (const auto &[text, log] : cases) {
        EXPECT_EQ(aisp(text), log) << text;
        EXPECT_EQ(ret, -1) << text;
    }
    // The last case filled 30 entries and nothing after them.
    EXPECT_EQ(
        vals({fill.filled, nn.cfg.interfaces[29].port.dvi_id, nn.cfg.interfaces[30].port.dvi_id}),
        vals({30, 25, 0xA5}));
    for (unsigned char g : nn.guard)
        ASSERT_EQ(g, 0xA5);
    EXPECT_EQ(aisp(networks({1}), 2), ""); // another type: refused without a line
    EXPECT_EQ(vals({ret, nn.cfg.fifo_addr}), vals({-1, UNTOUCHED}));
}

TEST_F(Standalone, AispEntriesAcrossNetworksAndLowBits)
{
    EXPECT_EQ(aisp(networks({2, 3})), "");
    ASSERT_EQ(ret, 0);
    const kiv_aisp_cfg &c = nn.cfg;
    EXPECT_EQ(vals({c.dag_addr, c.if_cnt, fill.nn_cnt, kiv_aisp_entries_of(&fill, 0),
                    kiv_aisp_entries_of(&fill, 1)}),
              vals({0x3000, 3, 2, 2, 3}));
    EXPECT_EQ(
        vals({c.interfaces[0].poke.dvi_id, c.interfaces[1].poke.dvi_id, c.interfaces[2].poke.dvi_id,
              c.interfaces[4].poke.dvi_id, c.interfaces[5].poke.dvi_id}),
        vals({1, 2, 11, 13, 0xA5}));
    // Ids beyond those given and the reserved byte stay.
    EXPECT_EQ(vals({c.interfaces[4].port.id[0], c.interfaces[4].port.id[1],
                    c.interfaces[4].port.reserved}),
              vals({1, 0xA5, 0xA5}));

    EXPECT_EQ(aisp(networks({15, 15, 2})), ""); // exactly full
    EXPECT_EQ(vals({ret, fill.filled}), vals({0, 32}));
    EXPECT_EQ(aisp(config("custom_nn = {}", "for i = 1, 1000 do _custom_aisp_config_.custom_nn[i]"
                                            " = { if_cnt = 0, interfaces = {} } end")),
              "");
    EXPECT_EQ(vals({ret, fill.nn_cnt, fill.filled}), vals({0, 1000, 0}));

    // Values keep the low bits their fields hold.
    EXPECT_EQ(aisp(config("custom_nn = { { if_cnt = 17, interfaces = { { port = { dvi_id = 300, "
                          "start = -1, cnt = '7', id = { 1, 2, 3, 260 } }, poke = " +
                          std::string(GOOD_MAP) + " } } } }")),
              "");
    EXPECT_EQ(vals({ret, c.if_cnt, c.interfaces[1].port.dvi_id}), vals({0, 1, 0xA5}));
    // Bits 4-7 of the if_cnt byte belong to no field.
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&c)[12] & 0xF0, 0xA0);
    const kiv_nn_map &port = c.interfaces[0].port;
    EXPECT_EQ(vals({port.dvi_id, port.start, port.cnt, port.id[3]}), vals({44, 255, 7, 4}));
}

TEST_F(Standalone, CalibSizeAndLoads)
{
    const std::string invalid = "Invalid calibrate data config file\n";
    const std::tuple<const char *, int32_t, std::string> sizes[] = {
        {"x = 1", 0, err(SIZE, invalid)},
        {"calib_data = 5", 0, err(SIZE, invalid)},
        {"calib_data = {}", 0, ""},
        // Every key/value pair counts.
        {"calib_data = { {1, 2}, name = {3, 4}, 7 }", 3, ""}};
    for (const auto &[text, n, log] : sizes) {
        std::string path = script(text);
        EXPECT_EQ(masked([&] { ret = kiv_get_calib_data_size(path.c_str()); }), log) << text;
        EXPECT_EQ(ret, n) << text;
    }

    memset(items, 0xA5, sizeof items);
    const std::tuple<const char *, uint32_t, int32_t, std::string> cases[] = {
        {"x = 1", 1, -1, err(LOAD, invalid)},
        {"calib_data = 'abc'", 1, -1, err(LOAD, invalid)},
        {"calib_data = {}", 1, -2, err(LOAD, "Could not find item.\n")},
        {"calib_data = { {} }", 1, -2, err(LOAD, "Could not find addr.\n")},
        {"calib_data = { {1, 2}, 5 }", 2, -2, err(LOAD, "calib_data item(1) is not a table.\n")},
        // Entries after an item's second are skipped; items after n are not read.
        {"calib_data = { {1, 2, 3}, {4, 5}, 'x' }", 2, 0, ""},
        // A failing item keeps what was stored before it; later entries stay.
        {"calib_data = { {6, 7}, {8} }", 3, -2, err(LOAD, "Could not find data.\n")},
    };
    for (const auto &[text, n, want, log] : cases) {
        std::string path = script(text);
        EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), items, n); }), log) << text;
        EXPECT_EQ(ret, want) << text;
    }
    EXPECT_EQ(vals({items[0].reserved, items[0].addr, items[0].data, items[1].addr, items[1].data,
                    items[2].addr}),
              vals({UNTOUCHED, 6, 7, 8, 5, UNTOUCHED}));

    std::string path = script("calib_data = { {-5, 2^33}, {16.9, 4294967295},"
                              " {4294967296, 9223372036854775807}, {'0x10', ' 12 '},"
                              " {'abc', true}, {0/0, 1/0}, {-1/0, -0.5} }");
    ASSERT_EQ(kiv_load_calib_data(path.c_str(), items, 7), 0);
    const uint32_t M = UINT32_MAX,
                   want[7][2] = {{0, M}, {16, M}, {M, M}, {16, 12}, {0, 0}, {0, M}, {0, 0}};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(vals({items[i].addr, items[i].data}), vals(want[i], want[i] + 2)) << i;
}

TEST_F(Standalone, CalibHundredThousandPairs)
{
    cut_bounds_to_margins(); // the largest legitimate script
    const uint32_t n = 100000;
    std::string text = "calib_data = {\n";
    for (uint32_t i = 0; i < n; ++i)
        text += "{" + std::to_string(0x10000000u + 4 * i) + ", " + std::to_string(i * 7) + "},\n";
    std::string path = script(text + "}\n");
    EXPECT_EQ(kiv_get_calib_data_size(path.c_str()), static_cast<int32_t>(n));
    std::vector<kiv_calib_data_item> big(n + 1, kiv_calib_data_item{1, 2, 3});
    EXPECT_EQ(kiv_load_calib_data(path.c_str(), big.data(), n), 0);
    for (uint32_t i : {0u, 4095u, 65536u, n - 1})
        EXPECT_EQ(vals({big[i].addr, big[i].data, big[i].reserved}),
                  vals({0x10000000u + 4 * i, i * 7, 1}))
            << i;
    EXPECT_EQ(big[n].addr, 2u);
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), big.data(), n + 1); }),
              err(LOAD, "Could not find item.\n"));
    EXPECT_EQ(ret, -2);
}

// A script without the table fails with a zero record; an empty table
// succeeds with a zero record and warns for every list and DC name, in
// [size][list] order.
TEST_F(Standalone, HevcFailuresAndEmptyTable)
{
    for (const char *text : {"x = 1", "__hevc_scalelist__ = 7"}) {
        EXPECT_EQ(lists(script(text)), err(HEVC, "Invalid hevc_scalelist file\n"));
        EXPECT_EQ(ret, -1);
        EXPECT_TRUE(hevc_zero()) << text;
    }
    std::string want;
    auto missing = [&](const std::string &key) {
        want += no_array(key) + warn(HEVC, "item(" + key + ") doesn't exist\n") +
                warn(HEVC, "item(" + key + "_DC) doesn't exist\n");
    };
    for (const char *size : {"4X4", "8X8", "16X16"})
        for (const char *mode : {"INTRA", "INTER"})
            for (const char *c : {"LUMA", "CHROMAU", "CHROMAV"})
                missing(std::string(mode) + size + "_" + c);
    missing("INTRA32X32_LUMA");
    missing("INTER32X32_LUMA");
    EXPECT_EQ(lists(script("__hevc_scalelist__ = {}")), want);
    EXPECT_EQ(ret, 0);
    EXPECT_TRUE(hevc_zero());
}

TEST_F(Standalone, HevcListsAndDc)
{
    std::string log = lists(script("local function seq(n, first) local t = {} for i = 1, n do "
                                   "t[i] = first + i - 1 end return t end\n"
                                   "__hevc_scalelist__ = { INTRA16X16_LUMA = seq(64, 20),\n"
                                   "INTER16X16_LUMA_DC = 16, INTRA8X8_LUMA = seq(3, 30),\n"
                                   "INTRA8X8_LUMA_DC = 99, INTER32X32_LUMA = seq(200000, 1),\n"
                                   "INTRA4X4_CHROMAV = seq(16, 5), INTER4X4_LUMA = {},\n"
                                   "INTER8X8_CHROMAU = {'12', 29.97, -1, 2^32 + 3} }"));
    EXPECT_EQ(ret, 0);
    const auto &l = hevc.scaling_list;
    const auto &dc = hevc.scaling_list_dc;
    // A list without DC gives its first coefficient; a DC alone, or next to
    // its list, sets the DC.
    EXPECT_EQ(vals({l[2][0][63], dc[2][0], l[2][3][0], dc[2][3], l[1][0][2], l[1][0][3], dc[1][0]}),
              vals({83, 20, 0, 16, 32, 0, 99}));
    EXPECT_NE(log.find(warn(HEVC, "item(INTRA16X16_LUMA_DC) doesn't exist\n")), std::string::npos);
    // The inter 32x32 list is list 1 of size 3; 64 of its values are kept.
    EXPECT_EQ(vals({l[3][1][63], l[3][3][0], l[0][2][15], l[0][2][16]}), vals({64, 0, 20, 0}));
    // An empty list warns without the count's own WARN.
    EXPECT_NE(log.find(warn(HEVC, "item(INTER4X4_LUMA) doesn't exist\n")), std::string::npos);
    EXPECT_EQ(log.find("array item(INTER4X4_LUMA)"), std::string::npos);
    EXPECT_EQ(vals({l[1][4][0], l[1][4][1], l[1][4][2], l[1][4][3]}),
              vals({12, 0, 0xFFFFFFFFu, 3}));
}
