// The multi-channel loader; a record that loads is dumped and the dump must
// load again.
#include <stdlib.h>

#include "fuzz_common.h"
#include "kiv.h"

void kivfuzz::run(const char *in)
{
    static kiv_multi_chan_cfg cfg, again;
    uint8_t level = kiv_get_log_level();
    if (kiv_get_multi_chan_cfg(in, &cfg) != 0)
        return;
    const char *out = kivfuzz::scratch("dump.lua");
    kiv_dump_multi_chan_cfg(&cfg, out);
    // The dump writes the log level in force; keep the loads comparable.
    if (kiv_get_multi_chan_cfg(out, &again) != 0)
        abort(); // a loaded record must always dump to a script that loads
    kiv_set_log_level(level);
}
