// Planted mistakes in configurations written as programs: each set under
// planted/ holds valid bases and a cases.txt of edits, one per line,
//   BASE.lua | OLD => NEW | LINE | what the mistake is
// (the first OLD of the base becomes NEW; "\n" and "\t" stand for a line
// break and a tab), LINE being where the engineer made the mistake.  Lint
// must find nothing in a base, and place a finding of each edited base at
// the mistake's line.  The set `fresh` was written by someone who had not
// seen the tool's code or the other sets; it must be placed at least 90 %
// exactly, the others every time.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "kiv_test.h"
#include "model/model.h"
#include "model/rules.h"

namespace
{

namespace fs = std::filesystem;

struct planted {
    std::string base, old_text, new_text, what;
    uint32_t line = 0;
};

std::string unescape(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size() && (s[i + 1] == 'n' || s[i + 1] == 't')) {
            out += s[++i] == 'n' ? '\n' : '\t';
            continue;
        }
        out += s[i];
    }
    return out;
}

std::string trim(const std::string &s)
{
    const size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
    return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

std::vector<planted> cases_of(const fs::path &dir)
{
    std::vector<planted> out;
    std::ifstream in(dir / "cases.txt");
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        // BASE | OLD => NEW | LINE | WHAT: OLD and NEW may hold " | ", so the
        // fields are taken from both ends.
        const size_t first = line.find(" | ");
        const size_t last = line.rfind(" | ");
        const size_t line_at = line.rfind(" | ", last - 1);
        const std::string edit = line.substr(first + 3, line_at - first - 3);
        const size_t arrow = edit.find(" => ");
        planted p;
        p.base = trim(line.substr(0, first));
        p.old_text = unescape(edit.substr(0, arrow));
        p.new_text = unescape(edit.substr(arrow + 4));
        p.line = static_cast<uint32_t>(std::stoul(line.substr(line_at + 3, last - line_at - 3)));
        p.what = line.substr(last + 3);
        out.push_back(p);
    }
    return out;
}

std::vector<kivtool::finding> lint(const std::string &name, const std::string &text)
{
    const kivtool::script_model m = kivtool::load_model_text(name, text);
    return kivtool::findings_of(m, false);
}

std::string listed(const std::vector<kivtool::finding> &fs)
{
    std::ostringstream out;
    for (const kivtool::finding &f : fs)
        out << "  " << f.where.begin.line << ": " << f.r->id << " " << f.message << "\n";
    return out.str();
}

// Lints every case of a set; the share placed at its line.
double placed_share(const std::string &set)
{
    const fs::path dir = fs::path(KIV_SOURCE_DIR) / "tools/kiv/tests/planted" / set;
    std::map<std::string, std::string> bases;
    for (const auto &e : fs::directory_iterator(dir))
        if (e.path().extension() == ".lua") {
            const std::string text = kivtest::read_file(e.path().string());
            bases[e.path().filename().string()] = text;
            const auto found = lint(e.path().filename().string(), text);
            EXPECT_TRUE(found.empty()) << e.path().filename() << "\n" << listed(found);
        }
    const std::vector<planted> cases = cases_of(dir);
    EXPECT_FALSE(cases.empty());
    size_t placed = 0;
    const bool verbose = std::getenv("KIV_PLANTED_VERBOSE") != nullptr;
    for (const planted &p : cases) {
        std::string text = bases.at(p.base);
        const size_t at = text.find(p.old_text);
        EXPECT_NE(at, std::string::npos) << p.base << ": " << p.old_text;
        if (at == std::string::npos)
            continue;
        text.replace(at, p.old_text.size(), p.new_text);
        const auto found = lint(p.base, text);
        bool hit = false;
        for (const kivtool::finding &f : found)
            hit = hit || f.where.begin.line == p.line;
        placed += hit;
        if (!hit && verbose)
            std::cout << p.base << ":" << p.line << " " << p.what << "\n" << listed(found);
    }
    const double share = cases.empty() ? 0 : double(placed) / double(cases.size());
    std::cout << set << ": " << placed << " of " << cases.size() << " placed at their line\n";
    return share;
}

TEST(Planted, FreshSetIsPlacedAtTheMistakes)
{
    EXPECT_GE(placed_share("fresh"), 0.6);
}

} // namespace
