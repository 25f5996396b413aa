// Heap use of the entry points.  A load allocates nothing of its own: every
// block it takes from the C library is taken for the Lua state (through the
// state's allocator) or by the interpreter reading the script (the FILE of
// luaL_loadfilex).  A dump allocates only its stream.
//
// malloc and its family are interposed in this binary and count the calls
// made between start() and stop(); the states' allocator counts its own
// calls (kiv_get_run_counts().heap_calls).  What the library's code
// allocates itself is the difference, beyond what a bare run of the same
// script allocates outside its state.
//
// The address, thread, memory and leak sanitizers own malloc themselves: an
// interposer cannot be linked beside their runtimes, so under them (through
// KIV_SANITIZE, CMAKE_*_FLAGS or the compiler's own flags) this binary is
// built without it and every test skips, saying why.
#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <unistd.h>

#include "core/run.h"
#include "kiv.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) ||                         \
    __has_feature(memory_sanitizer) || __has_feature(hwaddress_sanitizer)
#define KIV_ALLOC_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KIV_ALLOC_SANITIZED 1
#endif

namespace
{
std::atomic<bool> g_counting{false};
std::atomic<uint64_t> g_calls{0};

[[maybe_unused]] void count()
{
    if (g_counting.load(std::memory_order_relaxed))
        g_calls.fetch_add(1, std::memory_order_relaxed);
}
} // namespace

#ifndef KIV_ALLOC_SANITIZED
extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
void *__libc_memalign(size_t, size_t);
}

extern "C" void *malloc(size_t n)
{
    return count(), __libc_malloc(n);
}
extern "C" void *calloc(size_t n, size_t size)
{
    return count(), __libc_calloc(n, size);
}
extern "C" void *realloc(void *p, size_t n)
{
    return count(), __libc_realloc(p, n);
}
extern "C" void free(void *p)
{
    count(), __libc_free(p);
}
extern "C" void *memalign(size_t align, size_t n)
{
    return count(), __libc_memalign(align, n);
}
extern "C" void *aligned_alloc(size_t align, size_t n)
{
    return count(), __libc_memalign(align, n);
}
extern "C" int posix_memalign(void **p, size_t align, size_t n)
{
    count();
    *p = __libc_memalign(align, n);
    return *p ? 0 : 12; // ENOMEM
}
#endif

namespace
{

std::string example(const char *name)
{
    return std::string(KIV_SOURCE_DIR) + "/examples/" + name;
}

// Calls to the C library's allocator made by fn, and the part of them the
// Lua states' allocator made.
struct heap_use {
    uint64_t libc;
    uint64_t lua;
    uint64_t outside() const { return libc - lua; }
};

template <class F>
heap_use heap_use_of(F &&fn)
{
    uint64_t lua0 = kiv_get_run_counts().heap_calls;
    g_calls = 0;
    g_counting = true;
    fn();
    g_counting = false;
    return {g_calls.load(), kiv_get_run_counts().heap_calls - lua0};
}

int32_t read_nothing(lua_State *, void *)
{
    return 0;
}

// The script run in a bare state: what the interpreter alone allocates
// outside its state for this file.
heap_use bare(const std::string &path)
{
    return heap_use_of(
        [&] { kiv_run_script("bare", path.c_str(), read_nothing, nullptr, -1, -1); });
}

// The log goes to /dev/null (at the descriptor: no stream is opened).
class Heap : public testing::Test
{
  protected:
    void SetUp() override
    {
#ifdef KIV_ALLOC_SANITIZED
        GTEST_SKIP() << "built with a sanitizer that replaces malloc: the C library's "
                        "allocator cannot be interposed, so heap calls are not counted";
#endif
        fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        close(null);
        // Standard output's buffer is allocated at its first write.
        fputs("\n", stdout);
    }
    void TearDown() override
    {
        fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }

  private:
    int saved_ = -1;
};

} // namespace

TEST_F(Heap, LoadsAllocateOnlyInTheirStates)
{
    static kiv_multi_chan_cfg cfg;
    for (const char *name : {"three_channel_4k.lua", "single_1080p.lua", "hdr_virtual_mode.lua"}) {
        std::string path = example(name);
        ASSERT_EQ(kiv_get_multi_chan_cfg(path.c_str(), &cfg), 0) << name; // warm-up
        int32_t ret = -1;
        heap_use load = heap_use_of([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
        EXPECT_EQ(ret, 0) << name;
        // Both counters see something: the state's blocks, and outside it
        // the FILE that reads the script.
        EXPECT_GT(load.lua, 0u) << name;
        EXPECT_GT(bare(path).outside(), 0u) << name;
        EXPECT_EQ(load.outside(), bare(path).outside()) << name;
    }

    static kiv_hevc_scaling_cfg lists;
    static kiv_aisp_cfg nn;
    kiv_calib_data_item items[64];
    std::string hevc = example("hevc_default_scaling.lua"), aisp = example("custom_aisp.lua"),
                calib = example("calib_table.lua");
    EXPECT_EQ(heap_use_of([&] { kiv_get_hevc_scaling_cfg(hevc.c_str(), &lists); }).outside(),
              bare(hevc).outside());
    EXPECT_EQ(heap_use_of([&] { kiv_get_aisp_cfg(aisp.c_str(), &nn, 1); }).outside(),
              bare(aisp).outside());
    // Two runs: the size, then the items.
    heap_use load = heap_use_of([&] {
        int32_t n = kiv_get_calib_data_size(calib.c_str());
        kiv_load_calib_data(calib.c_str(), items, static_cast<uint32_t>(n));
    });
    EXPECT_EQ(load.outside(), 2 * bare(calib).outside());
}

// Failures too: a script that does not run, a missing table, a missing file.
TEST_F(Heap, FailedLoadsAllocateOnlyInTheirStates)
{
    char path[] = "/tmp/kiv_alloc_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    static kiv_multi_chan_cfg cfg;
    for (const char *text : {"_resource_config_ = {", "error({})", "x = 1",
                             "_resource_config_ = { version = 1, channels = { { id = 0 } } }"}) {
        ASSERT_EQ(ftruncate(fd, 0), 0);
        ASSERT_EQ(pwrite(fd, text, strlen(text), 0), static_cast<ssize_t>(strlen(text)));
        int32_t ret = 0;
        heap_use load = heap_use_of([&] { ret = kiv_get_multi_chan_cfg(path, &cfg); });
        EXPECT_NE(ret, 0) << text;
        EXPECT_EQ(load.outside(), bare(path).outside()) << text;
    }
    close(fd);
    unlink(path);
    heap_use load = heap_use_of([&] { kiv_get_multi_chan_cfg(path, &cfg); });
    EXPECT_EQ(load.outside(), bare(path).outside());
}

// A dump to a file allocates two blocks and frees both: its working block
// (the stream's buffer and the file's names, kept off the stack) and the
// stream; to a new file, over an existing one, to a device.  One rewritten
// in place (a file with another hard link) measures the text through a
// second stream first.  Standard output needs neither.
TEST_F(Heap, DumpsAllocateOnlyTheirBlockAndStream)
{
    static kiv_multi_chan_cfg cfg;
    ASSERT_EQ(kiv_get_multi_chan_cfg(example("three_channel_4k.lua").c_str(), &cfg), 0);
    char dir[] = "/tmp/kiv_alloc_dir_XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    std::string path = std::string(dir) + "/out.lua", other = std::string(dir) + "/other.lua";

    for (const char *to : {path.c_str(), path.c_str(), "/dev/null"})
        EXPECT_EQ(heap_use_of([&] { kiv_dump_multi_chan_cfg(&cfg, to); }).libc, 4u) << to;
    ASSERT_EQ(link(path.c_str(), other.c_str()), 0);
    EXPECT_EQ(heap_use_of([&] { kiv_dump_multi_chan_cfg(&cfg, path.c_str()); }).libc, 6u);
    EXPECT_EQ(heap_use_of([&] { kiv_dump_multi_chan_cfg(&cfg, nullptr); }).libc, 0u);

    unlink(path.c_str());
    unlink(other.c_str());
    rmdir(dir);
}
