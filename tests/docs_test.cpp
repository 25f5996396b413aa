// The script author's reference, docs/format.md, names every key the loaders
// read and every row of the name tables, so that a key added without its
// documentation fails here.
#include "kiv_test.h"

#include <filesystem>
#include <regex>
#include <set>

#include "canvas/canvas.h"
#include "channel/srcbuf.h"
#include "vsrc/vsrc.h"

using namespace kivtest;

namespace
{

using Docs = Settings;

// The first group of every match of re in text, as code: `NAME`.
void collect(const std::string &text, const char *re, std::set<std::string> *out)
{
    const std::regex r(re);
    for (std::sregex_iterator it(text.begin(), text.end(), r), end; it != end; ++it)
        out->insert("`" + (*it)[1].str() + "`");
}

// The texts the reference does not hold.
std::vector<std::string> undocumented(const std::set<std::string> &texts)
{
    static const std::string doc = read_file(std::string(KIV_SOURCE_DIR) + "/docs/format.md");
    std::vector<std::string> missing;
    for (const std::string &text : texts)
        if (doc.find(text) == std::string::npos)
            missing.push_back(text);
    return missing;
}

} // namespace

// The keys of tests/cases/docs.lua: those its scripts give (comments and case
// titles left out) and those the log in docs.out names (the optional ones, as
// absent).  Keys behind a switch those scripts do not know yet are still
// caught when their names are spelled out in the sources.
TEST_F(Docs, EveryKeyTheLoadersReadIsDocumented)
{
    const std::string cases = std::string(KIV_SOURCE_DIR) + "/tests/cases/docs.";
    std::set<std::string> keys = {"`calib_data`"}, names;
    collect(std::regex_replace(read_file(cases + "lua"), std::regex("--[^\n]*"), ""),
            R"(([A-Za-z_]\w*)\s*=)", &keys);
    collect(read_file(cases + "out"), R"(item\(([A-Za-z_]\w*)\))", &keys);
    for (const auto &file :
         std::filesystem::recursive_directory_iterator(std::string(KIV_SOURCE_DIR) + "/src"))
        if (file.path().extension() == ".cpp")
            collect(read_file(file.path().string()), R"x("([A-Za-z_]\w+)")x", &names);
    // Function names appear in the log, not in scripts; a name ending in an
    // underscore is the prefix of names built at run time (chan_<n>).
    std::erase_if(names, [](const std::string &n) {
        return n.starts_with("`kiv_") || n.starts_with("`do_kiv_") ||
               n == "`parse_src_buffer_cfg`" || n.ends_with("_`");
    });
    EXPECT_GT(keys.size(), 200u); // the collections themselves work
    EXPECT_GT(names.size(), 150u);
    keys.merge(names);
    EXPECT_EQ(undocumented(keys), std::vector<std::string>{});
}

TEST_F(Docs, EveryRowOfTheNameTablesIsDocumentedWithItsId)
{
    std::set<std::string> rows;
    auto add = [&](const char *name, int id) {
        rows.insert("| `" + std::string(*name ? name : "\"\"") + "` | " + std::to_string(id) +
                    " |");
    };
    for (const auto &[table, n] : {std::pair{vin_mode_table, KIV_VIN_MODE_NUM},
                                   {hdr_mode_table, KIV_HDR_MODE_NUM},
                                   {video_type_table, KIV_VIDEO_TYPE_NUM}})
        for (int i = 0; i < n; ++i)
            add(table[i].name, table[i].id);
    for (int t = 0; t < KIV_CANVAS_TYPE_NUM; ++t)
        add(kiv_canvas_type_names[t], t);
    EXPECT_EQ(rows.size(), 96u + 4 + 7 + 3);
    // Source buffers are listed index first.
    for (int b = 0; b < KIV_SRC_BUF_NUM; ++b)
        rows.insert("| " + std::to_string(b) + " | `" + kiv_src_buf_names[b] + "` |");
    EXPECT_EQ(undocumented(rows), std::vector<std::string>{});
}
