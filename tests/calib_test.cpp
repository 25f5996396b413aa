#include "kiv_test.h"

#include <string.h>

#include "core/run.h"

using namespace kivtest;

namespace
{

class Calib : public Settings
{
  protected:
    // Every entry starts as 0xA5 bytes so that untouched fields show.
    void SetUp() override
    {
        Settings::SetUp();
        memset(items, 0xA5, sizeof items);
    }

    int32_t size(const std::string &text, std::string *log = nullptr)
    {
        std::string path = script(text);
        int32_t ret = 0;
        std::string out = masked([&] { ret = kiv_get_calib_data_size(path.c_str()); });
        if (log)
            *log = out;
        else
            EXPECT_EQ(out, "");
        return ret;
    }

    int32_t load(const std::string &text, uint32_t n, std::string *log = nullptr)
    {
        std::string path = script(text);
        int32_t ret = 0;
        std::string out = masked([&] { ret = kiv_load_calib_data(path.c_str(), items, n); });
        if (log)
            *log = out;
        else
            EXPECT_EQ(out, "");
        return ret;
    }

    static constexpr uint32_t UNTOUCHED = 0xA5A5A5A5u;
    kiv_calib_data_item items[8];
};

const char SIZE_ERR[] = "KIV_ERROR:: kiv_get_calib_data_size(N): ";
const char LOAD_ERR[] = "KIV_ERROR:: kiv_load_calib_data(N): ";

TEST_F(Calib, BadArguments)
{
    int32_t ret = 1;
    EXPECT_EQ(masked([&] { ret = kiv_get_calib_data_size(nullptr); }),
              std::string(SIZE_ERR) + "the lua file is NULL\n");
    EXPECT_EQ(ret, 0);

    std::string path = script("calib_data = { {1, 2} }");
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(nullptr, items, 1); }),
              std::string(LOAD_ERR) + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), nullptr, 1); }),
              std::string(LOAD_ERR) + "the 1st or 2nd param is NULL\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), items, 0); }),
              std::string(LOAD_ERR) + "data_size is 0\n");
    EXPECT_EQ(ret, -1);
    EXPECT_EQ(items[0].addr, UNTOUCHED);
}

TEST_F(Calib, ScriptFailuresCloseTheState)
{
    std::string path = script("calib_data = = {}");
    std::string msg = "lua error msg is " + path + ":1: unexpected symbol near '='.\n";
    kiv_run_counts before = kiv_get_run_counts();
    int32_t ret = 1;
    EXPECT_EQ(masked([&] { ret = kiv_get_calib_data_size(path.c_str()); }), SIZE_ERR + msg);
    EXPECT_EQ(ret, 0);
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), items, 1); }), LOAD_ERR + msg);
    EXPECT_EQ(ret, -2);

    const char *missing = "/nonexistent/calib.lua";
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(missing, items, 1); }),
              std::string(LOAD_ERR) +
                  "lua error msg is cannot open /nonexistent/calib.lua: No such file or "
                  "directory.\n");
    EXPECT_EQ(ret, -2);
    kiv_run_counts after = kiv_get_run_counts();
    EXPECT_EQ(after.created - before.created, 3u);
    EXPECT_EQ(after.closed - before.closed, 3u);
}

// A missing calib_data, and one that is not a table, are refused alike.
TEST_F(Calib, MissingOrNonTableCalibData)
{
    for (const char *text : {"x = 1", "calib_data = 5", "calib_data = 'abc'"}) {
        std::string log;
        EXPECT_EQ(size(text, &log), 0) << text;
        EXPECT_EQ(log, std::string(SIZE_ERR) + "Invalid calibrate data config file\n");
        EXPECT_EQ(load(text, 1, &log), -1) << text;
        EXPECT_EQ(log, std::string(LOAD_ERR) + "Invalid calibrate data config file\n");
    }
}

TEST_F(Calib, SizeCountsEveryEntry)
{
    EXPECT_EQ(size("calib_data = {}"), 0);
    EXPECT_EQ(size("calib_data = { {1, 2}, {3, 4}, {5, 6} }"), 3);
    // Every key/value pair counts, whatever its key or value.
    EXPECT_EQ(size("calib_data = { {1, 2}, name = {3, 4}, 7 }"), 3);
}

TEST_F(Calib, CopiesTheFirstItems)
{
    EXPECT_EQ(load("calib_data = { {0x3000, 1}, {0x3004, 2}, {0x3008, 3} }", 2), 0);
    EXPECT_EQ(items[0].addr, 0x3000u);
    EXPECT_EQ(items[0].data, 1u);
    EXPECT_EQ(items[1].addr, 0x3004u);
    EXPECT_EQ(items[1].data, 2u);
    EXPECT_EQ(items[0].reserved, UNTOUCHED);
    EXPECT_EQ(items[1].reserved, UNTOUCHED);
    EXPECT_EQ(items[2].addr, UNTOUCHED);
}

TEST_F(Calib, NumberConversion)
{
    const char *text = "calib_data = {"
                       " {-5, 2^33}, {16.9, 4294967295}, {4294967296, 9223372036854775807},"
                       " {'0x10', ' 12 '}, {'abc', true}, {0/0, 1/0}, {-1/0, -0.5} }";
    ASSERT_EQ(load(text, 7), 0);
    const uint32_t want[7][2] = {
        {0, UINT32_MAX},
        {16, 4294967295u},
        {UINT32_MAX, UINT32_MAX},
        {16, 12},
        {0, 0},
        {0, UINT32_MAX},
        {0, 0},
    };
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(items[i].addr, want[i][0]) << i;
        EXPECT_EQ(items[i].data, want[i][1]) << i;
    }
}

// A failing item keeps what was stored before it; later entries are untouched.
TEST_F(Calib, MalformedItems)
{
    std::string log;
    EXPECT_EQ(load("calib_data = {}", 1, &log), -2);
    EXPECT_EQ(log, std::string(LOAD_ERR) + "Could not find item.\n");

    EXPECT_EQ(load("calib_data = { {1, 2}, {3} }", 3, &log), -2);
    EXPECT_EQ(log, std::string(LOAD_ERR) + "Could not find data.\n");
    EXPECT_EQ(items[0].data, 2u);
    EXPECT_EQ(items[1].addr, 3u);
    EXPECT_EQ(items[1].data, UNTOUCHED);
    EXPECT_EQ(items[2].addr, UNTOUCHED);

    EXPECT_EQ(load("calib_data = { {} }", 1, &log), -2);
    EXPECT_EQ(log, std::string(LOAD_ERR) + "Could not find addr.\n");

    EXPECT_EQ(load("calib_data = { {1, 2}, 5 }", 2, &log), -2);
    EXPECT_EQ(log, std::string(LOAD_ERR) + "calib_data item(1) is not a table.\n");
    EXPECT_EQ(load("calib_data = { 'abc' }", 1, &log), -2);
    EXPECT_EQ(log, std::string(LOAD_ERR) + "calib_data item(0) is not a table.\n");
}

// Entries after the second of an item are skipped; the next item is read.
TEST_F(Calib, ExtraEntriesAreSkipped)
{
    EXPECT_EQ(load("calib_data = { {1, 2, 3, 4}, {5, 6} }", 2), 0);
    EXPECT_EQ(items[0].addr, 1u);
    EXPECT_EQ(items[0].data, 2u);
    EXPECT_EQ(items[1].addr, 5u);
    EXPECT_EQ(items[1].data, 6u);
}

TEST_F(Calib, HundredThousandPairs)
{
    const uint32_t n = 100000;
    std::string text = "calib_data = {\n";
    for (uint32_t i = 0; i < n; ++i)
        text += "{" + std::to_string(0x10000000u + 4 * i) + ", " + std::to_string(i * 7) + "},\n";
    text += "}\n";
    std::string path = script(text);

    EXPECT_EQ(kiv_get_calib_data_size(path.c_str()), static_cast<int32_t>(n));
    std::vector<kiv_calib_data_item> big(n + 1, kiv_calib_data_item{1, 2, 3});
    EXPECT_EQ(kiv_load_calib_data(path.c_str(), big.data(), n), 0);
    for (uint32_t i : {0u, 1u, 4095u, 65536u, n - 1}) {
        EXPECT_EQ(big[i].addr, 0x10000000u + 4 * i) << i;
        EXPECT_EQ(big[i].data, i * 7) << i;
        EXPECT_EQ(big[i].reserved, 1u) << i;
    }
    EXPECT_EQ(big[n].addr, 2u);

    // One more than the script holds.
    std::string log =
        masked([&] { EXPECT_EQ(kiv_load_calib_data(path.c_str(), big.data(), n + 1), -2); });
    EXPECT_EQ(log, std::string(LOAD_ERR) + "Could not find item.\n");
}

TEST_F(Calib, ExampleTable)
{
    std::string path = std::string(KIV_SOURCE_DIR) + "/examples/calib_table.lua";
    int32_t n = kiv_get_calib_data_size(path.c_str());
    ASSERT_EQ(n, 12);
    ASSERT_EQ(kiv_load_calib_data(path.c_str(), items, 8), 0);
    EXPECT_EQ(items[0].addr, 0x3009u);
    EXPECT_EQ(items[4].data, 0x01A8u);
    std::vector<kiv_calib_data_item> all(static_cast<size_t>(n));
    ASSERT_EQ(kiv_load_calib_data(path.c_str(), all.data(), static_cast<uint32_t>(n)), 0);
    EXPECT_EQ(all[10].data, 0x80100000u);
    EXPECT_EQ(all[11].data, 4096u);
}

} // namespace
