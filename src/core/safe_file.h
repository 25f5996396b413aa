// Writing a file so that a configuration is never lost: an existing file is
// replaced only by a complete new one.  The new text goes to a temporary
// file beside the real file (symbolic links followed), which is flushed to
// disk, given the old file's permissions and renamed over it.  A crash or a
// write error midway leaves the old file untouched.
#ifndef KIV_CORE_SAFE_FILE_H
#define KIV_CORE_SAFE_FILE_H

#include <limits.h>
#include <stdio.h>

struct kiv_safe_file {
    FILE *fp;
    bool replacing; // writing to temp, to be renamed over target
    char target[PATH_MAX];
    char temp[PATH_MAX + 16];
    // The stream's buffer: a whole three-channel dump (about 18 KiB) goes
    // out in one or two writes, and opening the file allocates no buffer.
    char buf[16384];
};

// Opens path for writing.  Returns false when it cannot be written.
bool kiv_safe_open(kiv_safe_file *f, const char *path);

// Completes the file: flushed, synced and, when replacing, renamed into
// place.  Returns false on a write error; an existing file then stays as it
// was.
bool kiv_safe_close(kiv_safe_file *f);

#endif
