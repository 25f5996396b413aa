// The dump: writes a record back as a multi-channel script.
#include <stdio.h>
#include <string.h>

#include "core/export.h"
#include "core/log.h"
#include "core/out.h"
#include "core/safe_file.h"
#include "core/sections.h"
#include "kiv.h"

static const char FN[] = "kiv_dump_multi_chan_cfg";

void kiv_write_script(FILE *out, const void *ctx)
{
    const kiv_multi_chan_cfg *cfg = static_cast<const kiv_multi_chan_cfg *>(ctx);
    const int chans = cfg->chan_num < 3 ? cfg->chan_num : 3;
    const int streams = cfg->stream_num < 13 ? cfg->stream_num : 13;

    // The global tables first: _resource_config_ refers to them by name.
    kiv_dump_virt_mode_cfg(cfg, out, cfg->enable_hp_fps, static_cast<uint8_t>(chans));
    kiv_dump_vsrc_cfg(cfg, out);
    kiv_dump_channel_cfg(cfg, out);
    kiv_dump_stream_cfg(cfg, out);

    kiv_out_str(out, "_resource_config_ = {\n");
    kiv_out(out, "\tversion = %d,\n", 1);
    kiv_out(out, "\tlog_level = %d,\n", kiv_get_log_level());
    kiv_out(out, "\tenable_hp_fps = %d,\n", cfg->enable_hp_fps ? 1 : 0);
    kiv_out(out, "\tvin_short_line_detect = %d,\n", cfg->vin_short_line_detect ? 1 : 0);
    kiv_out_str(out, "\tchannels = {\n");
    for (int i = 0; i < chans; ++i)
        kiv_out(out, "\t\tchan_%d,\n", i);
    kiv_out_str(out, "\t},\n");
    kiv_dump_chan_grp_cfg(cfg, out);
    kiv_dump_canvas_cfg(cfg, out);
    kiv_out_str(out, "\tstreams = {\n");
    for (int i = 0; i < streams; ++i)
        kiv_out(out, "\t\tstream_%d,\n", i);
    kiv_out_str(out, "\t},\n");
    kiv_dump_mem_cfg_resource(cfg, out);
    kiv_out_str(out, "}\n");
    kiv_out_str(out, "\nreturn _resource_config_\n");
}

KIV_API int32_t kiv_dump_multi_chan_cfg(const kiv_multi_chan_cfg *cfg, const char *path)
{
    if (!cfg) {
        KIV_ERR_AT(48, FN, "the 1st param is NULL\n");
        return -1;
    }
    // A failed write is not a failure of the dump: the file writer has said
    // what is left at the path.  A path that cannot be written at all gets
    // the script on standard output instead.
    if (path && kiv_write_file(FN, path, kiv_write_script, cfg) != KIV_FILE_NOT_OPENED)
        return 0;
    // Standard output may be a file under a size limit, and a write past
    // the limit would end the caller (SIGXFSZ): the text is measured first
    // and refused whole where it would not fit (the log, on standard output
    // too, leaves out the lines that would not).
    flockfile(stdout);
    if (path)
        KIV_ERR_AT(57, FN, "Open file [%s] error, output to console\n", path);
    if (const int err = kiv_stdout_fits(kiv_write_script, cfg); err == 0) {
        kiv_write_script(nullptr, cfg);
    } else {
        char why[64];
        KIV_ERR_AT(74, FN, "write to console failed (%s), nothing was written\n",
                   strerror_r(err, why, sizeof why));
    }
    funlockfile(stdout);
    return 0;
}
