// The loader's frame around the section parsers, the bounds every script
// runs within, and the state's allocator.  What the loader logs and stores
// for each kind of script is in tests/cases/loader.lua.
#include "kiv_test.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <sys/mman.h>
#include <ucontext.h>
#include <unistd.h>
#include <vector>

#include <lauxlib.h>
#include <lualib.h>

#include "core/log.h"
#include "core/pool.h"
#include "core/run.h"

using namespace kivtest;

namespace
{

using Loader = Settings;
using Bounds = Settings;

// A record that holds something everywhere, to see what a load resets.
kiv_multi_chan_cfg dirty_record()
{
    kiv_multi_chan_cfg cfg;
    memset(&cfg, 0x5a, sizeof cfg);
    return cfg;
}

const std::string LOADER = "kiv_get_multi_chan_cfg";

int32_t read_nothing(lua_State *, void *)
{
    return 0;
}

} // namespace

// What no script can ask for: null arguments and paths that cannot be
// opened (the record is left as it was; a dump goes to standard output
// instead), and the dump of a fresh record, whose lists are empty.
TEST_F(Loader, CallsWithBadArguments)
{
    kiv_multi_chan_cfg cfg = dirty_record(), empty = fresh();
    const kiv_multi_chan_cfg before = cfg;
    const std::string null_param = err(LOADER, "the 1st or 2nd param is NULL\n");
    const std::string text = "_resource_config_ = {\n\tversion = 1,\n\tlog_level = 1,\n"
                             "\tenable_hp_fps = 0,\n\tvin_short_line_detect = 0,\n\tchannels = "
                             "{\n\t},\n\tcanvas = {\n\t},\n\tstreams = {\n\t},\n}\n\nreturn "
                             "_resource_config_\n";
    EXPECT_EQ(dump(empty), text);
    const struct {
        std::function<int32_t()> call;
        int32_t ret;
        std::string log;
    } cases[] = {
        {[] { return kiv_init(nullptr); }, -1, err("kiv_init", "the 1st is NULL\n")},
        {[&] { return kiv_get_multi_chan_cfg(nullptr, &cfg); }, -1, null_param},
        {[] { return kiv_get_multi_chan_cfg("x.lua", nullptr); }, -1, null_param},
        {[&] { return kiv_get_multi_chan_cfg("/nonexistent/d/cfg.lua", &cfg); }, -2,
         err(LOADER, "lua error msg is cannot open /nonexistent/d/cfg.lua: No such file or "
                     "directory.\n")},
        {[] { return kiv_dump_multi_chan_cfg(nullptr, "x"); }, -1,
         err("kiv_dump_multi_chan_cfg", "the 1st param is NULL\n")},
        {[&] { return kiv_dump_multi_chan_cfg(&empty, nullptr); }, 0, text},
        {[&] { return kiv_dump_multi_chan_cfg(&empty, "/nonexistent/dir/x.lua"); }, 0,
         err("kiv_dump_multi_chan_cfg",
             "Open file [/nonexistent/dir/x.lua] error, output to console\n") +
             text},
    };
    for (const auto &c : cases)
        EXPECT_EQ(masked([&] { EXPECT_EQ(c.call(), c.ret) << c.log; }), c.log);
    EXPECT_EQ(memcmp(&cfg, &before, sizeof cfg), 0);
}

// Every exit of the loader closes the script's state exactly once.  A
// failure before the script has run leaves the record untouched; any later
// one finds it reset as kiv_init leaves it (ids of channels 0xFF, of
// canvases and their buffers' bindings -1, all else 0), and what was read
// before the failure stored.
TEST_F(Loader, StateIsClosedOnEveryPath)
{
    kiv_multi_chan_cfg init;
    memset(&init, 0, sizeof init);
    for (auto &chan : init.channels) {
        chan.id = 0xFF;
        for (auto &pass : chan.src_buf)
            for (auto &buf : pass)
                buf.canvas_id = -1;
    }
    for (auto &canvas : init.canvas)
        canvas.id = -1;
    const kiv_multi_chan_cfg dirty = dirty_record();
    const std::string top = "_resource_config_ = { version = 1, ";
    const struct {
        std::string text;
        const kiv_multi_chan_cfg *left; // none: something was read
    } cases[] = {
        {"_resource_config_ = { version = 1 ", &dirty},
        {"print('hello')", &dirty},
        {"x = nil + 1", &dirty},
        {"other = {}", &init},
        {"_resource_config_ = { log_level = 3 }", &init},
        {"_resource_config_ = { version = 2 }", nullptr},
        {top + "channels = {} }", nullptr},
        {read_file(example("single_1080p.lua")), nullptr},
    };
    for (const auto &c : cases) {
        kiv_multi_chan_cfg cfg = dirty;
        kiv_run_counts before = kiv_get_run_counts();
        load(c.text, &cfg);
        kiv_run_counts after = kiv_get_run_counts();
        EXPECT_EQ(after.created - before.created, 1u) << c.text;
        EXPECT_EQ(after.closed - before.closed, 1u) << c.text;
        if (c.left)
            EXPECT_EQ(memcmp(&cfg, c.left, sizeof cfg), 0) << c.text;
        else
            EXPECT_EQ(vals({cfg.channels[2].id, cfg.canvas[11].id}), vals({0xFF, -1})) << c.text;
    }
    kiv_multi_chan_cfg cfg = dirty;
    EXPECT_EQ(kiv_init(&cfg), 0);
    EXPECT_EQ(memcmp(&cfg, &init, sizeof cfg), 0);
}

// Scripts made to keep the library busy as long as they can, those made by
// a program or kept as found by the fuzzer (tests/cases/hostile.lua has the
// others): each ends with the message of the bound made for it.
TEST_F(Bounds, EveryHostileScriptEndsAtItsBound)
{
    // 10 MB of table constructors nested 150 deep.
    std::string nested = "local t = {\n";
    while (nested.size() < 10'000'000)
        nested += std::string(150, '{') + std::string(150, '}') + ",\n";
    const struct {
        std::string text, message;
        uint32_t time_ms;
    } cases[] = {
        {nested + "}\n", "not enough memory", UINT32_MAX},
        // A recursion that builds tables keeps the collector walking a deep
        // stack until the memory cap, a second at least: the stack it grows
        // finds no room once the slabs of its tables fill the cap.
        {read_file(KIV_SOURCE_DIR "/fuzz/regressions/deep-recursion-slow-gc.lua"),
         "not enough memory", UINT32_MAX},
    };
    kiv_multi_chan_cfg cfg;
    for (const auto &c : cases) {
        kiv_set_run_limits({.time_ms = c.time_ms});
        auto r = load(c.text, &cfg);
        EXPECT_EQ(r.ret, -2);
        std::string line = only(r.log, {"lua error msg is "});
        EXPECT_NE(line.find(c.message + ".\n"), std::string::npos) << line;
    }
}

// How a run ends where no script can show it: the time limit holds while a
// script is parsed and while its tables are read, and so does the
// instruction budget.  Precompiled chunks load unless text only is asked
// for; an error value without text is named by its type.
TEST_F(Bounds, RunEndsWithTheMessageOfWhatStoppedIt)
{
    lua_State *L = luaL_newstate();
    luaL_openlibs(L);
    ASSERT_EQ(luaL_dostring(L, "return string.dump(load('x = 1'))"), LUA_OK);
    const std::string chunk(lua_tostring(L, -1), lua_rawlen(L, -1));
    lua_close(L);
    auto spend_forever = [](lua_State *S, void *) -> int32_t {
        for (;;)
            kiv_run_spend(S, 1);
    };
    auto raise_table = [](lua_State *S, void *) -> int32_t {
        lua_newtable(S);
        return lua_error(S);
    };
    const std::string TIME = "script exceeded the time limit";
    const struct {
        std::string text;
        kiv_read_fn read;
        kiv_run_limits limits;
        std::string message; // of "lua error msg is ..."; none: the run succeeds
    } cases[] = {
        {"--[[" + std::string(8 << 20, 'x') + "]]",
         read_nothing,
         {.instructions = UINT64_MAX, .time_ms = 2},
         TIME},
        {"x = 1", spend_forever, {.instructions = UINT64_MAX, .time_ms = 20}, TIME},
        {"x = 1",
         spend_forever,
         {.instructions = 1000},
         "reading the script's tables exceeded the instruction limit"},
        {"x = 1", raise_table, {}, "(error object is a table value)"},
        {chunk, read_nothing, {}, ""},
        {chunk, read_nothing, {.text_only = 1}, "attempt to load a binary chunk (mode is 't')"},
        // A first line starting with '#' is skipped, its end kept for the
        // line numbers, and it is charged and bounded like any text.
        {"#!/bin/kiv\nx = = 1", read_nothing, {}, "PATH:2: unexpected symbol near '='"},
        {"#" + std::string(8 << 20, 'x'),
         read_nothing,
         {.instructions = 1000000},
         "script exceeded the instruction limit"},
        {"\xEF\xBB\xBF#" + std::string(8 << 20, 'x') + "\nx = 1", read_nothing, {}, ""},
    };
    for (const auto &c : cases) {
        kiv_set_run_limits(c.limits);
        std::string path = script(c.text);
        int32_t ret = 0;
        std::string log =
            masked([&] { ret = kiv_run_script("run", path.c_str(), c.read, nullptr, -5, -7); });
        std::string message = c.message;
        if (message.starts_with("PATH"))
            message.replace(0, 4, path);
        EXPECT_EQ(ret, c.message.empty() ? 0 : -7) << c.message;
        EXPECT_EQ(log, c.message.empty() ? "" : err("run", "lua error msg is " + message + ".\n"));
    }
    // A first line without end, 2 GiB of a file that takes no disk: read to
    // the instruction limit and no further.
    kiv_set_run_limits({});
    const std::string sparse = script("#");
    ASSERT_EQ(truncate(sparse.c_str(), off_t{2} << 30), 0);
    int32_t ret = 0;
    std::string log =
        masked([&] { ret = kiv_run_script("run", sparse.c_str(), read_nothing, nullptr, -5, -7); });
    EXPECT_EQ(ret, -7);
    EXPECT_EQ(log, err("run", "lua error msg is script exceeded the instruction limit.\n"));
    EXPECT_LE(kiv_last_run_use().source_bytes,
              uint64_t{KIV_LUA_INSTRUCTION_LIMIT} * KIV_SOURCE_BYTES_PER_UNIT + BUFSIZ);
}

// A state so small that the reading step itself cannot allocate its key
// strings: the Lua error is caught and reported like a failing script.
TEST_F(Bounds, ReadingStepRunsOutOfMemoryCleanly)
{
    kiv_multi_chan_cfg cfg;
    std::string path = script("_resource_config_ = { version = 1 }");
    int failures = 0;
    for (size_t limit = 2048; limit < 16384; limit += 256) {
        kiv_set_run_limits({.mem_bytes = limit});
        int32_t ret = 0;
        std::string log = masked([&] { ret = kiv_get_multi_chan_cfg(path.c_str(), &cfg); });
        if (ret != 0) {
            ++failures;
            EXPECT_EQ(ret, -2) << limit;
            EXPECT_NE(log.find(err(LOADER, "")), std::string::npos);
        }
    }
    EXPECT_GT(failures, 0);
}

// The state's allocator: contents survive every move between classes and
// to and from the C library, freed blocks are reused, the limit holds,
// and a block that shrinks always finds a place.
TEST(Pool, MovesReuseAndLimits)
{
    kiv_pool p;
    kiv_pool_init(&p, 64 * 1024);
    char *b = static_cast<char *>(kiv_pool_realloc(&p, nullptr, 0, 5));
    memcpy(b, "abcde", 5);
    size_t held = 5;
    for (size_t n : {1, 16, 17, 100, 512, 513, 4000, 8192, 8193, 20000, 1024, 300, 48, 2}) {
        b = static_cast<char *>(kiv_pool_realloc(&p, b, held, n));
        ASSERT_NE(b, nullptr) << n;
        EXPECT_EQ(memcmp(b, "abcde", std::min<size_t>({n, held, 5})), 0) << n;
        if (n >= 5)
            memcpy(b, "abcde", 5);
        held = n;
    }
    kiv_pool_realloc(&p, b, held, 0);
    void *x = kiv_pool_realloc(&p, nullptr, 0, 40);
    kiv_pool_realloc(&p, x, 40, 0);
    EXPECT_EQ(kiv_pool_realloc(&p, nullptr, 0, 33), x); // the same class: the freed block
    // Past the slab limit: no new block, but a shrink still finds a place.
    std::vector<void *> blocks;
    while (void *q = kiv_pool_realloc(&p, nullptr, 0, 512))
        blocks.push_back(q);
    EXPECT_LE(blocks.size() * 512, 64u * 1024);
    EXPECT_NE(kiv_pool_realloc(&p, blocks.back(), 512, 16), nullptr);
    kiv_pool_release(&p);

    // The limit is on what the pool holds, its slabs and the larger blocks:
    // blocks of one class that were freed stay in their slabs and leave no
    // room for the slabs of another class, nor for a larger block.
    kiv_pool q;
    kiv_pool_init(&q, 1 << 20);
    blocks.clear();
    while (void *b32 = kiv_pool_realloc(&q, nullptr, 0, 32))
        blocks.push_back(b32);
    EXPECT_GT(blocks.size() * 32, 900u * 1024);
    for (void *b32 : blocks)
        kiv_pool_realloc(&q, b32, 32, 0);
    EXPECT_EQ(kiv_pool_realloc(&q, nullptr, 0, 64), nullptr);
    EXPECT_EQ(kiv_pool_realloc(&q, nullptr, 0, 100000), nullptr);
    EXPECT_NE(kiv_pool_realloc(&q, nullptr, 0, 20), nullptr); // a freed block of its class
    EXPECT_LE(kiv_pool_held(&q), 1u << 20);
    kiv_pool_release(&q);
}

// A pool given the caller's memory as its first slab carves blocks of every
// pooled class from it before it asks the C library, and leaves it alone
// when released; the next slab comes from the C library.
TEST(Pool, CallersFirstSlab)
{
    alignas(16) static char mine[16384];
    kiv_pool p;
    kiv_pool_init(&p, 1 << 20, mine, sizeof mine);
    std::vector<std::pair<void *, size_t>> blocks;
    for (size_t n : {24, 600, 1500, 3000, 7000})
        blocks.push_back({kiv_pool_realloc(&p, nullptr, 0, n), n});
    for (auto [b, n] : blocks) {
        EXPECT_GE(static_cast<char *>(b), mine) << n;
        EXPECT_LE(static_cast<char *>(b) + n, mine + sizeof mine) << n;
    }
    EXPECT_EQ(p.heap_calls, 0u);
    void *more = kiv_pool_realloc(&p, nullptr, 0, 8000);
    ASSERT_NE(more, nullptr);
    EXPECT_EQ(p.heap_calls, 1u);
    kiv_pool_release(&p);
    EXPECT_EQ(p.heap_calls, 2u); // the C library's slab, not the caller's
}

namespace
{

// The stack a thread of its own needs to load any script: the deepest
// nesting of every shape the parser accepts (each level of a nested block,
// function, constructor or expression takes a few hundred bytes of the
// parser's stack, up to its limit of 200 levels).  docs/robustness.md states
// it for callers.
constexpr size_t LOAD_STACK = 128 * 1024;

struct nest {
    const char *name, *head, *open, *middle, *close;
    int deepest; // the most levels the parser accepts
};
const nest NESTS[] = {
    {"function statements", "", "function f() ", "", " end", 199},
    {"local functions", "", "local function f() ", "", " end", 199},
    {"methods", "", "function a.b:c() ", "", " end", 199},
    {"function expressions", "", "x = function() ", "", " end", 99},
    {"functions with loops", "", "local function f() for i = 1, 2 do ", "", " end end", 99},
    {"numeric loops", "", "for i = 1, 2 do ", "", " end", 50},
    {"while loops", "", "while x do ", "", " end", 198},
    {"if blocks", "", "if x then ", "", " end", 198},
    {"repeat loops", "", "repeat ", "", " until x", 198},
    {"do blocks", "", "do ", "", " end", 199},
    {"constructors", "x = ", "{", "", "}", 198},
    {"fields", "x = ", "{a = ", "1", "}", 197},
    {"calls", "x = ", "f(", "1", ")", 197},
    {"method calls", "x = ", "a:m(", "1", ")", 126},
    {"parentheses", "x = ", "(", "1", ")", 197},
    {"indexing", "x = ", "a[", "1", "]", 197},
    {"operators", "x = ", "- ", "1", "", 197},
    {"assignment lists", "", "a, ", "a = 1", "", 198},
};

std::string nested(const nest &n, int depth)
{
    std::string s = n.head;
    for (int i = 0; i < depth; ++i)
        s += n.open;
    s += n.middle;
    for (int i = 0; i < depth; ++i)
        s += n.close;
    return s + "\n";
}

// A painted stack of `size` bytes with a guard page below it: loads run on
// it one at a time, and each tells how much of it the load used.
class painted_stack
{
  public:
    explicit painted_stack(size_t size) : size_(size)
    {
        mem_ = static_cast<char *>(mmap(nullptr, size_ + page_, PROT_READ | PROT_WRITE,
                                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (mem_ == MAP_FAILED || mprotect(mem_, page_, PROT_NONE) != 0)
            mem_ = nullptr;
    }
    ~painted_stack()
    {
        if (mem_)
            munmap(mem_, size_ + page_);
    }
    painted_stack(const painted_stack &) = delete;
    painted_stack &operator=(const painted_stack &) = delete;
    bool ok() const { return mem_ != nullptr; }

    // Loads `path` on the stack; the bytes of it the load used.
    size_t load(const std::string &path, load_result *got)
    {
        static const std::string *s_path;
        static load_result *s_got;
        static ucontext_t caller, callee;
        s_path = &path;
        s_got = got;
        memset(mem_ + page_, 0xA5, size_);
        getcontext(&callee);
        callee.uc_stack.ss_sp = mem_ + page_;
        callee.uc_stack.ss_size = size_;
        callee.uc_link = &caller;
        makecontext(
            &callee,
            [] {
                kiv_multi_chan_cfg cfg;
                s_got->log =
                    masked([&] { s_got->ret = kiv_get_multi_chan_cfg(s_path->c_str(), &cfg); });
            },
            0);
        swapcontext(&caller, &callee);
        size_t untouched = 0;
        while (untouched < size_ && mem_[page_ + untouched] == static_cast<char>(0xA5))
            ++untouched;
        return size_ - untouched;
    }

  private:
    size_t size_;
    size_t page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    char *mem_;
};

} // namespace

// Every shape at its deepest, and one level deeper (refused by the parser),
// loads on a stack of LOAD_STACK with a guard page below it; the part of the
// painted stack each used is printed, the figures of the docs.
TEST_F(Bounds, DeepestNestingLoadsOnTheStatedStack)
{
#if defined(KIV_ASAN)
    GTEST_SKIP() << "AddressSanitizer's stack frames are several times larger";
#endif
    painted_stack stack(LOAD_STACK);
    ASSERT_TRUE(stack.ok());
    size_t most = 0;
    for (const nest &n : NESTS) {
        for (int depth : {n.deepest, n.deepest + 1}) {
            load_result got;
            const size_t used = stack.load(script(nested(n, depth)), &got);
            most = std::max(most, used);
            const bool refused = got.log.find("too many") != std::string::npos;
            EXPECT_EQ(refused, depth > n.deepest) << n.name << " " << depth << ": " << got.log;
            printf("%-22s %3d levels: %5.1f KiB\n", n.name, depth, used / 1024.0);
        }
    }
    printf("most: %.1f KiB of %zu KiB\n", most / 1024.0, LOAD_STACK / 1024);
}

// Scripts written without deep nesting load on a 32 KiB thread stack (the
// docs promise it): every shipped multi-channel example, and the benchmark's
// deployed configuration, at the log level that prints the most.
TEST_F(Bounds, OrdinaryScriptsLoadOnA32KiBStack)
{
#if defined(KIV_ASAN)
    GTEST_SKIP() << "AddressSanitizer's stack frames are several times larger";
#endif
    painted_stack stack(32 * 1024);
    ASSERT_TRUE(stack.ok());
    kiv_set_log_level(3);
    for (const char *name :
         {"/examples/single_1080p.lua", "/examples/three_channel_4k.lua",
          "/examples/two_channel_encode_preview.lua", "/examples/hdr_virtual_mode.lua",
          "/bench/deployed_three_channel.lua"}) {
        load_result got;
        const size_t used = stack.load(KIV_SOURCE_DIR + std::string(name), &got);
        EXPECT_EQ(got.ret, 0) << name << ": " << got.log;
        printf("%-40s %5.1f KiB\n", name, used / 1024.0);
    }
    kiv_set_log_level(1);
}
