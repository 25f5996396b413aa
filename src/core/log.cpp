#include "core/log.h"

#include <atomic>
#include <stdarg.h>
#include <stdio.h>

#include "core/fmt.h"
#include "core/run.h"
#include "kiv.h"

// Plain bytes in behaviour; atomic (relaxed) only so that loads running in
// several threads do not race in the C++ sense.  The last writer wins.
static std::atomic<uint8_t> g_log_level{1};
static std::atomic<uint8_t> g_hp_fps{0};
// Initial-exec: reached in one instruction, and no allocation when a thread
// first touches it.
static __attribute__((tls_model("initial-exec"))) thread_local const kiv_multi_chan_cfg *t_loading =
    nullptr;

void kiv_log(uint8_t level, const char *fmt, ...)
{
    if (g_log_level.load(std::memory_order_relaxed) < level)
        return;
    char buf[256];
    va_list ap, copy;
    va_start(ap, fmt);
    va_copy(copy, ap);
    if (kiv_format(buf, sizeof buf, fmt, ap) < 0)
        vsnprintf(buf, sizeof buf, fmt, copy);
    va_end(copy);
    va_end(ap);
    fputs(buf, stdout);
    kiv_run_spend_log();
}

void kiv_set_log_level(int32_t level)
{
    g_log_level.store(static_cast<uint8_t>(level), std::memory_order_relaxed);
}

uint8_t kiv_get_log_level(void)
{
    return g_log_level.load(std::memory_order_relaxed);
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
