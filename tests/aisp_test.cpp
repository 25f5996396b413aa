#include "kiv_test.h"

#include <string.h>

#include "aisp/aisp.h"

using namespace kivtest;

namespace
{

const std::string ERR = "KIV_ERROR:: kiv_get_aisp_cfg(N): ";
const std::string DO = "KIV_ERROR:: do_kiv_get_custom_aisp_cfg(N): ";
const std::string BOOT_ERR = DO + "get network bootup param error\n";
const std::string INFO_ERR = DO + "get custom nn info error\n";
const std::string NN = "KIV_ERROR:: kiv_get_custom_nn_info(N): ";
const std::string MAP = "KIV_ERROR:: kiv_get_nn_map(N): ";
const std::string NO_ARRAY = "KIV_WARN:: kiv_get_array_item_num_str(N): array item(";

const char BOOT[] = "boot_param = { fifo_addr = 0x1000, fifo_len = 0x200, dag_addr = 0x3000 }";
const char GOOD_MAP[] = "{ dvi_id = 1, start = 2, cnt = 3, id = { 4 } }";

// _custom_aisp_config_ with boot_param and `body`, then `tail` (Lua code).
std::string config(const std::string &body, const std::string &tail = "")
{
    return "_custom_aisp_config_ = { " + std::string(BOOT) + ", " + body + " } " + tail;
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

TEST_F(Aisp, Failures)
{
    const std::string bad_ids = MAP + "invalid port id num!\n" + INFO_ERR;
    const std::string nn = "custom_nn = { { if_cnt = 1, interfaces = {} } }";
    struct {
        std::string text;
        std::string log;
    } cases[] = {
        {"x = 1", DO + "invalid custom aisp config file\n"},
        {"_custom_aisp_config_ = 3", DO + "invalid custom aisp config file\n"},
        {"_custom_aisp_config_ = { boot_param = 5 }",
         "KIV_WARN:: kiv_get_custom_nn_bootup_param(N): item(boot_param) doesn't exist\n" +
             BOOT_ERR},
        {"_custom_aisp_config_ = { boot_param = { fifo_addr = 7, dag_addr = 9 } }",
         "KIV_ERROR:: kiv_get_custom_nn_bootup_param(N): item(fifo_len) doesn't exist.\n" +
             BOOT_ERR},
        {config("x = 1"),
         NO_ARRAY + "custom_nn) doesn't exist\n" + NN + "Invalid nn cnt!\n" + INFO_ERR},
        {config("custom_nn = {}"), NN + "Invalid nn cnt!\n" + INFO_ERR},
        {config("custom_nn = { 5 }"),
         NN + "item(custom_nn) doesn't have item of index(0)\n" + INFO_ERR},
        {config("custom_nn = { { interfaces = {} } }"),
         NN + "item(if_cnt) doesn't exist.\n" + INFO_ERR},
        {config("custom_nn = { { if_cnt = 1, interfaces = 4 } }"),
         NN + "item(interfaces) doesn't exist\n" + INFO_ERR},
        {config(nn), NN + "item(interfaces) doesn't have item of index(0)\n" + INFO_ERR},
        {one("'x'", GOOD_MAP), MAP + "item(port) doesn't exist\n" + INFO_ERR},
        {one(GOOD_MAP, "nil"), MAP + "item(poke) doesn't exist\n" + INFO_ERR},
        {one("{ dvi_id = 1, start = 2, id = { 1 } }", GOOD_MAP),
         MAP + "item(cnt) doesn't exist.\n" + INFO_ERR},
        {one("{ dvi_id = 1, start = 2, cnt = 3, id = {} }", GOOD_MAP), bad_ids},
        {one(GOOD_MAP, "{ dvi_id = 1, start = 2, cnt = 3, id = { 1, 2, 3, 4, 5 } }"), bad_ids},
        {one(GOOD_MAP, "{ dvi_id = 1, start = 2, cnt = 3, id = 7 }"),
         NO_ARRAY + "id) doesn't exist\n" + bad_ids},
        // 32 entries for all networks: the third network does not fit.
        {networks({15, 15, 3}),
         NN + "nn(2) has 3 interfaces, only 2 of 32 interface entries are left\n" + INFO_ERR},
    };
    int32_t ret = 1;
    for (const auto &c : cases) {
        EXPECT_EQ(run(c.text, &ret), c.log) << c.text;
        EXPECT_EQ(ret, -1) << c.text;
    }
    // The last case filled 30 entries and nothing after them.
    EXPECT_EQ(fill.filled, 30u);
    EXPECT_EQ(rec.cfg.interfaces[29].port.dvi_id, 25);
    EXPECT_EQ(rec.cfg.interfaces[30].port.dvi_id, 0xA5);
    for (unsigned char g : rec.guard)
        ASSERT_EQ(g, 0xA5);
}

TEST_F(Aisp, ArgumentsTypeAndScript)
{
    int32_t ret = 1;
    EXPECT_EQ(run(networks({1}), &ret, 2), ""); // another type: refused without a line
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(rec.cfg.fifo_addr, 0xA5A5A5A5u);
    EXPECT_EQ(masked([&] { ret = kiv_get_aisp_cfg("/nonexistent/nn.lua", &rec.cfg, 1); }),
              ERR + "lua error msg is cannot open /nonexistent/nn.lua: No such file or "
                    "directory.\n");
    EXPECT_EQ(ret, -2);
    EXPECT_EQ(masked([&] { ret = kiv_get_aisp_cfg(nullptr, &rec.cfg, 1); }),
              ERR + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(masked([&] { ret = kiv_get_aisp_cfg("nn.lua", nullptr, 1); }),
              ERR + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
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
    EXPECT_EQ(fill.filled, 5u);
    EXPECT_EQ(kiv_aisp_entries_of(&fill, 0), 2u);
    EXPECT_EQ(kiv_aisp_entries_of(&fill, 1), 3u);

    EXPECT_EQ(run(networks({15, 15, 2}), &ret), ""); // exactly full
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(fill.filled, 32u);
    EXPECT_EQ(run(config("custom_nn = {}", "for i = 1, 1000 do _custom_aisp_config_.custom_nn[i]"
                                           " = { if_cnt = 0, interfaces = {} } end"),
                  &ret),
              "");
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(fill.nn_cnt, 1000u);
    EXPECT_EQ(fill.filled, 0u);
}

TEST_F(Aisp, LowBitsKept)
{
    int32_t ret = 1;
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
    EXPECT_EQ(port.dvi_id, 44);
    EXPECT_EQ(port.start, 255);
    EXPECT_EQ(port.cnt, 7);
    EXPECT_EQ(port.id[3], 4);
    EXPECT_EQ(rec.cfg.interfaces[1].port.dvi_id, 0xA5);
}

TEST_F(Aisp, ExampleFile)
{
    std::string path = std::string(KIV_SOURCE_DIR) + "/examples/custom_aisp.lua";
    int32_t ret = 1;
    EXPECT_EQ(masked([&] { ret = kiv_get_aisp_cfg_fill(path.c_str(), &rec.cfg, 1, &fill); }), "");
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(fill.filled, 3u);
    EXPECT_EQ(rec.cfg.interfaces[2].port.id[3], 9);
    EXPECT_EQ(kiv_get_aisp_cfg(path.c_str(), &rec.cfg, 1), 0);
}

} // namespace
