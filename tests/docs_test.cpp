// The script author's reference, docs/format.md, names every key the loaders
// read and every row of the name tables, so that a key added without its
// documentation fails here.
#include "kiv_test.h"

#include <filesystem>
#include <memory>
#include <regex>
#include <set>

#include "canvas/canvas.h"
#include "channel/srcbuf.h"
#include "core/log.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

using Docs = Settings;

const std::string &reference()
{
    static const std::string doc = read_file(std::string(KIV_SOURCE_DIR) + "/docs/format.md");
    return doc;
}

// The first group of every match of re in text.
void collect(const std::string &text, const char *re, std::set<std::string> *out)
{
    const std::regex r(re);
    for (std::sregex_iterator it(text.begin(), text.end(), r), end; it != end; ++it)
        out->insert((*it)[1]);
}

// The names the reference does not show as code.
std::vector<std::string> undocumented(const std::set<std::string> &names)
{
    std::vector<std::string> missing;
    for (const std::string &name : names)
        if (reference().find("`" + name + "`") == std::string::npos)
            missing.push_back(name);
    return missing;
}

// Every switch on and every table present with its required keys only, so
// that each optional key is named in the log (as absent) and each required
// one in the script.
const char ALL_SWITCHES[] = R"(_resource_config_ = {
	version = 1, log_level = 3,
	channels = {
		{ id = 0, sensor_ctrl = 1, max_padding_width = 0, use_vsrc_ctx_pattern = 1,
		  vsrc_ctx_pattern = 0, vsrc_ctx_pattern_mask = 0, enable_group = 1, group_idx = 0,
		  pass_num = 2, pass_1 = {},
		  main = { max_output = {1, 1}, input = {0, 0, 1, 1}, output = {0, 0, 1, 1} },
		  pyramid = { input_buf_id = 0, layer_map = 1, scale_type = 0, manual_feed = 1,
		              layers = { { crop_win = {0, 0, 1, 1} } } },
		  vsrc = { vsrc_id = 0, mode = "auto", fps = 30, hdr_mode = "linear", virt_mode_cfg_enable = 1,
		           virt_mode_cfg = { width = 1, height = 1, hdr_mode = "linear", video_type = "rgb_raw" } } },
		{ id = 1, sensor_ctrl = 1, max_padding_width = 0,
		  main = { max_output = {1, 1}, input = {0, 0, 1, 1}, output = {0, 0, 1, 1} },
		  vsrc = { vsrc_id = 1, mode = "vga", fps = 30, hdr_mode = "wdr" } },
	},
	chan_groups = { {"chan_0", "chan_1"} },
	canvas = { { type = "prev", vout_id = 0, size = {0, 0}, source = {"chan_0.main", "chan_1.main"} } },
	streams = { { id = 0, max_size = {1, 1}, used_for_vout_enable = 1, efm_enable = 1, efm_buf_num = 1,
	              efm_size = {1, 1}, dis_enable = 1 } },
	resource_mem_layout = { max_chan_num = 1, max_stream_num = 1, channels_mem = { { max_vin = {1, 1} } },
	                        streams_mem = { { max_stream = {1, 1} } } },
})";

const char AISP[] = R"(_custom_aisp_config_ = {
	boot_param = { fifo_addr = 0, fifo_len = 0, dag_addr = 0 },
	custom_nn = { { if_cnt = 1, interfaces = { {
		port = { dvi_id = 0, start = 0, cnt = 1, id = {0} },
		poke = { dvi_id = 0, start = 0, cnt = 1, id = {0} } } } } },
})";

const char KEY_IN_LOG[] = R"(item\(([A-Za-z_]\w*)\))";
const char KEY_IN_SCRIPT[] = R"(([A-Za-z_]\w*)\s*=)";

} // namespace

TEST_F(Docs, EveryKeyTheLoadersReadIsDocumented)
{
    kiv_set_log_level(3);
    std::set<std::string> keys;

    auto cfg = std::make_unique<kiv_multi_chan_cfg>();
    load_result r = load(ALL_SWITCHES, cfg.get());
    ASSERT_EQ(r.ret, 0) << r.log;
    EXPECT_EQ(r.log.find("KIV_ERROR"), std::string::npos) << r.log;
    collect(r.log, KEY_IN_LOG, &keys);
    collect(ALL_SWITCHES, KEY_IN_SCRIPT, &keys);

    // An empty scaling-list table names every list and DC key as absent.
    std::string hevc = script("__hevc_scalelist__ = {}\n");
    auto scaling = std::make_unique<kiv_hevc_scaling_cfg>();
    collect(masked([&] { EXPECT_EQ(kiv_get_hevc_scaling_cfg(hevc.c_str(), scaling.get()), 0); }),
            KEY_IN_LOG, &keys);

    kiv_aisp_cfg aisp{};
    std::string aisp_path = script(AISP);
    masked([&] { EXPECT_EQ(kiv_get_aisp_cfg(aisp_path.c_str(), &aisp, 1), 0); });
    collect(AISP, KEY_IN_SCRIPT, &keys);
    keys.insert("calib_data");

    EXPECT_GT(keys.size(), 200u); // the collection itself works
    EXPECT_EQ(undocumented(keys), std::vector<std::string>{});
}

// Keys behind a switch the script above does not know yet are still caught
// when their names are spelled out in the sources.
TEST_F(Docs, EveryNameSpelledOutInTheSourcesIsDocumented)
{
    std::set<std::string> names;
    for (const auto &dir :
         std::filesystem::directory_iterator(std::string(KIV_SOURCE_DIR) + "/src"))
        if (dir.is_directory())
            for (const auto &file : std::filesystem::directory_iterator(dir.path()))
                if (file.path().extension() == ".cpp")
                    collect(read_file(file.path().string()), R"x("([A-Za-z_]\w+)")x", &names);
    // Function names appear in the log, not in scripts; a name ending in an
    // underscore is the prefix of names built at run time (chan_<n>).
    std::erase_if(names, [](const std::string &n) {
        return n.starts_with("kiv_") || n.starts_with("do_kiv_") || n == "parse_src_buffer_cfg" ||
               n.ends_with("_");
    });
    EXPECT_GT(names.size(), 150u);
    EXPECT_EQ(undocumented(names), std::vector<std::string>{});
}

TEST_F(Docs, EveryRowOfTheNameTablesIsDocumentedWithItsId)
{
    std::set<std::string> rows;
    auto add = [&](const kiv_name_id *table, int n) {
        for (int i = 0; i < n; ++i)
            rows.insert((table[i].name[0] ? table[i].name : "\"\"") + std::string("` | ") +
                        std::to_string(table[i].id) + " |");
    };
    add(vin_mode_table, KIV_VIN_MODE_NUM);
    add(hdr_mode_table, KIV_HDR_MODE_NUM);
    add(video_type_table, KIV_VIDEO_TYPE_NUM);
    for (int t = 0; t < KIV_CANVAS_TYPE_NUM; ++t)
        rows.insert(kiv_canvas_type_names[t] + std::string("` | ") + std::to_string(t) + " |");
    // Source buffers are listed index first.
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b)
        EXPECT_NE(
            reference().find("| " + std::to_string(b) + " | `" + kiv_src_buf_names[b] + "` |"),
            std::string::npos)
            << kiv_src_buf_names[b];

    std::vector<std::string> missing;
    for (const std::string &row : rows)
        if (reference().find("| `" + row) == std::string::npos)
            missing.push_back(row);
    EXPECT_EQ(rows.size(), 96u + 4 + 7 + 3);
    EXPECT_EQ(missing, std::vector<std::string>{});
}
