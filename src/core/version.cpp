// The library's version, as its package and pkg-config file give it.
#include "core/export.h"
#include "kiv.h"

// The build gives the project's version; a build without it (a source
// file compiled on its own) still answers, with a version no release has.
#ifndef KIV_VERSION
#define KIV_VERSION "0.0.0"
#endif

KIV_API const char *kiv_version(void)
{
    return KIV_VERSION;
}
