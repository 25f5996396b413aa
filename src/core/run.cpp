#include "core/run.h"

#include <atomic>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <lauxlib.h>

#include "core/log.h"

static std::atomic<size_t> g_mem_limit{KIV_LUA_MEM_LIMIT};
static std::atomic<uint64_t> g_instruction_limit{KIV_LUA_INSTRUCTION_LIMIT};
static std::atomic<uint64_t> g_created{0};
static std::atomic<uint64_t> g_closed{0};
static std::atomic<uint64_t> g_heap_calls{0};

void kiv_set_run_limits(size_t mem_bytes, uint64_t instructions)
{
    g_mem_limit.store(mem_bytes ? mem_bytes : KIV_LUA_MEM_LIMIT, std::memory_order_relaxed);
    g_instruction_limit.store(instructions ? instructions : KIV_LUA_INSTRUCTION_LIMIT,
                              std::memory_order_relaxed);
}

kiv_run_counts kiv_get_run_counts(void)
{
    return {g_created.load(), g_closed.load(), g_heap_calls.load()};
}

namespace
{

// The instruction budget is checked by a count hook every this many
// instructions.
constexpr int HOOK_PERIOD = 10000;

struct run_frame {
    const char *path;
    kiv_read_fn read;
    void *ctx;
    int32_t result;
    bool script_failed;
    size_t mem_used;
    size_t mem_limit;
    uint64_t heap_calls; // realloc and free calls made for the state
    uint64_t ticks_left;
};

// The state's allocator: the default one, refusing to grow past the limit
// (Lua then raises its "not enough memory" error).
void *bounded_alloc(void *ud, void *ptr, size_t osize, size_t nsize)
{
    run_frame *f = static_cast<run_frame *>(ud);
    size_t old = ptr ? osize : 0;
    if (nsize == 0) {
        free(ptr);
        ++f->heap_calls;
        f->mem_used -= old;
        return nullptr;
    }
    if (nsize > old && nsize - old > f->mem_limit - f->mem_used)
        return nullptr;
    void *p = realloc(ptr, nsize);
    ++f->heap_calls;
    if (p)
        f->mem_used = f->mem_used - old + nsize;
    return p;
}

run_frame *frame_of(lua_State *L)
{
    return *static_cast<run_frame **>(lua_getextraspace(L));
}

void count_hook(lua_State *L, lua_Debug *)
{
    run_frame *f = frame_of(L);
    if (f->ticks_left == 0)
        luaL_error(L, "script exceeded the instruction limit");
    --f->ticks_left;
}

// Runs in protected mode.  Script errors are caught by the inner call and
// left as the one result; anything raised while reading ends here too.
int protected_run(lua_State *L)
{
    run_frame *f = frame_of(L);
    lua_settop(L, 0);
    int rc = luaL_loadfilex(L, f->path, nullptr);
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
    f->result = f->read(L, f->ctx);
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

int32_t kiv_run_script(const char *fn, const char *path, kiv_read_fn read, void *ctx,
                       int32_t no_state, int32_t failed)
{
    run_frame f{};
    f.path = path;
    f.read = read;
    f.ctx = ctx;
    f.mem_limit = g_mem_limit.load(std::memory_order_relaxed);
    uint64_t limit = g_instruction_limit.load(std::memory_order_relaxed);
    f.ticks_left = limit / HOOK_PERIOD;

    lua_State *L = lua_newstate(bounded_alloc, &f);
    if (!L) {
        g_heap_calls.fetch_add(f.heap_calls, std::memory_order_relaxed);
        KIV_ERR(fn, "fail to alloc Lua state.\n");
        return no_state;
    }
    g_created.fetch_add(1, std::memory_order_relaxed);
    *static_cast<run_frame **>(lua_getextraspace(L)) = &f;

    lua_pushcfunction(L, protected_run);
    int rc = lua_pcall(L, 0, 1, 0);
    int32_t result = f.result;
    if (rc != LUA_OK || f.script_failed) {
        char buf[64];
        KIV_ERR(fn, "lua error msg is %s.\n", error_text(L, buf, sizeof buf));
        result = failed;
    }
    lua_close(L);
    g_closed.fetch_add(1, std::memory_order_relaxed);
    g_heap_calls.fetch_add(f.heap_calls, std::memory_order_relaxed);
    return result;
}
