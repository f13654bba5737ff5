// The one read that a tracker callback makes of its woken socket.
#pragma once

#include <event2/util.h>
#include <sys/types.h>

#include <cstddef>

#include "agent_log.h"

// The words of a callback's line for a failed read.
enum class ReadFailure {
    kPlain,  // "read fail"
    kErrno,  // "read error: %s\n" with the text of errno
    kResult, // "recv netlink msg error:%d\n" with the result
};

struct ReadRule {
    ReadFailure failure;
    bool text = false; // the buffer's last byte stays 0, so a text datagram ends there
    size_t least = 0;  // a shorter datagram counts as a failed read
    int flags = 0;     // of the recv
};

// The one read of a woken socket: all size bytes of buf are zeroed, then one
// recv. A failure is logged at level 1 (tracker log) under the name and line
// of the calling callback and gives -1 with errno as the recv left it;
// else the number of bytes read.
ssize_t lanhost_read_once(evutil_socket_t fd, void *buf, size_t size, const ReadRule &rule, CallSite caller = {});
