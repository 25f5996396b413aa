// Writing a text file at a caller's path with no more rights and no other
// effects than a shell redirect (`> path`) would have, and never leaving a
// partial file there.
//
//  - The path is opened the way a shell opens it (O_WRONLY | O_CREAT, no
//    truncation yet), so the kernel's rules apply to the caller: write
//    permission, links planted in sticky directories, files of other users in
//    them.  Symbolic links are followed as the shell follows them.
//  - A new file is written under a temporary name beside it, synced and
//    linked into place (never over a file that appeared meanwhile); it gets
//    the mode a shell would give it (0666 less the umask and default ACLs).
//  - An existing regular file is replaced the same way by a complete copy that
//    keeps its owner, group and permission bits (set-user-id and set-group-id
//    dropped).  Only the file that was opened is ever replaced: its device and
//    inode are checked before and just before the rename.
//  - It is instead rewritten in place, through the descriptor that was
//    opened, when replacing would change what the file is: a file with other
//    hard links (they would keep the old text), a file whose owner or group
//    the caller may not give to a new file, or one in a directory where no
//    temporary file can be made.  Space for the whole text is reserved and the
//    file size limit checked before the first byte changes, so a full file
//    system or a size limit leaves the old text; only an I/O error in the
//    middle of the rewrite can leave the file incomplete, and the log says so.
//  - A text longer than the file size limit (RLIMIT_FSIZE) is refused before
//    anything is written, on every path: crossing the limit would raise
//    SIGXFSZ, which ends the calling process unless it asked otherwise.
//  - Devices, pipes and terminals are written through the opened descriptor.
//  - Every descriptor is close-on-exec; the directory is synced after a rename.
//  - Extended attributes and ACL entries of a replaced file are not copied.
#ifndef KIV_CORE_SAFE_FILE_H
#define KIV_CORE_SAFE_FILE_H

#include <stdint.h>
#include <stdio.h>

// Writes its text to `out`.  Called once, or twice when the file
// is rewritten in place (the first time only to measure the text): it must
// write the same text each time and have no other effect.
typedef void (*kiv_text_fn)(FILE *out, const void *ctx);

enum kiv_file_result {
    KIV_FILE_WRITTEN,    // the whole text is at the path
    KIV_FILE_NOT_OPENED, // the path cannot be written; nothing was changed or logged
    KIV_FILE_FAILED,     // writing failed; the log (under `fn`) says what is at the path
};

// `err`, when given, receives why the file was not opened or not written:
// an errno value, or -1 when the file was replaced by another meanwhile.
kiv_file_result kiv_write_file(const char *fn, const char *path, kiv_text_fn text, const void *ctx,
                               int *err = nullptr);

// What standard output can still take before the file size limit: the
// limit less where the next byte would go (its file's position or, when it
// appends, size, plus what its stream holds unwritten).  UINT64_MAX when
// there is no limit or it is no regular file (a terminal, a pipe, a device).
uint64_t kiv_stdout_room(void);
// Whether the text `text` writes fits on standard output without crossing
// the file size limit (measured only where there is one): 0, EFBIG, or
// another errno value when it cannot be measured.
int kiv_stdout_fits(kiv_text_fn text, const void *ctx);

#endif
