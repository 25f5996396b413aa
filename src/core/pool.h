// The memory of one short-lived Lua state.  Blocks of up to 8 KiB (all that
// Lua allocates for a configuration but the largest arrays of the largest
// scripts) come from a few large slabs: up to 512 bytes in 32 size classes
// of 16 bytes (strings, tables, closures, small arrays), then in four
// classes of 1, 2, 4 and 8 KiB (the string table, the stack, the parser's
// buffers, larger hash parts), each class with a list of the blocks freed;
// larger blocks come from the C library.  A state lives for one call, so
// its slabs are released all at once when it closes.
//
// Freed blocks are reused within their class (and, when no slab may be
// added, by any smaller class), so a script that makes garbage as it runs
// stays within its memory as it would with the C library's allocator.
// Slabs are not given back before the state closes, so what the pool holds
// (its slabs and the larger blocks) is what the process gives the state,
// and that is what its limit bounds: a script that fills memory with one
// size of block, drops it and fills it with another is refused at the
// limit, not given the slabs of both.
#ifndef KIV_CORE_POOL_H
#define KIV_CORE_POOL_H

#include <stddef.h>
#include <stdint.h>

// Whether AddressSanitizer instruments this build, with gcc or clang.
#if defined(__SANITIZE_ADDRESS__)
#define KIV_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIV_ASAN 1
#endif
#endif

#if defined(KIV_ASAN)
#include <sanitizer/asan_interface.h>
#define KIV_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define KIV_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define KIV_POISON(p, n) ((void)(p), (void)(n))
#define KIV_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

#define KIV_POOL_GRAIN 16
#define KIV_POOL_SMALL_CLASSES 32 // blocks of 16, 32, ... 512 bytes
#define KIV_POOL_CLASSES 36       // then 1, 2, 4 and 8 KiB
#define KIV_POOL_MAX 8192         // the largest pooled block

struct kiv_pool {
    void *free_list[KIV_POOL_CLASSES];
    char *bump;
    char *bump_end;
    void *slabs;         // every slab, for the release
    void *first;         // the caller's slab, or null
    size_t slab_bytes;   // in all slabs
    size_t big_bytes;    // in the blocks from the C library
    size_t limit;        // slabs and larger blocks never grow past this together
    size_t next_slab;    // the size of the next slab
    uint64_t heap_calls; // calls to the C library's allocator
};

// `limit`: the most memory the pool may hold, its slabs and the larger
// blocks together (a block that shrinks into a slab is the one exception).
// `first` (16-byte aligned, `first_size` bytes), when given, is the first
// slab: memory of the caller's that outlives the state (a buffer on its
// stack), carved first and never freed, so that a small script's state
// costs no call to the C library at all.
void kiv_pool_init(kiv_pool *p, size_t limit, void *first = nullptr, size_t first_size = 0);
// What the pool holds now: its slabs and the larger blocks.
inline size_t kiv_pool_held(const kiv_pool *p)
{
    return p->slab_bytes + p->big_bytes;
}
// Frees every slab but the caller's; the blocks from the C library were
// freed by the state.
void kiv_pool_release(kiv_pool *p);

// Lua's allocator calls: nsize 0 frees; returns null when no memory can be
// had within the limit.
void *kiv_pool_realloc(kiv_pool *p, void *ptr, size_t osize, size_t nsize);

#endif
