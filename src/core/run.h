// Running a configuration script: the one way every loader creates a Lua
// state, runs a file within the resource bounds, reads what it defined and
// closes the state again.
#ifndef KIV_CORE_RUN_H
#define KIV_CORE_RUN_H

#include <stddef.h>
#include <stdint.h>

#include <lua.h>

// Memory a script's Lua state may hold, in bytes.
#ifndef KIV_LUA_MEM_LIMIT
#define KIV_LUA_MEM_LIMIT (256u * 1024u * 1024u) /* 256 MiB */
#endif

// Lua instructions a script may execute before it is stopped.
#ifndef KIV_LUA_INSTRUCTION_LIMIT
#define KIV_LUA_INSTRUCTION_LIMIT 2000000000ull /* about a few seconds */
#endif

// Reads what the script left in the state: called with an empty stack, in
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

// Bounds in force for the runs that start after the call (0 = the build's
// default).  For tests and tools; not part of the library's interface.
void kiv_set_run_limits(size_t mem_bytes, uint64_t instructions);

// Numbers of states created and closed since the process started, and of
// the calls the states' allocator made to the C library's realloc and free
// (counted per state and added up when the state closes).
struct kiv_run_counts {
    uint64_t created;
    uint64_t closed;
    uint64_t heap_calls;
};
kiv_run_counts kiv_get_run_counts(void);

#endif
