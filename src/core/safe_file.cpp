#include "core/safe_file.h"

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "core/log.h"

namespace
{

// Not an errno value: the file at the path was replaced by another one while
// the new text was being written, so it is not ours to replace.
constexpr int CHANGED = -1;

// Everything a write needs beyond a few words, on the heap so that a dump
// runs on a small thread stack: the stream's buffer (a whole three-channel
// dump, about 18 KiB, goes out in one or two writes), the directory and
// name of the file and the name of the temporary file.
struct writer {
    char buf[16384];
    char path[PATH_MAX]; // split into the directory and `base`
    char temp[NAME_MAX + 1];
    const char *base;
    int dir; // the directory the file is in
    int fd;  // where the text goes
    bool counting;
    uint64_t length; // bytes written, or counted
    int err;         // the first write error
    int why;         // why the file was not opened or not written
};

// The stream's sink: writes everything to w->fd, or only counts it.  After a
// write error the rest of the text is dropped (the outcome is decided).
ssize_t sink_write(void *cookie, const char *data, size_t n)
{
    writer *w = static_cast<writer *>(cookie);
    if (w->counting || w->err) {
        w->length += w->counting ? n : 0;
        return static_cast<ssize_t>(n);
    }
    for (size_t done = 0; done < n;) {
        ssize_t k = write(w->fd, data + done, n - done);
        if (k < 0 && errno == EINTR)
            continue;
        if (k <= 0) {
            w->err = k < 0 ? errno : EIO;
            return static_cast<ssize_t>(n);
        }
        done += static_cast<size_t>(k);
    }
    w->length += n;
    return static_cast<ssize_t>(n);
}

// Puts the text through a stream into w->fd (or only measures it).  Returns
// 0 or the first error.
int emit(writer *w, kiv_text_fn text, const void *ctx, bool counting)
{
    w->counting = counting;
    w->length = 0;
    w->err = 0;
    cookie_io_functions_t io = {nullptr, sink_write, nullptr, nullptr};
    FILE *fp = fopencookie(w, "w", io);
    if (!fp)
        return errno ? errno : ENOMEM;
    setvbuf(fp, w->buf, _IOFBF, sizeof w->buf);
    text(fp, ctx);
    if (fclose(fp) != 0 && !w->err)
        w->err = EIO;
    return w->err;
}

// Whether a text of n bytes fits under the file size limit.  A write past
// the limit would raise SIGXFSZ, which ends the calling process unless it
// asked otherwise, so nothing is written that would cross it.
bool fits_size_limit(uint64_t n)
{
    struct rlimit lim;
    return getrlimit(RLIMIT_FSIZE, &lim) != 0 || lim.rlim_cur == RLIM_INFINITY || n <= lim.rlim_cur;
}

// 0, or EFBIG when the text would not fit under the file size limit (it is
// measured only where there is a limit).
int check_size_limit(writer *w, kiv_text_fn text, const void *ctx)
{
    if (fits_size_limit(UINT64_MAX)) // no limit
        return 0;
    int err = emit(w, text, ctx, true);
    return err ? err : fits_size_limit(w->length) ? 0 : EFBIG;
}

const char *why(int err, char *buf, size_t cap)
{
    if (err == CHANGED)
        return "the file was replaced by another one meanwhile";
    return strerror_r(err, buf, cap);
}

// Splits `path` into its directory, opened as w->dir, and its name w->base.
// False (with errno) for a path too long or without a name ("dir/").
bool open_dir(writer *w, const char *path)
{
    size_t len = strnlen(path, sizeof w->path);
    if (len == sizeof w->path) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(w->path, path, len + 1);
    char *slash = strrchr(w->path, '/');
    const char *dir = ".";
    w->base = w->path;
    if (slash) {
        *slash = '\0';
        w->base = slash + 1;
        dir = slash == w->path ? "/" : w->path;
    }
    if (!*w->base) {
        errno = EISDIR;
        return false;
    }
    // A directory that may be searched but not read can still take the
    // file; it only cannot be synced.
    w->dir = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (w->dir < 0)
        w->dir = open(dir, O_PATH | O_DIRECTORY | O_CLOEXEC);
    return w->dir >= 0;
}

// Creates a file that did not exist, under a fresh name beside w->base:
// "<name>.kiv-XXXXXX", or ".kiv-XXXXXX" where that name would be too long.
int make_temp(writer *w, mode_t mode)
{
    static std::atomic<uint32_t> counter{0};
    const char *stem = strlen(w->base) + 11 <= NAME_MAX ? w->base : "";
    for (int attempt = 0; attempt < 64; ++attempt) {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        uint64_t x = static_cast<uint64_t>(ts.tv_nsec) * 0x9E3779B97F4A7C15ull ^
                     static_cast<uint64_t>(getpid()) << 32 ^
                     counter.fetch_add(1, std::memory_order_relaxed) * 0xBF58476D1CE4E5B9ull;
        char suffix[7];
        for (char &c : suffix) {
            int d = static_cast<int>(x % 36);
            c = static_cast<char>(d < 26 ? 'a' + d : '0' + d - 26);
            x /= 36;
        }
        suffix[6] = '\0';
        snprintf(w->temp, sizeof w->temp, "%s.kiv-%s", stem, suffix);
        int fd = openat(w->dir, w->temp, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, mode);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    errno = EEXIST;
    return -1;
}

// Whether w->base in w->dir is still the regular file `st` describes.
bool still_there(const writer *w, const struct stat &st)
{
    struct stat now;
    return fstatat(w->dir, w->base, &now, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(now.st_mode) &&
           now.st_dev == st.st_dev && now.st_ino == st.st_ino;
}

// Writes the text into a new temporary file (descriptor `tmp`), syncs it and
// closes it.  Returns 0 or the error.
int fill_temp(writer *w, int tmp, kiv_text_fn text, const void *ctx)
{
    w->fd = tmp;
    int err = emit(w, text, ctx, false);
    if (!err && fsync(tmp) != 0)
        err = errno;
    close(tmp);
    w->fd = -1;
    return err;
}

void sync_dir(const writer *w, const char *fn, const char *path)
{
    char buf[64];
    if (fsync(w->dir) != 0 && errno != EBADF) // EBADF: a directory we may not read
        KIV_ERR_AT(191, fn, "write to file [%s] done, but syncing its directory failed (%s)\n",
                   path, why(errno, buf, sizeof buf));
}

// Links the temporary file in as the new file, never over a file that
// appeared at the path meanwhile.  Where the file system cannot rename
// without replacing, a hard link does the same; where it has no hard links
// either, a plain rename is the last resort.
int place_new(const writer *w)
{
    if (renameat2(w->dir, w->temp, w->dir, w->base, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return errno;
    if (linkat(w->dir, w->temp, w->dir, w->base, 0) == 0) {
        unlinkat(w->dir, w->temp, 0);
        return 0;
    }
    if (errno != EPERM && errno != EOPNOTSUPP)
        return errno;
    return renameat(w->dir, w->temp, w->dir, w->base) == 0 ? 0 : errno;
}

kiv_file_result write_new(writer *w, const char *fn, const char *path, kiv_text_fn text,
                          const void *ctx)
{
    // The mode a shell would give the file: 0666 less the umask and what the
    // directory's default ACL takes away.
    if (!open_dir(w, path))
        return w->why = errno, KIV_FILE_NOT_OPENED; // the caller could not create it either
    int err = check_size_limit(w, text, ctx);
    int tmp = err ? -1 : make_temp(w, 0666);
    if (tmp < 0 && !err)
        return w->why = errno, KIV_FILE_NOT_OPENED;
    if (!err)
        err = fill_temp(w, tmp, text, ctx);
    if (!err)
        err = place_new(w);
    if (err) {
        if (tmp >= 0)
            unlinkat(w->dir, w->temp, 0);
        char buf[64];
        KIV_ERR_AT(233, fn, "write to file [%s] failed (%s), no file was created\n", path,
                   why(err, buf, sizeof buf));
        return w->why = err, KIV_FILE_FAILED;
    }
    sync_dir(w, fn, path);
    return KIV_FILE_WRITTEN;
}

// Rewrites the file open as `fd` through that descriptor.  The text is
// measured first; the size limit and the space it needs are checked before
// the file changes.
kiv_file_result rewrite_in_place(writer *w, int fd, const char *fn, const char *path,
                                 kiv_text_fn text, const void *ctx)
{
    char buf[64];
    w->fd = fd;
    int err = emit(w, text, ctx, true);
    uint64_t n = w->length;
    if (!err && !fits_size_limit(n))
        err = EFBIG;
    // File systems that cannot reserve space are written unreserved.
    if (!err && n > 0 && fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(n)) != 0 &&
        errno != EOPNOTSUPP && errno != ENOSYS)
        err = errno;
    if (err) {
        KIV_ERR_AT(258, fn, "write to file [%s] failed (%s), the file was left as it was\n", path,
                   why(err, buf, sizeof buf));
        return w->why = err, KIV_FILE_FAILED;
    }
    err = emit(w, text, ctx, false);
    if (!err && ftruncate(fd, static_cast<off_t>(w->length)) != 0)
        err = errno;
    if (!err && fsync(fd) != 0)
        err = errno;
    if (err) {
        KIV_ERR_AT(268, fn,
                   "write to file [%s] failed (%s) while it was rewritten in place, the file is "
                   "incomplete\n",
                   path, why(err, buf, sizeof buf));
        return w->why = err, KIV_FILE_FAILED;
    }
    return KIV_FILE_WRITTEN;
}

// A replacement that failed: the file is left as it was, or removed again
// when the open created it.
kiv_file_result fail_replace(writer *w, int err, const struct stat &st, bool created,
                             const char *fn, const char *path)
{
    if (created && still_there(w, st))
        unlinkat(w->dir, w->base, 0);
    char buf[64];
    KIV_ERR_AT(285, fn, "write to file [%s] failed (%s), %s\n", path, why(err, buf, sizeof buf),
               created ? "no file was created" : "the file was left as it was");
    return w->why = err, KIV_FILE_FAILED;
}

// Replaces the regular file open as `fd` (described by `st`) by a complete
// new one, or rewrites it in place where replacing would change what the
// file is.  `created`: the open made the file (through a dangling link), so
// a failure removes it again.
kiv_file_result replace(writer *w, int fd, const struct stat &st, bool created, const char *fn,
                        const char *path, kiv_text_fn text, const void *ctx)
{
    // Its own name: links resolved, then checked to be the file we opened.
    // Other hard links would keep the old text.
    if (st.st_nlink != 1 || !realpath(path, w->buf) || !open_dir(w, w->buf) || !still_there(w, st))
        return rewrite_in_place(w, fd, fn, path, text, ctx);
    int err = check_size_limit(w, text, ctx);
    if (err)
        return fail_replace(w, err, st, created, fn, path);
    int tmp = make_temp(w, 0600);
    if (tmp < 0)
        return rewrite_in_place(w, fd, fn, path, text, ctx);
    // Owner and group first (a change of owner clears the mode's special
    // bits), then the permission bits without set-user-id and set-group-id.
    struct stat ts;
    bool kept = fstat(tmp, &ts) == 0 &&
                ((ts.st_uid == st.st_uid && ts.st_gid == st.st_gid) ||
                 fchown(tmp, st.st_uid, st.st_gid) == 0) &&
                fchmod(tmp, st.st_mode & 07777 & ~(S_ISUID | S_ISGID)) == 0;
    if (!kept) {
        close(tmp);
        unlinkat(w->dir, w->temp, 0);
        return rewrite_in_place(w, fd, fn, path, text, ctx);
    }
    err = fill_temp(w, tmp, text, ctx);
    if (!err && !still_there(w, st))
        err = CHANGED;
    if (!err && renameat(w->dir, w->temp, w->dir, w->base) != 0)
        err = errno;
    if (err) {
        unlinkat(w->dir, w->temp, 0);
        return fail_replace(w, err, st, created, fn, path);
    }
    sync_dir(w, fn, path);
    return KIV_FILE_WRITTEN;
}

// A path that names something: opened as a shell redirect opens it.
kiv_file_result write_existing(writer *w, bool dangling, const char *fn, const char *path,
                               kiv_text_fn text, const void *ctx)
{
    int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    if (fd < 0)
        return w->why = errno, KIV_FILE_NOT_OPENED;
    struct stat st;
    kiv_file_result r = KIV_FILE_NOT_OPENED;
    if (fstat(fd, &st) != 0) {
        w->why = errno;
        r = KIV_FILE_NOT_OPENED;
    } else if (S_ISREG(st.st_mode)) {
        r = replace(w, fd, st, dangling, fn, path, text, ctx);
    } else {
        // A device, a pipe, a terminal: written as it is.
        w->fd = fd;
        int err = emit(w, text, ctx, false);
        r = KIV_FILE_WRITTEN;
        if (err) {
            char buf[64];
            KIV_ERR_AT(353, fn, "write to file [%s] failed (%s)\n", path,
                       why(err, buf, sizeof buf));
            w->why = err;
            r = KIV_FILE_FAILED;
        }
    }
    close(fd);
    return r;
}

} // namespace

kiv_file_result kiv_write_file(const char *fn, const char *path, kiv_text_fn text, const void *ctx,
                               int *err)
{
    writer *w = static_cast<writer *>(malloc(sizeof(writer)));
    if (!w) {
        if (err)
            *err = ENOMEM;
        return KIV_FILE_NOT_OPENED;
    }
    w->dir = -1;
    w->fd = -1;
    w->why = 0;
    struct stat st;
    kiv_file_result r;
    if (lstat(path, &st) != 0) {
        w->why = errno;
        r = errno == ENOENT ? write_new(w, fn, path, text, ctx) : KIV_FILE_NOT_OPENED;
    } else {
        // A link to nothing: opening it creates the file it names, as `>` does.
        bool dangling = S_ISLNK(st.st_mode) && stat(path, &st) != 0 && errno == ENOENT;
        r = write_existing(w, dangling, fn, path, text, ctx);
    }
    if (err)
        *err = r == KIV_FILE_WRITTEN ? 0 : w->why;
    if (w->dir >= 0)
        close(w->dir);
    free(w);
    return r;
}

#include <stdio_ext.h> // __fpending

uint64_t kiv_stdout_room(void)
{
    struct rlimit lim;
    if (getrlimit(RLIMIT_FSIZE, &lim) != 0 || lim.rlim_cur == RLIM_INFINITY)
        return UINT64_MAX;
    const int fd = fileno(stdout);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
        return UINT64_MAX;
    const int flags = fcntl(fd, F_GETFL);
    off_t at = flags >= 0 && (flags & O_APPEND) ? st.st_size : lseek(fd, 0, SEEK_CUR);
    if (at < 0)
        at = st.st_size;
    const uint64_t end = static_cast<uint64_t>(at) + __fpending(stdout);
    return end < lim.rlim_cur ? lim.rlim_cur - end : 0;
}

int kiv_stdout_fits(kiv_text_fn text, const void *ctx)
{
    const uint64_t room = kiv_stdout_room();
    if (room == UINT64_MAX)
        return 0;
    writer *w = static_cast<writer *>(malloc(sizeof(writer)));
    if (!w)
        return ENOMEM;
    int err = emit(w, text, ctx, true);
    if (err == 0 && w->length > room)
        err = EFBIG;
    free(w);
    return err;
}
