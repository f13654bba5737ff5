// Callbacks whose work comes with later parts of the tracker: each socket is
// drained so that the loop doesn't spin on it, and what arrived is dropped.
#include <sys/socket.h>

#include "lanhost.h"

namespace {

void drain(evutil_socket_t fd) {
    char buf[2048];
    recv(fd, buf, sizeof buf, MSG_DONTWAIT);
}

} // namespace

void zn_event_lanhost_dhcpSockRead_cb(evutil_socket_t fd, short, void *) { drain(fd); }
void zn_event_lanhost_bridge_dhcpSockRead_cb(evutil_socket_t fd, short, void *) { drain(fd); }
