#include "kiv_test.h"

#include <string.h>

#include "core/run.h"

using namespace kivtest;

namespace
{

const char ERR[] = "KIV_ERROR:: kiv_get_hevc_scaling_cfg(N): ";
const char WARN[] = "KIV_WARN:: kiv_get_hevc_scaling_cfg(N): ";

class Hevc : public Settings
{
  protected:
    // The record starts as 0xA5 bytes so that a missing clear shows.
    void SetUp() override
    {
        Settings::SetUp();
        memset(&cfg, 0xA5, sizeof cfg);
    }

    int32_t run(const std::string &text, std::string *log = nullptr)
    {
        return run_file(script(text), log);
    }

    int32_t run_file(const std::string &path, std::string *log = nullptr)
    {
        int32_t ret = 1;
        std::string out = masked([&] { ret = kiv_get_hevc_scaling_cfg(path.c_str(), &cfg); });
        if (log)
            *log = out;
        return ret;
    }

    bool all_zero() const
    {
        static const kiv_hevc_scaling_cfg zero{};
        return memcmp(&cfg, &zero, sizeof cfg) == 0;
    }

    kiv_hevc_scaling_cfg cfg;
};

// "{1, 2, ..., n}" with values from `first` on.
std::string list(int n, int first = 1)
{
    std::string s = "{";
    for (int i = 0; i < n; ++i)
        s += std::to_string(first + i) + ",";
    return s + "}";
}

TEST_F(Hevc, BadArgumentsLeaveTheRecord)
{
    int32_t ret = 1;
    EXPECT_EQ(masked([&] { ret = kiv_get_hevc_scaling_cfg(nullptr, &cfg); }),
              std::string(ERR) + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(cfg.scaling_list[0][0][0], 0xA5A5A5A5u);
    std::string path = script("__hevc_scalelist__ = {}");
    EXPECT_EQ(masked([&] { ret = kiv_get_hevc_scaling_cfg(path.c_str(), nullptr); }),
              std::string(ERR) + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
}

// Every failure after the arguments leaves the record zero and the state
// closed.
TEST_F(Hevc, FailuresClearTheRecord)
{
    kiv_run_counts before = kiv_get_run_counts();
    std::string log;
    for (const char *text : {"x = 1", "__hevc_scalelist__ = 7", "__hevc_scalelist__ = 'abc'"}) {
        memset(&cfg, 0xA5, sizeof cfg);
        EXPECT_EQ(run(text, &log), -1) << text;
        EXPECT_EQ(log, std::string(ERR) + "Invalid hevc_scalelist file\n");
        EXPECT_TRUE(all_zero()) << text;
    }

    memset(&cfg, 0xA5, sizeof cfg);
    std::string path = script("__hevc_scalelist__ = { INTRA4X4_LUMA = {1, 2 }");
    EXPECT_EQ(run_file(path, &log), -2);
    EXPECT_EQ(log,
              std::string(ERR) + "lua error msg is " + path + ":1: '}' expected near <eof>.\n");
    EXPECT_TRUE(all_zero());

    // A script that runs out of its instruction budget.
    kiv_set_run_limits(0, 100000);
    memset(&cfg, 0xA5, sizeof cfg);
    EXPECT_EQ(run("while true do end", &log), -2);
    EXPECT_NE(log.find("instruction limit"), std::string::npos) << log;
    EXPECT_TRUE(all_zero());

    kiv_run_counts after = kiv_get_run_counts();
    EXPECT_EQ(after.created - before.created, 5u);
    EXPECT_EQ(after.closed - before.closed, 5u);
}

// An empty table succeeds with a zero record and warns once per row of each
// name table, in [size][list] order, list before DC.
TEST_F(Hevc, EmptyTableWarnsEveryKey)
{
    std::string log;
    EXPECT_EQ(run("__hevc_scalelist__ = {}", &log), 0);
    EXPECT_TRUE(all_zero());
    std::string want;
    for (const char *key :
         {"INTRA4X4_LUMA",      "INTRA4X4_CHROMAU",   "INTRA4X4_CHROMAV",   "INTER4X4_LUMA",
          "INTER4X4_CHROMAU",   "INTER4X4_CHROMAV",   "INTRA8X8_LUMA",      "INTRA8X8_CHROMAU",
          "INTRA8X8_CHROMAV",   "INTER8X8_LUMA",      "INTER8X8_CHROMAU",   "INTER8X8_CHROMAV",
          "INTRA16X16_LUMA",    "INTRA16X16_CHROMAU", "INTRA16X16_CHROMAV", "INTER16X16_LUMA",
          "INTER16X16_CHROMAU", "INTER16X16_CHROMAV", "INTRA32X32_LUMA",    "INTER32X32_LUMA"}) {
        want += std::string("KIV_WARN:: kiv_get_array_item_num_str(N): array item(") + key +
                ") doesn't exist\n";
        want += std::string(WARN) + "item(" + key + ") doesn't exist\n";
        want += std::string(WARN) + "item(" + key + "_DC) doesn't exist\n";
    }
    EXPECT_EQ(log, want);
}

TEST_F(Hevc, DcRules)
{
    std::string log;
    // A list without DC takes its first coefficient; a DC alone sets the DC;
    // a DC next to its list wins.
    EXPECT_EQ(run("__hevc_scalelist__ = { INTRA16X16_LUMA = " + list(64, 20) +
                      ", INTER16X16_LUMA_DC = 16, INTRA8X8_LUMA = " + list(64, 30) +
                      ", INTRA8X8_LUMA_DC = 99 }",
                  &log),
              0);
    EXPECT_EQ(cfg.scaling_list[2][0][0], 20u);
    EXPECT_EQ(cfg.scaling_list[2][0][63], 83u);
    EXPECT_EQ(cfg.scaling_list_dc[2][0], 20u);
    EXPECT_NE(log.find(std::string(WARN) + "item(INTRA16X16_LUMA_DC) doesn't exist\n"),
              std::string::npos);
    EXPECT_EQ(log.find("item(INTRA16X16_LUMA) doesn't exist"), std::string::npos);

    EXPECT_EQ(cfg.scaling_list[2][3][0], 0u);
    EXPECT_EQ(cfg.scaling_list_dc[2][3], 16u);
    EXPECT_NE(log.find(std::string(WARN) + "item(INTER16X16_LUMA) doesn't exist\n"),
              std::string::npos);

    EXPECT_EQ(cfg.scaling_list[1][0][0], 30u);
    EXPECT_EQ(cfg.scaling_list_dc[1][0], 99u);
}

TEST_F(Hevc, ListPlacesAndLengths)
{
    std::string log;
    EXPECT_EQ(run("__hevc_scalelist__ = { INTER32X32_LUMA = " + list(64, 1) +
                      ", INTRA4X4_CHROMAV = " + list(16, 5) + ", INTER8X8_CHROMAU = " +
                      list(70, 100) + ", INTER4X4_LUMA = {}, INTER4X4_CHROMAU = 'abc'" +
                      ", INTRA8X8_CHROMAV = {'12', 29.97, -1, 2^32 + 3} }",
                  &log),
              0);
    // The second 32x32 list is stored at list 1; lists 2 to 5 stay zero.
    EXPECT_EQ(cfg.scaling_list[3][1][0], 1u);
    EXPECT_EQ(cfg.scaling_list[3][1][63], 64u);
    for (int m = 2; m < 6; ++m)
        for (int i = 0; i < 64; ++i)
            ASSERT_EQ(cfg.scaling_list[3][m][i], 0u) << m << " " << i;
    // 16 values fill the first 16 positions.
    EXPECT_EQ(cfg.scaling_list[0][2][15], 20u);
    EXPECT_EQ(cfg.scaling_list[0][2][16], 0u);
    // Values after the 64th are ignored without a message.
    EXPECT_EQ(cfg.scaling_list[1][4][63], 163u);
    EXPECT_EQ(cfg.scaling_list[2][0][0], 0u);
    // An empty list warns without the count's own WARN; a string is no list.
    EXPECT_NE(log.find(std::string(WARN) + "item(INTER4X4_LUMA) doesn't exist\n"),
              std::string::npos);
    EXPECT_EQ(log.find("array item(INTER4X4_LUMA)"), std::string::npos);
    EXPECT_NE(log.find("array item(INTER4X4_CHROMAU) doesn't exist\n"), std::string::npos);
    EXPECT_EQ(cfg.scaling_list[0][4][0], 0u);
    // Integer conversion of the access layer, low 32 bits kept.
    const uint32_t conv[4] = {12, 0, 0xFFFFFFFFu, 3};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(cfg.scaling_list[1][2][i], conv[i]) << i;
}

TEST_F(Hevc, HugeListStoresSixtyFour)
{
    std::string log;
    EXPECT_EQ(run("local t = {} for i = 1, 200000 do t[i] = i end "
                  "__hevc_scalelist__ = { INTRA4X4_LUMA = t }",
                  &log),
              0);
    EXPECT_EQ(cfg.scaling_list[0][0][63], 64u);
    EXPECT_EQ(cfg.scaling_list_dc[0][0], 1u);
}

TEST_F(Hevc, DefaultListsOfTheStandard)
{
    std::string log;
    ASSERT_EQ(run_file(std::string(KIV_SOURCE_DIR) + "/examples/hevc_default_scaling.lua", &log),
              0);
    EXPECT_EQ(log, "");
    const uint32_t intra_tail[4] = {65, 88, 88, 115};
    const uint32_t inter_tail[4] = {54, 71, 71, 91};
    for (int s = 1; s < 4; ++s) {
        int inter = s == 3 ? 1 : 3;
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(cfg.scaling_list[s][0][60 + i], intra_tail[i]) << s;
            EXPECT_EQ(cfg.scaling_list[s][2][60 + i], s == 3 ? 0 : intra_tail[i]) << s;
            EXPECT_EQ(cfg.scaling_list[s][inter][60 + i], inter_tail[i]) << s;
        }
        EXPECT_EQ(cfg.scaling_list[s][0][10], 17u);
        EXPECT_EQ(cfg.scaling_list[s][0][11], 16u);
        EXPECT_EQ(cfg.scaling_list[s][inter][11], 17u);
    }
    EXPECT_EQ(cfg.scaling_list[1][5][21], 20u);
    EXPECT_EQ(cfg.scaling_list[0][4][15], 16u);
    EXPECT_EQ(cfg.scaling_list[0][4][16], 0u);
    EXPECT_EQ(cfg.scaling_list[3][3][0], 0u);
    EXPECT_EQ(cfg.scaling_list_dc[2][5], 16u);
    EXPECT_EQ(cfg.scaling_list_dc[3][1], 16u);
    EXPECT_EQ(cfg.scaling_list_dc[3][2], 0u);
}

} // namespace
