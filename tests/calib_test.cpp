// Calibration data: the size query, every failure of a load and what it
// keeps, number conversion and a large table.
#include "kiv_test.h"

#include <string.h>

using namespace kivtest;

namespace
{

const std::string SIZE = "kiv_get_calib_data_size", LOAD = "kiv_load_calib_data";
const char NO_FILE[] = "/nonexistent/calib.lua";
const std::string NO_FILE_MSG =
    "lua error msg is cannot open /nonexistent/calib.lua: No such file or directory.\n";
const uint32_t UNTOUCHED = 0xA5A5A5A5u;

class Calib : public Settings
{
};

} // namespace

TEST_F(Calib, Size)
{
    auto size = [](const char *path) {
        int32_t ret = 1;
        std::string log = masked([&] { ret = kiv_get_calib_data_size(path); });
        return std::pair(ret, log);
    };
    const std::string invalid = err(SIZE, "Invalid calibrate data config file\n");
    EXPECT_EQ(size(script("x = 1").c_str()), std::pair(0, invalid));
    EXPECT_EQ(size(script("calib_data = 5").c_str()), std::pair(0, invalid));
    EXPECT_EQ(size(script("calib_data = {}").c_str()), std::pair(0, std::string()));
    // Every key/value pair counts.
    EXPECT_EQ(size(script("calib_data = { {1, 2}, name = {3, 4}, 7 }").c_str()),
              std::pair(3, std::string()));
    EXPECT_EQ(size(nullptr), std::pair(0, err(SIZE, "the lua file is NULL\n")));
    EXPECT_EQ(size(NO_FILE), std::pair(0, err(SIZE, NO_FILE_MSG)));
}

TEST_F(Calib, LoadResults)
{
    kiv_calib_data_item items[8];
    memset(items, 0xA5, sizeof items);
    struct {
        const char *text;
        uint32_t n;
        int32_t ret;
        std::string log;
    } cases[] = {
        {"x = 1", 1, -1, err(LOAD, "Invalid calibrate data config file\n")},
        {"calib_data = 'abc'", 1, -1, err(LOAD, "Invalid calibrate data config file\n")},
        {"calib_data = {}", 1, -2, err(LOAD, "Could not find item.\n")},
        {"calib_data = { {} }", 1, -2, err(LOAD, "Could not find addr.\n")},
        {"calib_data = { {1, 2}, 5 }", 2, -2, err(LOAD, "calib_data item(1) is not a table.\n")},
        // Entries after an item's second are skipped; items after n are not read.
        {"calib_data = { {1, 2, 3}, {4, 5}, 'x' }", 2, 0, ""},
        // A failing item keeps what was stored before it; later entries stay.
        {"calib_data = { {6, 7}, {8} }", 3, -2, err(LOAD, "Could not find data.\n")},
    };
    int32_t ret = 1;
    for (const auto &c : cases) {
        std::string path = script(c.text);
        EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), items, c.n); }), c.log)
            << c.text;
        EXPECT_EQ(ret, c.ret) << c.text;
    }
    const uint32_t want[3][3] = {
        {UNTOUCHED, 6, 7}, {UNTOUCHED, 8, 5}, {UNTOUCHED, UNTOUCHED, UNTOUCHED}};
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(vals({items[i].reserved, items[i].addr, items[i].data}),
                  vals(want[i], want[i] + 3))
            << i;

    const std::string null_arg = err(LOAD, "the 1st or 2nd param is NULL\n");
    const struct {
        const char *path;
        kiv_calib_data_item *items;
        uint32_t n;
        int32_t ret;
        std::string log;
    } args[] = {{NO_FILE, items, 1, -2, err(LOAD, NO_FILE_MSG)},
                {nullptr, items, 1, -1, null_arg},
                {NO_FILE, nullptr, 1, -1, null_arg},
                {NO_FILE, items, 0, -1, err(LOAD, "data_size is 0\n")}};
    for (const auto &a : args) {
        EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(a.path, a.items, a.n); }), a.log);
        EXPECT_EQ(ret, a.ret) << a.log;
    }
}

TEST_F(Calib, NumberConversion)
{
    kiv_calib_data_item items[7];
    std::string path = script("calib_data = { {-5, 2^33}, {16.9, 4294967295},"
                              " {4294967296, 9223372036854775807}, {'0x10', ' 12 '},"
                              " {'abc', true}, {0/0, 1/0}, {-1/0, -0.5} }");
    ASSERT_EQ(kiv_load_calib_data(path.c_str(), items, 7), 0);
    const uint32_t want[7][2] = {{0, UINT32_MAX}, {16, UINT32_MAX}, {UINT32_MAX, UINT32_MAX},
                                 {16, 12},        {0, 0},           {0, UINT32_MAX},
                                 {0, 0}};
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(items[i].addr, want[i][0]) << i;
        EXPECT_EQ(items[i].data, want[i][1]) << i;
    }
}

TEST_F(Calib, HundredThousandPairs)
{
    const uint32_t n = 100000;
    std::string text = "calib_data = {\n";
    for (uint32_t i = 0; i < n; ++i)
        text.append("{")
            .append(std::to_string(0x10000000u + 4 * i))
            .append(", ")
            .append(std::to_string(i * 7))
            .append("},\n");
    std::string path = script(text + "}\n");

    EXPECT_EQ(kiv_get_calib_data_size(path.c_str()), static_cast<int32_t>(n));
    std::vector<kiv_calib_data_item> big(n + 1, kiv_calib_data_item{1, 2, 3});
    EXPECT_EQ(kiv_load_calib_data(path.c_str(), big.data(), n), 0);
    for (uint32_t i : {0u, 4095u, 65536u, n - 1}) {
        EXPECT_EQ(big[i].addr, 0x10000000u + 4 * i) << i;
        EXPECT_EQ(big[i].data, i * 7) << i;
        EXPECT_EQ(big[i].reserved, 1u) << i;
    }
    EXPECT_EQ(big[n].addr, 2u);
    int32_t ret = 0;
    EXPECT_EQ(masked([&] { ret = kiv_load_calib_data(path.c_str(), big.data(), n + 1); }),
              err(LOAD, "Could not find item.\n"));
    EXPECT_EQ(ret, -2);
}
