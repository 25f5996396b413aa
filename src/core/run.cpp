#include "core/run.h"

#include <atomic>
#include <utility>
#include <inttypes.h>
#include <stdio.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <fcntl.h>
#include <unistd.h>

#include <lauxlib.h>

#include "core/access.h"
#include "core/log.h"
#include "core/pool.h"

static std::atomic<size_t> g_mem_limit{KIV_LUA_MEM_LIMIT};
static std::atomic<uint64_t> g_instruction_limit{KIV_LUA_INSTRUCTION_LIMIT};
static std::atomic<uint32_t> g_time_limit_ms{KIV_LUA_TIME_LIMIT_MS};
static std::atomic<size_t> g_string_limit{KIV_LUA_STRING_LIMIT};
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
    g_string_limit.store(l.string_bytes ? l.string_bytes : KIV_LUA_STRING_LIMIT, relaxed);
    g_text_only.store(l.text_only < 0 ? KIV_LUA_TEXT_ONLY != 0 : l.text_only != 0, relaxed);
}

void kiv_set_text_only(bool text_only)
{
    g_text_only.store(text_only, std::memory_order_relaxed);
}

uint64_t kiv_source_limit(void)
{
    const uint64_t instructions = g_instruction_limit.load(std::memory_order_relaxed);
    return instructions < UINT64_MAX / KIV_SOURCE_BYTES_PER_UNIT
               ? instructions * KIV_SOURCE_BYTES_PER_UNIT
               : UINT64_MAX;
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
// Once the script has made a string longer than this, one instruction may
// cost far more than the usual few nanoseconds (converting or comparing such
// a string scans it), so the hook then runs every SHORT_PERIOD instructions
// and the clock is looked at as often in time as before.  No configuration
// has strings that long.
constexpr size_t LONG_STRING = 4096;
constexpr int SHORT_PERIOD = 16;
// One instruction may also walk a whole table or stack: the length of a
// table whose hash part holds a chain of integer keys up to the largest
// integer scans every element from 1, a table that rehashes counts every
// element, a call or a constructor with a million values moves them all.
// What one instruction can cost grows with the largest block the state has
// held, so once a block larger than LARGE_BLOCK has been made, the hook runs
// every HOOK_PERIOD * LARGE_BLOCK / size instructions (at least every one),
// and the reading looks at the clock as much more often: between two looks
// there is never more work than HOOK_PERIOD walks of a LARGE_BLOCK table
// (about 10 ms here).  The largest configurations (a calibration of 100,000
// pairs, whose parser tables reach a few MiB) run their few instructions
// with the hook a few dozen times as often, which costs them well under a
// millisecond.
constexpr size_t LARGE_BLOCK = 256 * 1024;
// The allocator looks at the clock every this many allocations while the
// parser runs (it runs no instructions, but allocates as it goes).
constexpr uint32_t ALLOCS_PER_CLOCK = 64;
// The reading looks at the clock every this many instructions' worth.
constexpr int64_t READ_PER_CLOCK = 4096;
// The thread's CPU clock is a system call, the monotonic clock is not.  The
// CPU time spent since the CPU clock was last read is at most the wall-clock
// time passed since, so the CPU clock is read only when that could put the
// run past its limit, and then at most once a millisecond.
constexpr int64_t CPU_READ_GAP_NS = 1000000;
// A run shorter than this never reads the CPU clock (two system calls, a
// microsecond or two, against loads of a few tens of microseconds).
constexpr int64_t CPU_BASE_NS = 2000000;

const char INSTRUCTIONS[] = "script exceeded the instruction limit";
const char READING[] = "reading the script's tables exceeded the instruction limit";
const char TIME[] = "script exceeded the time limit";
const char STRING[] = "script exceeded the string length limit";

enum class stage : uint8_t { parsing, running, reading, closing };

struct run_frame {
    const char *fn;   // the function the run's messages are reported under
    const char *path; // the file, or the name of the text
    const char *text; // the script itself when given as text (then not read from path)
    size_t text_len;
    kiv_read_fn read;
    void *ctx;
    lua_State *L;
    int32_t result;
    bool script_failed;
    stage at;
    size_t mem_used;
    size_t mem_limit;
    size_t mem_peak;
    size_t string_limit;
    kiv_pool pool;   // the state's memory
    kiv_meter meter; // instructions still allowed, everything else included
    int64_t ran;     // instructions run
    int period;      // of the count hook
    size_t largest;  // the largest block the state has held
    uint64_t allocated;
    size_t alloc_carry; // allocated, not yet charged
    uint64_t source_bytes;
    uint32_t allocs_to_clock;
    // The time backstop, in nanoseconds: the CPU time the run may spend
    // (INT64_MAX: no limit), the thread's CPU clock and the monotonic clock
    // when the CPU clock was first read (cpu_base -1: not yet), the CPU
    // time spent since then at the last reading and the monotonic clock at
    // that reading.
    int64_t wall_start;
    int64_t cpu_limit;
    int64_t cpu_base;
    int64_t wall_base;
    int64_t cpu_spent;
    int64_t wall_seen;
    uint32_t slowness; // thousandths; 0: not measured
    // The bound the allocator stopped the run for (it can only refuse
    // memory, so Lua reports "not enough memory"): its message, or null.
    const char *refused;
    // The log of the run, written out in one piece when full and before
    // the run returns: one write instead of one per line.
    kiv_log_buf log;
};

// The run in progress on this thread (initial-exec: one instruction to
// reach, no allocation when a thread first touches it).
__attribute__((tls_model("initial-exec"))) thread_local run_frame *t_frame = nullptr;
__attribute__((tls_model("initial-exec"))) thread_local kiv_run_use t_last{};

int64_t clock_ns(clockid_t id)
{
    timespec ts;
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

int64_t now_ns()
{
    return clock_ns(CLOCK_MONOTONIC);
}

int64_t cpu_ns()
{
    return clock_ns(CLOCK_THREAD_CPUTIME_ID);
}

// The reference work: a loop that makes small tables, which exercises the
// interpreter, its allocator and its collector as a configuration script
// does.  It is run three times in a state of its own and the fastest run
// counts (the first pays for cold caches and fresh pages).  Its median on
// the machine the time limit was measured on is REFERENCE_NS of CPU time
// (docs/robustness.md); a core that takes longer gets a limit stretched in
// proportion.
const char REFERENCE[] = "local t = {} for i = 1, 5000 do t[i % 256 + 1] = {i, i} end";
constexpr int64_t REFERENCE_NS = 1050000;
constexpr int REFERENCE_RUNS = 3;

void *plain_alloc(void *, void *ptr, size_t, size_t nsize)
{
    if (nsize == 0) {
        free(ptr);
        return nullptr;
    }
    return realloc(ptr, nsize);
}

// The CPU time the reference work takes on this thread now (0: it could
// not be run).
int64_t reference_ns()
{
    lua_State *R = lua_newstate(plain_alloc, nullptr);
    if (!R)
        return 0;
    int64_t best = 0;
    if (luaL_loadbufferx(R, REFERENCE, sizeof REFERENCE - 1, "=reference", "t") == LUA_OK) {
        for (int i = 0; i < REFERENCE_RUNS; ++i) {
            lua_pushvalue(R, -1);
            const int64_t t0 = cpu_ns();
            if (lua_pcall(R, 0, 0, 0) != LUA_OK)
                break;
            const int64_t t = cpu_ns() - t0;
            best = i == 0 || t < best ? t : best;
        }
    }
    lua_close(R);
    return best;
}

// Whether the run is past its time limit.  The thread's CPU clock is read
// from the first look after CPU_BASE_NS of wall-clock time on (a run that
// ends sooner never reads it); what the run spent before that is given to
// it.  The first time the run seems to be past its limit, the limit is
// stretched by the slowness of this core, measured now: a run on a slow or
// emulated core gets the time it needs there, and a run on a core that
// other work slows down gets the slowdown back.  The measurement itself is
// not charged to the script.
bool out_of_time(run_frame *f)
{
    if (f->cpu_limit == INT64_MAX)
        return false;
    const int64_t wall = now_ns();
    if (f->cpu_base < 0) {
        if (wall - f->wall_start >= CPU_BASE_NS) {
            f->cpu_base = cpu_ns();
            f->wall_base = f->wall_seen = wall;
        }
        return false;
    }
    const int64_t gap = wall - f->wall_seen;
    if (gap < CPU_READ_GAP_NS || f->cpu_spent + gap <= f->cpu_limit)
        return false;
    f->wall_seen = wall;
    f->cpu_spent = cpu_ns() - f->cpu_base;
    if (f->cpu_spent <= f->cpu_limit)
        return false;
    if (f->slowness != 0)
        return true;
    const int64_t t0 = cpu_ns();
    const int64_t ref = reference_ns();
    const int64_t measuring = cpu_ns() - t0;
    const double slowness = ref > REFERENCE_NS ? static_cast<double>(ref) / REFERENCE_NS : 1.0;
    f->slowness = slowness < 4e6 ? static_cast<uint32_t>(slowness * 1000) : 4000000000u;
    const double stretched = static_cast<double>(f->cpu_limit) * slowness + measuring;
    f->cpu_limit = stretched < 9e18 ? static_cast<int64_t>(stretched) : INT64_MAX - 1;
    f->wall_seen = now_ns();
    f->cpu_spent = cpu_ns() - f->cpu_base;
    return f->cpu_spent > f->cpu_limit;
}

// Charges `units` to the run's budget without raising: the allocator may
// not, so the hook, the reading or the parser's next block does.
void charge(run_frame *f, int64_t units)
{
    f->meter.left -= units;
    f->meter.read_units += units;
}

// From the first string longer than LONG_STRING, and from the first block
// larger than LARGE_BLOCK, on, the hook runs more often.
void frame_hook(lua_State *L, lua_Debug *);

void shorten_period(run_frame *f, int period)
{
    if (f->period <= period)
        return;
    f->period = period;
    if (f->at == stage::running)
        lua_sethook(f->L, frame_hook, LUA_MASKCOUNT, period);
}

void large_block(run_frame *f, size_t size)
{
    f->largest = size;
    const size_t period = HOOK_PERIOD * LARGE_BLOCK / size;
    shorten_period(f, period > 0 ? static_cast<int>(period) : 1);
    const int64_t clock =
        READ_PER_CLOCK * static_cast<int64_t>(LARGE_BLOCK) / static_cast<int64_t>(size);
    f->meter.clock_every = clock > 0 ? clock : 1;
    if (f->meter.to_clock > f->meter.clock_every)
        f->meter.to_clock = f->meter.clock_every;
}

// The state's allocator: the pool, refusing to grow past the memory limit
// (Lua then raises its "not enough memory" error), refusing strings longer
// than the string limit, and charging what it allocates to the budget.  It
// refuses to grow at all once it has stopped the run for a bound, or while
// the parser runs (no hook stops it) once the budget or the time is spent.
void *bounded_alloc(void *ud, void *ptr, size_t osize, size_t nsize)
{
    run_frame *f = static_cast<run_frame *>(ud);
    size_t old = ptr ? osize : 0;
    if (nsize == 0) {
        if (f->at != stage::closing || old > KIV_POOL_MAX)
            kiv_pool_realloc(&f->pool, ptr, old, 0);
        f->mem_used -= old;
        return nullptr;
    }
    if (nsize > old) {
        if (f->refused)
            return nullptr;
        // A new object's osize is its type: a string's size is its length
        // and a header.
        if (!ptr && osize == LUA_TSTRING) {
            if (nsize > f->string_limit) {
                f->refused = STRING;
                return nullptr;
            }
            if (nsize > LONG_STRING)
                shorten_period(f, SHORT_PERIOD);
        }
        if (nsize > f->largest && nsize > LARGE_BLOCK)
            large_block(f, nsize);
        const size_t grow = nsize - old;
        f->allocated += grow;
        f->alloc_carry += grow;
        if (f->alloc_carry >= KIV_ALLOC_BYTES_PER_UNIT) {
            charge(f, static_cast<int64_t>(f->alloc_carry / KIV_ALLOC_BYTES_PER_UNIT));
            f->alloc_carry %= KIV_ALLOC_BYTES_PER_UNIT;
        }
        if (f->at == stage::parsing) {
            if (f->meter.left < 0) {
                f->refused = INSTRUCTIONS;
                return nullptr;
            }
            if (--f->allocs_to_clock == 0 || grow >= 65536) {
                f->allocs_to_clock = ALLOCS_PER_CLOCK;
                if (out_of_time(f)) {
                    f->refused = TIME;
                    return nullptr;
                }
            }
        }
    }
    void *p = kiv_pool_realloc(&f->pool, ptr, old, nsize);
    if (!p) {
        // Past the memory limit (the pool refuses to hold more): Lua
        // collects the whole heap before it tries again, and goes on when
        // that freed enough, so a script living at the bound makes it
        // collect again and again.  Each collection is charged as the
        // allocation of everything it walks.
        if (nsize > old)
            charge(f, static_cast<int64_t>(f->mem_used / KIV_ALLOC_BYTES_PER_UNIT));
    } else {
        f->mem_used = f->mem_used - old + nsize;
        if (kiv_pool_held(&f->pool) > f->mem_peak)
            f->mem_peak = kiv_pool_held(&f->pool);
        // A table the script makes: a watcher may want to know where.
        if (!ptr && osize == LUA_TTABLE && f->at == stage::running)
            if (const kiv_watcher *w = kiv_get_watcher(); w && w->made_table)
                w->made_table(w->ctx, f->L, p);
    }
    return p;
}

run_frame *frame_of(lua_State *L)
{
    return *static_cast<run_frame **>(lua_getextraspace(L));
}

void frame_hook(lua_State *L, lua_Debug *)
{
    run_frame *f = frame_of(L);
    f->meter.left -= f->period;
    f->ran += f->period;
    if (f->meter.left < 0)
        luaL_error(L, "%s", INSTRUCTIONS);
    if (out_of_time(f))
        luaL_error(L, "%s", TIME);
}

// The script file, read for the parser block by block, each block charged
// to the budget and preceded by a look at the budget and the clock: a script
// that takes long to parse without allocating (a long comment) is stopped
// too, and so is a first line that never ends, which is skipped block by
// block the same way.  Otherwise as the interpreter's own file loader: a
// UTF-8 byte order mark and a first line starting with '#' are skipped (the
// line's end kept, so that line numbers stay right), and a file that cannot
// be opened or read gives "cannot open|read PATH: REASON".
struct script_file {
    run_frame *f;
    FILE *fp;
    size_t n;      // bytes in buf not yet handed over
    bool skipping; // in a first line starting with '#'
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
    for (;;) {
        if (feof(s->fp) || ferror(s->fp))
            break;
        run_frame *f = s->f;
        // The parser sees the end of the text; the run fails for the bound.
        if (f->meter.left < 0 || out_of_time(f)) {
            f->refused = f->meter.left < 0 ? INSTRUCTIONS : TIME;
            return nullptr;
        }
        *size = fread(s->buf, 1, sizeof s->buf, s->fp);
        f->source_bytes += *size;
        charge(f, static_cast<int64_t>(*size / KIV_SOURCE_BYTES_PER_UNIT));
        if (!s->skipping)
            return s->buf;
        // The text goes on from the line's end, which the parser is given.
        if (const char *nl = static_cast<const char *>(memchr(s->buf, '\n', *size))) {
            s->skipping = false;
            *size -= static_cast<size_t>(nl - s->buf);
            return nl;
        }
    }
    // A first line that ends the file: its end, as if it had one.
    if (std::exchange(s->skipping, false)) {
        *size = 1;
        return "\n";
    }
    return nullptr;
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
    // Close-on-exec: a program another thread starts meanwhile inherits none.
    // A text is read through a stream of its own, so that it is parsed,
    // charged and stopped block by block exactly as the file would be.
    const int fd = f->text ? -1 : open(f->path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    s.fp = f->text   ? fmemopen(const_cast<char *>(f->text), f->text_len, "r")
           : fd >= 0 ? fdopen(fd, "r")
                     : nullptr;
    if (!s.fp) {
        const int err = errno;
        if (fd >= 0)
            close(fd);
        errno = err;
        return file_error(L, "cannot open %s: %s", f->path);
    }
    int c = skip_bom(&s);
    s.skipping = c == '#';
    if (c != EOF && !s.skipping)
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

// Table values the views keep before the keeping table grows: as many as
// the tables a configuration nests, one level under another, hold.
constexpr int KIV_KEEP_PRESIZE = 16;

// The reading step, with views of the tables it reads (access.h) and their
// keeping table under the reader's values.  Out of line, so that the views
// take no stack while the script is parsed and run.
__attribute__((noinline)) int32_t read_viewed(lua_State *L, run_frame *f)
{
    kiv_views views; // taken back by kiv_run_script, also after a Lua error
    lua_createtable(L, KIV_KEEP_PRESIZE, 0);
    views.keep = lua_gettop(L);
    kiv_use_views(&views);
    int32_t ret = f->read(L, f->ctx);
    kiv_use_views(nullptr);
    return ret;
}

// Runs in protected mode.  Script errors are caught by the inner call and
// left as the one result; anything raised while reading ends here too.
int protected_run(lua_State *L)
{
    run_frame *f = frame_of(L);
    lua_settop(L, 0);
    int rc = load_script(L, f);
    // A bound that stopped the parser may have left it a shorter text that
    // parses: it is not run.
    if (rc == LUA_OK && !f->refused) {
        f->at = stage::running;
        lua_sethook(L, frame_hook, LUA_MASKCOUNT, f->period);
        rc = lua_pcall(L, 0, 0, 0);
        lua_sethook(L, nullptr, 0, 0);
        // Charges the hook had no chance to see after the last instruction.
        if (rc == LUA_OK && f->meter.left < 0)
            f->refused = INSTRUCTIONS;
    }
    if (rc != LUA_OK || f->refused) {
        f->script_failed = true;
        return 1;
    }
    f->at = stage::reading;
    lua_settop(L, 0);
    f->result = read_viewed(L, f);
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

// The CPU time a run that ended at `end` used, at most: what the thread's
// CPU clock counted since it was first read, plus the wall-clock time
// before; for a run that never read it, the wall-clock time.
uint64_t cpu_used(const run_frame *f, int64_t end)
{
    if (f->cpu_base < 0)
        return static_cast<uint64_t>(end - f->wall_start);
    return static_cast<uint64_t>(cpu_ns() - f->cpu_base + f->wall_base - f->wall_start);
}

} // namespace

__attribute__((tls_model("initial-exec"))) thread_local kiv_meter *kiv_t_meter = nullptr;

void kiv_meter_check(lua_State *L)
{
    kiv_meter *m = kiv_t_meter;
    if (m->left < 0)
        luaL_error(L, "%s", READING);
    m->to_clock = m->clock_every;
    if (out_of_time(t_frame))
        luaL_error(L, "%s", TIME);
}

__attribute__((tls_model("initial-exec"))) thread_local kiv_log_buf *kiv_t_log = nullptr;

static void flush_log(run_frame *f)
{
    if (f->log.len)
        kiv_log_out(f->log.text, f->log.len);
    f->log.len = 0;
}

void kiv_run_log_flush(void)
{
    if (run_frame *f = t_frame)
        flush_log(f);
}

bool kiv_run_log(const char *text, size_t n)
{
    run_frame *f = t_frame;
    if (!f)
        return false;
    if (n > sizeof f->log.text - f->log.len) {
        flush_log(f);
        if (n > sizeof f->log.text) {
            kiv_log_out(text, n);
            return true;
        }
    }
    memcpy(f->log.text + f->log.len, text, n);
    f->log.len += n;
    return true;
}

kiv_run_use kiv_last_run_use(void)
{
    return t_last;
}

void kiv_run_set_fn(const char *fn)
{
    if (run_frame *f = t_frame)
        f->fn = fn;
}

int64_t kiv_run_budget(void)
{
    return kiv_t_meter ? kiv_t_meter->left : 0;
}

void kiv_run_set_budget(int64_t left)
{
    if (kiv_t_meter)
        kiv_t_meter->left = left;
}

static int32_t run(const char *fn, const char *path, const char *text, size_t text_len,
                   kiv_read_fn read, void *ctx, int32_t no_state, int32_t failed)
{
    const int64_t start = now_ns();
    // The state's first slab (pool.h): a small configuration's whole state.
    alignas(16) char first_slab[KIV_FIRST_SLAB > 0 ? KIV_FIRST_SLAB : 1];
    run_frame f{};
    f.fn = fn;
    f.path = path;
    f.text = text;
    f.text_len = text_len;
    f.read = read;
    f.ctx = ctx;
    f.at = stage::parsing;
    f.mem_limit = g_mem_limit.load(std::memory_order_relaxed);
    f.string_limit = g_string_limit.load(std::memory_order_relaxed);
    const uint64_t instructions = g_instruction_limit.load(std::memory_order_relaxed);
    f.meter.left = instructions < INT64_MAX ? static_cast<int64_t>(instructions) : INT64_MAX;
    f.meter.to_clock = f.meter.clock_every = READ_PER_CLOCK;
    f.period = HOOK_PERIOD;
    const uint32_t ms = g_time_limit_ms.load(std::memory_order_relaxed);
    f.wall_start = start;
    f.cpu_limit = ms ? static_cast<int64_t>(ms) * 1000000 : INT64_MAX; // 0: no limit
    f.cpu_base = -1;
    f.allocs_to_clock = ALLOCS_PER_CLOCK;
    // The bound is on what the process gives the state: its slabs, freed
    // blocks in them included, and the larger blocks.
    kiv_pool_init(&f.pool, f.mem_limit, first_slab, KIV_FIRST_SLAB);

    lua_State *L = lua_newstate(bounded_alloc, &f);
    if (!L) {
        kiv_pool_release(&f.pool);
        g_heap_calls.fetch_add(f.pool.heap_calls, std::memory_order_relaxed);
        KIV_ERR_AT(326, fn, "fail to alloc Lua state.\n");
        return no_state;
    }
    f.L = L;
    g_created.fetch_add(1, std::memory_order_relaxed);
    *static_cast<run_frame **>(lua_getextraspace(L)) = &f;
    t_frame = &f;
    kiv_t_meter = &f.meter;
    kiv_t_log = &f.log;

    lua_pushcfunction(L, protected_run);
    int rc = lua_pcall(L, 0, 1, 0);
    kiv_use_views(nullptr);
    flush_log(&f);
    t_frame = nullptr;
    kiv_t_meter = nullptr;
    kiv_t_log = nullptr;
    int32_t result = f.result;
    if (rc != LUA_OK || f.script_failed) {
        char buf[64];
        KIV_ERR_AT(339, f.fn, "lua error msg is %s.\n",
                   f.refused ? f.refused : error_text(L, buf, sizeof buf));
        result = failed;
    }
    f.at = stage::closing;
    lua_close(L);
    kiv_pool_release(&f.pool);
    g_closed.fetch_add(1, std::memory_order_relaxed);
    g_heap_calls.fetch_add(f.pool.heap_calls, std::memory_order_relaxed);
    const int64_t end = now_ns();
    t_last = {static_cast<uint64_t>(f.ran),
              static_cast<uint64_t>(f.meter.read_units),
              f.source_bytes,
              f.allocated,
              f.mem_peak,
              static_cast<uint64_t>(end - start),
              cpu_used(&f, end),
              f.slowness};
    return result;
}

int32_t kiv_run_script(const char *fn, const char *path, kiv_read_fn read, void *ctx,
                       int32_t no_state, int32_t failed)
{
    return run(fn, path, nullptr, 0, read, ctx, no_state, failed);
}

int32_t kiv_run_text(const char *fn, const char *path, const char *text, size_t len,
                     kiv_read_fn read, void *ctx, int32_t no_state, int32_t failed)
{
    return run(fn, path, text ? text : "", text ? len : 0, read, ctx, no_state, failed);
}
