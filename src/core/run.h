// Running a configuration script: the one way every loader creates a Lua
// state, runs a file within the resource bounds, reads what it defined and
// closes the state again.
//
// Bounds hold for everything a script makes the library do, loading,
// running and the reading of its tables included; a script that exceeds one
// fails like any failing script.  Those that decide are deterministic: the
// same script is refused, or not, on every machine whatever its load.
//  - Work: one budget counts the instructions a script runs and, at fixed
//    rates, the source text parsed, the memory allocated (which is what the
//    collector's work grows with), the collections forced at the memory
//    bound, and the reading of its tables.
//  - Memory: what the process gives the state, its allocator's slabs (the
//    blocks freed in them included) and its larger blocks.
//  - Strings: no string longer than any configuration needs can be made, so
//    that no single instruction (a conversion, a comparison) costs more than
//    a bounded amount.
// A time backstop covers what no count can see (a table whose keys all
// collide): CPU time of the calling thread, stretched by how much slower the
// calling core runs a fixed piece of interpreter work than the machine the
// default was measured on.  The defaults come from measurement
// (docs/robustness.md).
#ifndef KIV_CORE_RUN_H
#define KIV_CORE_RUN_H

#include <stddef.h>
#include <stdint.h>

#include <lua.h>

// Memory the process may give a script's Lua state, in bytes: the slabs of
// its allocator, freed blocks in them included, and its larger blocks.
#ifndef KIV_LUA_MEM_LIMIT
#define KIV_LUA_MEM_LIMIT (96u * 1024u * 1024u) /* 96 MiB */
#endif

// Work a script may make the library do, in instructions: each Lua
// instruction counts 1, the rest at the rates below.
#ifndef KIV_LUA_INSTRUCTION_LIMIT
#define KIV_LUA_INSTRUCTION_LIMIT 20000000ull /* 2e7 */
#endif

// The largest string object (text and header, 25 bytes on 64-bit) a script
// may make, in bytes.
#ifndef KIV_LUA_STRING_LIMIT
#define KIV_LUA_STRING_LIMIT 65536u
#endif

// Stack the call lends its script's state as the first slab of its memory,
// in bytes; 0 (the default): none, every slab comes from the C library.
// 16384 holds a small configuration's whole state and spares a load the
// C library's first large allocation (which may consolidate its free lists:
// thousands of instructions), but a load then needs that much more stack
// than the 32 KiB the docs promise scripts without deep nesting.
#ifndef KIV_FIRST_SLAB
#define KIV_FIRST_SLAB 0u
#endif
// CPU time of the calling thread one call may spend on a script, in
// milliseconds on a core as fast as the one it was measured on; on a slower
// core it stretches in proportion.  0: no time limit.
#ifndef KIV_LUA_TIME_LIMIT_MS
#define KIV_LUA_TIME_LIMIT_MS 300u
#endif

// 1: scripts are loaded as text only, and a precompiled chunk fails like a
// script with a syntax error (for products that take configurations from
// outside: the interpreter trusts precompiled code).
#ifndef KIV_LUA_TEXT_ONLY
#define KIV_LUA_TEXT_ONLY 0
#endif

// What the rest costs, in instructions (see docs/robustness.md): a table
// access of the reading, a log line printed, and the bytes of source text
// parsed, of memory allocated and of strings converted or hashed by the
// reading per instruction (powers of two).
#define KIV_READ_COST 4
#define KIV_LOG_COST 1000
#define KIV_SOURCE_BYTES_PER_UNIT 4
#define KIV_ALLOC_BYTES_PER_UNIT 16
#define KIV_CONVERT_BYTES_PER_UNIT 16

// Reads what the script left in the state: called with none of its own
// values on the stack (the run frame may keep one below them), in
// protected mode (a Lua error raised inside, such as running out of memory,
// ends the run as a failed script).  Returns the loader's result.
typedef int32_t (*kiv_read_fn)(lua_State *L, void *ctx);

// Creates a state, loads and runs the script at `path` and, when it ran,
// calls `read`.  `fn` is the function name the messages carry.  Returns
// `no_state` (after "fail to alloc Lua state.") when no state can be made,
// `failed` (after "lua error msg is %s.") when the script cannot be loaded,
// fails while running, exceeds a bound, or `read` raises a Lua error;
// otherwise what `read` returned.  The state is closed exactly once before
// the function returns.
int32_t kiv_run_script(const char *fn, const char *path, kiv_read_fn read, void *ctx,
                       int32_t no_state, int32_t failed);

// kiv_run_script on a script given as text: `path` only names it, in the
// messages (Lua's "PATH:LINE:" included) as if it had been read from there.
// The text is parsed, charged and bounded exactly as the file would be.
// For tools that check a text not saved yet, or that read a file once.
int32_t kiv_run_text(const char *fn, const char *path, const char *text, size_t len,
                     kiv_read_fn read, void *ctx, int32_t no_state, int32_t failed);

// For a reading step that plays several loaders in one run (tools): the
// function the run's closing message is reported under from now on, and
// the budget left, read and set again so that each loader's reading starts
// with what it would have had in a run of its own.  No effect outside a run.
void kiv_run_set_fn(const char *fn);
int64_t kiv_run_budget(void);
void kiv_run_set_budget(int64_t left);

// The instruction budget of the run in progress on this thread, shared by
// the count hook and the reading.
struct kiv_meter {
    int64_t left;        // instructions still allowed, everything else included
    int64_t read_units;  // instructions charged for everything but running
    int64_t to_clock;    // reading before the next look at the clock
    int64_t clock_every; // reading between two looks at the clock
};
extern __attribute__((tls_model("initial-exec"))) thread_local kiv_meter *kiv_t_meter;
// Raises the Lua error of the bound the reading exceeded, or looks at the
// clock (raising when the time is up).
void kiv_meter_check(lua_State *L);

// Counts `units` instructions of reading against the bounds of the run in
// progress on this thread; raises a Lua error on L when one is exceeded.
// Does nothing outside a run (a parser tested on a state of its own).
inline void kiv_run_spend(lua_State *L, int64_t units)
{
    kiv_meter *m = kiv_t_meter;
    if (!m)
        return;
    m->left -= units;
    m->read_units += units;
    if ((m->to_clock -= units) < 0 || m->left < 0)
        kiv_meter_check(L);
}
// Counts the reading's conversion of the value at `idx` to a number when it
// is a string: a scan of its length.
inline void kiv_run_spend_convert(lua_State *L, int idx)
{
    if (lua_type(L, idx) == LUA_TSTRING)
        kiv_run_spend(L, static_cast<int64_t>(lua_rawlen(L, idx) / KIV_CONVERT_BYTES_PER_UNIT));
}
// lua_tonumberx, its conversion counted.
inline lua_Number kiv_run_tonumber(lua_State *L, int idx)
{
    kiv_run_spend_convert(L, idx);
    return lua_tonumberx(L, idx, nullptr);
}
// Counts a printed log line (never raises: the next read does).
inline void kiv_run_spend_log(void)
{
    if (kiv_meter *m = kiv_t_meter) {
        m->left -= KIV_LOG_COST;
        m->read_units += KIV_LOG_COST;
    }
}
// Takes a log text into the log buffer of the run in progress on this
// thread, which is written out in one piece when full and before the run
// returns; false when no run is in progress.
bool kiv_run_log(const char *text, size_t n);
// That buffer, reached in one instruction while a run is in progress on
// this thread (null otherwise), and its write-out.
struct kiv_log_buf {
    size_t len;
    char text[4096];
};
extern __attribute__((tls_model("initial-exec"))) thread_local kiv_log_buf *kiv_t_log;
void kiv_run_log_flush(void);
// Room for a log text of n bytes (n at most 255) at the end of that buffer,
// taken: the caller writes exactly n bytes there.  Null when no run is in
// progress.
inline char *kiv_run_log_room(size_t n)
{
    kiv_log_buf *b = kiv_t_log;
    if (!b)
        return nullptr;
    if (n > sizeof b->text - b->len)
        kiv_run_log_flush();
    char *at = b->text + b->len;
    b->len += n;
    return at;
}

// Bounds in force for the runs that start after the call; a field left 0
// (text_only: -1) takes the build's default.  For tests and tools; not part
// of the library's interface.
struct kiv_run_limits {
    size_t mem_bytes = 0;
    uint64_t instructions = 0;
    uint32_t time_ms = 0; // UINT32_MAX: as good as none
    int text_only = -1;
    size_t string_bytes = 0;
};
void kiv_set_run_limits(const kiv_run_limits &limits);
// Whether the runs that start after the call load scripts as text only (a
// precompiled chunk then fails like a script with a syntax error), leaving
// the other bounds as they are; for tools that check scripts from anywhere.
void kiv_set_text_only(bool text_only);
// The longest script text the work budget in force lets the parser read:
// every KIV_SOURCE_BYTES_PER_UNIT bytes parsed cost an instruction, so a
// longer text is refused whatever it holds, and a tool need read no more.
uint64_t kiv_source_limit(void);

// Numbers of states created and closed since the process started, and of
// the calls the states' allocator made to the C library's realloc and free
// (counted per state and added up when the state closes).
struct kiv_run_counts {
    uint64_t created;
    uint64_t closed;
    uint64_t heap_calls;
};
kiv_run_counts kiv_get_run_counts(void);

// What the last run on this thread used: instructions run (to the hook's
// period), instructions charged for everything else (reading, source text,
// memory), the bytes of source text parsed and of memory allocated, the
// high-water mark of the memory the state was given (its slabs and larger
// blocks, what the memory bound counts) in bytes, the wall-clock and the thread's
// CPU time in nanoseconds, and how much slower than the reference this core
// ran the reference work, in thousandths (0: the run never came near its time
// limit, so it was not measured).
struct kiv_run_use {
    uint64_t instructions;
    uint64_t reading;
    uint64_t source_bytes;
    uint64_t allocated;
    size_t mem_peak;
    uint64_t ns;
    uint64_t cpu_ns;
    uint32_t slowness;
};
kiv_run_use kiv_last_run_use(void);

#endif
