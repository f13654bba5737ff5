#include "btn_tasks.h"

#include <cstdint>
#include <cstring>

#include "agent_log.h"
#include "agent_store.h"
#include "libzn.h"
#include "znsutils.h"

namespace {

constexpr uint32_t kOidWifi = 389, kOidRadio = 390, kOidSsid = 399, kOidSsidSecurity = 400, kOidWps = 401,
                   kOidMesh = 424;
constexpr const char *kLedPath = "InternetGatewayDevice.X_ZN_EXT.X_ZN_LED";
// Fields read straight from the records.
constexpr size_t kWifiEnableAt = 30;    // X_ZN_Enable of the Wi-Fi switch
constexpr size_t kMeshEnableAt = 46;    // the mesh object's enable flag
constexpr size_t kLedsTurnoffAt = 0;    // Leds_Turnoff of the LED settings
constexpr size_t kModeEnabledRoom = 64; // above the field's width of 32 bytes and its NUL

// The access points a WPS press acts on, by external SSID index.
constexpr int kWpsExtSsids[] = {1, 5};
constexpr size_t kWpsAps = sizeof kWpsExtSsids / sizeof kWpsExtSsids[0];
// Security modes under which WPS may not start.
constexpr const char *kNoWpsModes[] = {"None", "WEP-64", "WEP-128"};

// The store's instance value of an index, built under the file, function and
// line of the task step that asks for it.
zns_ia_t index_value(int index, CallSite caller = {}) {
    return znsXml_ConstructIAValue(caller.file, caller.function, caller.line, 1, "%d", index);
}

const uint8_t *record(void *object) { return static_cast<const uint8_t *>(object); }

// A flag read into a cleared 32-bit value: a read that delivers nothing leaves 0.
// The index value names the step that reads the flag.
int read_flag(zns_xml_handle_t *handle, uint32_t oid, int index, const char *name, CallSite caller = {}) {
    int32_t value = 0;
    znsXml_getParameterByOID(handle, oid, index_value(index, caller), name, &value);
    return value;
}

// 1 when every check passes, in order; the first that fails says so.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the WPS hook's own name
int __can_trigger_wps(zns_xml_handle_t *handle, int ssidIndex) {
    const int radio = zns_wlan_internal_ssididx_to_radioidx(ssidIndex);
    int value = read_flag(handle, kOidRadio, radio, "Enable");
    if (value != 1) {
        ZN_LOG(1, "Radio[%d]:RadioEnabled = %d\r\n", radio, value);
        return 0;
    }
    if ((value = read_flag(handle, kOidSsid, ssidIndex, "Enable")) != 1) {
        ZN_LOG(1, "ap[%d]: Enable = %d\r\n", ssidIndex, value);
        return 0;
    }
    if ((value = read_flag(handle, kOidSsid, ssidIndex, "SSIDAdvertisementEnabled")) != 1) {
        ZN_LOG(1, "ap[%d]:SSIDAdvertisementEnabled = %d\r\n", ssidIndex, value);
        return 0;
    }
    char mode[kModeEnabledRoom] = "";
    znsXml_getParameterByOID(handle, kOidSsidSecurity, index_value(ssidIndex), "ModeEnabled", mode);
    mode[sizeof mode - 1] = '\0';
    for (const char *refused : kNoWpsModes) {
        if (strcmp(mode, refused) == 0) {
            ZN_LOG(1, "ap[%d]: ModeEnabled = %s", ssidIndex, mode);
            return 0;
        }
    }
    if ((value = read_flag(handle, kOidWps, ssidIndex, "Enable")) != 1) {
        ZN_LOG(1, "ap[%d]: WPS Enable = %d", ssidIndex, value);
        return 0;
    }
    return 1;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the WPS hook's own name
void __start_wps(zns_xml_handle_t *handle, int ssidIndex) {
    zns_param_list_t *list = newParameterList();
    if (!list)
        return;
    void *wps = znsXml_GetObjectByOID(handle, kOidWps, index_value(ssidIndex), 1);
    if (!wps) {
        ZN_LOG(1, "fail to get object ID %d\r\n", kOidWps);
        freeParameterList(list);
        return;
    }
    const uint8_t one = 1;
    setParameterToList(list, "X_ZN_Action", ZNS_TYPE_BYTE, &one);
    znsXml_setParameterIndirectByParaList(handle, znsXmlGetPtrOffset(handle, wps), list);
    freeParameterList(list);
}

void wps_button_mesh_task() {
    if (!is_mesh_enable())
        ZN_LOG(1, "mesh is not enable\r\n");
    ScopedStore store;
    if (!store.get()) {
        ZN_LOG(1, "xmlShm init error.\r\n");
        return;
    }
    const uint8_t one = 1;
    znsXml_setOneParameterByOIDIndirect(store.get(), kOidMesh, 0, "OnboardingTrigger", ZNS_TYPE_BOOL, &one);
}

void wps_button_normal_task() {
    ZN_LOG(5, "event_wps_handler()\n");
    ScopedStore store;
    zns_xml_handle_t *handle = store.get();
    if (!handle) {
        ZN_LOG(1, "xmlShm init error.\r\n");
        return;
    }
    int index[kWpsAps], can[kWpsAps];
    for (size_t i = 0; i < kWpsAps; i++)
        if ((index[i] = zns_wlan_get_internal_ssididx_by_ext_ssididx(handle, kWpsExtSsids[i])) <= 0)
            return;
    for (size_t i = 0; i < kWpsAps; i++)
        can[i] = __can_trigger_wps(handle, index[i]);
    if (!can[0] && !can[1]) {
        ZN_LOG(1, "WPS can not be triggered because current setting is not match!\r\n");
        return;
    }
    for (size_t i = 0; i < kWpsAps; i++)
        if (can[i])
            __start_wps(handle, index[i]);
}

} // namespace

int is_mesh_enable() {
    ScopedStore store;
    if (!store.get()) {
        ZN_LOG(1, "xmlShm init error.\r\n");
        return 0;
    }
    const uint8_t *wifi = record(znsXml_GetObjectByOID(store.get(), kOidWifi, 0, 1));
    if (!wifi) {
        ZN_LOG(1, "fail to get object ID %d\r\n", kOidWifi);
        return 0;
    }
    const bool wifiOn = wifi[kWifiEnableAt] != 0;
    const uint8_t *mesh = record(znsXml_GetObjectByOID(store.get(), kOidMesh, 0, 1));
    if (!mesh) {
        ZN_LOG(1, "fail to get object ID %d\r\n", kOidMesh);
        return 0;
    }
    return wifiOn && mesh[kMeshEnableAt] != 0 ? 1 : 0;
}

void wlan_button_task() {
    ZN_LOG(5, "event_wlan_button_handler()\n");
    ScopedStore store;
    if (!store.get()) {
        ZN_LOG(1, "xmlShm init error.\r\n");
        return;
    }
    const uint8_t *wifi = record(znsXml_GetObjectByOID(store.get(), kOidWifi, 0, 1));
    if (!wifi) {
        ZN_LOG(1, "fail to get object ID %d\r\n", kOidWifi);
        return;
    }
    const uint8_t newValue = wifi[kWifiEnableAt] == 0 ? 1 : 0;
    znsXml_setOneParameterByOIDIndirect(store.get(), kOidWifi, 0, "X_ZN_Enable", ZNS_TYPE_BOOL, &newValue);
    znsXml_SaveIndirect(store.get());
}

void led_control_button_task() {
    ZN_LOG(5, "event_led_control_button_handler()\n");
    ScopedStore store;
    zns_xml_handle_t *handle = store.get();
    if (!handle) {
        ZN_LOG(1, "xmlShm init error.\r\n");
        return;
    }
    void *led = znsXml_GetObjectByName(handle, kLedPath, 1);
    if (!led) {
        ZN_LOG(1, "fail to get object %s.\r\n", kLedPath);
        return;
    }
    const uint8_t newValue = record(led)[kLedsTurnoffAt] == 0 ? 1 : 0;
    zns_param_list_t *list = newParameterList();
    if (!list)
        return;
    setParameterToList(list, "Leds_Turnoff", ZNS_TYPE_BOOL, &newValue);
    znsXml_setParameterNnotify(handle, znsXmlGetPtrOffset(handle, led), list, 0);
    freeParameterList(list);
    libzn_sys_turnOffLed(newValue);
    znsXml_SaveNoReply(handle);
}

void wps_button_task() {
    if (is_mesh_enable())
        wps_button_mesh_task();
    else
        wps_button_normal_task();
}
