// The loaders that stand alone: custom AISP networks, calibration data and
// HEVC scaling lists.  What a script gives is in tests/cases/{aisp,calib,
// hevc}.lua; here the arguments no script can give, the networks' fill
// record and the bytes that belong to no field.
#include "kiv_test.h"

#include <functional>
#include <string.h>

#include "aisp/aisp.h"

using namespace kivtest;

namespace
{

using Standalone = Margins;

} // namespace

TEST_F(Standalone, ArgumentsAndMissingFiles)
{
    kiv_calib_data_item items[1];
    memset(items, 0xA5, sizeof items);
    kiv_aisp_cfg nn{};
    auto hevc = std::make_unique<kiv_hevc_scaling_cfg>();
    memset(hevc.get(), 0xA5, sizeof *hevc);
    const char *none = "/nonexistent/x.lua";
    const std::string no_file =
        "lua error msg is cannot open /nonexistent/x.lua: No such file or directory.\n";
    const std::string null = "the 1st or 2nd param is NULL\n";
    const std::string A = "kiv_get_aisp_cfg", H = "kiv_get_hevc_scaling_cfg",
                      S = "kiv_get_calib_data_size", L = "kiv_load_calib_data";
    const std::tuple<std::function<int32_t()>, int32_t, std::string> cases[] = {
        {[&] { return kiv_get_aisp_cfg(none, &nn, 1); }, -2, err(A, no_file)},
        {[&] { return kiv_get_aisp_cfg(nullptr, &nn, 1); }, -1, err(A, null)},
        {[&] { return kiv_get_aisp_cfg(none, nullptr, 1); }, -1, err(A, null)},
        {[&] { return kiv_get_hevc_scaling_cfg(nullptr, hevc.get()); }, -1, err(H, null)},
        {[&] { return kiv_get_hevc_scaling_cfg(none, nullptr); }, -1, err(H, null)},
        {[&] { return kiv_get_hevc_scaling_cfg(none, hevc.get()); }, -2, err(H, no_file)},
        {[&] { return kiv_get_calib_data_size(nullptr); }, 0, err(S, "the lua file is NULL\n")},
        {[&] { return kiv_get_calib_data_size(none); }, 0, err(S, no_file)},
        {[&] { return kiv_load_calib_data(none, items, 1); }, -2, err(L, no_file)},
        {[&] { return kiv_load_calib_data(nullptr, items, 1); }, -1, err(L, null)},
        {[&] { return kiv_load_calib_data(none, nullptr, 1); }, -1, err(L, null)},
        {[&] { return kiv_load_calib_data(none, items, 0); }, -1, err(L, "data_size is 0\n")},
    };
    for (const auto &[call_, want, log] : cases) {
        int32_t ret = 0;
        const auto &call = call_; // a lambda cannot capture a structured binding before clang 16
        EXPECT_EQ(masked([&] { ret = call(); }), log);
        EXPECT_EQ(ret, want) << log;
    }
    EXPECT_EQ(items[0].addr, 0xA5A5A5A5u);
    // A missing file leaves the scaling lists zero.
    static const kiv_hevc_scaling_cfg zero{};
    EXPECT_EQ(memcmp(hevc.get(), &zero, sizeof zero), 0);
}

// A load that fails on the third network: the fill record counts what was
// stored (what a load that succeeds fills is in tests/cases/aisp.lua, from
// the tool); nothing is written past the interfaces or into the bits and
// bytes no field owns.
TEST_F(Standalone, AispFillAndUnownedBytes)
{
    std::string path = script(
        "local function nn(n, c) local t = {} for k = 1, c do local m = { dvi_id = 1, start = k, "
        "cnt = 1, id = { n } } t[k] = { port = m, poke = m } end return { if_cnt = c, interfaces "
        "= t } end\n_custom_aisp_config_ = { boot_param = { fifo_addr = 1, fifo_len = 2, "
        "dag_addr = 3 }, custom_nn = { nn(0, 15), nn(1, 15), nn(2, 3) } }");
    struct {
        kiv_aisp_cfg cfg;
        unsigned char guard[64];
    } rec;
    memset(&rec, 0xA5, sizeof rec);
    kiv_aisp_fill fill;
    int32_t ret = 0;
    capture([&] { ret = kiv_get_aisp_cfg_fill(path.c_str(), &rec.cfg, 1, &fill); });
    EXPECT_EQ(vals({ret, fill.nn_cnt, fill.filled, kiv_aisp_entries_of(&fill, 0),
                    kiv_aisp_entries_of(&fill, 1), kiv_aisp_entries_of(&fill, 2)}),
              vals({-1, 3, 30, 15, 15, 0}));
    for (unsigned char g : rec.guard)
        ASSERT_EQ(g, 0xA5);
    // Bits 4-7 of the if_cnt byte and the reserved byte of a map stay.
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(&rec.cfg)[12] & 0xF0, 0xA0);
    EXPECT_EQ(rec.cfg.interfaces[0].port.reserved, 0xA5);
}

// The largest legitimate script loads within a fraction of the bounds
// (what it gives is in tests/cases/calib.lua), and the reserved words stay.
TEST_F(Standalone, CalibHundredThousandPairs)
{
    std::string text = "calib_data = {\n";
    for (uint32_t i = 0; i < 100000; ++i)
        text += "{" + std::to_string(0x10000000u + 4 * i) + ", " + std::to_string(i * 7) + "},\n";
    std::string path = script(text + "}\n");
    EXPECT_EQ(kiv_get_calib_data_size(path.c_str()), 100000);
    std::vector<kiv_calib_data_item> big(100000, kiv_calib_data_item{1, 2, 3});
    EXPECT_EQ(kiv_load_calib_data(path.c_str(), big.data(), 100000), 0);
    EXPECT_EQ(vals({big[99999].data, big[99999].reserved}), vals({99999 * 7, 1}));
}
