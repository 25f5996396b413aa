#include "core/pool.h"

#include <stdlib.h>
#include <string.h>

namespace
{

constexpr size_t SMALL = KIV_POOL_GRAIN * KIV_POOL_SMALL_CLASSES; // the largest 16-byte class
constexpr size_t POOLED = KIV_POOL_MAX;
// The first slab holds a new state and a small script; later ones double
// up to MAX_SLAB.
constexpr size_t FIRST_SLAB = 16 * 1024;
constexpr size_t MAX_SLAB = 1024 * 1024;

struct slab {
    slab *next;
    size_t size;
};
constexpr size_t HEADER = (sizeof(slab) + KIV_POOL_GRAIN - 1) & ~size_t{KIV_POOL_GRAIN - 1};

size_t class_of(size_t n) // n in 1 .. POOLED
{
    if (n <= SMALL)
        return (n - 1) / KIV_POOL_GRAIN;
    // 513 .. 1024 -> 32, .. 2048 -> 33, .. 4096 -> 34, .. 8192 -> 35: the
    // bit width of n - 1 (10 to 13) less 10.
    return KIV_POOL_SMALL_CLASSES + static_cast<size_t>(64 - __builtin_clzll(n - 1)) - 10;
}

size_t class_size(size_t c)
{
    return c < KIV_POOL_SMALL_CLASSES ? (c + 1) * KIV_POOL_GRAIN
                                      : size_t{1024} << (c - KIV_POOL_SMALL_CLASSES);
}

void push_free(kiv_pool *p, void *b, size_t c)
{
    KIV_UNPOISON(b, sizeof(void *));
    *static_cast<void **>(b) = p->free_list[c];
    p->free_list[c] = b;
    KIV_POISON(b, class_size(c));
}

// What the pool may still take (none once a forced slab took it past).
size_t room(const kiv_pool *p)
{
    const size_t held = kiv_pool_held(p);
    return held < p->limit ? p->limit - held : 0;
}

// Slab s of `size` bytes is the one to carve from now; the next is twice
// as large.
void carve(kiv_pool *p, slab *s, size_t size)
{
    s->next = static_cast<slab *>(p->slabs);
    s->size = size;
    p->slabs = s;
    p->slab_bytes += size;
    p->next_slab = size * 2 < MAX_SLAB ? size * 2 : MAX_SLAB;
    p->bump = reinterpret_cast<char *>(s) + HEADER;
    p->bump_end = reinterpret_cast<char *>(s) + size;
    KIV_POISON(p->bump, size - HEADER);
}

// A new slab to carve from; what is left of the current one goes to the
// free lists.  `force`: past the limit too (a block that shrinks must
// find a place).
bool add_slab(kiv_pool *p, bool force)
{
    size_t size = p->next_slab;
    if (!force && size > room(p))
        return false;
    slab *s = static_cast<slab *>(malloc(size));
    ++p->heap_calls;
    if (!s)
        return false;
    while (p->bump_end - p->bump >= static_cast<ptrdiff_t>(KIV_POOL_GRAIN)) {
        size_t left = static_cast<size_t>(p->bump_end - p->bump);
        size_t c = class_of(left < SMALL ? left - left % KIV_POOL_GRAIN : SMALL);
        push_free(p, p->bump, c);
        p->bump += class_size(c);
    }
    carve(p, s, size);
    return true;
}

void *small_alloc(kiv_pool *p, size_t c, bool force = false)
{
    if (void *b = p->free_list[c]) {
        KIV_UNPOISON(b, class_size(c));
        p->free_list[c] = *static_cast<void **>(b);
        return b;
    }
    const size_t n = class_size(c);
    if (static_cast<size_t>(p->bump_end - p->bump) < n && !add_slab(p, force)) {
        // No slab may be added: a freed block of a larger class will do.
        for (size_t k = c + 1; k < KIV_POOL_CLASSES; ++k) {
            if (void *b = p->free_list[k]) {
                KIV_UNPOISON(b, class_size(k));
                p->free_list[k] = *static_cast<void **>(b);
                return b;
            }
        }
        return nullptr;
    }
    void *b = p->bump;
    p->bump += n;
    KIV_UNPOISON(b, n);
    return b;
}

// A block from the C library, new (ptr null, old 0) or resized.
void *big_alloc(kiv_pool *p, void *ptr, size_t old, size_t n)
{
    if (n > old && n - old > room(p))
        return nullptr;
    ++p->heap_calls;
    void *b = realloc(ptr, n);
    if (b)
        p->big_bytes = p->big_bytes - old + n;
    return b;
}

void big_free(kiv_pool *p, void *ptr, size_t n)
{
    ++p->heap_calls;
    p->big_bytes -= n;
    free(ptr);
}

} // namespace

void kiv_pool_init(kiv_pool *p, size_t limit, void *first, size_t first_size)
{
    memset(p, 0, sizeof *p);
    p->limit = limit;
    p->next_slab = FIRST_SLAB;
    if (first && first_size > HEADER) {
        p->first = first;
        carve(p, static_cast<slab *>(first), first_size);
    }
}

void kiv_pool_release(kiv_pool *p)
{
    for (slab *s = static_cast<slab *>(p->slabs); s;) {
        slab *next = s->next;
        KIV_UNPOISON(s, s->size);
        if (s != p->first) {
            free(s);
            ++p->heap_calls;
        }
        s = next;
    }
    p->slabs = nullptr;
}

// A block is pooled when the size Lua gave it is at most POOLED: Lua passes
// that size back (osize) with every later call, so the size tells where the
// block came from.  A block therefore moves whenever its size crosses
// POOLED, and a block that shrinks always finds a place.
void *kiv_pool_realloc(kiv_pool *p, void *ptr, size_t osize, size_t nsize)
{
    if (!ptr) {
        if (nsize == 0)
            return nullptr;
        return nsize <= POOLED ? small_alloc(p, class_of(nsize)) : big_alloc(p, nullptr, 0, nsize);
    }
    if (nsize == 0) {
        if (osize <= POOLED)
            push_free(p, ptr, class_of(osize));
        else
            big_free(p, ptr, osize);
        return nullptr;
    }
    const bool shrink = nsize < osize;
    if (osize > POOLED && nsize > POOLED)
        return big_alloc(p, ptr, osize, nsize);
    if (osize <= POOLED && nsize <= POOLED && class_of(osize) == class_of(nsize))
        return ptr;
    void *b =
        nsize <= POOLED ? small_alloc(p, class_of(nsize), shrink) : big_alloc(p, nullptr, 0, nsize);
    if (!b) {
        // Only a pooled block shrinking within the pool gets here, when even
        // a forced slab cannot be had: it stays where it is, larger than it
        // needs to be (it is freed into the smaller class).
        return shrink && osize <= POOLED ? ptr : nullptr;
    }
    memcpy(b, ptr, shrink ? nsize : osize);
    if (osize <= POOLED)
        push_free(p, ptr, class_of(osize));
    else
        big_free(p, ptr, osize);
    return b;
}
