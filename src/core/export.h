// Marks the functions of the library's C interface; everything else stays
// inside the shared object.
#ifndef KIV_CORE_EXPORT_H
#define KIV_CORE_EXPORT_H

#define KIV_API extern "C" __attribute__((visibility("default")))

#endif
