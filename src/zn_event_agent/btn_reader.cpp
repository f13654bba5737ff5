#include "btn_reader.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "agent_log.h"
#include "agent_store.h"
#include "btn_tasks.h"
#include "byte_cursor.h"
#include "libzn.h"
#include "znsmsg.h"
#include "znsutils.h"

char province[32];

namespace {

constexpr const char *kInputDevice = "/dev/input/event0";
// One record is this build's struct input_event: the kernel writes a process
// the layout of its own word size, a stamp of two longs, so 24 bytes on a
// 64-bit system and 16 on a 32-bit one. The stamp is read as those longs.
constexpr size_t kInputRecordSize = sizeof(input_event);
constexpr uint16_t kEvKey = 1;
enum KeyValue : int32_t { kRelease = 0, kPress = 1, kRepeat = 2 };
constexpr long kTraceOnlyMode = 1; // board setting BTN_MODE
constexpr unsigned kReadRetrySeconds = 1;

constexpr uint32_t kOidSystemConfig = 275;
constexpr size_t kResetTypeAt = 25;
constexpr uint8_t kProvinceResetType = 2; // and above; 0 and 1 select the plain scheme
constexpr const char *kPhase2FlagCommand = "echo 1 > /userconfig/config/long_restore_ZHJ_phase2_flag";

// Holds in milliseconds, each the last value of the lower side.
constexpr uint64_t kCombinedWlanUpTo = 2999;
constexpr uint64_t kLedSignalUpTo = 9999;
constexpr uint64_t kPlainIdleUpTo = 9999;

struct ButtonState {
    uint32_t pressed;
    uint64_t pressTime;
    uint64_t held;
};

// What a release of the Wi-Fi, WPS and LED buttons, or of the combined
// button, sets off: a module log line, a console line and the task.
struct Trigger {
    const char *line;
    const char *console;
    void (*task)();
};
constexpr Trigger kWlanTrigger = {"*** WLAN TRIGGER ***\n", "*** wlan_button_task() ***", wlan_button_task};
constexpr Trigger kWpsTrigger = {"*** WPS TRIGGER ***\n", "*** wps_button_task(auto) ***", wps_button_task};
constexpr Trigger kLedTrigger = {"*** LED CONTROL TRIGGER ***\n", "***led_control_button_task() ***",
                                 led_control_button_task};
constexpr Trigger kCombinedWlan = {"*** WLAN_WPS button (WLAN) TRIGGER ***\n", "*** wlan_button_task() ***",
                                   wlan_button_task};
constexpr Trigger kCombinedWps = {"*** WLAN_WPS button (WPS) TRIGGER ***\n", "*** wps_button_task(auto) ***",
                                  wps_button_task};

// What a reset hold ends in.
enum Outcome : uint8_t { kNoAction, kReboot, kFactory, kLong, kLongPhase1, kLongPhase2, kPlainFactory, kPlainLong };

void reboot_request();
void factory_default();
void long_factory_default();
void long_factory_default_phase2();

struct OutcomeDef {
    const char *line;
    void (*action)();
};
constexpr OutcomeDef kOutcomes[] = {
    {nullptr, nullptr},
    {"*** recv BTN_EVENT_REBOOT***\n", reboot_request},
    {"*** recv BTN_EVENT_FACTORY_DEFAULT***\n", factory_default},
    {"*** recv EVENT_LONG_FACTORY_DEFAULT ***\n", long_factory_default},
    {"*** recv EVENT_LONG_FACTORY_DEFAULT 1 ***\n", long_factory_default},
    {"*** recv EVENT_LONG_FACTORY_DEFAULT 2 ***\n", long_factory_default_phase2},
    {"*** recv BTN_EVENT_FACTORY_DEFAULT ***\n", factory_default},
    {"*** recv BTN_EVENT_LONG_FACTORY_DEFAULT ***\n", long_factory_default},
};
static_assert(sizeof kOutcomes / sizeof kOutcomes[0] == kPlainLong + 1, "one row per outcome");

// The province scheme: a hold falls into the last band whose start it has
// reached; a hold equal to a start belongs to that band.
struct Band {
    uint64_t from;
    Outcome outcome;
};
constexpr size_t kMaxBands = 4;
struct ProvinceScheme {
    const char *province;
    size_t bands;
    Band band[kMaxBands];
};
constexpr ProvinceScheme kProvinceSchemes[] = {
    {"HUB", 3, {{0, kReboot}, {5000, kFactory}, {15000, kLong}}},
    {"FUJ", 3, {{0, kReboot}, {5000, kFactory}, {10000, kLong}}},
    {"HEN", 3, {{0, kNoAction}, {10000, kFactory}, {20000, kLong}}},
    {"ZHJ", 4, {{0, kNoAction}, {10000, kLongPhase1}, {20000, kNoAction}, {40000, kLongPhase2}}},
};

void combined_release(const ButtonState &s);
void reset_repeat(const ButtonState &s);
void reset_release(const ButtonState &s);

struct Button {
    uint16_t code;
    const char *word;       // in the trace-only lines
    bool heldOutlivesPress; // a press without repeats is judged on the last hold
    const Trigger *trigger; // on release, or else release()
    void (*release)(const ButtonState &);
    void (*repeat)(const ButtonState &); // after held is taken, or nullptr
};
constexpr Button kButtons[] = {
    {0xED, "wlan/wps", false, nullptr, combined_release, nullptr},
    {0xEE, "wifi", false, &kWlanTrigger, nullptr, nullptr},
    {0x198, "reset", true, nullptr, reset_release, reset_repeat},
    {0x211, "wps", false, &kWpsTrigger, nullptr, nullptr},
    {0x252, "led control", false, &kLedTrigger, nullptr, nullptr},
};
constexpr size_t kButtonCount = sizeof kButtons / sizeof kButtons[0];

// Thread state: one entry per button, and the latch of the one LED signal
// of a long reset hold in the life of the process.
ButtonState buttonState[kButtonCount];
bool ledSignalGiven;

void fire(const Trigger &t) {
    ZN_LOG_AS(btn_handler, 4, "%s", t.line);
    agent_console("%s\n", t.console);
    t.task();
}

void combined_release(const ButtonState &s) { fire(s.held > kCombinedWlanUpTo ? kCombinedWps : kCombinedWlan); }

void reset_repeat(const ButtonState &s) {
    if (!ledSignalGiven && s.held > kLedSignalUpTo) {
        ledSignalGiven = true;
        libzn_sys_led(0);
    }
}

void reboot_request() {
    agent_console("*** recv reboot event ***\n");
    zns_eventNotify(ZNS_EVENT_BTN_REBOOT, ZNS_TYPE_STRING, nullptr);
}

void factory_default() {
    agent_console("*** recv EVENT_FACTORY_DEFAULT ***\n");
    znsXml_restoreDefaultXml(ZNS_RESTORE_FACTORY);
}

void long_factory_default() {
    agent_console("*** recv EVENT_LONG_FACTORY_DEFAULT ***\n");
    system("zncli sys restoredefault");
    znsXml_restoreDefaultXml(ZNS_RESTORE_LONG_RESET);
}

void long_factory_default_phase2() {
    system(kPhase2FlagCommand);
    long_factory_default();
}

Outcome plain_outcome(uint64_t held) {
    if (held <= kPlainIdleUpTo)
        return kNoAction;
    uint8_t type = 0;
    if (getResetType(&type) != 0 || type == 0)
        return kPlainFactory;
    // Any other type: the store changed since the first read.
    return type == 1 ? kPlainLong : kNoAction;
}

Outcome province_outcome(uint64_t held) {
    for (const ProvinceScheme &p : kProvinceSchemes) {
        if (strncmp(province, p.province, sizeof province) != 0)
            continue;
        Outcome o = kNoAction;
        for (size_t i = 0; i < p.bands && held >= p.band[i].from; i++)
            o = p.band[i].outcome;
        return o;
    }
    return kNoAction;
}

void reset_release(const ButtonState &s) {
    uint8_t type = 0;
    const bool plain = getResetType(&type) != 0 || type < kProvinceResetType;
    const OutcomeDef &o = kOutcomes[plain ? plain_outcome(s.held) : province_outcome(s.held)];
    if (!o.action)
        return;
    ZN_LOG_AS(btn_handler, 4, "%s", o.line);
    o.action();
}

bool btn_trace_only() {
    char mode[LIBZN_BOARD_VALUE_LEN] = "";
    libzn_board_config_content_read("BTN_MODE", "Mode", mode);
    mode[sizeof mode - 1] = '\0';
    return strtol(mode, nullptr, 10) == kTraceOnlyMode;
}

void btn_handle(const KeyRecord &r) {
    const bool traceOnly = btn_trace_only();
    const Button *b = nullptr;
    for (const Button &candidate : kButtons)
        if (candidate.code == r.code)
            b = &candidate;
    if (!b)
        return;
    if (traceOnly) {
        if (r.value == kPress || r.value == kRelease)
            agent_console(r.value == kPress ? "#### %s btn push down! ####\n" : "#### %s btn push up! ####\n", b->word);
        return;
    }
    ButtonState &s = buttonState[b - kButtons];
    if (r.value == kPress) {
        s.pressed = 1;
        s.pressTime = uint64_t(r.ms);
        if (!b->heldOutlivesPress)
            s.held = 0;
    } else if (r.value == kRepeat && s.pressed == 1) {
        s.held = uint64_t(r.ms) - s.pressTime;
        if (b->repeat)
            b->repeat(s);
    } else if (r.value == kRelease && s.pressed == 1) {
        if (b->trigger)
            fire(*b->trigger);
        else
            b->release(s);
        s.pressed = 0;
    }
}

} // namespace

Parse btn_parse(const uint8_t *bytes, size_t len, KeyRecord *out) {
    *out = KeyRecord{};
    ByteCursor c(bytes, len);
    input_event ev;
    if (len != kInputRecordSize || !c.take_into(&ev))
        return Parse::kTooShort;
    out->ms = int64_t(uint64_t(ev.input_event_sec) * 1000 + uint64_t(ev.input_event_usec / 1000));
    out->type = ev.type;
    out->code = ev.code;
    out->value = ev.value;
    return Parse::kOk;
}

int getResetType(uint8_t *type) {
    ScopedStore store;
    if (!store.get()) {
        agent_console("[%s-%d]xmlshminit fail in zn_event_agent.\n", __func__, __LINE__);
        return -1;
    }
    const auto *config = static_cast<const uint8_t *>(znsXml_getObjectByOID(store.get(), kOidSystemConfig, 0));
    if (!config) {
        agent_console("[%s-%d]get systemcfg object  fail in zn_event_agent.\n", __func__, __LINE__);
        return -1;
    }
    *type = config[kResetTypeAt];
    return 0;
}

void *btn_handler(void *) {
    int fd = open(kInputDevice, O_RDONLY);
    if (fd <= 0) {
        if (fd == 0)
            close(fd);
        agent_console("open %s error\n", kInputDevice);
        return nullptr;
    }
    // A device gone (end of file: the writer of a FIFO closed; ENODEV: the
    // driver unbound) answers every read at once: wait between such reads,
    // and say so once until bytes come again.
    bool waiting = false;
    for (;;) {
        uint8_t buf[kInputRecordSize] = {};
        ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (!waiting)
                ZN_LOG(1, "read %s: %s, reading again each %us\n", kInputDevice,
                       n == 0 ? "end of file" : strerror(errno), kReadRetrySeconds);
            waiting = true;
            sleep(kReadRetrySeconds);
            continue;
        }
        waiting = false;
        KeyRecord r;
        if (btn_parse(buf, size_t(n), &r) == Parse::kOk && r.type == kEvKey)
            btn_handle(r);
    }
}
