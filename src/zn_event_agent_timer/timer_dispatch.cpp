#include "timer.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "agent_store.h"
#include "libzn.h"
#include "znsmsg.h"

namespace {

constexpr const char *kSleepTimerPath = "InternetGatewayDevice.X_ZN_GatewaySleep.SleepTimer";
constexpr size_t kSleepTimerEnableAt = 1; // the one field read, straight from the record
constexpr uint32_t kUpgradeEventCode = 1;

// A task path and what it starts: a handler of the text, or an event on the
// bus that takes nothing from the text.
struct TimerTask {
    const char *path;
    int (*handler)(const char *text);
    uint32_t event;
};

// Tried in order; the first path found in the text decides.
constexpr TimerTask kTimerTasks[] = {
    {kSleepTimerPath, sleepTimerHandler, 0},
    {"InternetGatewayDevice.CMCC_TimedTask", cmccTimedTaskHandler, 0},
    {"InternetGatewayDevice.CMCC_DeviceLimit", cmccDeviceLimitHandler, 0},
    {"InternetGatewayDevice.X_ZN_UpgradeTask.Download", nullptr, 1450}, // the upgrade's download is due
    {"InternetGatewayDevice.X_ZN_UpgradeTask.Upgrade", nullptr, 1451},  // the upgrade itself is due
};

} // namespace

bool timerTaskIndex(const char *text, int *index, CallSite caller) {
    if (!text) {
        ZN_LOG_AT(caller, 1, "read buf is null\n");
        return false;
    }
    const char *dot = strrchr(text, '.');
    if (!dot) {
        ZN_LOG_AT(caller, 1, "read buf format error\n");
        return false;
    }
    *index = int(strtol(dot + 1, nullptr, 10));
    return true;
}

int timerTaskOf(const char *text) {
    for (size_t i = 0; i < sizeof kTimerTasks / sizeof kTimerTasks[0]; i++)
        if (strstr(text, kTimerTasks[i].path))
            return int(i);
    return -1;
}

namespace {

// Calls the operator's handler with the text's index; a result other than 0
// is logged in the name of the task handler that called.
int operator_task(const char *text, int (*handler)(int index), CallSite caller = {}) {
    int index;
    if (!timerTaskIndex(text, &index, caller))
        return -1;
    if (handler(index) != 0)
        ZN_LOG_AT(caller, 1, "%s %s fail.\n", caller.function, text);
    return 0;
}

} // namespace

int timerEventDispatch(const char *text) {
    if (!text) {
        ZN_LOG(1, "read buf is null\n");
        return -1;
    }
    if (!*text) {
        ZN_LOG(1, "read buf is empty\n");
        return -1;
    }
    const int row = timerTaskOf(text);
    if (row < 0) {
        ZN_LOG(1, "unrecognize buffer\n");
        return 0;
    }
    const TimerTask &task = kTimerTasks[row];
    if (task.handler)
        task.handler(text);
    else if (zns_eventNotify(task.event, kUpgradeEventCode, nullptr) < 0)
        ZN_LOG(1, "zns send %d event failed\r\n", int(task.event));
    return 0;
}

int sleepTimerHandler(const char *text) {
    int index;
    if (!timerTaskIndex(text, &index))
        return -1;
    ZN_LOG(1, "idx=%d\n", index);
    ScopedStore store;
    if (!store.get()) {
        ZN_LOG(1, "XMLSHMINIT fail\n");
        return -1;
    }
    char path[128];
    snprintf(path, sizeof path, "%s.%d", kSleepTimerPath, index);
    const auto *timer = static_cast<const uint8_t *>(znsXml_GetObjectByName(store.get(), path, 1));
    if (!timer) {
        ZN_LOG(1, "get %s null\n", path);
        return -1;
    }
    const uint8_t enable = timer[kSleepTimerEnableAt];
    ZN_LOG(1, "pSleepTimer->Enable:%d\n", enable);
    zns_cuc_set_sleep_mode(enable);
    return 0;
}

int cmccTimedTaskHandler(const char *text) { return operator_task(text, zns_cmcc_timedTask_handler); }

int cmccDeviceLimitHandler(const char *text) { return operator_task(text, zns_cmcc_deviceLimit_handler); }
