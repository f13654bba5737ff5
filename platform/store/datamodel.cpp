#include "datamodel.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "model_table.h"

namespace zns {
namespace {

constexpr int kIaBits = 15;
constexpr uint64_t kIaMask = (1u << kIaBits) - 1;

struct Model {
    std::vector<ObjectLayout> objects;
    std::vector<std::vector<ParamLayout>> params;
    std::vector<std::vector<std::string>> segments; // of each object's path, split once
    std::map<uint32_t, size_t> by_oid;
};

uint32_t align_to(uint32_t v, uint32_t a) { return (v + a - 1) / a * a; }

std::vector<std::string> split_path(const std::string &path) {
    std::vector<std::string> out;
    size_t start = 0;
    for (;;) {
        size_t dot = path.find('.', start);
        out.push_back(path.substr(start, dot == std::string::npos ? std::string::npos : dot - start));
        if (dot == std::string::npos)
            return out;
        start = dot + 1;
    }
}

// The parent of "A.B.{i}" and of "A.B" is "A": a table's instances hang
// directly under the object that holds the table.
std::string parent_path(const std::string &path) {
    std::vector<std::string> segs = split_path(path);
    const bool instance = segs.back() == "{i}";
    segs.pop_back();
    if (instance && !segs.empty())
        segs.pop_back();
    std::string out;
    for (const std::string &s : segs)
        out += (out.empty() ? "" : ".") + s;
    return out;
}

// Fixed fields stay where they are; the others follow them, each aligned to
// its own width (text to 1).
std::vector<ParamLayout> lay_out(const ObjectDef &def, uint32_t *record_size) {
    std::vector<ParamLayout> out;
    uint32_t end = def.counter_offset >= 0 ? uint32_t(def.counter_offset) + 2 : 0;
    for (size_t i = 0; i < def.param_count; i++) {
        const ParamDef &p = def.params[i];
        if (p.offset >= 0)
            end = std::max(end, uint32_t(p.offset) + p.size);
    }
    for (size_t i = 0; i < def.param_count; i++) {
        const ParamDef &p = def.params[i];
        uint32_t off;
        if (p.offset >= 0) {
            off = uint32_t(p.offset);
        } else {
            off = align_to(end, p.type == ZNS_TYPE_STRING ? 1 : std::min<uint32_t>(p.size, 4));
            end = off + p.size;
        }
        out.push_back({p.name, p.type, off, p.size});
    }
    *record_size = align_to(std::max<uint32_t>(end, 4), 8);
    return out;
}

const Model &model() {
    static const Model m = [] {
        Model m;
        const size_t n = sizeof kModel / sizeof kModel[0];
        m.objects.resize(n);
        m.params.resize(n);
        m.segments.resize(n);
        std::map<std::string, size_t> by_path;
        for (size_t i = 0; i < n; i++) {
            const ObjectDef &def = kModel[i];
            uint32_t size = 0;
            m.params[i] = lay_out(def, &size);
            std::string path = def.path;
            int depth = 0;
            for (size_t pos = 0; (pos = path.find("{i}", pos)) != std::string::npos; pos += 3)
                depth++;
            m.objects[i] = {&def, m.params[i].data(), m.params[i].size(), size, depth, nullptr};
            m.segments[i] = split_path(path);
            m.by_oid[def.oid] = i;
            by_path[path] = i;
        }
        for (size_t i = 0; i < n; i++) {
            std::string pp = parent_path(kModel[i].path);
            auto it = by_path.find(pp);
            if (it != by_path.end())
                m.objects[i].parent = &m.objects[it->second];
        }
        return m;
    }();
    return m;
}

} // namespace

const ObjectLayout *dm_objects(size_t *count) {
    *count = model().objects.size();
    return model().objects.data();
}

const ObjectLayout *dm_object(uint32_t oid) {
    auto it = model().by_oid.find(oid);
    return it == model().by_oid.end() ? nullptr : &model().objects[it->second];
}

const ParamLayout *dm_param(const ObjectLayout *obj, const char *name) {
    for (size_t i = 0; i < obj->param_count; i++)
        if (strcmp(obj->params[i].name, name) == 0)
            return &obj->params[i];
    return nullptr;
}

const char *dm_defaults() { return kDefaults; }

size_t dm_type_width(uint32_t type) {
    switch (type) {
    case ZNS_TYPE_BYTE:
    case ZNS_TYPE_BOOL:
        return 1;
    case ZNS_TYPE_UINT16:
        return 2;
    case ZNS_TYPE_UINT32:
    case ZNS_TYPE_INT32:
        return 4;
    case ZNS_TYPE_MAC:
        return 6;
    default:
        return 0;
    }
}

zns_ia_t ia_make(const uint32_t *idx, int depth) {
    if (depth <= 0 || depth > kMaxDepth)
        return 0;
    uint64_t v = uint64_t(depth) << 60;
    for (int i = 0; i < depth; i++) {
        if (idx[i] == 0 || idx[i] > kMaxIndex)
            return 0;
        v |= uint64_t(idx[i]) << (kIaBits * i);
    }
    return v;
}

int ia_depth(zns_ia_t ia) { return int(ia >> 60); }

uint32_t ia_index(zns_ia_t ia, int level) { return uint32_t((ia >> (kIaBits * level)) & kIaMask); }

std::string dm_format_path(const ObjectLayout *obj, zns_ia_t ia) {
    std::string out;
    int level = 0;
    for (const std::string &seg : split_path(obj->def->path)) {
        out += out.empty() ? "" : ".";
        out += seg == "{i}" ? std::to_string(ia_index(ia, level++)) : seg;
    }
    return out;
}

int dm_parse_path(const char *path, bool allow_param, const ObjectLayout **obj, zns_ia_t *ia,
                  const ParamLayout **param) {
    std::vector<std::string> segs = split_path(path);
    const Model &m = model();
    for (int with_param = 0; with_param <= (allow_param ? 1 : 0); with_param++) {
        if (with_param && segs.size() < 2)
            break;
        const size_t n = segs.size() - size_t(with_param);
        for (size_t k = 0; k < m.objects.size(); k++) {
            const ObjectLayout &o = m.objects[k];
            const std::vector<std::string> &t = m.segments[k];
            if (t.size() != n)
                continue;
            uint32_t idx[kMaxDepth];
            int depth = 0;
            bool match = true;
            for (size_t i = 0; i < n && match; i++) {
                if (t[i] == "{i}") {
                    const std::string &s = segs[i];
                    match = !s.empty() && s.size() <= 5 && s[0] != '0' &&
                            std::all_of(s.begin(), s.end(), [](char c) { return c >= '0' && c <= '9'; }) &&
                            strtoul(s.c_str(), nullptr, 10) <= kMaxIndex;
                    if (match)
                        idx[depth++] = uint32_t(strtoul(s.c_str(), nullptr, 10));
                } else {
                    match = t[i] == segs[i];
                }
            }
            if (!match)
                continue;
            const ParamLayout *p = nullptr;
            if (with_param && !(p = dm_param(&o, segs.back().c_str())))
                continue;
            *obj = &o;
            *ia = depth ? ia_make(idx, depth) : 0;
            if (param)
                *param = p;
            return 0;
        }
    }
    return -1;
}

bool dm_in_subtree(const ObjectLayout *obj, uint32_t root) {
    for (const ObjectLayout *o = obj; o; o = o->parent)
        if (o->def->oid == root)
            return true;
    return false;
}

const ObjectLayout *dm_counter_owner(const ObjectLayout *obj) {
    for (const ObjectLayout *o = obj; o; o = o->parent)
        if (o->def->counter_offset >= 0)
            return o;
    return nullptr;
}

} // namespace zns
