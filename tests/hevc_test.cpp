// HEVC scaling lists: failures, the reading order of the list names, and
// where each list and DC value lands.
#include "kiv_test.h"

#include <string.h>

using namespace kivtest;

namespace
{

const std::string FN = "kiv_get_hevc_scaling_cfg";

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

} // namespace

// Every failure after the arguments leaves the record zero.
TEST_F(Hevc, Failures)
{
    int32_t ret = 1;
    for (const char *text : {"x = 1", "__hevc_scalelist__ = 7"}) {
        EXPECT_EQ(run(script(text), &ret), err(FN, "Invalid hevc_scalelist file\n"));
        EXPECT_EQ(ret, -1);
        EXPECT_TRUE(all_zero()) << text;
    }
    EXPECT_EQ(run("/nonexistent/hevc.lua", &ret),
              err(FN, "lua error msg is cannot open /nonexistent/hevc.lua: No such file or "
                      "directory.\n"));
    EXPECT_EQ(ret, -2);
    EXPECT_TRUE(all_zero());
    for (auto [path, rec] :
         {std::pair<const char *, kiv_hevc_scaling_cfg *>{nullptr, &cfg}, {"x.lua", nullptr}}) {
        EXPECT_EQ(masked([&] { ret = kiv_get_hevc_scaling_cfg(path, rec); }),
                  err(FN, "the 1st or 2nd param is NULL\n"));
        EXPECT_EQ(ret, -1);
    }
}

// An empty table succeeds with a zero record and warns for every list and
// DC name, in [size][list] order.
TEST_F(Hevc, EmptyTable)
{
    std::string want;
    auto missing = [&](const std::string &key) {
        want += no_array(key) + warn(FN, "item(" + key + ") doesn't exist\n") +
                warn(FN, "item(" + key + "_DC) doesn't exist\n");
    };
    for (const char *size : {"4X4", "8X8", "16X16"})
        for (const char *mode : {"INTRA", "INTER"})
            for (const char *c : {"LUMA", "CHROMAU", "CHROMAV"})
                missing(std::string(mode) + size + "_" + c);
    missing("INTRA32X32_LUMA");
    missing("INTER32X32_LUMA");
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
    EXPECT_NE(log.find(warn(FN, "item(INTRA16X16_LUMA_DC) doesn't exist\n")), std::string::npos);
    EXPECT_EQ(vals({cfg.scaling_list[2][3][0], cfg.scaling_list_dc[2][3], cfg.scaling_list[1][0][2],
                    cfg.scaling_list[1][0][3], cfg.scaling_list_dc[1][0]}),
              vals({0, 16, 32, 0, 99}));
    // The inter 32x32 list is list 1 of size 3; 64 of its values are kept.
    EXPECT_EQ(vals({cfg.scaling_list[3][1][63], cfg.scaling_list[3][3][0],
                    cfg.scaling_list[0][2][15], cfg.scaling_list[0][2][16]}),
              vals({64, 0, 20, 0}));
    // An empty list warns without the count's own WARN.
    EXPECT_NE(log.find(warn(FN, "item(INTER4X4_LUMA) doesn't exist\n")), std::string::npos);
    EXPECT_EQ(log.find("array item(INTER4X4_LUMA)"), std::string::npos);
    const uint32_t conv[4] = {12, 0, 0xFFFFFFFFu, 3};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(cfg.scaling_list[1][4][i], conv[i]) << i;
}
