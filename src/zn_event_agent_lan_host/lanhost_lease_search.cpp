// The lease files are searched in the process: grep through the shell cost
// the tracker's loop a child process at each synchronisation of a host with
// a static address, and the loop stands still while it runs.
#include "lanhost_lease_search.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "byte_cursor.h"
#include "unique_fd.h"

namespace {

// Bytes are compared as they are, as grep does in the C locale: the lease
// files are ASCII, which every locale reads alike.
bool address_in(const ByteCursor &text, const char *address, size_t len) {
    const uint8_t *p = text.peek();
    for (size_t at = 0; at + len <= text.left(); at++) {
        size_t i = 0;
        while (i < len && (address[i] == '.' || uint8_t(address[i]) == p[at + i]))
            i++;
        if (i == len)
            return true;
    }
    return false;
}

struct Search {
    const char *address;
    size_t len;
    char *line;
    size_t size;
    bool found;
    bool matched;  // the current line, whose start has left the buffer, holds the address
    bool headKept; // line holds the current line's start
};

// As fgets read grep's output: the line's first size - 1 bytes and the line
// feed that grep prints after every line, the last one of the file too.
void keep_head(Search &s, const ByteCursor &text) {
    size_t n = text.left() < s.size - 1 ? text.left() : s.size - 1;
    memcpy(s.line, text.peek(), n);
    if (n == text.left() && n < s.size - 1)
        s.line[n++] = '\n';
    s.line[n] = '\0';
}

void line_end(Search &s, const ByteCursor &text) {
    if (s.matched || address_in(text, s.address, s.len)) {
        if (!s.headKept)
            keep_head(s, text);
        s.found = true;
    }
    s.matched = s.headKept = false;
}

// A line that fills the buffer: its start is kept, and its last len - 1
// bytes stay for a match that runs on into the next read.
void line_part(Search &s, ByteCursor &rest) {
    s.matched = s.matched || address_in(rest, s.address, s.len);
    if (!s.headKept)
        keep_head(s, rest);
    s.headKept = true;
    rest.skip(rest.left() - (s.len - 1));
}

bool take_line(ByteCursor &rest, ByteCursor *text) {
    const void *feed = memchr(rest.peek(), '\n', rest.left());
    return feed && rest.sub(size_t(static_cast<const uint8_t *>(feed) - rest.peek()), text) && rest.skip(1);
}

} // namespace

// NOLINTNEXTLINE(readability-non-const-parameter): keep_head writes the line through Search
bool lanhost_lease_first_line(const char *address, const char *path, char *line, size_t size) {
    const UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    Search s{address, strlen(address), line, size, false, false, false};
    if (!fd || s.len == 0 || s.len > kLeaseChunk || size < 2 || size > kLeaseChunk)
        return false;
    // GNU grep takes a file with a NUL byte for binary and prints none of its
    // lines (only "binary file matches", on standard error), so through the
    // shell such a file gave no line. The lease files are text, and one with
    // a NUL is damaged: it gives no line here either, which takes reading it
    // to its end. (grep decides block by block, so in a file of many
    // kilobytes it prints the lines that match before the block with the NUL.)
    bool binary = false;
    uint8_t buf[kLeaseChunk];
    size_t have = 0; // the start of buf holds the current line's last bytes
    for (;;) {
        ssize_t n;
        while ((n = read(fd.get(), buf + have, sizeof buf - have)) < 0 && errno == EINTR) {
        }
        if (n < 0)
            return false;
        binary = binary || memchr(buf + have, '\0', size_t(n)) != nullptr;
        have += size_t(n);
        ByteCursor rest(buf, have), text;
        while (!s.found && take_line(rest, &text))
            line_end(s, text);
        if (n == 0) {
            if (!s.found && rest.left())
                line_end(s, rest);
            return s.found && !binary;
        }
        if (s.found)
            rest.skip(rest.left());
        else if (rest.left() == sizeof buf)
            line_part(s, rest);
        have = rest.left();
        memmove(buf, rest.peek(), have);
    }
}
