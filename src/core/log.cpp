#include "core/log.h"

#include <atomic>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "core/access.h"
#include "core/fmt.h"
#include "core/run.h"
#include "core/safe_file.h"
#include "kiv.h"

// Plain bytes in behaviour; atomic (relaxed) only so that loads running in
// several threads do not race in the C++ sense.  The last writer wins.
static std::atomic<uint8_t> g_log_level{1};
static std::atomic<uint8_t> g_hp_fps{0};
// A tool that loads scripts in several threads at once gives each thread a
// level of its own (kiv_use_thread_log_level), so that one script's
// log_level does not change what another's load prints.  -1: the
// process-wide level, which is all the library itself ever uses.
static __attribute__((tls_model("initial-exec"))) thread_local int16_t t_log_level = -1;
// Initial-exec: reached in one instruction, and no allocation when a thread
// first touches it.
static __attribute__((tls_model("initial-exec"))) thread_local const kiv_multi_chan_cfg *t_loading =
    nullptr;

void kiv_log(uint8_t level, const char *fmt, ...)
{
    if (kiv_get_log_level() < level)
        return;
    char buf[256];
    va_list ap, copy;
    va_start(ap, fmt);
    va_copy(copy, ap);
    if (kiv_format(buf, sizeof buf, fmt, ap) < 0)
        vsnprintf(buf, sizeof buf, fmt, copy);
    va_end(copy);
    va_end(ap);
    kiv_log_write(buf, strlen(buf));
}

void kiv_log_write(const char *text, size_t n)
{
    const kiv_watcher *w = kiv_get_watcher();
    if (w && w->log)
        w->log(w->ctx, text, n);
    else if (!kiv_run_log(text, n))
        kiv_log_out(text, n);
    kiv_run_spend_log();
}

void kiv_log_out(const char *text, size_t n)
{
    // Standard output may be a file under a size limit, and a write past
    // the limit would end the caller (SIGXFSZ): the lines that would cross
    // it are left out.
    flockfile(stdout);
    const uint64_t room = kiv_stdout_room();
    if (n > room) {
        const void *end = memrchr(text, '\n', static_cast<size_t>(room));
        n = end ? static_cast<size_t>(static_cast<const char *>(end) - text) + 1 : 0;
    }
    fwrite_unlocked(text, 1, n, stdout);
    funlockfile(stdout);
}

namespace
{

// Appends like vsnprintf into a 256-byte line: what does not fit is cut.
struct line {
    char buf[256];
    size_t len = 0;
    void put(const char *s, size_t n)
    {
        size_t room = sizeof buf - 1 - len;
        n = n < room ? n : room;
        memcpy(buf + len, s, n);
        len += n;
    }
    template <size_t N>
    void put(const char (&s)[N])
    {
        put(s, N - 1);
    }
};

} // namespace

size_t kiv_absent_prefix(char *buf, size_t cap, const char *fn, int line_no)
{
    char digits[12];
    const char *d = kiv_decimal(digits + sizeof digits, line_no);
    line l;
    l.put("KIV_WARN:: ");
    l.put(fn, strlen(fn));
    l.put("(");
    l.put(d, static_cast<size_t>(digits + sizeof digits - d));
    l.put("): item(");
    size_t n = l.len < cap ? l.len : cap;
    memcpy(buf, l.buf, n);
    return n;
}

void kiv_log_absent(const char *prefix, size_t prefix_len, const char *key, size_t key_len,
                    const char *rest, size_t rest_len)
{
    if (kiv_get_log_level() < KIV_LEVEL_WARN)
        return;
    line l;
    l.put(prefix, prefix_len);
    l.put(key, key_len);
    l.put(rest, rest_len);
    kiv_log_write(l.buf, l.len);
}

void kiv_set_log_level(int32_t level)
{
    if (t_log_level >= 0)
        t_log_level = static_cast<uint8_t>(level);
    else
        g_log_level.store(static_cast<uint8_t>(level), std::memory_order_relaxed);
}

uint8_t kiv_get_log_level(void)
{
    return t_log_level >= 0 ? static_cast<uint8_t>(t_log_level)
                            : g_log_level.load(std::memory_order_relaxed);
}

void kiv_use_thread_log_level(int32_t level)
{
    t_log_level = level < 0 ? -1 : static_cast<uint8_t>(level);
}

void kiv_set_hp_fps(int32_t flag)
{
    g_hp_fps.store(static_cast<uint8_t>(flag), std::memory_order_relaxed);
}

uint8_t kiv_get_hp_fps(void)
{
    return g_hp_fps.load(std::memory_order_relaxed);
}

void kiv_set_loading(const kiv_multi_chan_cfg *cfg)
{
    t_loading = cfg;
}

uint8_t kiv_rate_hp_fps(void)
{
    return t_loading ? t_loading->enable_hp_fps : kiv_get_hp_fps();
}
