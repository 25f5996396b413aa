// Leveled log and the two process-wide settings.
//
// Every message of the library goes through kiv_log.  A format always has
// the shape tag, function name, source line, text; the three macros below
// add the tag and the source line so that a call names only the function
// the message is reported under and the text.
#ifndef KIV_CORE_LOG_H
#define KIV_CORE_LOG_H

#include <stddef.h>
#include <stdint.h>

#include "core/fmt.h"

enum : uint8_t {
    KIV_LEVEL_ERROR = 0,
    KIV_LEVEL_WARN = 1,
    KIV_LEVEL_DEBUG = 3,
};

// Prints the formatted message to standard output when the current log
// level is at least `level`; the text is cut at 255 characters.
void kiv_log(uint8_t level, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// The WARN line of an optional key that is absent, the commonest line of
// the log ("KIV_WARN:: fn(line): item(key) doesn't exist, set 0 by
// default.\n"), put together without a format from its prefix (the part up
// to "item(", made once for the function and line by kiv_absent_prefix),
// the key and the rest of the line, and cut at 255 characters like any
// line.  (The key reader copies it into the run's log itself when it can.)
size_t kiv_absent_prefix(char *buf, size_t cap, const char *fn, int line);
void kiv_log_absent(const char *prefix, size_t prefix_len, const char *key, size_t key_len,
                    const char *rest, size_t rest_len);
// Writes a finished log text: into the buffer of the run in progress on
// this thread (written out before the run returns), or to standard output.
void kiv_log_write(const char *text, size_t n);
// Writes log lines to standard output, all but those that would cross the
// file size limit of a file there (which would end the process).
void kiv_log_out(const char *text, size_t n);

// The log level: the highest message level that is printed (initially 1).
void kiv_set_log_level(int32_t level);
uint8_t kiv_get_log_level(void);
// For tools that load in several threads: from now on the calling thread
// has a log level of its own, starting at `level`, which kiv_set_log_level
// and kiv_get_log_level then set and read (a script's log_level included);
// -1 goes back to the process-wide level.  The library never calls it.
void kiv_use_thread_log_level(int32_t level);

// The high-precision frame-rate flag (initially 0): when set, frame rates in
// scripts are given in thousandths of a frame per second.
void kiv_set_hp_fps(int32_t flag);
uint8_t kiv_get_hp_fps(void);

// The record a multi-channel load is filling on the calling thread (null when
// none).  Its own enable_hp_fps, stored before any rate is read, decides how
// that load reads its frame rates, so that loads in several threads with
// different flags do not see each other's.
struct kiv_multi_chan_cfg;
void kiv_set_loading(const kiv_multi_chan_cfg *cfg);
// The flag frame rates are read with: the loading record's, or the
// process-wide flag when a parser runs outside a load.
uint8_t kiv_rate_hp_fps(void);

// Every message names the source line of its call as the log has always
// given it: a fixed number written at the call, not __LINE__, so that the
// log stays the same byte for byte while the code around the calls changes
// and whichever compiler builds it (two compilers give __LINE__ differently
// inside a call that spans lines).
#define KIV_ERR_AT(line, fn, text, ...)                                                            \
    kiv_log(KIV_LEVEL_ERROR, "KIV_ERROR:: %s(%d): " text, fn, line __VA_OPT__(, ) __VA_ARGS__)
#define KIV_WARN_AT(line, fn, text, ...)                                                           \
    kiv_log(KIV_LEVEL_WARN, "KIV_WARN:: %s(%d): " text, fn, line __VA_OPT__(, ) __VA_ARGS__)
#define KIV_DBG_AT(line, fn, text, ...)                                                            \
    kiv_log(KIV_LEVEL_DEBUG, "KIV_DEBUG:: %s(%d): " text, fn, line __VA_OPT__(, ) __VA_ARGS__)

#endif
