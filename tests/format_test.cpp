// The log and dump formatter against the C library's vsnprintf, the log's
// settings and its 255-character lines, and the dump's writer.
#include "kiv_test.h"

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "core/fmt.h"
#include "core/log.h"
#include "core/out.h"

using namespace kivtest;

namespace
{

// Our text and result against vsnprintf's, with a buffer of `cap` bytes; or,
// with cap 0, our result for a format left to the C library (-1).
void same(size_t cap, const char *fmt, ...)
{
    char ours[64] = "", libc[64] = "";
    va_list ap, aq;
    va_start(ap, fmt);
    va_copy(aq, ap);
    int a = kiv_format(ours, cap ? cap : sizeof ours, fmt, ap);
    int b = cap ? vsnprintf(libc, cap, fmt, aq) : -1;
    va_end(aq);
    va_end(ap);
    EXPECT_EQ(a, b) << fmt << " cap " << cap;
    EXPECT_STREQ(cap ? ours : "", libc) << fmt << " cap " << cap;
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
    for (const char *fmt :
         {"%5d", "%-d", "%.14g", "%c", "%p", "%08x", "%lld", "%ls", "%l%", "%", "tail %"})
        same(0, fmt, 1);
}

TEST_F(Format, SettingsLogLinesAndTheDumpWriter)
{
    // What each level shows is in tests/cases/aisp.lua; the settings keep the
    // low 8 bits of a level and the low bit of the rate flag.
    kiv_set_log_level(-1);
    EXPECT_EQ(kiv_get_log_level(), 255);
    kiv_set_hp_fps(0x101);
    EXPECT_EQ(kiv_get_hp_fps(), 1);

    // The C library's fallback gives the same text; a message longer than 255
    // characters is cut there and loses its line feed.
    kiv_set_log_level(1);
    EXPECT_EQ(capture([] { kiv_log(0, "%s=%d, %5.2f\n", "k", -3, 2.5); }), "k=-3,  2.50\n");
    std::string long_name(600, 'n');
    EXPECT_EQ(capture([&] { kiv_log(0, "%s\n", long_name.c_str()); }), std::string(255, 'n'));
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
