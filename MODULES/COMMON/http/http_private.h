/* Private to the library: the pieces of the command client that its files
 * share, and the answer-side scanners (fuzzed on their own). */
#ifndef DVR_HTTP_PRIVATE_H
#define DVR_HTTP_PRIVATE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "COMMON.h"

namespace http {

constexpr int kRequestSize = COM_HTTP_REQUEST_SIZE;
constexpr int kHostSize = COM_HTTP_HOST_SIZE;
constexpr int kAuthTextSize = COM_HTTP_AUTH_TEXT_SIZE;

// The word a command kind puts in the Digest hash.
const char *methodWord(int kind);

// Everything from the address's first "/" on, or "/".
const char *pathOf(const char *url);

// Host part (terminated, cut as the address rules say) and port of a command
// address. A host part too long for kHostSize is reported under func and left
// empty.
struct Address {
    char host[kHostSize];
    int port;
};
void parseAddress(const char *func, const char *url, Address &out);

// The request text of kinds 0 to 3 for the given parts, written to buf
// (size bytes, terminated). For kind 1 only the header is written, the data
// excluded. Returns the text's length, or, when it doesn't fit with its
// terminator, -(the length it would have) - 1, with buf's content undefined.
// Other kinds give 0: no request text.
int buildRequest(char *buf, int size, int kind, const char *host, int port, const char *path,
                 const char *cookie, const char *authText, const char *data);

// Content-Length of a received block: the last hit's value, or -1.
int scanContentLength(const char *block, int length);
// Bytes of the block up to and including the first "\r\n\r\n", failing that
// the first "\n\n"; 0 when neither lies wholly inside it.
int findHeaderEnd(const char *block, int length);

// A growing answer in the caller's heap block: grown through
// COM_ReallocAndCopyBuf by half of what it holds at a time (never past the
// size the answer announced), so that a long answer costs few reallocations.
class Answer {
public:
    explicit Answer(char **owner) : owner_(owner) {}
    // Appends; false (reported under func) when the block couldn't grow and
    // the bytes were dropped.
    bool append(const char *func, const char *bytes, int length);
    // Room for length more bytes behind the content, to be filled and then
    // counted by commit(); null when the block couldn't grow.
    char *room(int length);
    void commit(int length) { stored_ += length; }
    // Reports length bytes that were dropped because the block couldn't grow.
    void reportLost(const char *func, int length) const;
    // The block size a complete answer needs with its terminator, when known:
    // growth stops there.
    void expect(int64_t size) { expected_ = size; }
    // Appends the terminating zero, trimming the block to its content. The
    // stored count with the zero, or 0 when nothing was stored.
    int finish(const char *func);
    int stored() const { return stored_; }

private:
    char **owner_;
    int stored_ = 0;
    int capacity_ = 0;
    int64_t expected_ = -1;
};

} // namespace http

#endif
