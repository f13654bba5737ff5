// The sixth worker: due tasks arrive on the timer socket and are carried
// out one after the other; later ones wait in the socket meanwhile.
#include "agent_dgram.h"
#include "agent_log.h"
#include "timer.h"

void *timerEventHandler(void *) {
    int fd = zn_event_dgram_sock_init(kTimerSocket);
    if (fd < 0)
        return nullptr;
    for (;;) {
        char buf[kAgentDgramSize];
        if (!zn_event_dgram_read(fd, buf))
            continue;
        ZN_LOG(4, "buff: %s\n", buf);
        timerEventDispatch(buf);
    }
}
