#include "core/run.h"

#include <atomic>
#include <inttypes.h>
#include <stdio.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <lauxlib.h>

#include "core/access.h"
#include "core/log.h"
#include "core/pool.h"

static std::atomic<size_t> g_mem_limit{KIV_LUA_MEM_LIMIT};
static std::atomic<uint64_t> g_instruction_limit{KIV_LUA_INSTRUCTION_LIMIT};
static std::atomic<uint32_t> g_time_limit_ms{KIV_LUA_TIME_LIMIT_MS};
static std::atomic<bool> g_text_only{KIV_LUA_TEXT_ONLY != 0};
static std::atomic<uint64_t> g_created{0};
static std::atomic<uint64_t> g_closed{0};
static std::atomic<uint64_t> g_heap_calls{0};

void kiv_set_run_limits(const kiv_run_limits &l)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    g_mem_limit.store(l.mem_bytes ? l.mem_bytes : KIV_LUA_MEM_LIMIT, relaxed);
    g_instruction_limit.store(l.instructions ? l.instructions : KIV_LUA_INSTRUCTION_LIMIT, relaxed);
    g_time_limit_ms.store(l.time_ms ? l.time_ms : KIV_LUA_TIME_LIMIT_MS, relaxed);
    g_text_only.store(l.text_only < 0 ? KIV_LUA_TEXT_ONLY != 0 : l.text_only != 0, relaxed);
}

kiv_run_counts kiv_get_run_counts(void)
{
    return {g_created.load(), g_closed.load(), g_heap_calls.load()};
}

namespace
{

// The hook runs every this many instructions: it counts them against the
// budget and looks at the clock.
constexpr int HOOK_PERIOD = 1000;
// The allocator looks at the clock every this many allocations (parsing
// runs no instructions, but allocates as it goes).
constexpr uint32_t ALLOCS_PER_CLOCK = 64;
// The reading looks at the clock every this many instructions' worth.
constexpr int64_t READ_PER_CLOCK = 4096;

const char INSTRUCTIONS[] = "script exceeded the instruction limit";
const char READING[] = "reading the script's tables exceeded the instruction limit";
const char TIME[] = "script exceeded the time limit";

struct run_frame {
    const char *path;
    kiv_read_fn read;
    void *ctx;
    int32_t result;
    bool script_failed;
    size_t mem_used;
    size_t mem_limit;
    size_t mem_peak;
    kiv_pool pool;      // the state's memory
    kiv_meter meter;    // instructions still allowed, reading included
    int64_t ran;        // instructions run
    int64_t deadline;   // CLOCK_MONOTONIC, in nanoseconds
    bool parsing;       // the script is being loaded, not yet run
    bool after_refusal; // the last growth was refused for memory
    uint32_t allocs_to_clock;
    // The bound the allocator stopped the run for (it can only refuse
    // memory, so Lua reports "not enough memory"): its message, or null.
    const char *refused;
    bool closing; // the state is being closed: its pooled blocks go with their slabs
    // The log of the run, written out in one piece when full and before
    // the run returns: one write instead of one per line.
    size_t log_len;
    char log[4096];
};

// The run in progress on this thread (initial-exec: one instruction to
// reach, no allocation when a thread first touches it).
__attribute__((tls_model("initial-exec"))) thread_local run_frame *t_frame = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local kiv_run_use t_last{};

int64_t now_ns()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

// The state's allocator: the C library's, refusing to grow past the memory
// limit (Lua then raises its "not enough memory" error) and, once the time
// is up, refusing to grow at all.
void *bounded_alloc(void *ud, void *ptr, size_t osize, size_t nsize)
{
    run_frame *f = static_cast<run_frame *>(ud);
    size_t old = ptr ? osize : 0;
    if (nsize == 0) {
        if (!f->closing || old > KIV_POOL_GRAIN * KIV_POOL_CLASSES)
            kiv_pool_realloc(&f->pool, ptr, old, 0);
        f->mem_used -= old;
        return nullptr;
    }
    if (nsize > old) {
        if (f->refused)
            return nullptr;
        const bool fits = nsize - old <= f->mem_limit - f->mem_used;
        // The clock is looked at while the parser runs (no hook stops it),
        // and at and after a refusal for memory: each refusal makes Lua
        // collect the whole heap and try again, so a script living at the
        // cap could otherwise outlast the time limit between two counts.  A
        // large block counts as many allocations.  While the script runs,
        // the hook stops it at the next count.
        const bool look = !fits || f->after_refusal ||
                          (f->parsing && (--f->allocs_to_clock == 0 || nsize - old >= 65536));
        f->after_refusal = !fits;
        if (look) {
            f->allocs_to_clock = ALLOCS_PER_CLOCK;
            if (now_ns() > f->deadline) {
                f->refused = TIME;
                return nullptr;
            }
        }
        if (!fits)
            return nullptr;
    }
    void *p = kiv_pool_realloc(&f->pool, ptr, old, nsize);
    if (p) {
        f->mem_used = f->mem_used - old + nsize;
        if (f->mem_used > f->mem_peak)
            f->mem_peak = f->mem_used;
    }
    return p;
}

run_frame *frame_of(lua_State *L)
{
    return *static_cast<run_frame **>(lua_getextraspace(L));
}

void count_hook(lua_State *L, lua_Debug *)
{
    run_frame *f = frame_of(L);
    f->meter.left -= HOOK_PERIOD;
    f->ran += HOOK_PERIOD;
    if (f->meter.left < 0)
        luaL_error(L, "%s", INSTRUCTIONS);
    if (now_ns() > f->deadline)
        luaL_error(L, "%s", TIME);
}

// The script file, read for the parser with a look at the clock before each
// block: a script that takes long to parse without allocating (a long
// comment) is stopped too.  Otherwise as the interpreter's own file loader:
// a UTF-8 byte order mark and a first line starting with '#' are skipped
// (the line's end kept, so that line numbers stay right), and a file that
// cannot be opened or read gives "cannot open|read PATH: REASON".
struct script_file {
    run_frame *f;
    FILE *fp;
    size_t n; // bytes in buf not yet handed over
    char buf[BUFSIZ];
};

const char *read_block(lua_State *, void *ud, size_t *size)
{
    script_file *s = static_cast<script_file *>(ud);
    if (s->n > 0) {
        *size = s->n;
        s->n = 0;
        return s->buf;
    }
    if (feof(s->fp))
        return nullptr;
    if (now_ns() > s->f->deadline) {
        s->f->refused = TIME; // the parser sees the end of the text
        return nullptr;
    }
    *size = fread(s->buf, 1, sizeof s->buf, s->fp);
    return s->buf;
}

int file_error(lua_State *L, const char *fmt, const char *path)
{
    lua_pushfstring(L, fmt, path, strerror(errno));
    return LUA_ERRFILE;
}

// The first character after a byte order mark (whose bytes, when they are
// only a prefix of one, stay in s->buf for the parser).
int skip_bom(script_file *s)
{
    const char *bom = "\xEF\xBB\xBF";
    s->n = 0;
    int c;
    do {
        c = getc(s->fp);
        if (c == EOF || c != static_cast<unsigned char>(*bom++))
            return c;
        s->buf[s->n++] = static_cast<char>(c);
    } while (*bom != '\0');
    s->n = 0;
    return getc(s->fp);
}

int load_script(lua_State *L, run_frame *f)
{
    script_file s;
    s.f = f;
    s.fp = fopen(f->path, "r");
    if (!s.fp)
        return file_error(L, "cannot open %s: %s", f->path);
    int c = skip_bom(&s);
    if (c == '#') {
        do
            c = getc(s.fp);
        while (c != EOF && c != '\n');
        c = getc(s.fp);
        s.buf[s.n++] = '\n';
    }
    if (c != EOF)
        s.buf[s.n++] = static_cast<char>(c);
    lua_pushfstring(L, "@%s", f->path);
    int rc = lua_load(L, read_block, &s, lua_tostring(L, -1),
                      g_text_only.load(std::memory_order_relaxed) ? "t" : nullptr);
    lua_remove(L, -2); // the chunk name
    int failed = ferror(s.fp);
    fclose(s.fp);
    if (failed) {
        lua_settop(L, -2);
        return file_error(L, "cannot read %s: %s", f->path);
    }
    return rc;
}

// Runs in protected mode.  Script errors are caught by the inner call and
// left as the one result; anything raised while reading ends here too.
int protected_run(lua_State *L)
{
    run_frame *f = frame_of(L);
    lua_settop(L, 0);
    f->parsing = true;
    int rc = load_script(L, f);
    f->parsing = false;
    if (rc == LUA_OK) {
        lua_sethook(L, count_hook, LUA_MASKCOUNT, HOOK_PERIOD);
        rc = lua_pcall(L, 0, 0, 0);
        lua_sethook(L, nullptr, 0, 0);
    }
    if (rc != LUA_OK) {
        f->script_failed = true;
        return 1;
    }
    lua_settop(L, 0);
    kiv_views views; // taken back by kiv_run_script, also after a Lua error
    for (kiv_table_view &v : views.at)
        v.table = nullptr;
    kiv_use_views(&views);
    f->result = f->read(L, f->ctx);
    kiv_use_views(nullptr);
    return 0;
}

// The text of an error value.  Error values that are not strings (a script
// can raise a table) have no text; a fixed placeholder names their type.
const char *error_text(lua_State *L, char *buf, size_t cap)
{
    switch (lua_type(L, -1)) {
    case LUA_TSTRING:
        return lua_tostring(L, -1);
    case LUA_TNUMBER:
        if (lua_isinteger(L, -1))
            snprintf(buf, cap, "%" PRId64, static_cast<int64_t>(lua_tointeger(L, -1)));
        else
            snprintf(buf, cap, "%.14g", lua_tonumber(L, -1));
        return buf;
    default:
        snprintf(buf, cap, "(error object is a %s value)", luaL_typename(L, -1));
        return buf;
    }
}

} // namespace

__attribute__((tls_model("initial-exec"))) thread_local kiv_meter *kiv_t_meter = nullptr;

void kiv_meter_check(lua_State *L)
{
    kiv_meter *m = kiv_t_meter;
    if (m->left < 0)
        luaL_error(L, "%s", READING);
    m->to_clock = READ_PER_CLOCK;
    if (now_ns() > t_frame->deadline)
        luaL_error(L, "%s", TIME);
}

static void flush_log(run_frame *f)
{
    if (f->log_len)
        fwrite(f->log, 1, f->log_len, stdout);
    f->log_len = 0;
}

bool kiv_run_log(const char *text, size_t n)
{
    run_frame *f = t_frame;
    if (!f)
        return false;
    if (n > sizeof f->log - f->log_len) {
        flush_log(f);
        if (n > sizeof f->log) {
            fwrite(text, 1, n, stdout);
            return true;
        }
    }
    memcpy(f->log + f->log_len, text, n);
    f->log_len += n;
    return true;
}

void kiv_run_spend_log(void)
{
    if (kiv_meter *m = kiv_t_meter) {
        m->left -= KIV_LOG_COST;
        m->read_units += KIV_LOG_COST;
    }
}

kiv_run_use kiv_last_run_use(void)
{
    return t_last;
}

int32_t kiv_run_script(const char *fn, const char *path, kiv_read_fn read, void *ctx,
                       int32_t no_state, int32_t failed)
{
    int64_t start = now_ns();
    run_frame f{};
    f.path = path;
    f.read = read;
    f.ctx = ctx;
    f.mem_limit = g_mem_limit.load(std::memory_order_relaxed);
    const uint64_t instructions = g_instruction_limit.load(std::memory_order_relaxed);
    f.meter.left = instructions < INT64_MAX ? static_cast<int64_t>(instructions) : INT64_MAX;
    f.meter.to_clock = READ_PER_CLOCK;
    const uint32_t ms = g_time_limit_ms.load(std::memory_order_relaxed);
    f.deadline = ms ? start + static_cast<int64_t>(ms) * 1000000 : INT64_MAX; // 0: no limit
    f.allocs_to_clock = ALLOCS_PER_CLOCK;
    // The slabs may hold twice the bound: only a script that fragments its
    // memory across block sizes that far is refused before the bound.
    kiv_pool_init(&f.pool, 2 * f.mem_limit + (1u << 20));

    lua_State *L = lua_newstate(bounded_alloc, &f);
    if (!L) {
        kiv_pool_release(&f.pool);
        g_heap_calls.fetch_add(f.pool.heap_calls, std::memory_order_relaxed);
        KIV_ERR_AT(326, fn, "fail to alloc Lua state.\n");
        return no_state;
    }
    g_created.fetch_add(1, std::memory_order_relaxed);
    *static_cast<run_frame **>(lua_getextraspace(L)) = &f;
    t_frame = &f;
    kiv_t_meter = &f.meter;

    lua_pushcfunction(L, protected_run);
    int rc = lua_pcall(L, 0, 1, 0);
    kiv_use_views(nullptr);
    flush_log(&f);
    t_frame = nullptr;
    kiv_t_meter = nullptr;
    int32_t result = f.result;
    if (rc != LUA_OK || f.script_failed) {
        char buf[64];
        KIV_ERR_AT(339, fn, "lua error msg is %s.\n",
                   f.refused ? f.refused : error_text(L, buf, sizeof buf));
        result = failed;
    }
    f.closing = true;
    lua_close(L);
    kiv_pool_release(&f.pool);
    g_closed.fetch_add(1, std::memory_order_relaxed);
    g_heap_calls.fetch_add(f.pool.heap_calls, std::memory_order_relaxed);
    t_last = {static_cast<uint64_t>(f.ran), static_cast<uint64_t>(f.meter.read_units), f.mem_peak,
              static_cast<uint64_t>(now_ns() - start)};
    return result;
}
