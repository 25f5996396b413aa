/*
 * kiv_load: loads a multi-channel configuration script and writes it back.
 *
 *   kiv_load CONFIG.lua [OUT.lua]
 *
 * Prints the library's log, then the canonical form of the configuration to
 * OUT.lua (or to standard output).  Exits 0 when the configuration loaded.
 * A minimal C consumer of the library: it uses only the public header.
 */
#include <stdio.h>
#include <stdlib.h>

#include <kiv.h>

int main(int argc, char **argv)
{
    kiv_multi_chan_cfg *cfg;
    int32_t ret;

    if (argc < 2 || argc > 3) {
        fprintf(stderr, "usage: %s CONFIG.lua [OUT.lua]\n", argv[0]);
        return 2;
    }
    cfg = malloc(sizeof *cfg);
    if (!cfg)
        return 2;
    ret = kiv_get_multi_chan_cfg(argv[1], cfg);
    fflush(stdout);
    if (ret != 0) {
        fprintf(stderr, "%s: load failed with %d\n", argv[1], (int)ret);
        free(cfg);
        return 1;
    }
    fprintf(stderr, "%s: %u channel(s), %u canvas(es), %u stream(s)\n", argv[1],
            (unsigned)cfg->chan_num, (unsigned)cfg->canvas_num, (unsigned)cfg->stream_num);
    kiv_dump_multi_chan_cfg(cfg, argc == 3 ? argv[2] : NULL);
    free(cfg);
    return 0;
}
