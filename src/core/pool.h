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
#ifndef KIV_CORE_POOL_H
#define KIV_CORE_POOL_H

#include <stddef.h>
#include <stdint.h>

#if defined(__SANITIZE_ADDRESS__)
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
    size_t slab_limit;   // no slab is added past this
    size_t next_slab;    // the size of the next slab
    uint64_t heap_calls; // calls to the C library's allocator
};

// `slab_limit`: the most slab memory the pool may take (the state's memory
// bound and then some: a pool fragmented past it refuses to grow).
// `first` (16-byte aligned, `first_size` bytes), when given, is the first
// slab: memory of the caller's that outlives the state (a buffer on its
// stack), carved first and never freed, so that a small script's state
// costs no call to the C library at all.
void kiv_pool_init(kiv_pool *p, size_t slab_limit, void *first = nullptr, size_t first_size = 0);
// Frees every slab but the caller's; the blocks from the C library were
// freed by the state.
void kiv_pool_release(kiv_pool *p);

// Lua's allocator calls, less the memory bound: nsize 0 frees; returns
// null when no memory can be had.
void *kiv_pool_realloc(kiv_pool *p, void *ptr, size_t osize, size_t nsize);

#endif
