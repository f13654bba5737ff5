// znsMonitor: prints every bus event as "ID CODE PAYLOAD" until killed.
#include <cstdio>
#include <cstring>

#include "znsmsg.h"

int main() {
    int fd = zns_eventSubscribe();
    if (fd < 0) {
        perror("znsMonitor: subscribe");
        return 1;
    }
    for (;;) {
        uint32_t event = 0, code = 0;
        char payload[ZNS_EVENT_PAYLOAD_MAX + 1];
        int has = 0;
        if (zns_eventReceive(fd, &event, &code, payload, sizeof payload, &has) != 0)
            continue;
        size_t n = strlen(payload);
        while (n && payload[n - 1] == '\n')
            payload[--n] = '\0';
        printf("%u 0x%x %s\n", event, code, has ? payload : "-");
        fflush(stdout);
    }
}
