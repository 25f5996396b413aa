// The key documentation hover and completion show (lsp/keydocs.h) against
// what the loaders read: a key read without a row of docs/format.md, a row
// no loader reads, or a table of the model with no kind fails here.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "kiv_test.h"
#include "lsp/keydocs.h"
#include "model/model.h"

using kivtool::find_key;
using KeyDocs = kivtest::Settings;

namespace
{

// The script of tests/cases/docs.lua under the case title `title`.
kivtool::script_model docs_case(const std::string &title)
{
    const std::string text = kivtest::read_file(KIV_SOURCE_DIR "/tests/cases/docs.lua");
    size_t at = text.find('\n', text.find("\n--- " + title) + 1) + 1;
    return kivtool::load_model_text("docs.lua", text.substr(at, text.find("\n--- ", at) - at));
}

std::string kind_of(const kivtool::script_model &m, const std::string &path)
{
    if (path.empty() && m.kind != kiv_kind::multi_chan)
        return m.kind == kiv_kind::aisp ? "aisp" : m.kind == kiv_kind::hevc ? "hevc" : "";
    return kivtool::table_kind(path);
}

// What the reading of a script and the reference disagree on, a line each.
// `every_row`: the script reaches every key of the tables it gives.
std::vector<std::string> disagreements(const kivtool::script_model &m, bool every_row)
{
    std::vector<std::string> out;
    for (const kivtool::read_table &t : m.tables) {
        std::vector<std::string> looked = t.missing;
        for (size_t i = 0; i < t.keys.size(); ++i)
            if (t.read[i])
                looked.push_back(t.keys[i]);
        const std::string kind = kind_of(m, t.path), at = "[" + t.path + "] ";
        if (kind.empty() && !looked.empty())
            out.push_back(at + "has keys but no kind of table");
        for (const std::string &k : looked)
            if (!kind.empty() && !find_key(kind, k))
                out.push_back(at + k + ": read, but no row under " + kind);
        for (const kivtool::key_doc *d : kivtool::keys_of(kind))
            if (every_row && std::find(looked.begin(), looked.end(), d->key) == looked.end())
                out.push_back(at + d->key + ": a row of " + kind + ", never read");
        // The absent keys come out in reading order, which is the order of the rows.
        for (size_t i = 1; i < t.missing.size(); ++i) {
            const kivtool::key_doc *a = find_key(kind, t.missing[i - 1]),
                                   *b = find_key(kind, t.missing[i]);
            if (a && b && a > b)
                out.push_back(at + t.missing[i] + ": read before " + t.missing[i - 1]);
        }
    }
    return out;
}

} // namespace

TEST_F(KeyDocs, EveryKeyTheLoaderReadsHasItsRow)
{
    EXPECT_EQ(kivtool::format_reference(), kivtest::read_file(KIV_SOURCE_DIR "/docs/format.md"));
    for (const char *title :
         {"every switch on", "a network with every key", "every scaling list absent"}) {
        kivtool::script_model m = docs_case(title);
        ASSERT_EQ(m.result, 0) << title;
        EXPECT_EQ(disagreements(m, true), std::vector<std::string>{}) << title;
    }
    int loaded = 0;
    for (const auto &e : std::filesystem::directory_iterator(kivtest::example(""))) {
        if (e.path().extension() != ".lua")
            continue;
        kivtool::script_model m = kivtool::load_model(e.path().string());
        if (m.kind != kiv_kind::calib) {
            ++loaded;
            EXPECT_EQ(disagreements(m, false), std::vector<std::string>{}) << e.path();
        }
    }
    EXPECT_GE(loaded, 5);
}

TEST_F(KeyDocs, AbsentKeysWithADefaultLogTheirWarning)
{
    kivtool::script_model m = docs_case("every switch on");
    int checked = 0;
    for (const kivtool::read_table &t : m.tables)
        for (const std::string &k : t.missing) {
            const kivtool::key_doc *d = find_key(kind_of(m, t.path), k);
            if (!d || d->dflt.empty() || d->gated)
                continue;
            const std::string path = t.path.empty() ? k : t.path + "." + k;
            ++checked;
            EXPECT_TRUE(std::any_of(m.log.begin(), m.log.end(), [&](const kivtool::log_line &l) {
                return l.level == 1 && l.path == path &&
                       l.text.find("item(" + k + ")") != l.text.npos;
            })) << path;
        }
    EXPECT_GT(checked, 150);
}

// table.key=default, required, gated: type.
TEST_F(KeyDocs, RowsReadAsWritten)
{
    for (const char *row :
         {"top.version= required: integer", "top.canvas= required: array of 1 to 12 tables",
          "channel.main_burst_tile=1: integer", "channel.vcap_mode_flags=0x80: integer",
          "channel.vsrc_ctx_pattern= required gated: integer", "channel.main= required: table",
          "channel.sixth=: table", "channel.pass_1= required gated: table",
          "pass_1.premain=: table", "vsrc.mode= required: string",
          "vsrc.virt_mode_cfg_enable=0: integer",
          "pyramid.rescale_size={0, 0}: array of 2 integers",
          "layer.crop_win=: array of 4 integers", "canvas.vout_YUV422=0 gated: integer",
          "stream.efm_buf_num= required gated: integer", "boot_param.dag_addr= required: integer",
          "map.id= required: array of 1 to 4 integers"}) {
        const std::string_view r = row;
        const size_t dot = r.find('.'), eq = r.find('=');
        const kivtool::key_doc *d = find_key(r.substr(0, dot), r.substr(dot + 1, eq - dot - 1));
        ASSERT_NE(d, nullptr) << row;
        EXPECT_EQ(d->table + "." + d->key + "=" + d->dflt + (d->required ? " required" : "") +
                      (d->gated ? " gated" : "") + ": " + d->type,
                  row);
    }
    for (const kivtool::key_doc *d : kivtool::keys_of("vsrc"))
        EXPECT_EQ(d->section, "3.5 `vsrc`: the video source");
    const kivtool::key_doc *id = find_key("vsrc", "vsrc_id");
    EXPECT_TRUE(id && id->width == "32 bits");
    EXPECT_EQ(find_key("pyramid", "pyramid"), nullptr); // the rows about the table itself
    EXPECT_EQ(find_key("aisp", "_custom_aisp_config_"), nullptr);
}

// path=kind, none for no key table.
TEST_F(KeyDocs, RecordPathsHaveTheirKinds)
{
    std::istringstream rows(
        "=top channels[2]=channel channels[0].src_buf[1][6]=buffer channels[0].pass_cfg[1]=pass_1 "
        "channels[0].pass_cfg[2]= channels[1].pyramid.layers[5]=layer canvas[11]=canvas "
        "channels[2].vsrc.virt_mode_cfg=virt_mode_cfg "
        "resource_mem_layout.streams_mem[0]=streams_mem "
        "custom_nn[1].interfaces[0].poke=map channels= chan_groups[0]= channels[0].vsrcx= "
        "channels[0=");
    for (std::string r; rows >> r;)
        EXPECT_EQ("=" + kivtool::table_kind(r.substr(0, r.find('='))), r.substr(r.find('=')));
}

// Any text parses; what is not a key table under a known heading is left out.
TEST_F(KeyDocs, OddMarkdownParses)
{
    const std::string head = "| key | type | absent |\n|---|:-:|---|\n";
    const std::pair<std::string, const char *> cases[] = {
        {"", ""},
        {"|\n|-\n|", ""},
        {head + "| `a` | integer | default 1 |", ""}, // under no heading
        {"## 3.9 s\n" + head + "| `a` | integer | default 2 |\n| `b\n|\n| `c` |\n",
         "stream.a=2 stream.c="},
        {"```\n## 3.9 s\n```\n" + head + "| `a` | integer | 0 |", ""},
        {"## 3.3 b\n" + head + "| `x` ... `y` | table | {1, 2 |", "buffer.x= buffer.y="},
        {"# 3.10 m\n" + head + "| `a` | | 0x |\n\n" + head + "| `b` | | default |\n#### n\n" +
             head + "| `c` | | |",
         "mem_layout.a= channels_mem.b="},
        {"## 7\n" + head + "| map `q\\|r` | | -3, x |\n", "map.q|r=-3"},
    };
    for (const auto &[md, want] : cases) {
        std::string got;
        for (const kivtool::key_doc &d : kivtool::parse_key_docs(md))
            got += (got.empty() ? "" : " ") + d.table + "." + d.key + "=" + d.dflt;
        EXPECT_EQ(got, want) << md;
    }
    const std::string_view ref = kivtool::format_reference();
    for (size_t n = 0; n < ref.size(); n += 499) // cut anywhere
        EXPECT_LE(kivtool::parse_key_docs(ref.substr(0, n)).size(), kivtool::key_docs().size());
}
