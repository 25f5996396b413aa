// The faults of the mutation check (scripts/mutations.txt, applied by
// scripts/mutate.sh) still apply: each line's text occurs exactly once in
// its file, as the check needs to plant it, so that a change of the sources
// that moves a fault's text fails here, at once, and not hours later in a
// mutation run that stops at it.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "kiv_test.h"

namespace
{

// A field of the list: "\n", "\t" and "\\" stand for a line break, a tab
// and a backslash (as in scripts/mutate.sh).
std::string unescaped(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        const char c = s[++i];
        out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    return out;
}

size_t occurrences(const std::string &text, const std::string &what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++n;
    return n;
}

} // namespace

TEST(Mutations, EveryFaultStillApplies)
{
    const std::string root = KIV_SOURCE_DIR;
    std::ifstream in(root + "/scripts/mutations.txt");
    ASSERT_TRUE(in) << "scripts/mutations.txt";
    std::set<std::string> descriptions;
    int faults = 0, tool = 0;
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        if (line.empty() || line[0] == '#')
            continue;
        SCOPED_TRACE("scripts/mutations.txt:" + std::to_string(number));
        std::vector<std::string> fields;
        std::istringstream split(line);
        for (std::string f; std::getline(split, f, '\t');)
            fields.push_back(f);
        ASSERT_EQ(fields.size(), 4u) << line;
        const std::string &path = fields[0], &what = fields[3];
        const std::string find = unescaped(fields[1]), replace = unescaped(fields[2]);
        EXPECT_TRUE(path.starts_with("src/") || path.starts_with("include/") ||
                    path.starts_with("tools/"))
            << path;
        EXPECT_NE(find, replace) << what;
        // A description picks the fault out (scripts/mutate.sh PATTERN).
        EXPECT_TRUE(descriptions.insert(what).second) << "twice: " << what;
        EXPECT_EQ(occurrences(kivtest::read_file(root + "/" + path), find), 1u)
            << path << ": " << what;
        ++faults;
        tool += path.starts_with("tools/");
    }
    EXPECT_GE(faults, 100);
    EXPECT_GE(tool, 50);
}
