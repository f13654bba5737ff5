// The form that the agent's datagram workers share: a unix datagram socket
// at a fixed path, woken at least every 5 seconds, one text per datagram.
#pragma once

#include <cstddef>

#include "agent_log.h"

constexpr size_t kAgentDgramSize = 256;

// A unix datagram socket bound at path (a file left there is removed first)
// with a receive buffer of 2048 bytes; -1, and nothing logged, when any step
// fails.
int zn_event_dgram_sock_init(const char *path);

// Waits up to 5 seconds for fd; false when nothing came. Otherwise clears buf
// and reads one datagram into it, cut to leave its text ending within buf; a
// failed read is logged under the calling worker's file, name and line and
// leaves buf empty.
bool zn_event_dgram_read(int fd, char (&buf)[kAgentDgramSize], CallSite caller = {});
