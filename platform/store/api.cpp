// The store's C interface over the shared region.
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "region.h"
#include "store_text.h"
#include "znsutils.h"

struct zns_xml_handle {
    zns::Region *region;
};

struct zns_param_list {
    std::vector<zns::ParamValue> values;
};

namespace {

using namespace zns;

Region *region_of(zns_xml_handle_t *h) { return h ? h->region : nullptr; }

// vsnprintf for what instance values are made of, text and "%d", at a
// fraction of its cost: every scan over a table builds one per index. -1
// for any other conversion or when the text doesn't fit.
int format_indexes(char *out, size_t size, const char *format, va_list ap) {
    char *o = out, *const last = out + size - 1; // the NUL's place
    for (const char *f = format; *f; f++) {
        if (*f != '%') {
            if (o == last)
                return -1;
            *o++ = *f;
            continue;
        }
        if (*++f != 'd')
            return -1;
        const std::to_chars_result r = std::to_chars(o, last, va_arg(ap, int));
        if (r.ec != std::errc())
            return -1;
        o = r.ptr;
    }
    *o = '\0';
    return int(o - out);
}

int set_by_offset(zns_xml_handle_t *handle, uint32_t offset, zns_param_list_t *list) {
    Region *r = region_of(handle);
    if (!r || !list)
        return -1;
    RegionLock lock(r);
    Slot *s = slot_at_offset(r, offset);
    return s ? region_set(r, s, list->values) : -1;
}

int save(zns_xml_handle_t *handle) {
    Region *r = region_of(handle);
    if (!r)
        return -1;
    std::string text = "# zns store\n";
    {
        RegionLock lock(r);
        size_t n = 0;
        const ObjectLayout *objs = dm_objects(&n);
        tree_dump(r, &objs[0], 0, true, &text);
    }
    return write_file_atomic(kSaveFile, text);
}

} // namespace

extern "C" {

zns_xml_handle_t *zns_xmlShmInit(void) {
    Region *r = region_map();
    if (!r)
        return nullptr;
    return new (std::nothrow) zns_xml_handle{r};
}

void zns_xmlShmDeInit(zns_xml_handle_t **handle) {
    if (!handle)
        return;
    delete *handle;
    *handle = nullptr;
}

zns_ia_t znsXml_ConstructIAValue(const char *, const char *, int, int depth, const char *format, ...) {
    if (!format || depth < 1 || depth > kMaxDepth)
        return 0;
    char text[128];
    va_list ap, again;
    va_start(ap, format);
    va_copy(again, ap);
    int n = format_indexes(text, sizeof text, format, ap);
    if (n < 0)
        n = vsnprintf(text, sizeof text, format, again);
    va_end(again);
    va_end(ap);
    if (n < 0 || size_t(n) >= sizeof text)
        return 0;
    uint32_t idx[kMaxDepth];
    const char *p = text;
    for (int i = 0; i < depth; i++) {
        const char *start = p;
        uint32_t v = 0;
        while (*p >= '0' && *p <= '9' && v <= kMaxIndex)
            v = v * 10 + uint32_t(*p++ - '0');
        if (p == start || v == 0 || v > kMaxIndex || *p != (i + 1 < depth ? ',' : '\0'))
            return 0;
        idx[i] = v;
        p++;
    }
    return ia_make(idx, depth);
}

void *znsXml_GetObjectByOID(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, int) {
    Region *r = region_of(handle);
    Slot *s = r ? slot_find(r, oid, instance) : nullptr;
    return s ? slot_record(r, s) : nullptr;
}

void *znsXml_getObjectByOID(zns_xml_handle_t *handle, uint32_t oid, int) {
    return znsXml_GetObjectByOID(handle, oid, 0, 1);
}

void *znsXml_GetObjectByName(zns_xml_handle_t *handle, const char *path, int) {
    Region *r = region_of(handle);
    const ObjectLayout *obj = nullptr;
    const ParamLayout *param = nullptr;
    zns_ia_t ia = 0;
    if (!r || !path || dm_parse_path(path, true, &obj, &ia, &param) != 0)
        return nullptr;
    Slot *s = slot_find(r, obj->def->oid, ia);
    if (!s)
        return nullptr;
    return static_cast<uint8_t *>(slot_record(r, s)) + (param ? param->offset : 0);
}

int znsXml_getParameterByOID(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, const char *name, void *out) {
    Region *r = region_of(handle);
    const ObjectLayout *obj = dm_object(oid);
    const ParamLayout *p = obj && name ? dm_param(obj, name) : nullptr;
    if (!r || !p || !out)
        return -1;
    Slot *s = slot_find(r, oid, instance);
    if (!s)
        return -1;
    const uint8_t *field = static_cast<const uint8_t *>(slot_record(r, s)) + p->offset;
    if (p->type == ZNS_TYPE_STRING) {
        // Copied up to the field's NUL: a reader may meet a write in progress.
        size_t n = strnlen(reinterpret_cast<const char *>(field), p->size - 1);
        memcpy(out, field, n);
        static_cast<char *>(out)[n] = '\0';
    } else {
        memcpy(out, field, p->size);
    }
    return 0;
}

uint32_t znsXmlGetPtrOffset(zns_xml_handle_t *handle, const void *object) {
    Region *r = region_of(handle);
    if (!r || !object)
        return 0;
    const uint8_t *p = static_cast<const uint8_t *>(object);
    if (p < region_base(r) + kArenaStart || p >= region_base(r) + kRegionSize)
        return 0;
    return uint32_t(p - region_base(r));
}

zns_param_list_t *newParameterList(void) { return new (std::nothrow) zns_param_list; }

int setParameterToList(zns_param_list_t *list, const char *name, uint32_t type, const void *value) {
    if (!list || !name || !value)
        return -1;
    ParamValue v{name, type, {}};
    if (type == ZNS_TYPE_STRING) {
        const char *s = static_cast<const char *>(value);
        v.bytes.assign(s, s + strlen(s));
    } else {
        size_t w = dm_type_width(type);
        if (!w)
            return -1;
        const uint8_t *b = static_cast<const uint8_t *>(value);
        v.bytes.assign(b, b + w);
    }
    list->values.push_back(std::move(v));
    return 0;
}

void freeParameterList(zns_param_list_t *list) { delete list; }

int znsXml_setParameterIndirectByParaList(zns_xml_handle_t *handle, uint32_t offset, zns_param_list_t *list) {
    return set_by_offset(handle, offset, list);
}

int znsXml_setParameterNnotify(zns_xml_handle_t *handle, uint32_t offset, zns_param_list_t *list, int) {
    return set_by_offset(handle, offset, list);
}

int znsXml_setOneParameterByOIDIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, const char *name,
                                        uint32_t type, const void *value) {
    Region *r = region_of(handle);
    zns_param_list_t list;
    if (!r || setParameterToList(&list, name, type, value) != 0)
        return -1;
    RegionLock lock(r);
    Slot *s = slot_find(r, oid, instance);
    return s ? region_set(r, s, list.values) : -1;
}

int znsXml_addObjectByOIDIWithParaListIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance,
                                               zns_param_list_t *list) {
    Region *r = region_of(handle);
    const ObjectLayout *obj = dm_object(oid);
    if (!r || !obj)
        return -1;
    RegionLock lock(r);
    return region_add(r, obj, instance, list ? list->values : std::vector<ParamValue>{});
}

int znsXml_addObjectByOIDIAIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance, int, int) {
    return znsXml_addObjectByOIDIWithParaListIndirect(handle, oid, instance, nullptr);
}

int znsXml_delObjectByOIDIAIndirect(zns_xml_handle_t *handle, uint32_t oid, zns_ia_t instance) {
    Region *r = region_of(handle);
    const ObjectLayout *obj = dm_object(oid);
    if (!r || !obj)
        return -1;
    RegionLock lock(r);
    return region_delete(r, obj, instance);
}

int znsXml_SaveIndirect(zns_xml_handle_t *handle) { return save(handle); }

int znsXml_SaveNoReply(zns_xml_handle_t *handle) { return save(handle); }

int znsXml_restoreDefaultXml(int kind) {
    if (kind != ZNS_RESTORE_FACTORY && kind != ZNS_RESTORE_LONG_RESET)
        return -1;
    zns_xml_handle_t handle{region_map()};
    if (!handle.region)
        return -1;
    {
        RegionLock lock(handle.region);
        region_clear(handle.region);
        tree_load(handle.region, dm_defaults(), nullptr);
        region_reset_counters(handle.region);
    }
    return save(&handle);
}

} // extern "C"
