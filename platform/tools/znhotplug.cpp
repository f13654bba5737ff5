// znhotplug: the gateway's hot-plug sender as the agent sees it. Sends
// MESSAGE ("add,sda1", "remove,usb/lp0") as one datagram to the agent's
// hot-plug socket.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

namespace {
constexpr const char *kHotplugSocket = "/tmp/zn_event_agent_usb";
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: znhotplug MESSAGE   (add,NAME or remove,NAME)\n");
        return 2;
    }
    sockaddr_un to{};
    to.sun_family = AF_UNIX;
    snprintf(to.sun_path, sizeof to.sun_path, "%s", kHotplugSocket);
    int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (fd < 0 || sendto(fd, argv[1], strlen(argv[1]), 0, reinterpret_cast<sockaddr *>(&to), sizeof to) < 0) {
        perror("znhotplug");
        return 1;
    }
    close(fd);
    return 0;
}
