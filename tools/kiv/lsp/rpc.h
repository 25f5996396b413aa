// The protocol's framing on a byte stream: each message a header block
// ("Content-Length: N", other headers ignored, a blank line) and N bytes of
// JSON.
#ifndef KIV_TOOL_LSP_RPC_H
#define KIV_TOOL_LSP_RPC_H

#include <cstddef>
#include <string>

namespace kivtool::lsp
{

// The largest message taken: an editor's buffer of a configuration is far
// below it; a larger one is read past and refused.
constexpr size_t MAX_MESSAGE = 64u << 20;

// What is kept of each end of a message too large to take: where its id,
// method and document are, which clients write before or after the text.
constexpr size_t TOO_BIG_HEAD = 64u << 10;

enum class read_result {
    message, // *body holds one message
    too_big, // a message larger than MAX_MESSAGE was skipped; *body holds its first TOO_BIG_HEAD
             // bytes
    end,     // the stream ended (or broke) between messages
    broken,  // the stream does not follow the framing: nothing more can be read
};

// Reads the next message from file descriptor fd.  With `wake` a
// descriptor (not -1), it stops waiting as soon as `wake` is readable, as
// at the end of the stream.
read_result read_message(int fd, std::string *body, int wake = -1);

// Writes one message to fd, whole; false when it cannot be written.
bool write_message(int fd, const std::string &body);

} // namespace kivtool::lsp

#endif
