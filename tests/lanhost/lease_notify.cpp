// Sends TEXT as one datagram to the unix datagram socket at PATH, as the
// gateway's DHCP side reports a lease:  lanhost_lease_notify PATH TEXT
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

int main(int argc, char **argv) {
    sockaddr_un to{};
    if (argc != 3 || strlen(argv[1]) >= sizeof to.sun_path) {
        fprintf(stderr, "usage: %s PATH TEXT\n", argv[0]);
        return 2;
    }
    to.sun_family = AF_UNIX;
    strcpy(to.sun_path, argv[1]);
    int s = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (s < 0 || sendto(s, argv[2], strlen(argv[2]), 0, reinterpret_cast<sockaddr *>(&to), sizeof to) < 0) {
        perror(argv[1]);
        return 1;
    }
    close(s);
    return 0;
}
