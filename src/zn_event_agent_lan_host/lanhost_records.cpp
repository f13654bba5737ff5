// Reading the store's host records in place.
#include "lanhost_records.h"

#include "lanhost.h"
#include "lanhost_table.h"

int wrapperZns_lanhost_get_maxNum() { return kLanhostMaxNum; }

zns_ia_t lanhost_instance(int index) { return znsXml_ConstructIAValue(__FILE__, __func__, __LINE__, 2, "1,%d", index); }

const uint8_t *lanhost_host_find(const uint8_t *mac, int *index) {
    const uint8_t *found = nullptr;
    const int at =
        lanhost_store_scan(storeHandle, kOidHost, wrapperZns_lanhost_get_maxNum(), [&](int, const uint8_t *object) {
            if (lanhost_has_mac(object, kHostMacAt, mac))
                found = object;
            return found != nullptr;
        });
    if (index)
        *index = at;
    return found;
}

void *wrapperZns_get_lanhost_byMac(const uint8_t *mac) { return const_cast<uint8_t *>(lanhost_host_find(mac)); }

void lanhost_store_set_one(zns_xml_handle_t *handle, const void *object, const char *name, uint32_t type,
                           const void *value) {
    zns_param_list_t *list = newParameterList();
    if (!list)
        return;
    setParameterToList(list, name, type, value);
    znsXml_setParameterIndirectByParaList(handle, znsXmlGetPtrOffset(handle, object), list);
    freeParameterList(list);
}
