#include "core/safe_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

bool kiv_safe_open(kiv_safe_file *f, const char *path)
{
    f->fp = nullptr;
    f->replacing = false;
    struct stat st;
    // Only a regular file that exists is replaced.  A new file has nothing to
    // lose, and a device or a pipe (/dev/null, a terminal) is written in
    // place: renaming over it would replace the device itself.
    if (realpath(path, f->target) && stat(f->target, &st) == 0 && S_ISREG(st.st_mode)) {
        int n = snprintf(f->temp, sizeof f->temp, "%s.XXXXXX", f->target);
        if (n < 0 || static_cast<size_t>(n) >= sizeof f->temp)
            return false;
        int fd = mkstemp(f->temp);
        if (fd < 0)
            return false; // cannot write beside it: leave the file alone
        if (fchmod(fd, st.st_mode & 07777) != 0 || !(f->fp = fdopen(fd, "w"))) {
            close(fd);
            unlink(f->temp);
            return false;
        }
        f->replacing = true;
    } else if (!(f->fp = fopen(path, "w"))) {
        return false;
    }
    setvbuf(f->fp, f->buf, _IOFBF, sizeof f->buf);
    return true;
}

bool kiv_safe_close(kiv_safe_file *f)
{
    bool ok = fflush(f->fp) == 0 && !ferror(f->fp);
    if (f->replacing)
        ok = ok && fsync(fileno(f->fp)) == 0;
    ok = fclose(f->fp) == 0 && ok;
    f->fp = nullptr;
    if (!f->replacing)
        return ok;
    if (ok && rename(f->temp, f->target) == 0)
        return true;
    unlink(f->temp);
    return false;
}
