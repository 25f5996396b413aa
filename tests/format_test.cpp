// The log and dump formatter against the C library's vsnprintf, and the
// one-pass array read against the per-element reads it replaces.
#include "kiv_test.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "core/access.h"
#include "core/fmt.h"
#include "core/log.h"
#include "core/out.h"

using namespace kivtest;

namespace
{

// Our text and result against vsnprintf's, with a buffer of `cap` bytes.
void same(size_t cap, const char *fmt, ...)
{
    char ours[64] = "", libc[64] = "";
    va_list ap, aq;
    va_start(ap, fmt);
    va_copy(aq, ap);
    int a = kiv_format(ours, cap, fmt, ap), b = vsnprintf(libc, cap, fmt, aq);
    va_end(aq);
    va_end(ap);
    EXPECT_EQ(a, b) << fmt << " cap " << cap;
    EXPECT_STREQ(ours, libc) << fmt << " cap " << cap;
}

// kiv_format's result for a format it leaves to the C library.
int refused(const char *fmt, ...)
{
    char buf[64];
    va_list ap;
    va_start(ap, fmt);
    int ret = kiv_format(buf, sizeof buf, fmt, ap);
    va_end(ap);
    return ret;
}

using Format = Settings;

} // namespace

TEST(Formatter, SameTextAsTheCLibrary)
{
    const char *null_str = nullptr;
    for (size_t cap : {size_t{64}, size_t{1}, size_t{2}, size_t{9}, size_t{17}}) {
        same(cap, "KIV_WARN:: %s(%d): item(%s) doesn't exist, set 0 by default.\n", "f", 23,
             "max_output");
        same(cap, "%d %d %d %d", 0, -1, INT_MAX, INT_MIN);
        same(cap, "%u|%u|%x|%x|%x", 0u, UINT_MAX, 0u, 0xdeadbeefu, 10u);
        same(cap, "%ld %lu %lx", LONG_MIN, ULONG_MAX, 0x123456789abcdeful);
        same(cap, "100%% of %s%s", "", "x");
        same(cap, "%s", null_str);
        same(cap, "no conversion at all, but longer than the smallest buffers");
        same(cap, "");
    }
}

TEST(Formatter, OtherConversionsAreLeftToTheCLibrary)
{
    for (const char *fmt :
         {"%5d", "%-d", "%.14g", "%c", "%p", "%08x", "%lld", "%ls", "%l%", "%", "tail %"})
        EXPECT_EQ(refused(fmt, 1), -1) << fmt;
}

// Through the log and the dump's writer: the fallback gives the same text.
TEST_F(Format, LogAndDumpLines)
{
    EXPECT_EQ(capture([] { kiv_log(0, "%s=%d, %5.2f\n", "k", -3, 2.5); }), "k=-3,  2.50\n");
    std::string long_name(600, 'n');
    EXPECT_EQ(capture([&] { kiv_log(0, "[%s]", long_name.c_str()); }), "[" + std::string(254, 'n'));

    // A dump line is never cut: one longer than the writer's buffer, and one
    // with a conversion of its own, come out whole.
    FILE *f = tmpfile();
    ASSERT_NE(f, nullptr);
    kiv_out(f, "[%s]\n", long_name.c_str());
    kiv_out(f, "\t%s = %d,%4u|0x%x\n", "key", -7, 3u, 255u);
    kiv_out_str(f, "}\n");
    rewind(f);
    char buf[700] = "";
    size_t n = fread(buf, 1, sizeof buf - 1, f);
    fclose(f);
    EXPECT_EQ(std::string(buf, n), "[" + long_name + "]\n\tkey = -7,   3|0xff\n}\n");
}

TEST_F(Format, ArrayReadInOnePass)
{
    kiv_set_log_level(3);
    lua_script s("t = { a = {4, '5', 6.0, {}, 2^32 + 7, 9}, holes = {1, nil, 3}, "
                 "empty = {}, scalar = 5 }",
                 "t");
    lua_State *L = s.L();
    int32_t v[8] = {-1, -1, -1, -1, -1, -1, -1, -1};
    std::string log = masked([&] {
        EXPECT_EQ(kiv_get_array_integers_str(L, "a", v, 5), 6);
        EXPECT_EQ(kiv_get_array_integers_str(L, "holes", v + 5, 8), 1);
    });
    // The elements as the single gets convert them; only `max` are stored.
    EXPECT_EQ(vals(v, v + 8), vals({4, 5, 6, 0, 7, 1, -1, -1}));
    EXPECT_EQ(log, "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(6) doesn't exist\n"
                   "KIV_DEBUG:: kiv_is_item_exist_int(N): item of index(1) doesn't exist\n");

    // Missing, empty and non-table arrays: the lines of the count (pinned
    // with the access layer).
    for (const char *key : {"none", "empty", "scalar"}) {
        std::string one = masked([&] { EXPECT_EQ(kiv_get_array_integers_str(L, key, v, 8), 0); });
        std::string count = masked([&] { kiv_get_array_item_num_str(L, key); });
        EXPECT_EQ(one, count) << key;
    }
    EXPECT_EQ(v[0], 4);
    EXPECT_EQ(lua_gettop(L), s.top());
}
