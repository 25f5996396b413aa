// The script author's reference, docs/format.md, names every key the loaders
// read and every row of the name tables, so that a key added without its
// documentation fails here.
#include "kiv_test.h"

#include <filesystem>
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

} // namespace

// The keys of tests/cases/docs.lua: those its scripts give (comments and
// case titles left out) and those the log in docs.out names (the optional
// ones, as absent).
TEST_F(Docs, EveryKeyTheLoadersReadIsDocumented)
{
    const std::string cases = std::string(KIV_SOURCE_DIR) + "/tests/cases/docs.";
    std::set<std::string> keys = {"calib_data"};
    collect(std::regex_replace(read_file(cases + "lua"), std::regex("--[^\n]*"), ""),
            R"(([A-Za-z_]\w*)\s*=)", &keys);
    collect(read_file(cases + "out"), R"(item\(([A-Za-z_]\w*)\))", &keys);
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
