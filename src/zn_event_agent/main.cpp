// zn_event_agent: the gateway's event agent. No arguments, no configuration
// of its own, no stop command: it runs until killed.
#include "agent_log.h"
#include "agent_threads.h"
#include "btn_reader.h"
#include "libzn.h"

// For the store library; the agent itself neither reads nor writes it.
extern "C" {
__attribute__((weak)) int allow_direct_write_xmlShm = 0;
}

int main() {
    libzn_sys_getProvince(province);
    zns_registerModule(ZN_MODULE_NAME);
    set_log_level(ZN_MODULE_NAME, 1);
    thread_init();
    thread_join();
    return 0;
}
