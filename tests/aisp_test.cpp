// Custom AISP networks: every failure, the entries filled across networks
// and the low bits kept.
#include "kiv_test.h"

#include <string.h>

#include "aisp/aisp.h"

using namespace kivtest;

namespace
{

const std::string DO = "do_kiv_get_custom_aisp_cfg", NN = "kiv_get_custom_nn_info";
const std::string INFO_ERR = err(DO, "get custom nn info error\n");
const char GOOD_MAP[] = "{ dvi_id = 1, start = 2, cnt = 3, id = { 4 } }";

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

class Aisp : public Settings
{
  protected:
    // The library does not clear the record: 0xA5 bytes show what a load
    // leaves alone; the guard after it shows a write past its end.
    std::string run(const std::string &text, int32_t *ret, uint8_t type = 1)
    {
        memset(&rec, 0xA5, sizeof rec);
        std::string path = script(text);
        return masked([&] { *ret = kiv_get_aisp_cfg_fill(path.c_str(), &rec.cfg, type, &fill); });
    }
    struct {
        kiv_aisp_cfg cfg;
        unsigned char guard[64];
    } rec;
    kiv_aisp_fill fill;
};

} // namespace

TEST_F(Aisp, Failures)
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
    int32_t ret = 1;
    for (const auto &[text, log] : cases) {
        EXPECT_EQ(run(text, &ret), log) << text;
        EXPECT_EQ(ret, -1) << text;
    }
    // The last case filled 30 entries and nothing after them.
    EXPECT_EQ(
        vals({fill.filled, rec.cfg.interfaces[29].port.dvi_id, rec.cfg.interfaces[30].port.dvi_id}),
        vals({30, 25, 0xA5}));
    for (unsigned char g : rec.guard)
        ASSERT_EQ(g, 0xA5);

    EXPECT_EQ(run(networks({1}), &ret, 2), ""); // another type: refused without a line
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(rec.cfg.fifo_addr, 0xA5A5A5A5u);
    const std::string e = "kiv_get_aisp_cfg";
    EXPECT_EQ(masked([&] { ret = kiv_get_aisp_cfg("/nonexistent/nn.lua", &rec.cfg, 1); }),
              err(e, "lua error msg is cannot open /nonexistent/nn.lua: No such file or "
                     "directory.\n"));
    EXPECT_EQ(ret, -2);
    for (auto [path, cfg] :
         {std::pair<const char *, kiv_aisp_cfg *>{nullptr, &rec.cfg}, {"nn.lua", nullptr}}) {
        EXPECT_EQ(masked([&] { ret = kiv_get_aisp_cfg(path, cfg, 1); }),
                  err(e, "the 1st or 2nd param is NULL\n"));
        EXPECT_EQ(ret, -1);
    }
}

TEST_F(Aisp, EntriesAcrossNetworks)
{
    int32_t ret = 1;
    EXPECT_EQ(run(networks({2, 3}), &ret), "");
    ASSERT_EQ(ret, 0);
    EXPECT_EQ(rec.cfg.dag_addr, 0x3000u);
    EXPECT_EQ(rec.cfg.if_cnt, 3u);
    const int dvi[6] = {1, 2, 11, 12, 13, 0xA5};
    for (int e = 0; e < 6; ++e)
        EXPECT_EQ(rec.cfg.interfaces[e].poke.dvi_id, dvi[e]) << e;
    EXPECT_EQ(rec.cfg.interfaces[4].port.id[0], 1);
    EXPECT_EQ(rec.cfg.interfaces[4].port.id[1], 0xA5); // beyond the ids given
    EXPECT_EQ(rec.cfg.interfaces[4].port.reserved, 0xA5);
    EXPECT_EQ(fill.nn_cnt, 2u);
    EXPECT_EQ(kiv_aisp_entries_of(&fill, 0), 2u);
    EXPECT_EQ(kiv_aisp_entries_of(&fill, 1), 3u);

    EXPECT_EQ(run(networks({15, 15, 2}), &ret), ""); // exactly full
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(fill.filled, 32u);
    EXPECT_EQ(run(config("custom_nn = {}", "for i = 1, 1000 do _custom_aisp_config_.custom_nn[i]"
                                           " = { if_cnt = 0, interfaces = {} } end"),
                  &ret),
              "");
    EXPECT_EQ(vals({ret, fill.nn_cnt, fill.filled}), vals({0, 1000, 0}));

    // Values keep the low bits their fields hold.
    EXPECT_EQ(run(config("custom_nn = { { if_cnt = 17, interfaces = { { port = { dvi_id = 300, "
                         "start = -1, cnt = '7', id = { 1, 2, 3, 260 } }, poke = " +
                         std::string(GOOD_MAP) + " } } } }"),
                  &ret),
              "");
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(rec.cfg.if_cnt, 1u);
    // Bits 4-7 of the if_cnt byte belong to no field.
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&rec.cfg)[12] & 0xF0, 0xA0);
    const kiv_nn_map &port = rec.cfg.interfaces[0].port;
    EXPECT_EQ(vals({port.dvi_id, port.start, port.cnt, port.id[3]}), vals({44, 255, 7, 4}));
    EXPECT_EQ(rec.cfg.interfaces[1].port.dvi_id, 0xA5);
}
