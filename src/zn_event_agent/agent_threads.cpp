#include "agent_threads.h"

#include <pthread.h>

#include <cstdio>

#include "agent_log.h"
#include "btn_reader.h"
#include "lanhost.h"
#include "link_events.h"
#include "pon_events.h"
#include "timer.h"
#include "usb_thread.h"

namespace {

pthread_t btn_thread;
pthread_t ponModeChangeThread;
pthread_t kernelEventThread;
pthread_t kernelKobjectThread;
pthread_t lanhostThread;
pthread_t timerThread;

enum class Report { Stdout, ModuleLog };

struct Worker {
    void *(*entry)(void *);
    pthread_t *handle;
    Report channel;
    const char *failure;
    bool tracker; // the tracker's log is initialised just before it starts
};

// The workers in their order of creation.
constexpr Worker kWorkers[] = {
    {btn_handler, &btn_thread, Report::Stdout, "create btn_thread failed", false},
    {ponEventHandler, &ponModeChangeThread, Report::ModuleLog, "create ponModeChangeThread failed\n", false},
    {kernelEventHandler, &kernelEventThread, Report::ModuleLog, "create kernelEventHandler failed\n", false},
    {kernelKobjectEventHandler, &kernelKobjectThread, Report::ModuleLog, "create kernelKobjectEventHandler failed\n",
     false},
    {zn_event_lanhost_thread, &lanhostThread, Report::ModuleLog, "create zn_event_lanhost_thread failed\n", true},
    {timerEventHandler, &timerThread, Report::ModuleLog, "create timerEventHandler failed\n", false},
};

constexpr size_t kWorkerCount = sizeof kWorkers / sizeof kWorkers[0];
size_t created;

} // namespace

int thread_init() {
    for (const Worker &w : kWorkers) {
        if (w.tracker) {
            zn_event_lanhost_log_init();
            LANHOST_LOG(1, "zn_event_lanhost_thread run");
        }
        if (pthread_create(w.handle, nullptr, w.entry, nullptr) != 0) {
            if (w.channel == Report::Stdout)
                puts(w.failure);
            else
                ZN_LOG(1, "%s", w.failure);
            return -1;
        }
        created++;
    }
    return 0;
}

void thread_join() {
    for (size_t i = 0; i < created && i < kWorkerCount; i++)
        pthread_join(*kWorkers[i].handle, nullptr);
}
