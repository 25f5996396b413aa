#include "lsp/rpc.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace kivtool::lsp
{

namespace
{

// A header line longer than this, or more lines than MAX_HEADERS in one
// block, is no header of the protocol.
constexpr size_t MAX_HEADER_LINE = 4096;
constexpr int MAX_HEADERS = 32;

// Bytes of fd, read in blocks.  One reader per descriptor: the reading
// thread of the server.
struct reader {
    int fd;
    char buf[65536];
    size_t at = 0, n = 0;
    int wake = -1; // readable: stop waiting for fd

    // The next byte, or -1 at the end of the stream or on an error.
    int get()
    {
        if (at == n) {
            if (wake >= 0) {
                pollfd p[2] = {{fd, POLLIN, 0}, {wake, POLLIN, 0}};
                while (poll(p, 2, -1) < 0)
                    if (errno != EINTR)
                        return -1;
                if (p[1].revents)
                    return -1;
            }
            ssize_t r;
            do
                r = read(fd, buf, sizeof buf);
            while (r < 0 && errno == EINTR);
            if (r <= 0)
                return -1;
            at = 0;
            n = static_cast<size_t>(r);
        }
        return static_cast<unsigned char>(buf[at++]);
    }
    // Up to `want` bytes appended to *out (when out is not null) or
    // skipped; how many, 0 at the end of the stream.
    size_t take(std::string *out, size_t want)
    {
        if (at == n) {
            const int c = get();
            if (c < 0)
                return 0;
            --at;
        }
        const size_t k = std::min(want, n - at);
        if (out)
            out->append(buf + at, k);
        at += k;
        return k;
    }
};

reader &reader_of(int fd)
{
    static thread_local reader r{fd, {}, 0, 0};
    if (r.fd != fd)
        r = reader{fd, {}, 0, 0};
    return r;
}

} // namespace

read_result read_message(int fd, std::string *body, int wake)
{
    reader &in = reader_of(fd);
    in.wake = wake;
    long long length = -1;
    for (int lines = 0;; ++lines) {
        std::string line;
        int c;
        while ((c = in.get()) >= 0 && c != '\n')
            if (line.size() < MAX_HEADER_LINE + 1)
                line += static_cast<char>(c);
        if (c < 0)
            return line.empty() && lines == 0 ? read_result::end : read_result::broken;
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty()) {
            if (lines == 0)
                continue; // blank lines between messages
            break;
        }
        if (line.size() > MAX_HEADER_LINE || lines >= MAX_HEADERS)
            return read_result::broken;
        static const char NAME[] = "content-length:";
        if (line.size() > strlen(NAME) && strncasecmp(line.c_str(), NAME, strlen(NAME)) == 0) {
            char *end = nullptr;
            errno = 0;
            length = strtoll(line.c_str() + strlen(NAME), &end, 10);
            while (*end == ' ' || *end == '\t')
                ++end;
            if (errno || *end || length < 0)
                return read_result::broken;
        }
    }
    if (length < 0)
        return read_result::broken;
    const bool fits = static_cast<unsigned long long>(length) <= MAX_MESSAGE;
    body->clear();
    if (fits)
        body->reserve(static_cast<size_t>(length));
    for (size_t left = static_cast<size_t>(length); left > 0;) {
        // Of a message too large, its head and its tail are kept (where
        // its id, method and document are, written before or after a
        // long text), a line break between, and the rest skipped.
        const size_t done = static_cast<size_t>(length) - left;
        size_t want = left;
        bool keep = true;
        if (!fits && done < TOO_BIG_HEAD) {
            want = TOO_BIG_HEAD - done;
        } else if (!fits && left > TOO_BIG_HEAD) {
            want = left - TOO_BIG_HEAD;
            keep = false;
        } else if (!fits && left == TOO_BIG_HEAD) {
            *body += '\n';
        }
        const size_t k = in.take(keep ? body : nullptr, std::min(want, left));
        if (k == 0)
            return read_result::broken;
        left -= k;
    }
    return fits ? read_result::message : read_result::too_big;
}

bool write_message(int fd, const std::string &body)
{
    const std::string msg = "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    for (size_t done = 0; done < msg.size();) {
        const ssize_t w = write(fd, msg.data() + done, msg.size() - done);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0)
            return false;
        done += static_cast<size_t>(w);
    }
    return true;
}

} // namespace kivtool::lsp
