// The store's data model: every object the gateway knows, by OID and path,
// with each parameter's name, type, place in the record and default.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "znsutils.h"

namespace zns {

constexpr int kMaxDepth = 4;          // "{i}" segments in one path
constexpr uint32_t kMaxIndex = 32767; // largest instance number

struct ParamDef {
    const char *name;
    uint32_t type;
    int32_t offset; // -1: placed by the model behind the fixed fields
    uint16_t size;  // field width; for text including the NUL
};

struct ObjectDef {
    uint32_t oid;
    const char *path; // "InternetGatewayDevice.LANDevice.{i}.Hosts.Host.{i}"
    const ParamDef *params;
    size_t param_count;
    // Byte of a 16-bit counter that the store moves on every change in the
    // object's subtree, or -1.
    int32_t counter_offset;
};

struct ParamLayout {
    const char *name;
    uint32_t type;
    uint32_t offset;
    uint32_t size;
};

struct ObjectLayout {
    const ObjectDef *def;
    const ParamLayout *params;
    size_t param_count;
    uint32_t record_size;
    int depth;                  // "{i}" segments of the path
    const ObjectLayout *parent; // nullptr for the root
};

// Every object, in the order of the model table.
const ObjectLayout *dm_objects(size_t *count);
const ObjectLayout *dm_object(uint32_t oid);
const ParamLayout *dm_param(const ObjectLayout *obj, const char *name);
// The built-in defaults, in the text form of store_text.h.
const char *dm_defaults();

// Width in bytes of a value of type in a parameter list; text: 0.
size_t dm_type_width(uint32_t type);

// Instance values: up to kMaxDepth numbers of 15 bits and the depth.
zns_ia_t ia_make(const uint32_t *idx, int depth);
int ia_depth(zns_ia_t ia);
uint32_t ia_index(zns_ia_t ia, int level);

// "A.B.{i}.C" with instance (3) -> "A.B.3.C".
std::string dm_format_path(const ObjectLayout *obj, zns_ia_t ia);
// Resolves "A.B.3.C" or, with allow_param, "A.B.3.C.Param". 0 or -1.
int dm_parse_path(const char *path, bool allow_param, const ObjectLayout **obj, zns_ia_t *ia,
                  const ParamLayout **param);
// Whether obj lies in the subtree of the object with OID root (itself included).
bool dm_in_subtree(const ObjectLayout *obj, uint32_t root);
// The nearest object at or above obj that keeps a change counter, or nullptr.
const ObjectLayout *dm_counter_owner(const ObjectLayout *obj);

} // namespace zns
