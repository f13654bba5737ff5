#include "store_text.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace zns {
namespace {

std::string escape(const char *s) {
    std::string out;
    for (; *s; s++) {
        switch (*s) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += *s;
        }
    }
    return out;
}

bool unescape(const char *s, std::string *out) {
    for (; *s; s++) {
        if (*s != '\\') {
            *out += *s;
            continue;
        }
        switch (*++s) {
        case '\\':
            *out += '\\';
            break;
        case 'n':
            *out += '\n';
            break;
        case 'r':
            *out += '\r';
            break;
        default:
            return false;
        }
    }
    return true;
}

template <typename T> void put(ParamValue *v, T x) {
    v->bytes.resize(sizeof x);
    std::memcpy(v->bytes.data(), &x, sizeof x);
}

// A decimal that fits T, without sign or blank, into v; false when text is none.
template <typename T> bool put_unsigned(const char *text, ParamValue *v) {
    if (!*text || *text == '-' || *text == '+' || *text == ' ')
        return false;
    errno = 0;
    char *end = nullptr;
    unsigned long long x = strtoull(text, &end, 10);
    if (errno || *end || x > std::numeric_limits<T>::max())
        return false;
    put<T>(v, T(x));
    return true;
}

bool path_less(const std::string &a, const std::string &b) {
    // Numeric segments compare as numbers so that instance 10 follows 9.
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (isdigit(uint8_t(a[i])) && isdigit(uint8_t(b[j]))) {
            size_t ie = i, je = j;
            while (ie < a.size() && isdigit(uint8_t(a[ie])))
                ie++;
            while (je < b.size() && isdigit(uint8_t(b[je])))
                je++;
            unsigned long x = strtoul(a.c_str() + i, nullptr, 10), y = strtoul(b.c_str() + j, nullptr, 10);
            if (x != y)
                return x < y;
            i = ie;
            j = je;
        } else {
            if (a[i] != b[j])
                return a[i] < b[j];
            i++;
            j++;
        }
    }
    return a.size() - i < b.size() - j;
}

} // namespace

std::string value_to_text(const ParamLayout *p, const void *field) {
    const auto *f = static_cast<const uint8_t *>(field);
    char buf[32];
    switch (p->type) {
    case ZNS_TYPE_STRING: {
        std::string s(reinterpret_cast<const char *>(f), strnlen(reinterpret_cast<const char *>(f), p->size));
        return escape(s.c_str());
    }
    case ZNS_TYPE_MAC:
        snprintf(buf, sizeof buf, "%02x:%02x:%02x:%02x:%02x:%02x", f[0], f[1], f[2], f[3], f[4], f[5]);
        return buf;
    case ZNS_TYPE_BYTE:
    case ZNS_TYPE_BOOL:
        return std::to_string(f[0]);
    case ZNS_TYPE_UINT16: {
        uint16_t v;
        std::memcpy(&v, f, sizeof v);
        return std::to_string(v);
    }
    case ZNS_TYPE_UINT32: {
        uint32_t v;
        std::memcpy(&v, f, sizeof v);
        return std::to_string(v);
    }
    case ZNS_TYPE_INT32: {
        int32_t v;
        std::memcpy(&v, f, sizeof v);
        return std::to_string(v);
    }
    }
    return "";
}

int text_to_value(const ParamLayout *p, const char *text, ParamValue *v, const char **why) {
    v->name = p->name;
    v->type = p->type;
    v->bytes.clear();
    switch (p->type) {
    case ZNS_TYPE_STRING: {
        std::string s;
        if (!unescape(text, &s)) {
            *why = "bad escape in text";
            return -1;
        }
        v->bytes.assign(s.begin(), s.end());
        break;
    }
    case ZNS_TYPE_MAC: {
        unsigned m[6];
        char tail;
        if (strlen(text) != 17 ||
            sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x%c", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5], &tail) != 6 ||
            text[2] != ':' || text[5] != ':' || text[8] != ':' || text[11] != ':' || text[14] != ':' ||
            !std::all_of(text, text + 17, [](char c) { return c == ':' || isxdigit(uint8_t(c)); })) {
            *why = "not a MAC address";
            return -1;
        }
        v->bytes.assign(std::begin(m), std::end(m));
        break;
    }
    case ZNS_TYPE_BOOL:
        if (strcmp(text, "0") != 0 && strcmp(text, "1") != 0) {
            *why = "not a boolean (0 or 1)";
            return -1;
        }
        put<uint8_t>(v, uint8_t(text[0] - '0'));
        break;
    case ZNS_TYPE_BYTE:
        *why = "not a number from 0 to 255";
        if (!put_unsigned<uint8_t>(text, v))
            return -1;
        break;
    case ZNS_TYPE_UINT16:
        *why = "not a number from 0 to 65535";
        if (!put_unsigned<uint16_t>(text, v))
            return -1;
        break;
    case ZNS_TYPE_UINT32:
        *why = "not an unsigned 32-bit number";
        if (!put_unsigned<uint32_t>(text, v))
            return -1;
        break;
    case ZNS_TYPE_INT32: {
        errno = 0;
        char *end = nullptr;
        long long x = strtoll(text, &end, 10);
        if (!*text || *text == ' ' || errno || *end || x < INT32_MIN || x > INT32_MAX) {
            *why = "not a signed 32-bit number";
            return -1;
        }
        put<int32_t>(v, int32_t(x));
        break;
    }
    default:
        *why = "unknown type";
        return -1;
    }
    const char *bad = value_check(p, *v);
    if (bad) {
        *why = bad;
        return -1;
    }
    return 0;
}

void tree_dump(Region *r, const ObjectLayout *obj, zns_ia_t ia, bool object_lines, std::string *out) {
    struct Entry {
        std::string path;
        const ObjectLayout *obj;
        const uint8_t *rec;
    };
    std::vector<Entry> entries;
    const int depth = obj->depth;
    uint32_t n = __atomic_load_n(&r->slot_hwm, __ATOMIC_ACQUIRE);
    for (uint32_t i = 0; i < n; i++) {
        const Slot *s = &r->slots[i];
        if (!slot_live(s))
            continue;
        const ObjectLayout *o = dm_object(s->oid);
        if (!o || !dm_in_subtree(o, obj->def->oid))
            continue;
        bool under = true;
        for (int d = 0; d < depth && under; d++)
            under = ia_index(s->ia, d) == ia_index(ia, d);
        if (under)
            entries.push_back({dm_format_path(o, s->ia), o, static_cast<const uint8_t *>(slot_record(r, s))});
    }
    std::sort(entries.begin(), entries.end(), [](const Entry &a, const Entry &b) { return path_less(a.path, b.path); });
    for (const Entry &e : entries) {
        if (object_lines)
            *out += e.path + ".\n";
        for (size_t p = 0; p < e.obj->param_count; p++) {
            const ParamLayout *pl = &e.obj->params[p];
            *out += e.path + "." + pl->name + "=" + value_to_text(pl, e.rec + pl->offset) + "\n";
        }
    }
}

int tree_load(Region *r, const char *text, std::string *bad_line) {
    const char *line = text;
    while (*line) {
        const char *eol = strchr(line, '\n');
        std::string l(line, eol ? size_t(eol - line) : strlen(line));
        line = eol ? eol + 1 : line + l.size();
        if (l.empty() || l[0] == '#')
            continue;
        const ObjectLayout *obj = nullptr;
        const ParamLayout *param = nullptr;
        zns_ia_t ia = 0;
        size_t eq = l.find('=');
        bool ok;
        if (eq == std::string::npos) {
            ok = !l.empty() && l.back() == '.' &&
                 dm_parse_path(l.substr(0, l.size() - 1).c_str(), false, &obj, &ia, nullptr) == 0 &&
                 (slot_find(r, obj->def->oid, ia) || region_add(r, obj, ia, {}) == 0);
        } else {
            ParamValue v;
            const char *why = nullptr;
            ok = dm_parse_path(l.substr(0, eq).c_str(), true, &obj, &ia, &param) == 0 && param &&
                 text_to_value(param, l.c_str() + eq + 1, &v, &why) == 0;
            if (ok) {
                Slot *s = slot_find(r, obj->def->oid, ia);
                ok = s ? region_set(r, s, {v}) == 0 : region_add(r, obj, ia, {v}) == 0;
            }
        }
        if (!ok) {
            if (bad_line)
                *bad_line = l;
            return -1;
        }
    }
    return 0;
}

int read_file(const char *path, std::string *out) {
    FILE *f = fopen(path, "re");
    if (!f)
        return -1;
    char buf[8192];
    size_t n;
    out->clear();
    while ((n = fread(buf, 1, sizeof buf, f)) > 0)
        out->append(buf, n);
    int err = ferror(f);
    fclose(f);
    return err ? -1 : 0;
}

int write_file_atomic(const char *path, const std::string &data) {
    char tmp[512];
    snprintf(tmp, sizeof tmp, "%s.%d.%ld.new", path, int(getpid()), long(gettid()));
    int fd = open(tmp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    size_t done = 0;
    while (done < data.size()) {
        ssize_t w = write(fd, data.data() + done, data.size() - done);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0)
            break;
        done += size_t(w);
    }
    bool ok = done == data.size() && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (!ok || rename(tmp, path) != 0) {
        unlink(tmp);
        return -1;
    }
    return 0;
}

} // namespace zns
