#include "kiv_test.h"

#include <string.h>

using namespace kivtest;

namespace
{

const std::string ERR = "KIV_ERROR:: kiv_get_hevc_scaling_cfg(N): ";
const std::string WARN = "KIV_WARN:: kiv_get_hevc_scaling_cfg(N): ";

class Hevc : public Settings
{
  protected:
    // Runs the script at path into a record of 0xA5 bytes; returns the log.
    std::string run(const std::string &path, int32_t *ret)
    {
        memset(&cfg, 0xA5, sizeof cfg);
        return masked([&] { *ret = kiv_get_hevc_scaling_cfg(path.c_str(), &cfg); });
    }
    bool all_zero() const
    {
        static const kiv_hevc_scaling_cfg zero{};
        return memcmp(&cfg, &zero, sizeof cfg) == 0;
    }
    kiv_hevc_scaling_cfg cfg;
};

// Every failure after the arguments leaves the record zero.
TEST_F(Hevc, Failures)
{
    int32_t ret = 1;
    for (const char *text : {"x = 1", "__hevc_scalelist__ = 7"}) {
        EXPECT_EQ(run(script(text), &ret), ERR + "Invalid hevc_scalelist file\n");
        EXPECT_EQ(ret, -1);
        EXPECT_TRUE(all_zero()) << text;
    }
    EXPECT_EQ(run("/nonexistent/hevc.lua", &ret),
              ERR + "lua error msg is cannot open /nonexistent/hevc.lua: No such file or "
                    "directory.\n");
    EXPECT_EQ(ret, -2);
    EXPECT_TRUE(all_zero());

    EXPECT_EQ(masked([&] { ret = kiv_get_hevc_scaling_cfg(nullptr, &cfg); }),
              ERR + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(masked([&] { ret = kiv_get_hevc_scaling_cfg("x.lua", nullptr); }),
              ERR + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
}

// An empty table succeeds with a zero record and warns for every row of both
// name tables, in [size][list] order.
TEST_F(Hevc, EmptyTable)
{
    std::string want;
    for (const char *key :
         {"INTRA4X4_LUMA",      "INTRA4X4_CHROMAU",   "INTRA4X4_CHROMAV",   "INTER4X4_LUMA",
          "INTER4X4_CHROMAU",   "INTER4X4_CHROMAV",   "INTRA8X8_LUMA",      "INTRA8X8_CHROMAU",
          "INTRA8X8_CHROMAV",   "INTER8X8_LUMA",      "INTER8X8_CHROMAU",   "INTER8X8_CHROMAV",
          "INTRA16X16_LUMA",    "INTRA16X16_CHROMAU", "INTRA16X16_CHROMAV", "INTER16X16_LUMA",
          "INTER16X16_CHROMAU", "INTER16X16_CHROMAV", "INTRA32X32_LUMA",    "INTER32X32_LUMA"})
        want += "KIV_WARN:: kiv_get_array_item_num_str(N): array item(" + std::string(key) +
                ") doesn't exist\n" + WARN + "item(" + key + ") doesn't exist\n" + WARN + "item(" +
                key + "_DC) doesn't exist\n";
    int32_t ret = 1;
    EXPECT_EQ(run(script("__hevc_scalelist__ = {}"), &ret), want);
    EXPECT_EQ(ret, 0);
    EXPECT_TRUE(all_zero());
}

TEST_F(Hevc, ListsAndDc)
{
    int32_t ret = 1;
    std::string log = run(script("local function seq(n, first) local t = {} for i = 1, n do "
                                 "t[i] = first + i - 1 end return t end\n"
                                 "__hevc_scalelist__ = { INTRA16X16_LUMA = seq(64, 20),\n"
                                 "INTER16X16_LUMA_DC = 16, INTRA8X8_LUMA = seq(3, 30),\n"
                                 "INTRA8X8_LUMA_DC = 99, INTER32X32_LUMA = seq(200000, 1),\n"
                                 "INTRA4X4_CHROMAV = seq(16, 5), INTER4X4_LUMA = {},\n"
                                 "INTER8X8_CHROMAU = {'12', 29.97, -1, 2^32 + 3} }"),
                          &ret);
    EXPECT_EQ(ret, 0);
    // A list without DC gives its first coefficient; a DC alone, or next to
    // its list, sets the DC.
    EXPECT_EQ(cfg.scaling_list[2][0][63], 83u);
    EXPECT_EQ(cfg.scaling_list_dc[2][0], 20u);
    EXPECT_NE(log.find(WARN + "item(INTRA16X16_LUMA_DC) doesn't exist\n"), std::string::npos);
    EXPECT_EQ(cfg.scaling_list[2][3][0], 0u);
    EXPECT_EQ(cfg.scaling_list_dc[2][3], 16u);
    EXPECT_EQ(cfg.scaling_list[1][0][2], 32u);
    EXPECT_EQ(cfg.scaling_list[1][0][3], 0u);
    EXPECT_EQ(cfg.scaling_list_dc[1][0], 99u);
    // The inter 32x32 list is list 1 of size 3; 64 of its values are kept.
    EXPECT_EQ(cfg.scaling_list[3][1][63], 64u);
    EXPECT_EQ(cfg.scaling_list[3][3][0], 0u);
    EXPECT_EQ(cfg.scaling_list[0][2][15], 20u);
    EXPECT_EQ(cfg.scaling_list[0][2][16], 0u);
    // An empty list warns without the count's own WARN.
    EXPECT_NE(log.find(WARN + "item(INTER4X4_LUMA) doesn't exist\n"), std::string::npos);
    EXPECT_EQ(log.find("array item(INTER4X4_LUMA)"), std::string::npos);
    const uint32_t conv[4] = {12, 0, 0xFFFFFFFFu, 3};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(cfg.scaling_list[1][4][i], conv[i]) << i;
}

TEST_F(Hevc, DefaultListsOfTheStandard)
{
    int32_t ret = 1;
    EXPECT_EQ(run(std::string(KIV_SOURCE_DIR) + "/examples/hevc_default_scaling.lua", &ret), "");
    ASSERT_EQ(ret, 0);
    const uint32_t intra_tail[4] = {65, 88, 88, 115}, inter_tail[4] = {54, 71, 71, 91};
    for (int s = 1; s < 4; ++s) {
        int inter = s == 3 ? 1 : 3;
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(cfg.scaling_list[s][0][60 + i], intra_tail[i]) << s;
            EXPECT_EQ(cfg.scaling_list[s][2][60 + i], s == 3 ? 0 : intra_tail[i]) << s;
            EXPECT_EQ(cfg.scaling_list[s][inter][60 + i], inter_tail[i]) << s;
        }
        EXPECT_EQ(cfg.scaling_list[s][0][11], 16u);
        EXPECT_EQ(cfg.scaling_list[s][inter][11], 17u);
        EXPECT_EQ(cfg.scaling_list_dc[s][inter], 16u);
    }
    EXPECT_EQ(cfg.scaling_list[0][4][15], 16u);
    EXPECT_EQ(cfg.scaling_list[0][4][16], 0u);
    EXPECT_EQ(cfg.scaling_list[3][3][0], 0u);
    EXPECT_EQ(cfg.scaling_list_dc[3][2], 0u);
}

} // namespace
