// Shared by the fuzz targets: each input becomes a script file, since the
// loaders take paths.
#ifndef KIV_FUZZ_COMMON_H
#define KIV_FUZZ_COMMON_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "core/log.h"
#include "core/run.h"

namespace kivfuzz
{

// The interpreter trusts precompiled chunks, so a crafted binary chunk can
// crash it whatever the library does; such inputs are not worth fuzzing.
inline bool is_binary_chunk(const uint8_t *data, size_t size)
{
    return size >= 4 && memcmp(data, "\x1bLua", 4) == 0;
}

// A per-process scratch path under /dev/shm (or /tmp).
inline const char *scratch(const char *name)
{
    static char paths[4][64];
    static int used = 0;
    for (int i = 0; i < used; ++i)
        if (strstr(paths[i], name))
            return paths[i];
    const char *dir = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
    snprintf(paths[used], sizeof paths[used], "%s/kivfuzz-%d-%s", dir, (int)getpid(), name);
    return paths[used++];
}

inline bool write_file(const char *path, const uint8_t *data, size_t size)
{
    FILE *f = fopen(path, "wb");
    if (!f)
        return false;
    bool ok = fwrite(data, 1, size, f) == size;
    return fclose(f) == 0 && ok;
}

// Each target defines this: it runs its entry points on the script at path
// (the fuzz input, written to a file since the loaders take paths).
void run(const char *path);

// Quiet log, small bounds: a fuzz run wants many executions per second.
inline void setup()
{
    if (!freopen("/dev/null", "w", stdout))
        return;
    kiv_set_run_limits({.mem_bytes = 64u << 20});
}

} // namespace kivfuzz

#endif
