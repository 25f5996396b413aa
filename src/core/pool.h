// The memory of one short-lived Lua state.  Blocks of up to 512 bytes (most
// of what Lua allocates: strings, tables, closures, small arrays) come from
// a few large slabs, in 32 size classes of 16 bytes, each class with a list
// of the blocks freed; larger blocks come from the C library.  A state lives
// for one call, so its slabs are released all at once when it closes.
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
#define KIV_POOL_CLASSES 32 // blocks of 16, 32, ... 512 bytes

struct kiv_pool {
    void *free_list[KIV_POOL_CLASSES];
    char *bump;
    char *bump_end;
    void *slabs;         // every slab, for the release
    size_t slab_bytes;   // in all slabs
    size_t slab_limit;   // no slab is added past this
    size_t next_slab;    // the size of the next slab
    uint64_t heap_calls; // calls to the C library's allocator
};

// `slab_limit`: the most slab memory the pool may take (the state's memory
// bound and then some: a pool fragmented past it refuses to grow).
void kiv_pool_init(kiv_pool *p, size_t slab_limit);
// Frees every slab; the blocks from the C library were freed by the state.
void kiv_pool_release(kiv_pool *p);

// Lua's allocator calls, less the memory bound: nsize 0 frees; returns
// null when no memory can be had.
void *kiv_pool_realloc(kiv_pool *p, void *ptr, size_t osize, size_t nsize);

#endif
